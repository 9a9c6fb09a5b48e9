// Sums over lists of frames, pixel by pixel, in 16-bit lanes.
#pragma once

#include "simd/loops.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

// Vectors of pixels that are summed side by side: eight sums of four of them wait in registers, 32-bit code has room for two.
constexpr int kFrameVectors = sizeof(void*) == 8 ? 4 : 1;

// The sums of some pixels; a run of 8 or fewer has them in `low`.
template <int N>
struct PixelSums
{
    I16<N> low, high;
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
        template <int N>
        UTILS_SSE_INLINE I16<N> operator()(I16<N> pixels) const
        {
            return pixels;
        }
    };
    UTILS_SSE_INLINE Weight of(std::ptrdiff_t) const { return {}; }
};

// sums[b]: of the pixels of vector b from i on. weights.of(j) turns pixels of frame j into what is summed.
template <int N, int Vectors, class Weights>
UTILS_SSE_INLINE void sum_vectors(PixelSums<N> (&sums)[Vectors], const Frames& frames, const Weights& weights, std::ptrdiff_t i)
{
    for (PixelSums<N>& sum : sums)
        sum = {zero<I16<N>>(), zero<I16<N>>()};
    frames.for_each([&](const unsigned char* frame, std::ptrdiff_t j) UTILS_SSE_LAMBDA {
        const auto weight = weights.of(j);
        repeat<Vectors>([&](auto b) UTILS_SSE_LAMBDA {
            const auto pixels = U8<N>::load(frame + i + b * N * 16);
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

// dst[i] = body(run, sums, i) in whole blocks, as many as `run`, a Blocks<N>, loads; tail(count, sums, i) behind them. dst may equal any frame.
template <class BodyWeights, class TailWeights, class Body, class Tail>
UTILS_SSE_INLINE void map_frame_sums(int n, unsigned char* dst, const Frames& in_body, const BodyWeights& body_weights,
                                     const Body& body, const Frames& in_tail, const TailWeights& tail_weights, const Tail& tail)
{
    Rest rest{0, n};
    const auto step = [&](auto run, auto vectors) UTILS_SSE_LAMBDA {
        constexpr int count = vectors();
        constexpr int pixels_each = run.count * 16;
        PixelSums<run.count> sums[count];
        sum_vectors(sums, in_body, body_weights, rest.i);
        U8<run.count> pixels[count];
        repeat<count>([&](auto b) UTILS_SSE_LAMBDA { pixels[b] = in_order(body(run, sums[b], rest.i + b * pixels_each)); });
        repeat<count>([&](auto b) UTILS_SSE_LAMBDA { store(dst + rest.i + b * pixels_each, pixels[b]); });
        rest.i += count * pixels_each;
        rest.count -= count * pixels_each;
    };
    constexpr Blocks<UTILS_SSE_MOST_BLOCKS> wide;
    constexpr std::integral_constant<int, 1> one;
    while (rest.count >= kFrameVectors * wide.count * 16)
        step(wide, std::integral_constant<int, kFrameVectors>());
    if constexpr (wide.count > 1)
        while (rest.count >= wide.count * 16)
            step(wide, one);
    if constexpr (kFrameVectors * wide.count > 1)
        while (rest.count >= 16)
            step(Blocks<1>(), one);
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
template <int N>
UTILS_SSE_INLINE I16<N> divide_wrapping(I16<N> s, I16<N> m)
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
