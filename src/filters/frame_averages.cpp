// Averages of whole frames, blends and persistence.
//
// Machine code (GCC 12, x86-64): everything in registers; four blocks are read and computed before the first is written.
#include "filters/four_pixels.h"
#include "simd/loops.h"
#include "utils_sse.h"

#include <cstring>

using namespace simd;

namespace {

// dst[i] = body(src[i]...) in whole blocks. dst may equal any src, here and below.
template <class Body, class... Source>
UTILS_SSE_INLINE Rest map_body(int n, unsigned char* dst, const Body& body, const Source*... src)
{
    return map_blocks<16, 4>(
        n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { return in_order(body(load<u8>(src + i)...)); },
        [=](std::ptrdiff_t i, u8 pixels) UTILS_SSE_LAMBDA { store(dst + i, pixels); }, ahead<1024>(src)...);
}

// And dst[i] = tail(src[i]...) behind them.
template <class Body, class Tail, class... Source>
UTILS_SSE_INLINE void blend_pixels(int n, unsigned char* dst, const Body& body, const Tail& tail, const Source*... src)
{
    cover_in_place<8>(
        map_body(n, dst, body, src...),
        [=](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return tail(Part<u8, count()>::load(src + i)...); },
        [=](auto count, std::ptrdiff_t i, u8 pixels) UTILS_SSE_LAMBDA { Part<u8, count()>::store(dst + i, pixels); });
}

// The same for dst among the sources: runs that overlap would be stored across each other, and the next call, which reads
// them, would have to wait for the stores (7 pixels: 9.3 ns instead of 6.7).
template <class Body, class Tail, class... Source>
UTILS_SSE_INLINE void average_into(int n, unsigned char* dst, const Body& body, const Tail& tail, const Source*... src)
{
    for_parts<8>(map_body(n, dst, body, static_cast<const unsigned char*>(dst), src...),
                 [=](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
                     using Run = Part<u8, count()>;
                     Run::store(dst + i, tail(Run::load(dst + i), Run::load(src + i)...));
                 });
}

struct Mean4
{
    UTILS_SSE_INLINE u8 operator()(u8 d, u8 a, u8 b, u8 c) const { return mean_down(d, a, b, c); }
};

// Sums of two weighted pixels, low 16 bits.
struct Halves
{
    i16 low, high;
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
        n, dst, [](u8 x, u8 y) UTILS_SSE_LAMBDA { return average_up(x, y); },
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
        n, dst, [](u8 vd, u8 va, u8 vb, u8 vc) UTILS_SSE_LAMBDA { return average_up(average_up(vc, vb), average_up(va, vd)); },
        Mean4(), a, b, c);
}

void CUtils_SSE::WeightedAverage(unsigned char* dst, const unsigned char* a, const unsigned char* b, int n, int percent)
{
    if (UTILS_SSE_OUT_OF_LINE(percent <= 0 || percent >= 100)) {
        copy_frame(dst, percent <= 0 ? a : b, n);
        return;
    }
    const int w = percent * 256 / 100;
    const i16 weight_b = broadcast_short(static_cast<short>(w));
    const i16 weight_a = broadcast_short(static_cast<short>(256 - w));
    const i16 low_bytes = broadcast_short(255);
    // The 16-bit sums (65280 at most) of the pixels at even places, and of those at odd places: no interleaving is needed,
    // since the upper byte of a sum is the result.
    const auto blend = [=](u8 x, u8 y) UTILS_SSE_LAMBDA {
        const i16 words_x{x.v};
        const i16 words_y{y.v};
        const i16 even =
            add_wrap(multiply_low(bit_and(words_x, low_bytes), weight_a), multiply_low(bit_and(words_y, low_bytes), weight_b));
        const i16 odd = add_wrap(multiply_low(shift_right_unsigned<8>(words_x), weight_a),
                                 multiply_low(shift_right_unsigned<8>(words_y), weight_b));
        return u8{bit_or(shift_right_unsigned<8>(even), bit_without(odd, low_bytes)).v};
    };
    blend_pixels(n, dst, blend, blend, a, b);
}

void CUtils_SSE::PersistImage(const unsigned char* a, const unsigned char* b, unsigned char* dst, int weightA, int weightB,
                              int n)
{
    const i16 weight_a{_mm_set1_epi16(static_cast<short>(weightA))};
    const i16 weight_b{_mm_set1_epi16(static_cast<short>(weightB))};
    const auto sums = [=](u8 x, u8 y) UTILS_SSE_LAMBDA {
        return Halves{add_wrap(multiply_low(widen_low(x), weight_a), multiply_low(widen_low(y), weight_b)),
                      add_wrap(multiply_low(widen_high(x), weight_a), multiply_low(widen_high(y), weight_b))};
    };
    blend_pixels(
        n, dst,
        [=](u8 x, u8 y) UTILS_SSE_LAMBDA {
            const Halves s = sums(x, y);
            return narrow_saturate(shift_right<4>(s.low), shift_right<4>(s.high));
        },
        // The tail does not saturate, on purpose: it keeps bits 4 .. 11 of the sum, whatever its full width.
        [=](u8 x, u8 y) UTILS_SSE_LAMBDA {
            const i16 pixels = shift_right_unsigned<8>(shift_left<4>(sums(x, y).low));
            return narrow_saturate(pixels, pixels);
        },
        a, b);
}
