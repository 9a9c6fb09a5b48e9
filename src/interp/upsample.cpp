// Twice the sampling rate along an RF line, by a symmetric half-band filter.
//
// The value half-way behind sample i is a sum over pairs of neighbouring samples times pairs of taps. Multiplied in pairs,
// eight samples from an even i on yield the sums of i, i + 2, i + 4, i + 6; the same from i + 1 on yields those in between:
//
//   samples  x0 x1 x2 x3 x4 x5 x6 x7      even sums  v0 v2 v4 v6 \  narrowed  v0 v2 v4 v6 v1 v3 v5 v7
//            x1 x2 x3 x4 x5 x6 x7 x8      odd sums   v1 v3 v5 v7 /  in order  v0 v1 v2 v3 ..
//   outputs  x0 v0 x1 v1 x2 v2 x3 v3 ..
//
// What lies around a line is zero; a register shifted by whole samples supplies the zeros.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

template <int Value>
using Constant = std::integral_constant<int, Value>;

// sums<Parity>(x): the sums of every other sample from the one at Parity on; x(offset) is a run of samples that starts
// `offset` behind the first.
struct EightTaps
{
    static constexpr int shift = 10;

    template <int Parity, class Samples>
    static UTILS_SSE_INLINE auto sums(const Samples& x)
    {
        constexpr int n = decltype(x(Constant<0>()))::blocks;
        const auto left = add_wrap(multiply_add_pairs(x(Constant<Parity - 3>()), broadcast_pair<n>(-13, 61)),
                                   multiply_add_pairs(x(Constant<Parity - 1>()), broadcast_pair<n>(-170, 634)));
        const auto right = add_wrap(multiply_add_pairs(x(Constant<Parity + 1>()), broadcast_pair<n>(634, -170)),
                                    multiply_add_pairs(x(Constant<Parity + 3>()), broadcast_pair<n>(61, -13)));
        return add_wrap(left, right);
    }
};

struct FourTaps
{
    static constexpr int shift = 4;

    template <int Parity, class Samples>
    static UTILS_SSE_INLINE auto sums(const Samples& x)
    {
        constexpr int n = decltype(x(Constant<0>()))::blocks;
        return add_wrap(multiply_add_pairs(x(Constant<Parity - 1>()), broadcast_pair<n>(-1, 9)),
                        multiply_add_pairs(x(Constant<Parity + 1>()), broadcast_pair<n>(9, -1)));
    }
};

// Samples and what lies between them: the outputs at the lower half of the samples of each block, and at the upper half.
template <class Filter, class Samples, class Narrow>
UTILS_SSE_INLINE auto upsample(const Samples& x, const Narrow& narrow)
{
    const auto evens_odds = narrow(shift_right<Filter::shift>(Filter::template sums<0>(x)),
                                   shift_right<Filter::shift>(Filter::template sums<1>(x)));
    const auto between = interleave_low(evens_odds, move_down<4>(evens_odds));
    const auto samples = x(Constant<0>());
    return in_turn(interleave_low(samples, between), interleave_high(samples, between));
}

// The vector stage saturates.
template <class Filter, class Samples>
UTILS_SSE_INLINE auto upsample_saturating(const Samples& x)
{
    return upsample<Filter>(x, [](auto low, auto high) UTILS_SSE_LAMBDA { return narrow_saturate(low, high); });
}

// The scalar stage and the edges wrap.
template <class Filter, class Samples>
UTILS_SSE_INLINE auto upsample_wrapping(const Samples& x)
{
    return upsample<Filter>(x, [](auto low, auto high) UTILS_SSE_LAMBDA { return narrow_wrap(low, high); });
}

// Writes the outputs at the first Count samples.
template <int Count>
UTILS_SSE_INLINE void put(short* dst, I16x2<1> outputs)
{
    if constexpr (Count == 8)
        store(dst, outputs);
    else
        Part<i16, 4 * Count>::store(dst, outputs.low);
}

// dst[0] is the output at src[0]; n is a multiple of 8.
template <class Filter>
UTILS_SSE_INLINE void vector_stage(short* dst, const short* src, int n)
{
    map_blocks<8, 2>(
        n,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            return upsample_saturating<Filter>([=](auto offset) UTILS_SSE_LAMBDA { return run.load(src + i + offset); });
        },
        [=](std::ptrdiff_t i, auto outputs) UTILS_SSE_LAMBDA { store(dst + 2 * i, outputs); }, ahead<1024>(src));
}

// Inputs begin .. end - 1, at least two of them.
template <class Filter>
UTILS_SSE_INLINE void scalar_stage(short* dst, const short* src, int begin, int end)
{
    cover<8, 2>(Rest{begin, end - begin}, [=](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        const auto samples = [=](auto offset) UTILS_SSE_LAMBDA { return Part<i16, 2 * count()>::load(src + i + offset); };
        put<count()>(dst + 2 * i, upsample_wrapping<Filter>(samples));
    });
}

} // namespace

void CUtils_SSE::Upsample2(short* dst, const short* src, int n)
{
    if (n < 9)
        return;
    const int whole = (n - 8) & ~7;
    if (whole > 0) {
        const i16 first = load<i16>(src);
        // The outputs at samples 0 .. 2; what this stores at sample 3 is replaced by the vector stage.
        put<4>(dst, upsample_wrapping<EightTaps>([=](auto offset) UTILS_SSE_LAMBDA {
                   const i16 samples = move_down<offset()>(first);
                   if constexpr (offset() == 4)
                       return interleave_low(samples, samples); // x4 in the place of x5 too, on purpose: only output 3 looks
                   else
                       return samples;
               }));
        vector_stage<EightTaps>(dst + 6, src + 3, whole);
    }
    // Starts on purpose before the vector stage ended, or, without one, at sample 0, looking in front of the line.
    scalar_stage<EightTaps>(dst, src, whole, n - 4);
    const i16 last = load<i16>(src + n - 8);
    put<4>(dst + 2 * (static_cast<std::ptrdiff_t>(n) - 4),
           upsample_wrapping<EightTaps>([=](auto offset) UTILS_SSE_LAMBDA { return move_down<4 + offset()>(last); }));
}

void CUtils_SSE::Upsample2Fast(short* dst, const short* src, int n)
{
    if (n < 5)
        return;
    const int whole = (n - 4) & ~7;
    if (whole > 0) {
        // The sample in front of the line is zero here; without a vector stage the scalar stage reads it.
        put<8>(dst, upsample_saturating<FourTaps>([=](auto offset) UTILS_SSE_LAMBDA {
                   if constexpr (offset() < 0)
                       return move_down<offset()>(load<i16>(src));
                   else
                       return load<i16>(src + offset);
               }));
        vector_stage<FourTaps>(dst + 16, src + 8, whole - 8);
    }
    scalar_stage<FourTaps>(dst, src, whole, n - 2);
    const i16 last = load_four(src + n - 4);
    put<2>(dst + 2 * (static_cast<std::ptrdiff_t>(n) - 2),
           upsample_wrapping<FourTaps>([=](auto offset) UTILS_SSE_LAMBDA { return move_down<2 + offset()>(last); }));
}
