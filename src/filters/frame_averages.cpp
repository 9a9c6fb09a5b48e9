// Averages of whole frames, blends and persistence.
//
// Machine code (GCC 12, x86-64): everything in registers; four blocks are read and computed before the first is written.
#include "filters/four_pixels.h"
#include "simd/loops.h"
#include "utils_sse.h"

#include <cstring>

using namespace simd;

namespace {

// dst[i] = body(src[i]...) in whole blocks, tail(src[i]...) behind them. dst may equal any src, here and below.
template <class Body, class Tail, class... Source>
UTILS_SSE_INLINE void blend_pixels(int n, unsigned char* dst, const Body& body, const Tail& tail, const Source*... src)
{
    map_with_tail<16, 4>(
        n, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return in_order(body(run.load(src + i)...)); },
        [=](std::ptrdiff_t i, auto pixels) UTILS_SSE_LAMBDA { store(dst + i, pixels); },
        [=](Rest rest) UTILS_SSE_LAMBDA {
            cover_in_place<8>(
                rest, [=](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return tail(Part<u8, count()>::load(src + i)...); },
                [=](auto count, std::ptrdiff_t i, u8 pixels) UTILS_SSE_LAMBDA { Part<u8, count()>::store(dst + i, pixels); });
        },
        ahead<1024>(src)...);
}

// The same for dst among the sources: dst[i] = body(dst[i], src[i]...).
template <class Body, class Tail, class... Source>
UTILS_SSE_INLINE void average_into(int n, unsigned char* dst, const Body& body, const Tail& tail, const Source*... src)
{
    map_into<16, 4>(
        n,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            return in_order(body(run.load(const_cast<const unsigned char*>(dst) + i), run.load(src + i)...));
        },
        [=](std::ptrdiff_t i, auto pixels) UTILS_SSE_LAMBDA { store(dst + i, pixels); },
        [=](Rest rest) UTILS_SSE_LAMBDA {
            for_parts<8>(rest, [=](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
                using Run = Part<u8, count()>;
                Run::store(dst + i, tail(Run::load(dst + i), Run::load(src + i)...));
            });
        },
        ahead<1024>(dst), ahead<1024>(src)...);
}

struct Mean4
{
    template <class V>
    UTILS_SSE_INLINE V operator()(V d, V a, V b, V c) const
    {
        return mean_down(d, a, b, c);
    }
};

UTILS_SSE_INLINE void copy_frame(unsigned char* dst, const unsigned char* src, int n)
{
    if (n > 0)
        std::memmove(dst, src, static_cast<std::size_t>(n)); // dst may be src
}

} // namespace

void CUtils_SSE::TemporalAverage2(unsigned char* dst, const unsigned char* b, int n)
{
    average_into(
        n, dst, [](auto x, auto y) UTILS_SSE_LAMBDA { return average_up(x, y); },
        [](u8 x, u8 y) UTILS_SSE_LAMBDA { return average_down(x, y); }, b); // the tail rounds down, on purpose
}

void CUtils_SSE::TemporalAverage4(unsigned char* dst, const unsigned char* a, const unsigned char* b, const unsigned char* c,
                                  int n)
{
    average_into(n, dst, Mean4(), Mean4(), a, b, c);
}

void CUtils_SSE::TemporalAverage4Fast(unsigned char* dst, const unsigned char* a, const unsigned char* b,
                                      const unsigned char* c, int n)
{
    // The body rounds up three times, the tail down once, on purpose.
    average_into(
        n, dst,
        [](auto vd, auto va, auto vb, auto vc) UTILS_SSE_LAMBDA { return average_up(average_up(vc, vb), average_up(va, vd)); },
        Mean4(), a, b, c);
}

void CUtils_SSE::WeightedAverage(unsigned char* dst, const unsigned char* a, const unsigned char* b, int n, int percent)
{
    if (UTILS_SSE_OUT_OF_LINE(percent <= 0 || percent >= 100)) {
        copy_frame(dst, percent <= 0 ? a : b, n);
        return;
    }
    const int w = percent * 256 / 100;
    const auto weight_b = static_cast<short>(w);
    const auto weight_a = static_cast<short>(256 - w);
    // The 16-bit sums (65280 at most) of the pixels at even places, and of those at odd places: no interleaving is needed,
    // since the upper byte of a sum is the result.
    const auto blend = [=](auto x, auto y) UTILS_SSE_LAMBDA {
        using Pixels = decltype(x);
        using Sums = decltype(widen_even(x));
        const auto sum = [=](Sums of_x, Sums of_y) UTILS_SSE_LAMBDA {
            return add_wrap(multiply_low(of_x, Sums::broadcast(weight_a)), multiply_low(of_y, Sums::broadcast(weight_b)));
        };
        const Sums even = sum(widen_even(x), widen_even(y));
        const Sums odd = sum(widen_odd(x), widen_odd(y));
        return Pixels{bit_or(shift_right_unsigned<8>(even), bit_without(odd, Sums::broadcast(255))).v};
    };
    map_to_the_end<16, 4>(
        n, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return in_order(blend(run.load(a + i), run.load(b + i))); },
        [=](std::ptrdiff_t i, auto pixels) UTILS_SSE_LAMBDA { store(dst + i, pixels); },
        [=](int count) UTILS_SSE_LAMBDA {
            if (UTILS_SSE_IN_LINE(count < 4)) {
                for_few(count, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
                    dst[i] = static_cast<unsigned char>((a[i] * (256 - w) + b[i] * w) >> 8);
                });
                return;
            }
            cover_in_place<8>(
                Rest{0, count},
                [=](auto part, std::ptrdiff_t i)
                    UTILS_SSE_LAMBDA { return blend(Part<u8, part()>::load(a + i), Part<u8, part()>::load(b + i)); },
                [=](auto part, std::ptrdiff_t i, u8 pixels) UTILS_SSE_LAMBDA { Part<u8, part()>::store(dst + i, pixels); });
        },
        ahead<1024>(a), ahead<1024>(b));
}

void CUtils_SSE::PersistImage(const unsigned char* a, const unsigned char* b, unsigned char* dst, int weightA, int weightB,
                              int n)
{
    const auto sum = [=](auto x, auto y) UTILS_SSE_LAMBDA { // low 16 bits
        using Sums = decltype(x);
        return add_wrap(multiply_low(x, Sums::broadcast(static_cast<short>(weightA))),
                        multiply_low(y, Sums::broadcast(static_cast<short>(weightB))));
    };
    blend_pixels(
        n, dst,
        [=](auto x, auto y) UTILS_SSE_LAMBDA {
            return narrow_saturate(shift_right<4>(sum(widen_low(x), widen_low(y))),
                                   shift_right<4>(sum(widen_high(x), widen_high(y))));
        },
        // The tail does not saturate, on purpose: it keeps bits 4 .. 11 of the sum, whatever its full width.
        [=](u8 x, u8 y) UTILS_SSE_LAMBDA {
            const i16 pixels = shift_right_unsigned<8>(shift_left<4>(sum(widen_low(x), widen_low(y))));
            return narrow_saturate(pixels, pixels);
        },
        a, b);
}
