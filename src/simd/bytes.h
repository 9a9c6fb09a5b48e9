// Verbs of unsigned bytes, beside those that all integers share (integers.h).
#pragma once

#include "simd/shorts.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

UTILS_SSE_INLINE u8 broadcast_byte(unsigned char x)
{
    return {_mm_set1_epi8(static_cast<char>(x))};
}

// Mask of the bytes whose top bit is set: those below 0 when read as signed.
UTILS_SSE_INLINE u8 top_bit(u8 x)
{
    return {_mm_cmpgt_epi8(_mm_setzero_si128(), x.v)};
}
UTILS_SSE_INLINE u8 add_wrap(u8 x, u8 y)
{
    return {_mm_add_epi8(x.v, y.v)};
}
UTILS_SSE_INLINE u8 subtract_wrap(u8 x, u8 y)
{
    return {_mm_sub_epi8(x.v, y.v)};
}
UTILS_SSE_INLINE u8 add_saturate(u8 x, u8 y)
{
    return {_mm_adds_epu8(x.v, y.v)};
}
UTILS_SSE_INLINE u8 subtract_saturate(u8 x, u8 y)
{
    return {_mm_subs_epu8(x.v, y.v)};
}
UTILS_SSE_INLINE u8 absolute_difference(u8 x, u8 y)
{
    return bit_or(subtract_saturate(x, y), subtract_saturate(y, x));
}
// Sums of absolute differences: of the lower eight bytes in lane 0, of the upper eight in lane 2; lanes 1 and 3 are zero.
UTILS_SSE_INLINE i32 sum_absolute_differences(u8 x, u8 y)
{
    return {_mm_sad_epu8(x.v, y.v)};
}

// The lower eight bytes, zero-extended, and the upper eight.
UTILS_SSE_INLINE i16 widen_low(u8 x)
{
    return {_mm_unpacklo_epi8(x.v, _mm_setzero_si128())};
}
UTILS_SSE_INLINE i16 widen_high(u8 x)
{
    return {_mm_unpackhi_epi8(x.v, _mm_setzero_si128())};
}
// The same, times 256.
UTILS_SSE_INLINE i16 widen_low_to_top(u8 x)
{
    return {_mm_unpacklo_epi8(_mm_setzero_si128(), x.v)};
}
UTILS_SSE_INLINE i16 widen_high_to_top(u8 x)
{
    return {_mm_unpackhi_epi8(_mm_setzero_si128(), x.v)};
}

// Bytes 0, 2, 4, .., zero-extended, and bytes 1, 3, 5, ..
UTILS_SSE_INLINE i16 widen_even(u8 x)
{
    return {_mm_and_si128(x.v, _mm_set1_epi16(255))};
}
UTILS_SSE_INLINE i16 widen_odd(u8 x)
{
    return {_mm_srli_epi16(x.v, 8)};
}

// (x + y + 1) >> 1
UTILS_SSE_INLINE u8 average_up(u8 x, u8 y)
{
    return {_mm_avg_epu8(x.v, y.v)};
}

// floor((x + y) / 2), as for 16-bit integers.
UTILS_SSE_INLINE u8 average_down(u8 x, u8 y)
{
    const __m128i largest = _mm_set1_epi8(-1);
    const __m128i distance = _mm_avg_epu8(_mm_xor_si128(x.v, largest), _mm_xor_si128(y.v, largest));
    return {_mm_xor_si128(distance, largest)};
}

} // namespace UTILS_SSE_TIER
} // namespace simd
