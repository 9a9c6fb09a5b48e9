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
    return {mm::and_si(x.v, y.v)};
}
template <class V>
UTILS_SSE_INLINE V bit_or(V x, V y)
{
    return {mm::or_si(x.v, y.v)};
}
template <class V>
UTILS_SSE_INLINE V bit_xor(V x, V y)
{
    return {mm::xor_si(x.v, y.v)};
}
// The bits of x that are not set in y.
template <class V>
UTILS_SSE_INLINE V bit_without(V x, V y)
{
    return {mm::andnot_si(y.v, x.v)};
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
    return V::zero();
}

// Masks: all bits of a lane set where the comparison holds, none elsewhere. Signed, but for equal().
template <int N>
UTILS_SSE_INLINE U8<N> equal(U8<N> x, U8<N> y)
{
    return {mm::cmpeq_epi8(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I16<N> equal(I16<N> x, I16<N> y)
{
    return {mm::cmpeq_epi16(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I32<N> equal(I32<N> x, I32<N> y)
{
    return {mm::cmpeq_epi32(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I16<N> greater(I16<N> x, I16<N> y)
{
    return {mm::cmpgt_epi16(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I32<N> greater(I32<N> x, I32<N> y)
{
    return {mm::cmpgt_epi32(x.v, y.v)};
}

template <int N>
UTILS_SSE_INLINE U8<N> minimum(U8<N> x, U8<N> y)
{
    return {mm::min_epu8(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE U8<N> maximum(U8<N> x, U8<N> y)
{
    return {mm::max_epu8(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I16<N> minimum(I16<N> x, I16<N> y)
{
    return {mm::min_epi16(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I16<N> maximum(I16<N> x, I16<N> y)
{
    return {mm::max_epi16(x.v, y.v)};
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
template <int N>
UTILS_SSE_INLINE U8<N> interleave_low(U8<N> x, U8<N> y)
{
    return {mm::unpacklo_epi8(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE U8<N> interleave_high(U8<N> x, U8<N> y)
{
    return {mm::unpackhi_epi8(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I16<N> interleave_low(I16<N> x, I16<N> y)
{
    return {mm::unpacklo_epi16(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I16<N> interleave_high(I16<N> x, I16<N> y)
{
    return {mm::unpackhi_epi16(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I32<N> interleave_low(I32<N> x, I32<N> y)
{
    return {mm::unpacklo_epi32(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I32<N> interleave_high(I32<N> x, I32<N> y)
{
    return {mm::unpackhi_epi32(x.v, y.v)};
}
// The lower half of x, then that of y; and the same of the upper halves.
template <class V>
UTILS_SSE_INLINE V low_halves(V x, V y)
{
    return {mm::unpacklo_epi64(x.v, y.v)};
}
template <class V>
UTILS_SSE_INLINE V high_halves(V x, V y)
{
    return {mm::unpackhi_epi64(x.v, y.v)};
}

// The lanes with even numbers of x, then those of y; and the same of the odd ones. Bytes below 256 and 16-bit values pass the
// saturating packs unchanged.
template <int N>
UTILS_SSE_INLINE U8<N> even_lanes(U8<N> x, U8<N> y)
{
    const auto mask = I16<N>::broadcast(255).v;
    return {mm::packus_epi16(mm::and_si(x.v, mask), mm::and_si(y.v, mask))};
}
template <int N>
UTILS_SSE_INLINE U8<N> odd_lanes(U8<N> x, U8<N> y)
{
    return {mm::packus_epi16(mm::srli_epi16<8>(x.v), mm::srli_epi16<8>(y.v))};
}
template <int N>
UTILS_SSE_INLINE I16<N> even_lanes(I16<N> x, I16<N> y)
{
    const auto even = [](auto z) UTILS_SSE_LAMBDA { return mm::srai_epi32<16>(mm::slli_epi32<16>(z)); };
    return {mm::packs_epi32(even(x.v), even(y.v))};
}
template <int N>
UTILS_SSE_INLINE I16<N> odd_lanes(I16<N> x, I16<N> y)
{
    return {mm::packs_epi32(mm::srai_epi32<16>(x.v), mm::srai_epi32<16>(y.v))};
}

// --- 32-bit integers -----------------------------------------------------------------------------------------------

// x0 * y0 + x1 * y1, x2 * y2 + x3 * y3, .. with exact products; a sum of 2^31 (-32768 four times) wraps.
template <int N>
UTILS_SSE_INLINE I32<N> multiply_add_pairs(I16<N> x, I16<N> y)
{
    return {mm::madd_epi16(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I32<N> add_wrap(I32<N> x, I32<N> y)
{
    return {mm::add_epi32(x.v, y.v)};
}
// Neighbours added: x0 + x1, x2 + x3, y0 + y1, y2 + y3.
template <int N>
UTILS_SSE_INLINE I32<N> add_neighbours_wrap(I32<N> x, I32<N> y)
{
    const auto a = mm::as_ps(x.v);
    const auto b = mm::as_ps(y.v);
    const auto even = mm::shuffle_ps<_MM_SHUFFLE(2, 0, 2, 0)>(a, b); // x0 x2 y0 y2
    const auto odd = mm::shuffle_ps<_MM_SHUFFLE(3, 1, 3, 1)>(a, b);  // x1 x3 y1 y3
    return {mm::add_epi32(mm::as_si(even), mm::as_si(odd))};
}
// Arithmetic: rounds towards minus infinity.
template <int Bits, int N>
UTILS_SSE_INLINE I32<N> shift_right(I32<N> x)
{
    return {mm::srai_epi32<Bits>(x.v)};
}
template <int Bits, int N>
UTILS_SSE_INLINE I32x2<N> shift_right(I32x2<N> x)
{
    return {shift_right<Bits>(x.low), shift_right<Bits>(x.high)};
}
template <int Bits>
UTILS_SSE_INLINE int shift_right(int x)
{
    return x >> Bits;
}
template <int Bits, int N>
UTILS_SSE_INLINE I32<N> shift_right_unsigned(I32<N> x)
{
    return {mm::srli_epi32<Bits>(x.v)};
}
template <int Bits, int N>
UTILS_SSE_INLINE I32<N> shift_left(I32<N> x)
{
    return {mm::slli_epi32<Bits>(x.v)};
}
template <int N>
UTILS_SSE_INLINE I32<N> subtract_wrap(I32<N> x, I32<N> y)
{
    return {mm::sub_epi32(x.v, y.v)};
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
    return i32::broadcast(x);
}
// The blocks added, lane by lane; sums wrap.
UTILS_SSE_INLINE i32 add_blocks_wrap(i32 x)
{
    return x;
}
UTILS_SSE_INLINE i64 add_blocks_wrap(i64 x)
{
    return x;
}
#if UTILS_SSE_MOST_BLOCKS >= 2
UTILS_SSE_INLINE i32 add_blocks_wrap(I32<2> x)
{
    return add_wrap(i32{_mm256_castsi256_si128(x.v)}, i32{_mm256_extracti128_si256(x.v, 1)});
}
UTILS_SSE_INLINE i64 add_blocks_wrap(I64<2> x)
{
    return {_mm_add_epi64(_mm256_castsi256_si128(x.v), _mm256_extracti128_si256(x.v, 1))};
}
#endif
#if UTILS_SSE_MOST_BLOCKS >= 4
UTILS_SSE_INLINE i32 add_blocks_wrap(I32<4> x)
{
    return add_blocks_wrap(add_wrap(I32<2>{_mm512_castsi512_si256(x.v)}, I32<2>{_mm512_extracti64x4_epi64(x.v, 1)}));
}
UTILS_SSE_INLINE i64 add_blocks_wrap(I64<4> x)
{
    return add_blocks_wrap(I64<2>{_mm256_add_epi64(_mm512_castsi512_si256(x.v), _mm512_extracti64x4_epi64(x.v, 1))});
}
#endif
// Lane 0 of every block, then lane 1 of every block, and so on; and pairs of lanes in the same way.
UTILS_SSE_INLINE i32 collect_lanes(i32 x)
{
    return x;
}
UTILS_SSE_INLINE i32 collect_pairs(i32 x)
{
    return x;
}
#if UTILS_SSE_MOST_BLOCKS >= 2
UTILS_SSE_INLINE I32<2> collect_lanes(I32<2> x)
{
    return {_mm256_permutevar8x32_epi32(x.v, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7))};
}
UTILS_SSE_INLINE I32<2> collect_pairs(I32<2> x)
{
    return {_mm256_permute4x64_epi64(x.v, _MM_SHUFFLE(3, 1, 2, 0))};
}
#endif
#if UTILS_SSE_MOST_BLOCKS >= 4
UTILS_SSE_INLINE I32<4> collect_lanes(I32<4> x)
{
    return {_mm512_permutexvar_epi32(_mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15), x.v)};
}
UTILS_SSE_INLINE I32<4> collect_pairs(I32<4> x)
{
    return {_mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), x.v)};
}
#endif

// The sum of all lanes; wraps.
UTILS_SSE_INLINE int fold_wrap(i32 x)
{
    const __m128i pairs = _mm_add_epi32(x.v, _mm_shuffle_epi32(x.v, _MM_SHUFFLE(1, 0, 3, 2)));
    return _mm_cvtsi128_si32(_mm_add_epi32(pairs, _mm_shuffle_epi32(pairs, _MM_SHUFFLE(2, 3, 0, 1))));
}
// The sums of all lanes of x, of y, of z and of w; each wraps.
template <int N>
UTILS_SSE_INLINE I32<N> fold_each_wrap(I32<N> x, I32<N> y, I32<N> z, I32<N> w)
{
    return add_neighbours_wrap(add_neighbours_wrap(x, y), add_neighbours_wrap(z, w));
}
UTILS_SSE_INLINE int lane_0(i32 x)
{
    return _mm_cvtsi128_si32(x.v);
}

// --- 64-bit integers -----------------------------------------------------------------------------------------------

template <int N>
UTILS_SSE_INLINE I64<N> add_wrap(I64<N> x, I64<N> y)
{
    return {mm::add_epi64(x.v, y.v)};
}
// Lanes 0 and 2 of x, which are not negative; lanes 1 and 3 are zero.
template <int N>
UTILS_SSE_INLINE I64<N> even_to_64(I32<N> x)
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
