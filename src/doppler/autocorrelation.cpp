// Lag-zero and lag-one autocorrelation of the ensemble of one colour Doppler pixel.
#include "simd/loops.h"
#include "utils_sse.h"

#include <cmath>

using namespace simd;

namespace {

struct Sums
{
    float re, im, power;
};

// Four samples, and the sample behind each; behind the last one of the ensemble lies zero. The latter are shuffled, not
// loaded from x + 1: such a load would wait for the two stores of a filter that has just written the ensemble.
struct Position
{
    f32 at, next;
};

template <int N>
UTILS_SSE_INLINE Position position(const float* x, int first)
{
    const f32 at = first + 2 == N ? load_two(x + first) : load<f32>(x + first); // the contract reads on to element 11
    const f32 after = first + 4 < N ? load_one(x + first + 4) : zero<f32>();
    return {at, following(at, after)};
}

// The order of all additions is the contract. Lanes begin with their first term, not with 0. The pair behind the last
// sample is a product with zero, which an infinite or NaN sample turns into NaN.
template <int N>
UTILS_SSE_INLINE Sums sums_of_usual(const float* ensembleI, const float* ensembleQ)
{
    f32 re, im, power;
    repeat<(N + 3) / 4>([&](auto p) UTILS_SSE_LAMBDA {
        const Position I = position<N>(ensembleI, 4 * p);
        const Position Q = position<N>(ensembleQ, 4 * p);
        const f32 re_terms = I.at * I.next + Q.at * Q.next;
        const f32 im_terms = Q.next * I.at - I.next * Q.at;
        const f32 squares = I.at * I.at + Q.at * Q.at;
        re = p == 0 ? re_terms : re + re_terms;
        im = p == 0 ? im_terms : im + im_terms;
        power = p == 0 ? squares : power + squares;
    });
    return {fold(re), fold(im), fold(power)};
}

UTILS_SSE_INLINE float spread_of(const Sums& sums)
{
    if (sums.power == 0.0f)
        return 0.0f;
    return 1.0f - square_root(sums.im * sums.im + sums.re * sums.re) / sums.power;
}

UTILS_SSE_INLINE float decibels(float mean_power)
{
    return static_cast<float>(std::log10(static_cast<double>(mean_power + 1.0f))) * 10.0f;
}

template <int N>
UTILS_SSE_INLINE void estimate_usual(const float* ensembleI, const float* ensembleQ, float reciprocal, float* spread,
                                     float* power, float* re, float* im)
{
    const Sums sums = sums_of_usual<N>(ensembleI, ensembleQ);
    *re = sums.re;
    *im = sums.im;
    const float v = spread_of(sums);
    *power = decibels(sums.power * reciprocal);
    *spread = v;
}

UTILS_SSE_INLINE void store_four_times(float* p, float x)
{
    if (p != nullptr)
        store(p, broadcast<f32>(x));
}

// All other lengths. On purpose they differ from the usual ones: the spread is relative to the power without the last
// sample, the mean is a division, each output is four floats or null, and a single sample counts for nothing.
UTILS_SSE_APART void estimate_any(int n, const float* ensembleI, const float* ensembleQ, float* spread, float* power, float* re,
                                  float* im)
{
    Sums sums = {0.0f, 0.0f, 0.0f};
    float whole_power = 0.0f;
    if (n > 1) {
        float I = ensembleI[0];
        float Q = ensembleQ[0];
        for (std::ptrdiff_t k = 1; k < n; ++k) {
            const float nextI = ensembleI[k];
            const float nextQ = ensembleQ[k];
            sums.im += nextQ * I - Q * nextI;
            sums.re += nextI * I + nextQ * Q;
            sums.power += I * I + Q * Q;
            I = nextI;
            Q = nextQ;
        }
        whole_power = (I * I + Q * Q) + sums.power;
    }
    store_four_times(re, sums.re);
    store_four_times(im, sums.im);
    store_four_times(spread, spread_of(sums));
    if (power != nullptr)
        store_four_times(power, decibels(whole_power / static_cast<float>(n)));
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
