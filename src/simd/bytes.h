// Verbs of unsigned bytes, beside those that all integers share (integers.h).
#pragma once

#include "simd/shorts.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

UTILS_SSE_INLINE u8 broadcast_byte(unsigned char x)
{
    return u8::broadcast(x);
}

// Mask of the bytes whose top bit is set: those below 0 when read as signed.
template <int N>
UTILS_SSE_INLINE U8<N> top_bit(U8<N> x)
{
    return {mm::cmpgt_epi8(I32<N>::zero().v, x.v)};
}
template <int N>
UTILS_SSE_INLINE U8<N> add_wrap(U8<N> x, U8<N> y)
{
    return {mm::add_epi8(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE U8<N> subtract_wrap(U8<N> x, U8<N> y)
{
    return {mm::sub_epi8(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE U8<N> add_saturate(U8<N> x, U8<N> y)
{
    return {mm::adds_epu8(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE U8<N> subtract_saturate(U8<N> x, U8<N> y)
{
    return {mm::subs_epu8(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE U8<N> absolute_difference(U8<N> x, U8<N> y)
{
    return bit_or(subtract_saturate(x, y), subtract_saturate(y, x));
}
// Sums of absolute differences: of the lower eight bytes in lane 0, of the upper eight in lane 2; lanes 1 and 3 are zero.
template <int N>
UTILS_SSE_INLINE I32<N> sum_absolute_differences(U8<N> x, U8<N> y)
{
    return {mm::sad_epu8(x.v, y.v)};
}

// The lower eight bytes, zero-extended, and the upper eight.
template <int N>
UTILS_SSE_INLINE I16<N> widen_low(U8<N> x)
{
    return {mm::unpacklo_epi8(x.v, I32<N>::zero().v)};
}
template <int N>
UTILS_SSE_INLINE I16<N> widen_high(U8<N> x)
{
    return {mm::unpackhi_epi8(x.v, I32<N>::zero().v)};
}
// The same, times 256.
template <int N>
UTILS_SSE_INLINE I16<N> widen_low_to_top(U8<N> x)
{
    return {mm::unpacklo_epi8(I32<N>::zero().v, x.v)};
}
template <int N>
UTILS_SSE_INLINE I16<N> widen_high_to_top(U8<N> x)
{
    return {mm::unpackhi_epi8(I32<N>::zero().v, x.v)};
}

// Bytes 0, 2, 4, .., zero-extended, and bytes 1, 3, 5, ..
template <int N>
UTILS_SSE_INLINE I16<N> widen_even(U8<N> x)
{
    return {mm::and_si(x.v, I16<N>::broadcast(255).v)};
}
template <int N>
UTILS_SSE_INLINE I16<N> widen_odd(U8<N> x)
{
    return {mm::srli_epi16<8>(x.v)};
}

// Four neighbouring bytes, as they lie in memory, are a four. deal_fours() gives the fours of N blocks to these in turn: the
// first N of them become the first of each block. collect_fours() puts them back.
UTILS_SSE_INLINE u8 deal_fours(u8 x)
{
    return x;
}
UTILS_SSE_INLINE u8 collect_fours(u8 x)
{
    return x;
}
#if UTILS_SSE_MOST_BLOCKS >= 2
UTILS_SSE_INLINE U8<2> deal_fours(U8<2> x)
{
    return {_mm256_permutevar8x32_epi32(x.v, _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7))};
}
UTILS_SSE_INLINE U8<2> collect_fours(U8<2> x)
{
    return {_mm256_permutevar8x32_epi32(x.v, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7))};
}
#endif
#if UTILS_SSE_MOST_BLOCKS >= 4
UTILS_SSE_INLINE U8<4> deal_fours(U8<4> x)
{
    return {_mm512_permutexvar_epi32(_mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15), x.v)};
}
UTILS_SSE_INLINE U8<4> collect_fours(U8<4> x) // rows and columns of four by four: the same again
{
    return deal_fours(x);
}
#endif

// (x + y + 1) >> 1
template <int N>
UTILS_SSE_INLINE U8<N> average_up(U8<N> x, U8<N> y)
{
    return {mm::avg_epu8(x.v, y.v)};
}

// floor((x + y) / 2), as for 16-bit integers.
template <int N>
UTILS_SSE_INLINE U8<N> average_down(U8<N> x, U8<N> y)
{
    const auto largest = U8<N>::broadcast(255).v;
    const auto distance = mm::avg_epu8(mm::xor_si(x.v, largest), mm::xor_si(y.v, largest));
    return {mm::xor_si(distance, largest)};
}

} // namespace UTILS_SSE_TIER
} // namespace simd
