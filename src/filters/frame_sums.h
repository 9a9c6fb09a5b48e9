// Sums over lists of frames, pixel by pixel, in 16-bit lanes.
#pragma once

#include "simd/loops.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

// Blocks of 16 pixels that are summed side by side: of 64 bytes eight sums wait in registers, 32-bit code has room for two.
constexpr int kFrameBlocks = sizeof(void*) == 8 ? 4 : 1;

// The sums of some pixels; a run of 8 or fewer has them in `low`.
struct PixelSums
{
    i16 low, high;
};

// A list of frames of T from `first` on, and how many there are; none when `count` <= 0.
template <class T>
struct FrameList
{
    const T* const* first;
    std::ptrdiff_t count;

    // f(frame, number) for each frame in order.
    template <class Function>
    UTILS_SSE_INLINE void for_each(const Function& f) const
    {
        for (std::ptrdiff_t j = 0; j < count; ++j)
            f(first[j], j);
    }
};

using Frames = FrameList<unsigned char>;

// The pixels of a frame as they are.
struct Unweighted
{
    struct Weight
    {
        UTILS_SSE_INLINE i16 operator()(i16 pixels) const { return pixels; }
    };
    UTILS_SSE_INLINE Weight of(std::ptrdiff_t) const { return {}; }
};

// sums[b]: of the 16 pixels of block b from i on. weights.of(j) turns eight pixels of frame j into what is summed.
template <int Blocks, class Weights>
UTILS_SSE_INLINE void sum_blocks(PixelSums (&sums)[Blocks], const Frames& frames, const Weights& weights, std::ptrdiff_t i)
{
    for (PixelSums& sum : sums)
        sum = {zero<i16>(), zero<i16>()};
    frames.for_each([&](const unsigned char* frame, std::ptrdiff_t j) UTILS_SSE_LAMBDA {
        const auto weight = weights.of(j);
        repeat<Blocks>([&](auto b) UTILS_SSE_LAMBDA {
            const u8 pixels = load<u8>(frame + i + b * 16);
            sums[b].low = in_order(add_wrap(sums[b].low, weight(widen_low(pixels))));
            sums[b].high = in_order(add_wrap(sums[b].high, weight(widen_high(pixels))));
        });
    });
}

// The sums of `Count` pixels, 8 at most.
template <int Count, class Weights>
UTILS_SSE_INLINE i16 sum_pixels(const Frames& frames, const Weights& weights, std::ptrdiff_t i)
{
    i16 sum = zero<i16>();
    frames.for_each([&](const unsigned char* frame, std::ptrdiff_t j)
                        UTILS_SSE_LAMBDA { sum = add_wrap(sum, weights.of(j)(widen_low(Part<u8, Count>::load(frame + i)))); });
    return sum;
}

// dst[i] = body(sums, i) in whole blocks, tail(count, sums, i) behind them. dst may equal any frame.
template <class BodyWeights, class TailWeights, class Body, class Tail>
UTILS_SSE_INLINE void map_frame_sums(int n, unsigned char* dst, const Frames& in_body, const BodyWeights& body_weights,
                                     const Body& body, const Frames& in_tail, const TailWeights& tail_weights, const Tail& tail)
{
    Rest rest{0, n};
    const auto step = [&](auto blocks) UTILS_SSE_LAMBDA {
        constexpr int count = blocks();
        PixelSums sums[count];
        sum_blocks(sums, in_body, body_weights, rest.i);
        u8 pixels[count];
        repeat<count>([&](auto b) UTILS_SSE_LAMBDA { pixels[b] = in_order(body(sums[b], rest.i + b * 16)); });
        repeat<count>([&](auto b) UTILS_SSE_LAMBDA { store(dst + rest.i + b * 16, pixels[b]); });
        rest.i += count * 16;
        rest.count -= count * 16;
    };
    while (rest.count >= kFrameBlocks * 16)
        step(std::integral_constant<int, kFrameBlocks>());
    if constexpr (kFrameBlocks > 1)
        while (rest.count >= 16)
            step(std::integral_constant<int, 1>());
    cover_in_place<8>(
        rest,
        [&](auto count, std::ptrdiff_t i)
            UTILS_SSE_LAMBDA { return tail(count, sum_pixels<count()>(in_tail, tail_weights, i), i); },
        [=](auto count, std::ptrdiff_t i, i16 pixels)
            UTILS_SSE_LAMBDA { Part<u8, count()>::store(dst + i, narrow_saturate(pixels, pixels)); });
}

// Masks are unsigned 16-bit factors; whether the top bit is a sign is up to the verb that uses them.
UTILS_SSE_INLINE const short* lanes_of(const unsigned short* mask)
{
    return reinterpret_cast<const short*>(mask);
}

// The low 8 bits of (s * m) >> 8, whatever the full width of s.
UTILS_SSE_INLINE i16 divide_wrapping(i16 s, i16 m)
{
    return shift_right_unsigned<8>(multiply_low(s, m));
}

// The same for the `Count` pixels from i on; mask[i] belongs to pixel i.
template <int Count>
UTILS_SSE_INLINE i16 divide_wrapping(i16 s, const short* mask, std::ptrdiff_t i)
{
    return divide_wrapping(s, Part<i16, 2 * Count>::load(mask + i));
}

} // namespace UTILS_SSE_TIER
} // namespace simd
