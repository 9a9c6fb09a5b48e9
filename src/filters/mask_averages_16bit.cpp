// The mask average of 16-bit frames.
#include "filters/frame_sums.h"
#include "utils_sse.h"

using namespace simd;

namespace {

using Samples = FrameList<short>;

constexpr int kSampleBlocks = sizeof(void*) == 8 ? 4 : 1;

// Eight samples of each block times their factors, summed over the frames, >> 8 and saturated. Two frames at a time:
//
//   factors  m0 m0 m1 m1 m2 m2 m3 m3    of both halves of a block, on purpose: factors 4 .. 7 are not used
//   samples  a0 b0 a1 b1 a2 b2 a3 b3    a4 b4 a5 b5 a6 b6 a7 b7
//   products added in pairs: a0 m0 + b0 m0, ..
template <int Blocks>
UTILS_SSE_INLINE void average_blocks(short* dst, const Samples& frames, const short* mask, std::ptrdiff_t i)
{
    i32x2 sums[Blocks];
    for (i32x2& sum : sums)
        sum = {zero<i32>(), zero<i32>()};
    i16 factors[Blocks];
    repeat<Blocks>([&](auto b) UTILS_SSE_LAMBDA {
        const i16 four = load_four(mask + i + b * 8);
        factors[b] = interleave_low(four, four);
    });
    const auto add = [&](auto b, i16 x, i16 y) UTILS_SSE_LAMBDA {
        sums[b].low = in_order(add_wrap(sums[b].low, multiply_add_pairs(interleave_low(x, y), factors[b])));
        sums[b].high = in_order(add_wrap(sums[b].high, multiply_add_pairs(interleave_high(x, y), factors[b])));
    };
    std::ptrdiff_t j = 0;
    for (; j + 1 < frames.count; j += 2) {
        const short* const x = frames.first[j] + i;
        const short* const y = frames.first[j + 1] + i;
        repeat<Blocks>([&](auto b) UTILS_SSE_LAMBDA { add(b, load<i16>(x + b * 8), load<i16>(y + b * 8)); });
    }
    if (j < frames.count)
        repeat<Blocks>([&](auto b) UTILS_SSE_LAMBDA { add(b, load<i16>(frames.first[j] + i + b * 8), zero<i16>()); });
    repeat<Blocks>([&](auto b) UTILS_SSE_LAMBDA {
        store(dst + i + b * 8, narrow_saturate(shift_right<8>(sums[b].low), shift_right<8>(sums[b].high)));
    });
}

} // namespace

void CUtils_SSE::MaskAverage(short* dst, const short* const* frames, int frameCount, const unsigned short* mask, int n)
{
    const Samples list{frames, frameCount};
    const short* m = lanes_of(mask);
    Rest rest{0, n};
    const auto step = [&](auto blocks) UTILS_SSE_LAMBDA {
        average_blocks<blocks()>(dst, list, m, rest.i);
        rest.i += blocks * 8;
        rest.count -= blocks * 8;
    };
    while (rest.count >= kSampleBlocks * 8)
        step(std::integral_constant<int, kSampleBlocks>());
    if constexpr (kSampleBlocks > 1)
        while (rest.count >= 8)
            step(std::integral_constant<int, 1>());
    // The tail gives bytes, and each element has its own factor, on purpose.
    cover_in_place<4>(
        rest,
        [&](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            i16 sum = zero<i16>();
            list.for_each([&](const short* frame, std::ptrdiff_t)
                              UTILS_SSE_LAMBDA { sum = add_wrap(sum, Part<i16, 2 * count()>::load(frame + i)); });
            return divide_wrapping<count()>(sum, m, i);
        },
        [=](auto count, std::ptrdiff_t i, i16 samples) UTILS_SSE_LAMBDA { Part<i16, 2 * count()>::store(dst + i, samples); });
}
