// Verbs of 8-, 16- and 32-bit integers.
#pragma once

#include "simd/types.h"

#include <type_traits>
#include <utility>

namespace simd {
inline namespace UTILS_SSE_TIER {

// --- all widths ----------------------------------------------------------------------------------------------------

template <class V>
UTILS_SSE_INLINE V bit_and(V x, V y)
{
    return {_mm_and_si128(x.v, y.v)};
}
template <class V>
UTILS_SSE_INLINE V bit_or(V x, V y)
{
    return {_mm_or_si128(x.v, y.v)};
}
template <class V>
UTILS_SSE_INLINE V bit_xor(V x, V y)
{
    return {_mm_xor_si128(x.v, y.v)};
}
// The bits of x that are not set in y.
template <class V>
UTILS_SSE_INLINE V bit_without(V x, V y)
{
    return {_mm_andnot_si128(y.v, x.v)};
}
// x where the mask's bits are set, y elsewhere.
template <class V>
UTILS_SSE_INLINE V select(V mask, V x, V y)
{
    return bit_or(bit_and(mask, x), bit_without(y, mask));
}
template <class V>
UTILS_SSE_INLINE V zero()
{
    return {_mm_setzero_si128()};
}

// Masks: all bits of a lane set where the comparison holds, none elsewhere. Signed, but for equal().
UTILS_SSE_INLINE u8 equal(u8 x, u8 y)
{
    return {_mm_cmpeq_epi8(x.v, y.v)};
}
UTILS_SSE_INLINE i16 equal(i16 x, i16 y)
{
    return {_mm_cmpeq_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i32 equal(i32 x, i32 y)
{
    return {_mm_cmpeq_epi32(x.v, y.v)};
}
UTILS_SSE_INLINE i16 greater(i16 x, i16 y)
{
    return {_mm_cmpgt_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i32 greater(i32 x, i32 y)
{
    return {_mm_cmpgt_epi32(x.v, y.v)};
}

UTILS_SSE_INLINE u8 minimum(u8 x, u8 y)
{
    return {_mm_min_epu8(x.v, y.v)};
}
UTILS_SSE_INLINE u8 maximum(u8 x, u8 y)
{
    return {_mm_max_epu8(x.v, y.v)};
}
UTILS_SSE_INLINE i16 minimum(i16 x, i16 y)
{
    return {_mm_min_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i16 maximum(i16 x, i16 y)
{
    return {_mm_max_epi16(x.v, y.v)};
}
template <class T, std::enable_if_t<std::is_integral<T>::value, int> = 0>
UTILS_SSE_INLINE T minimum(T x, T y)
{
    return x < y ? x : y;
}
template <class T, std::enable_if_t<std::is_integral<T>::value, int> = 0>
UTILS_SSE_INLINE T maximum(T x, T y)
{
    return x > y ? x : y;
}

// x0 y0 x1 y1 .. of the lower halves, and the same of the upper halves.
UTILS_SSE_INLINE u8 interleave_low(u8 x, u8 y)
{
    return {_mm_unpacklo_epi8(x.v, y.v)};
}
UTILS_SSE_INLINE u8 interleave_high(u8 x, u8 y)
{
    return {_mm_unpackhi_epi8(x.v, y.v)};
}
UTILS_SSE_INLINE i16 interleave_low(i16 x, i16 y)
{
    return {_mm_unpacklo_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i16 interleave_high(i16 x, i16 y)
{
    return {_mm_unpackhi_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i32 interleave_low(i32 x, i32 y)
{
    return {_mm_unpacklo_epi32(x.v, y.v)};
}
UTILS_SSE_INLINE i32 interleave_high(i32 x, i32 y)
{
    return {_mm_unpackhi_epi32(x.v, y.v)};
}
// The lower half of x, then that of y; and the same of the upper halves.
template <class V>
UTILS_SSE_INLINE V low_halves(V x, V y)
{
    return {_mm_unpacklo_epi64(x.v, y.v)};
}
template <class V>
UTILS_SSE_INLINE V high_halves(V x, V y)
{
    return {_mm_unpackhi_epi64(x.v, y.v)};
}

// The lanes with even numbers of x, then those of y; and the same of the odd ones. Bytes below 256 and 16-bit values pass the
// saturating packs unchanged.
UTILS_SSE_INLINE u8 even_lanes(u8 x, u8 y)
{
    const __m128i mask = _mm_set1_epi16(255);
    return {_mm_packus_epi16(_mm_and_si128(x.v, mask), _mm_and_si128(y.v, mask))};
}
UTILS_SSE_INLINE u8 odd_lanes(u8 x, u8 y)
{
    return {_mm_packus_epi16(_mm_srli_epi16(x.v, 8), _mm_srli_epi16(y.v, 8))};
}
UTILS_SSE_INLINE i16 even_lanes(i16 x, i16 y)
{
    const auto even = [](__m128i z) UTILS_SSE_LAMBDA { return _mm_srai_epi32(_mm_slli_epi32(z, 16), 16); };
    return {_mm_packs_epi32(even(x.v), even(y.v))};
}
UTILS_SSE_INLINE i16 odd_lanes(i16 x, i16 y)
{
    return {_mm_packs_epi32(_mm_srai_epi32(x.v, 16), _mm_srai_epi32(y.v, 16))};
}

// --- 16-bit integers -----------------------------------------------------------------------------------------------

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
// Values read as unsigned, 0 .. 65535.
UTILS_SSE_INLINE i16 add_saturate_unsigned(i16 x, i16 y)
{
    return {_mm_adds_epu16(x.v, y.v)};
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

// --- 32-bit integers -----------------------------------------------------------------------------------------------

// x0 * y0 + x1 * y1, x2 * y2 + x3 * y3, .. with exact products; a sum of 2^31 (-32768 four times) wraps.
UTILS_SSE_INLINE i32 multiply_add_pairs(i16 x, i16 y)
{
    return {_mm_madd_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i32 add_wrap(i32 x, i32 y)
{
    return {_mm_add_epi32(x.v, y.v)};
}
// Neighbours added: x0 + x1, x2 + x3, y0 + y1, y2 + y3.
UTILS_SSE_INLINE i32 add_neighbours_wrap(i32 x, i32 y)
{
    const __m128 a = _mm_castsi128_ps(x.v);
    const __m128 b = _mm_castsi128_ps(y.v);
    const __m128 even = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)); // x0 x2 y0 y2
    const __m128 odd = _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));  // x1 x3 y1 y3
    return {_mm_add_epi32(_mm_castps_si128(even), _mm_castps_si128(odd))};
}
// Arithmetic: rounds towards minus infinity.
template <int Bits>
UTILS_SSE_INLINE i32 shift_right(i32 x)
{
    return {_mm_srai_epi32(x.v, Bits)};
}
template <int Bits>
UTILS_SSE_INLINE i32x2 shift_right(i32x2 x)
{
    return {shift_right<Bits>(x.low), shift_right<Bits>(x.high)};
}
template <int Bits>
UTILS_SSE_INLINE int shift_right(int x)
{
    return x >> Bits;
}
template <int Bits>
UTILS_SSE_INLINE i32 shift_right_unsigned(i32 x)
{
    return {_mm_srli_epi32(x.v, Bits)};
}
template <int Bits>
UTILS_SSE_INLINE i32 shift_left(i32 x)
{
    return {_mm_slli_epi32(x.v, Bits)};
}
UTILS_SSE_INLINE i32 subtract_wrap(i32 x, i32 y)
{
    return {_mm_sub_epi32(x.v, y.v)};
}
// The low 32 bits of the products.
UTILS_SSE_INLINE i32 multiply_wrap(i32 x, i32 y)
{
    const __m128i even = _mm_mul_epu32(x.v, y.v);                                        // p0 . p2 .
    const __m128i odd = _mm_mul_epu32(_mm_srli_epi64(x.v, 32), _mm_srli_epi64(y.v, 32)); // p1 . p3 .
    return {
        _mm_unpacklo_epi32(_mm_shuffle_epi32(even, _MM_SHUFFLE(2, 0, 2, 0)), _mm_shuffle_epi32(odd, _MM_SHUFFLE(2, 0, 2, 0)))};
}
UTILS_SSE_INLINE i32 broadcast_int(int x)
{
    return {_mm_set1_epi32(x)};
}
// The sum of all lanes; wraps.
UTILS_SSE_INLINE int fold_wrap(i32 x)
{
    const __m128i pairs = _mm_add_epi32(x.v, _mm_shuffle_epi32(x.v, _MM_SHUFFLE(1, 0, 3, 2)));
    return _mm_cvtsi128_si32(_mm_add_epi32(pairs, _mm_shuffle_epi32(pairs, _MM_SHUFFLE(2, 3, 0, 1))));
}
// The sums of all lanes of x, of y, of z and of w; each wraps.
UTILS_SSE_INLINE i32 fold_each_wrap(i32 x, i32 y, i32 z, i32 w)
{
    return add_neighbours_wrap(add_neighbours_wrap(x, y), add_neighbours_wrap(z, w));
}
UTILS_SSE_INLINE int lane_0(i32 x)
{
    return _mm_cvtsi128_si32(x.v);
}

// --- 64-bit integers -----------------------------------------------------------------------------------------------

UTILS_SSE_INLINE i64 add_wrap(i64 x, i64 y)
{
    return {_mm_add_epi64(x.v, y.v)};
}
// Lanes 0 and 2 of x, which are not negative; lanes 1 and 3 are zero.
UTILS_SSE_INLINE i64 even_to_64(i32 x)
{
    return {x.v};
}
// The sum of both lanes; wraps.
UTILS_SSE_INLINE std::int64_t fold_wrap(i64 x)
{
    std::int64_t sum;
    _mm_storel_epi64(reinterpret_cast<__m128i*>(&sum), _mm_add_epi64(x.v, _mm_unpackhi_epi64(x.v, x.v)));
    return sum;
}

// --- bytes ---------------------------------------------------------------------------------------------------------

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
