// The mask average of 16-bit frames.
#include "filters/frame_sums.h"
#include "utils_sse.h"

using namespace simd;

namespace {

using Samples = FrameList<short>;

constexpr int kSampleVectors = sizeof(void*) == 8 ? 4 : 1;

// Eight samples of each block times their factors, summed over the frames, >> 8 and saturated. Two frames at a time:
//
//   factors  m0 m0 m1 m1 m2 m2 m3 m3    of both halves of a block, on purpose: factors 4 .. 7 are not used
//   samples  a0 b0 a1 b1 a2 b2 a3 b3    a4 b4 a5 b5 a6 b6 a7 b7
//   products added in pairs: a0 m0 + b0 m0, ..
template <int Vectors, int N>
UTILS_SSE_INLINE void average_vectors(Blocks<N> run, short* dst, const Samples& frames, const short* mask, std::ptrdiff_t i)
{
    constexpr int each = N * 8;
    I32x2<N> sums[Vectors];
    for (I32x2<N>& sum : sums)
        sum = {zero<I32<N>>(), zero<I32<N>>()};
    I16<N> factors[Vectors];
    repeat<Vectors>([&](auto v) UTILS_SSE_LAMBDA {
        const I16<N> m = run.load(mask + i + v * each);
        factors[v] = interleave_low(m, m);
    });
    const auto add = [&](auto v, I16<N> x, I16<N> y) UTILS_SSE_LAMBDA {
        sums[v].low = in_order(add_wrap(sums[v].low, multiply_add_pairs(interleave_low(x, y), factors[v])));
        sums[v].high = in_order(add_wrap(sums[v].high, multiply_add_pairs(interleave_high(x, y), factors[v])));
    };
    std::ptrdiff_t j = 0;
    for (; j + 1 < frames.count; j += 2) {
        const short* const x = frames.first[j] + i;
        const short* const y = frames.first[j + 1] + i;
        repeat<Vectors>([&](auto v) UTILS_SSE_LAMBDA { add(v, run.load(x + v * each), run.load(y + v * each)); });
    }
    if (j < frames.count)
        repeat<Vectors>([&](auto v) UTILS_SSE_LAMBDA { add(v, run.load(frames.first[j] + i + v * each), zero<I16<N>>()); });
    repeat<Vectors>([&](auto v) UTILS_SSE_LAMBDA {
        store(dst + i + v * each, narrow_saturate(shift_right<8>(sums[v].low), shift_right<8>(sums[v].high)));
    });
}

UTILS_SSE_APART void mask_average(short* dst, const short* const* frames, int frameCount, const unsigned short* mask, int n)
{
    const Samples list{frames, frameCount};
    const short* m = lanes_of(mask);
    Rest rest{0, n};
    const auto step = [&](auto run, auto vectors) UTILS_SSE_LAMBDA {
        average_vectors<vectors()>(run, dst, list, m, rest.i);
        rest.i += vectors() * run.count * 8;
        rest.count -= vectors() * run.count * 8;
    };
    constexpr Blocks<UTILS_SSE_MOST_BLOCKS> wide;
    constexpr std::integral_constant<int, 1> one;
    while (rest.count >= kSampleVectors * wide.count * 8)
        step(wide, std::integral_constant<int, kSampleVectors>());
    if constexpr (wide.count > 1)
        while (rest.count >= wide.count * 8)
            step(wide, one);
    if constexpr (kSampleVectors * wide.count > 1)
        while (rest.count >= 8)
            step(Blocks<1>(), one);
    cover_frame_sums<4>(rest, dst, list, Unweighted(), divided_by(mask));
}

} // namespace

// The tail gives bytes, and each element has its own factor, on purpose.
void CUtils_SSE::MaskAverage(short* dst, const short* const* frames, int frameCount, const unsigned short* mask, int n)
{
    if (n >= 8)
        mask_average(dst, frames, frameCount, mask, n);
    else
        cover_frame_sums<4>(Rest{0, n}, dst, Samples{frames, frameCount}, Unweighted(), divided_by(mask));
}
