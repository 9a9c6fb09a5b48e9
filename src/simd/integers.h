// Verbs that all integers share, and those of 32 and 64 bits.
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

} // namespace UTILS_SSE_TIER
} // namespace simd
