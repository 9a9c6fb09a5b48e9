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

// The pixels of a frame as they are, in vectors or one alone.
struct Unweighted
{
    struct Weight
    {
        template <class Pixels>
        UTILS_SSE_INLINE Pixels operator()(Pixels pixels) const
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

// `Count` pixels or samples, 8 at most, as 16-bit lanes.
template <int Count>
UTILS_SSE_INLINE i16 load_lanes(const unsigned char* p)
{
    return widen_low(Part<u8, Count>::load(p));
}
template <int Count>
UTILS_SSE_INLINE i16 load_lanes(const short* p)
{
    return Part<i16, 2 * Count>::load(p);
}
template <int Count>
UTILS_SSE_INLINE void store_lanes(unsigned char* p, i16 x)
{
    Part<u8, Count>::store(p, narrow_saturate(x, x));
}
template <int Count>
UTILS_SSE_INLINE void store_lanes(short* p, i16 x)
{
    Part<i16, 2 * Count>::store(p, x);
}

// The kernels of frame sums are two functions each, of calls with whole blocks and of shorter ones, since these need not save
// the registers that groups of blocks need (one pixel: 5 ns instead of 9).
//
// dst[i] = tail(count, sum, i) for what is left of whole blocks, 2 * Most - 1 elements at most. Two runs that overlap have
// their sums formed side by side, and both are read before either is written: dst may equal any frame. One element alone is
// summed as a number, of which the low 16 bits count.
template <int Most, class T, class Weights, class Tail>
UTILS_SSE_INLINE void cover_frame_sums(Rest rest, T* dst, const FrameList<T>& frames, const Weights& weights, const Tail& tail)
{
    if (UTILS_SSE_OUT_OF_LINE(rest.count >= Most)) {
        constexpr std::integral_constant<int, Most> count;
        const std::ptrdiff_t last = rest.i + rest.count - Most;
        i16 first_sum = zero<i16>();
        i16 last_sum = zero<i16>();
        frames.for_each([&](const T* frame, std::ptrdiff_t j) UTILS_SSE_LAMBDA {
            const auto weight = weights.of(j);
            first_sum = add_wrap(first_sum, weight(load_lanes<Most>(frame + rest.i)));
            last_sum = add_wrap(last_sum, weight(load_lanes<Most>(frame + last)));
        });
        const i16 first_results = tail(count, first_sum, rest.i);
        const i16 last_results = tail(count, last_sum, last);
        store_lanes<Most>(dst + rest.i, first_results);
        store_lanes<Most>(dst + last, last_results);
    } else if constexpr (Most > 2) {
        cover_frame_sums<Most / 2>(rest, dst, frames, weights, tail);
    } else if (rest.count > 0) {
        const auto pixel = [&](std::ptrdiff_t j)
                               UTILS_SSE_LAMBDA { return weights.of(j)(static_cast<unsigned>(frames.first[j][rest.i])); };
        unsigned sum = 0;
        std::ptrdiff_t j = 0;
        for (; j + 4 <= frames.count; j += 4)
            sum += pixel(j) + pixel(j + 1) + pixel(j + 2) + pixel(j + 3);
        for (; j < frames.count; ++j)
            sum += pixel(j);
        dst[rest.i] = static_cast<T>(tail(std::integral_constant<int, 1>(), sum, rest.i));
    }
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
    cover_frame_sums<8>(rest, dst, in_tail, tail_weights, tail);
}

// Masks are unsigned 16-bit factors; whether the top bit is a sign is up to the verb that uses them.
UTILS_SSE_INLINE const short* lanes_of(const unsigned short* mask)
{
    return reinterpret_cast<const short*>(mask);
}

// Bits 8 .. 15.
template <int N>
UTILS_SSE_INLINE I16<N> upper_byte(I16<N> x)
{
    return shift_right_unsigned<8>(x);
}
UTILS_SSE_INLINE unsigned upper_byte(unsigned x)
{
    return x >> 8 & 255;
}

// The low 8 bits of (s * m) >> 8, whatever the full width of s.
template <int N>
UTILS_SSE_INLINE I16<N> divide_wrapping(I16<N> s, I16<N> m)
{
    return upper_byte(multiply_low(s, m));
}

// The same for the `Count` pixels from i on; mask[i] belongs to pixel i.
template <int Count>
UTILS_SSE_INLINE i16 divide_wrapping(i16 s, const short* mask, std::ptrdiff_t i)
{
    return divide_wrapping(s, Part<i16, 2 * Count>::load(mask + i));
}
template <int Count>
UTILS_SSE_INLINE unsigned divide_wrapping(unsigned s, const short* mask, std::ptrdiff_t i)
{
    return upper_byte(s * static_cast<unsigned short>(mask[i]));
}

// What the tails of mask averages make of a sum.
UTILS_SSE_INLINE auto divided_by(const unsigned short* mask)
{
    return [m = lanes_of(mask)](auto count, auto s, std::ptrdiff_t i)
               UTILS_SSE_LAMBDA { return divide_wrapping<count()>(s, m, i); };
}

} // namespace UTILS_SSE_TIER
} // namespace simd
