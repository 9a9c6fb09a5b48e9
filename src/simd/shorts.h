// Verbs of 16-bit integers, beside those that all integers share (integers.h).
#pragma once

#include "simd/integers.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

// Sign-extended to 32 bits: each sample is interleaved with its sign.
UTILS_SSE_INLINE i32x2 widen(i16 x)
{
    const __m128i sign = _mm_srai_epi16(x.v, 15);
    return {{_mm_unpacklo_epi16(x.v, sign)}, {_mm_unpackhi_epi16(x.v, sign)}};
}

// Exact 32-bit products of 16-bit values.
UTILS_SSE_INLINE i32x2 multiply_exact(i16 x, i16 y)
{
    const __m128i low = _mm_mullo_epi16(x.v, y.v);
    const __m128i high = _mm_mulhi_epi16(x.v, y.v);
    return {{_mm_unpacklo_epi16(low, high)}, {_mm_unpackhi_epi16(low, high)}};
}
UTILS_SSE_INLINE int multiply_exact(short x, short y)
{
    return x * y;
}

// saturate16((x * y) >> 15), the product of two Q15 numbers, rounded towards minus infinity.
// With the product as high * 65536 + low this is (2 * high) | (low >> 15). Doubling the high half overflows for one
// product only, 2^30 of -32768 * -32768 (high = 16384, low = 0), and the saturating addition gives its 32767.
UTILS_SSE_INLINE i16 multiply_q15(i16 x, i16 y)
{
    const __m128i low = _mm_mullo_epi16(x.v, y.v);
    const __m128i high = _mm_mulhi_epi16(x.v, y.v);
    return {_mm_or_si128(_mm_adds_epi16(high, high), _mm_srli_epi16(low, 15))};
}

UTILS_SSE_INLINE i16 narrow_saturate(i32 low, i32 high)
{
    return {_mm_packs_epi32(low.v, high.v)};
}
UTILS_SSE_INLINE short saturate_to_short(int x)
{
    return static_cast<short>(x < -32768 ? -32768 : x > 32767 ? 32767 : x);
}
UTILS_SSE_INLINE u8 narrow_saturate(i16 low, i16 high)
{
    return {_mm_packus_epi16(low.v, high.v)};
}
// To -128 .. 127: bytes that keep the sign, and are zero where the value is.
UTILS_SSE_INLINE u8 narrow_saturate_signed(i16 low, i16 high)
{
    return {_mm_packs_epi16(low.v, high.v)};
}

UTILS_SSE_INLINE i16 broadcast_short(short x)
{
    return {_mm_set1_epi16(x)};
}
// x y x y x y x y
UTILS_SSE_INLINE i16 broadcast_pair(short x, short y)
{
    return {_mm_set_epi16(y, x, y, x, y, x, y, x)};
}
UTILS_SSE_INLINE i16 add_wrap(i16 x, i16 y)
{
    return {_mm_add_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i16 subtract_wrap(i16 x, i16 y)
{
    return {_mm_sub_epi16(x.v, y.v)};
}
// The low 16 bits of the products.
UTILS_SSE_INLINE i16 multiply_low(i16 x, i16 y)
{
    return {_mm_mullo_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i16 add_saturate(i16 x, i16 y)
{
    return {_mm_adds_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i16 subtract_saturate(i16 x, i16 y)
{
    return {_mm_subs_epi16(x.v, y.v)};
}
// The upper 16 bits of the products.
UTILS_SSE_INLINE i16 multiply_high(i16 x, i16 y)
{
    return {_mm_mulhi_epi16(x.v, y.v)};
}
// The upper 16 bits of the products of values read as unsigned, 0 .. 65535.
UTILS_SSE_INLINE i16 multiply_high_unsigned(i16 x, i16 y)
{
    return {_mm_mulhi_epu16(x.v, y.v)};
}
// Arithmetic: rounds towards minus infinity.
template <int Bits>
UTILS_SSE_INLINE i16 shift_right(i16 x)
{
    return {_mm_srai_epi16(x.v, Bits)};
}
// Values read as unsigned, 0 .. 65535.
template <int Bits>
UTILS_SSE_INLINE i16 shift_right_unsigned(i16 x)
{
    return {_mm_srli_epi16(x.v, Bits)};
}
template <int Bits>
UTILS_SSE_INLINE i16 shift_left(i16 x)
{
    return {_mm_slli_epi16(x.v, Bits)};
}
// Values read as unsigned, 0 .. 65535, halved; halves are rounded up.
UTILS_SSE_INLINE i16 halve_unsigned_up(i16 x)
{
    return {_mm_avg_epu16(x.v, _mm_setzero_si128())};
}
// The low 16 bits of each.
UTILS_SSE_INLINE i16 narrow_wrap(i32 low, i32 high)
{
    const auto sign_extend = [](__m128i x) UTILS_SSE_LAMBDA { return _mm_srai_epi32(_mm_slli_epi32(x, 16), 16); };
    return {_mm_packs_epi32(sign_extend(low.v), sign_extend(high.v))};
}
// Lane k becomes lane k + Lanes of x; lanes that x does not have are zero.
template <int Lanes>
UTILS_SSE_INLINE i16 move_down(i16 x)
{
    if constexpr (Lanes < 0)
        return {_mm_slli_si128(x.v, -2 * Lanes)};
    else
        return {_mm_srli_si128(x.v, 2 * Lanes)};
}

// Mask: all bits of a lane set where both values are limits of their type, 32767 or -32768.
UTILS_SSE_INLINE i16 both_at_limits(i16 x, i16 y)
{
    // One step past the limits the numbers turn round: 32767 and -32768 become 0 and 1, all others, read as unsigned, more.
    const i16 beyond = bit_or(add_wrap(x, broadcast_short(-32767)), add_wrap(y, broadcast_short(-32767)));
    return equal(shift_right_unsigned<1>(beyond), broadcast_short(0));
}

// f(lane, value) for the eight lanes in order; values are read as unsigned, 0 .. 65535.
template <class Function, int... Lane>
UTILS_SSE_INLINE void for_each_unsigned_lane(i16 x, const Function& f, std::integer_sequence<int, Lane...>)
{
    (f(Lane, _mm_extract_epi16(x.v, Lane)), ...);
}
template <class Function>
UTILS_SSE_INLINE void for_each_unsigned_lane(i16 x, const Function& f)
{
    for_each_unsigned_lane(x, f, std::make_integer_sequence<int, i16::lanes>());
}

// Absolute value in 16-bit two's complement: -32768 stays -32768.
UTILS_SSE_INLINE i16 absolute_wrap(i16 x)
{
    const __m128i sign = _mm_srai_epi16(x.v, 15);
    return {_mm_sub_epi16(_mm_xor_si128(x.v, sign), sign)};
}
// The same in 32 bits: -2147483648 stays.
UTILS_SSE_INLINE i32 absolute_wrap(i32 x)
{
    const __m128i sign = _mm_srai_epi32(x.v, 31);
    return {_mm_sub_epi32(_mm_xor_si128(x.v, sign), sign)};
}
UTILS_SSE_INLINE int absolute_wrap(int x)
{
    const auto bits = static_cast<std::uint32_t>(x);
    return static_cast<int>(x < 0 ? 0u - bits : bits);
}

// floor((x + y) / 2) of exact sums. The processor averages unsigned numbers and rounds up; seen from above, with every value
// replaced by its distance from the largest one, up is down. Distances average to distances, so chains need one change
// each way, which compilers find.
UTILS_SSE_INLINE i16 average_down(i16 x, i16 y)
{
    const __m128i largest = _mm_set1_epi16(32767);
    const __m128i distance = _mm_avg_epu16(_mm_xor_si128(x.v, largest), _mm_xor_si128(y.v, largest));
    return {_mm_xor_si128(distance, largest)};
}

} // namespace UTILS_SSE_TIER
} // namespace simd
