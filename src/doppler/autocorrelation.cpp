// Lag-zero and lag-one autocorrelation of the ensemble of one colour Doppler pixel.
#include "doppler/decibels.h"
#include "utils_sse.h"

#include <cmath>

using namespace simd;

namespace {

struct Sums
{
    float re, im, power;
};

// x1 x2 x3 0
UTILS_SSE_INLINE f32 shifted_down(f32 x)
{
    return {mm::as_ps(mm::move_down<4>(mm::as_si(x.v)))};
}

// Four samples, and the sample behind each. The latter are shuffled, not loaded from one sample further on: such a load would
// wait for the two stores of a filter that has just written the ensemble.
struct Position
{
    f32 at, next;

    UTILS_SSE_INLINE Position(f32 samples, f32 following_samples) : at(samples), next(following(samples, following_samples)) {}
    // Zero lies behind the last.
    UTILS_SSE_INLINE explicit Position(f32 samples) : at(samples), next(shifted_down(samples)) {}
};

// The terms of four pairs of samples, and the squares of their first samples.
struct Terms
{
    f32 power, re, im;

    UTILS_SSE_INLINE Terms(Position I, Position Q)
        : power(I.at * I.at + Q.at * Q.at), re(I.at * I.next + Q.at * Q.next), im(Q.next * I.at - I.next * Q.at)
    {}
};

// The order of all additions is the contract. Lanes begin with their first term, not with 0. The pair behind the last
// sample is a product with zero, which an infinite or NaN sample turns into NaN.
template <int N>
UTILS_SSE_INLINE Sums sums_of_usual(const float* ensembleI, const float* ensembleQ)
{
    constexpr int vectors = (N + 3) / 4;
    const auto samples = [](const float* x, int first) UTILS_SSE_LAMBDA {
        return first + 2 == N ? load_two(x + first) : load<f32>(x + first); // the contract reads on to element 11
    };
    f32 I = samples(ensembleI, 0);
    f32 Q = samples(ensembleQ, 0);
    f32 power, re, im;
    repeat<vectors>([&](auto v) UTILS_SSE_LAMBDA {
        const auto add = [&](const Terms& terms) UTILS_SSE_LAMBDA {
            power = v == 0 ? terms.power : power + terms.power;
            re = v == 0 ? terms.re : re + terms.re;
            im = v == 0 ? terms.im : im + terms.im;
        };
        if constexpr (v + 1 < vectors) {
            const f32 nextI = samples(ensembleI, 4 * v + 4);
            const f32 nextQ = samples(ensembleQ, 4 * v + 4);
            add(Terms({I, nextI}, {Q, nextQ}));
            I = nextI;
            Q = nextQ;
        } else
            add(Terms(Position(I), Position(Q)));
    });
    return {fold(re), fold(im), fold(power)};
}

UTILS_SSE_INLINE float spread_of(const Sums& sums)
{
    if (sums.power == 0.0f)
        return 0.0f;
    return 1.0f - square_root(sums.im * sums.im + sums.re * sums.re) / sums.power;
}

UTILS_SSE_INLINE float decibels_by_library(float power)
{
    return static_cast<float>(std::log10(static_cast<double>(power))) * 10.0f;
}

UTILS_SSE_APART void finish_usual(float power_and_one, float v, float* spread, float* power)
{
    *power = decibels_by_library(power_and_one);
    *spread = v;
}

template <int N>
UTILS_SSE_INLINE void estimate_usual(const float* ensembleI, const float* ensembleQ, float reciprocal, float* spread,
                                     float* power, float* re, float* im)
{
    const Sums sums = sums_of_usual<N>(ensembleI, ensembleQ);
    *re = sums.re;
    *im = sums.im;
    const float v = spread_of(sums);
    const float power_and_one = sums.power * reciprocal + 1.0f;
    float log;
    if (!find_log10(power_and_one, log))
        return finish_usual(power_and_one, v, spread, power);
    *power = log * 10.0f;
    *spread = v;
}

UTILS_SSE_INLINE void store_four_times(float* p, float x)
{
    if (p != nullptr)
        store(p, broadcast<f32>(x));
}

UTILS_SSE_APART void finish_any(float power_and_one, float* power)
{
    store_four_times(power, decibels_by_library(power_and_one));
}

// Of each of four pairs its terms re, im and power in a vector; the last lane means nothing.
struct Pairs
{
    f32 pair[4];

    UTILS_SSE_INLINE explicit Pairs(const Terms& terms)
    {
        const f32 low = low_halves(terms.re, terms.im);   // re0 re1 im0 im1
        const f32 high = high_halves(terms.re, terms.im); // re2 re3 im2 im3
        pair[0] = even_lanes(low, terms.power);
        pair[1] = odd_lanes(low, terms.power);
        pair[2] = {_mm_shuffle_ps(high.v, terms.power.v, _MM_SHUFFLE(2, 2, 2, 0))};
        pair[3] = {_mm_shuffle_ps(high.v, terms.power.v, _MM_SHUFFLE(3, 3, 3, 1))};
    }
};

// One to three samples, one by one: so a filter that has just written the ensemble stored them.
UTILS_SSE_INLINE f32 load_up_to_three(const float* x, int count)
{
    const f32 first = load_one(x);
    if (count == 1)
        return first;
    const f32 two = interleave_low(first, load_one(x + 1));
    return count == 2 ? two : low_halves(two, load_one(x + 2));
}

// All other lengths. On purpose they differ from the usual ones: the spread is relative to the power without the last
// sample, the mean is a division, each output is four floats or null, and a single sample counts for nothing.
//
// Terms are added one pair after the other, which is a chain of n - 1 additions; lanes are the sums.
UTILS_SSE_APART void estimate_any(int n, const float* ensembleI, const float* ensembleQ, float* spread, float* power, float* re,
                                  float* im)
{
    f32 sums = zero<f32>();
    float whole_power = 0.0f;
    if (n > 1) {
        const auto samples = [](const float* x, int count)
                                 UTILS_SSE_LAMBDA { return count >= 4 ? load<f32>(x) : load_up_to_three(x, count); };
        f32 I = samples(ensembleI, n);
        f32 Q = samples(ensembleQ, n);
        int left = n; // of which the first four are in I and Q
        for (; left > 4; left -= 4) {
            ensembleI += 4;
            ensembleQ += 4;
            const f32 nextI = samples(ensembleI, left - 4);
            const f32 nextQ = samples(ensembleQ, left - 4);
            const Pairs pairs(Terms({I, nextI}, {Q, nextQ}));
            repeat<4>([&](auto k) UTILS_SSE_LAMBDA { sums = sums + pairs.pair[k]; });
            I = nextI;
            Q = nextQ;
        }
        const Pairs pairs{Terms(Position(I), Position(Q))};
        f32 last = pairs.pair[0];
        repeat<3>([&](auto k) UTILS_SSE_LAMBDA {
            if (left > k + 1) {
                sums = sums + last;
                last = pairs.pair[k + 1];
            }
        });
        whole_power = lane<2>(last + sums);
    }
    const Sums totals = {lane<0>(sums), lane<1>(sums), lane<2>(sums)};
    store_four_times(re, totals.re);
    store_four_times(im, totals.im);
    store_four_times(spread, spread_of(totals));
    if (power == nullptr)
        return;
    const float power_and_one = whole_power / static_cast<float>(n) + 1.0f;
    float log;
    if (!find_log10(power_and_one, log))
        return finish_any(power_and_one, power);
    store_four_times(power, log * 10.0f);
}

} // namespace

void CUtils_SSE::AutoCorrelateSSE(int n, const float* ensembleI, const float* ensembleQ, float* spread, float* power, float* re,
                                  float* im)
{
    switch (n) {
    case 8:
        return estimate_usual<8>(ensembleI, ensembleQ, 0.125f, spread, power, re, im);
    case 10:
        return estimate_usual<10>(ensembleI, ensembleQ, 0.1f, spread, power, re, im);
    case 12: // 0x3DAAAAA6 on purpose: 0.0833333 to seven digits, five steps below 1 / 12
        return estimate_usual<12>(ensembleI, ensembleQ, 0.0833332986f, spread, power, re, im);
    default:
        return estimate_any(n, ensembleI, ensembleQ, spread, power, re, im);
    }
}
