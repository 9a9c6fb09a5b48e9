// Verbs of 16-bit integers, beside those that all integers share (integers.h).
#pragma once

#include "simd/integers.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

// Sign-extended to 32 bits: each sample is interleaved with its sign.
template <int N>
UTILS_SSE_INLINE I32x2<N> widen(I16<N> x)
{
    const auto sign = mm::srai_epi16<15>(x.v);
    return {{mm::unpacklo_epi16(x.v, sign)}, {mm::unpackhi_epi16(x.v, sign)}};
}

// The samples from p on, twice as many as an I32<N> has, sign-extended.
template <int N>
UTILS_SSE_INLINE InOrder<I32<N>> load_widened(Blocks<N> run, const short* p)
{
    if constexpr (N == 1) {
        const i32x2 x = widen(run.load(p));
        return {x.low, x.high};
    }
#if UTILS_SSE_MOST_BLOCKS >= 2
    if constexpr (N == 2)
        return {{_mm256_cvtepi16_epi32(i16::load(p).v)}, {_mm256_cvtepi16_epi32(i16::load(p + 8).v)}};
#endif
#if UTILS_SSE_MOST_BLOCKS >= 4
    if constexpr (N == 4)
        return {{_mm512_cvtepi16_epi32(I16<2>::load(p).v)}, {_mm512_cvtepi16_epi32(I16<2>::load(p + 16).v)}};
#endif
}

// Exact 32-bit products of 16-bit values.
template <int N>
UTILS_SSE_INLINE I32x2<N> multiply_exact(I16<N> x, I16<N> y)
{
    const auto low = mm::mullo_epi16(x.v, y.v);
    const auto high = mm::mulhi_epi16(x.v, y.v);
    return {{mm::unpacklo_epi16(low, high)}, {mm::unpackhi_epi16(low, high)}};
}
UTILS_SSE_INLINE int multiply_exact(short x, short y)
{
    return x * y;
}

// saturate16((x * y) >> 15), the product of two Q15 numbers, rounded towards minus infinity.
// With the product as high * 65536 + low this is (2 * high) | (low >> 15). Doubling the high half overflows for one
// product only, 2^30 of -32768 * -32768 (high = 16384, low = 0), and the saturating addition gives its 32767.
template <int N>
UTILS_SSE_INLINE I16<N> multiply_q15(I16<N> x, I16<N> y)
{
    const auto low = mm::mullo_epi16(x.v, y.v);
    const auto high = mm::mulhi_epi16(x.v, y.v);
    return {mm::or_si(mm::adds_epi16(high, high), mm::srli_epi16<15>(low))};
}

template <int N>
UTILS_SSE_INLINE I16<N> narrow_saturate(I32<N> low, I32<N> high)
{
    return {mm::packs_epi32(low.v, high.v)};
}
UTILS_SSE_INLINE short saturate_to_short(int x)
{
    return static_cast<short>(x < -32768 ? -32768 : x > 32767 ? 32767 : x);
}
template <int N>
UTILS_SSE_INLINE U8<N> narrow_saturate(I16<N> low, I16<N> high)
{
    return {mm::packus_epi16(low.v, high.v)};
}
// The same of vectors that follow each other in memory, so that the result has their elements in that order. It is worth
// more than taking blocks in turn when they are loaded: one instruction puts the blocks right.
template <class V>
UTILS_SSE_INLINE auto narrow_in_order(V first, V second)
{
    auto narrow = narrow_saturate(first, second);
    narrow.v = lower_halves_first(narrow.v);
    return narrow;
}
// To -128 .. 127: bytes that keep the sign, and are zero where the value is.
template <int N>
UTILS_SSE_INLINE U8<N> narrow_saturate_signed(I16<N> low, I16<N> high)
{
    return {mm::packs_epi16(low.v, high.v)};
}

UTILS_SSE_INLINE i16 broadcast_short(short x)
{
    return i16::broadcast(x);
}
// x y x y x y x y
template <int N>
UTILS_SSE_INLINE I16<N> broadcast_pair(short x, short y)
{
    const unsigned both = static_cast<unsigned short>(x) | static_cast<unsigned>(static_cast<unsigned short>(y)) << 16;
    return {I32<N>::broadcast(static_cast<int>(both)).v};
}
template <int N>
UTILS_SSE_INLINE I16<N> add_wrap(I16<N> x, I16<N> y)
{
    return {mm::add_epi16(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I16<N> subtract_wrap(I16<N> x, I16<N> y)
{
    return {mm::sub_epi16(x.v, y.v)};
}
// The low 16 bits of the products.
template <int N>
UTILS_SSE_INLINE I16<N> multiply_low(I16<N> x, I16<N> y)
{
    return {mm::mullo_epi16(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I16<N> add_saturate(I16<N> x, I16<N> y)
{
    return {mm::adds_epi16(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE I16<N> subtract_saturate(I16<N> x, I16<N> y)
{
    return {mm::subs_epi16(x.v, y.v)};
}
// The upper 16 bits of the products.
template <int N>
UTILS_SSE_INLINE I16<N> multiply_high(I16<N> x, I16<N> y)
{
    return {mm::mulhi_epi16(x.v, y.v)};
}
// The upper 16 bits of the products of values read as unsigned, 0 .. 65535.
template <int N>
UTILS_SSE_INLINE I16<N> multiply_high_unsigned(I16<N> x, I16<N> y)
{
    return {mm::mulhi_epu16(x.v, y.v)};
}
// Arithmetic: rounds towards minus infinity.
template <int Bits, int N>
UTILS_SSE_INLINE I16<N> shift_right(I16<N> x)
{
    return {mm::srai_epi16<Bits>(x.v)};
}
// Values read as unsigned, 0 .. 65535.
template <int Bits, int N>
UTILS_SSE_INLINE I16<N> shift_right_unsigned(I16<N> x)
{
    return {mm::srli_epi16<Bits>(x.v)};
}
template <int Bits, int N>
UTILS_SSE_INLINE I16<N> shift_left(I16<N> x)
{
    return {mm::slli_epi16<Bits>(x.v)};
}
// Values read as unsigned, 0 .. 65535, halved; halves are rounded up.
template <int N>
UTILS_SSE_INLINE I16<N> halve_unsigned_up(I16<N> x)
{
    return {mm::avg_epu16(x.v, I32<N>::zero().v)};
}
// The low 16 bits of each.
template <int N>
UTILS_SSE_INLINE I16<N> narrow_wrap(I32<N> low, I32<N> high)
{
    const auto sign_extend = [](auto x) UTILS_SSE_LAMBDA { return mm::srai_epi32<16>(mm::slli_epi32<16>(x)); };
    return {mm::packs_epi32(sign_extend(low.v), sign_extend(high.v))};
}
// Lane k becomes lane k + Lanes of x; lanes that x does not have are zero.
template <int Lanes, int N>
UTILS_SSE_INLINE I16<N> move_down(I16<N> x)
{
    if constexpr (Lanes < 0)
        return {mm::move_up<-2 * Lanes>(x.v)};
    else
        return {mm::move_down<2 * Lanes>(x.v)};
}

// Mask: all bits of a lane set where both values are limits of their type, 32767 or -32768.
template <int N>
UTILS_SSE_INLINE I16<N> both_at_limits(I16<N> x, I16<N> y)
{
    // One step past the limits the numbers turn round: 32767 and -32768 become 0 and 1, all others, read as unsigned, more.
    const I16<N> beyond = bit_or(add_wrap(x, I16<N>::broadcast(-32767)), add_wrap(y, I16<N>::broadcast(-32767)));
    return equal(shift_right_unsigned<1>(beyond), I16<N>::broadcast(0));
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
template <int N>
UTILS_SSE_INLINE I16<N> absolute_wrap(I16<N> x)
{
    const auto sign = mm::srai_epi16<15>(x.v);
    return {mm::sub_epi16(mm::xor_si(x.v, sign), sign)};
}
// The same in 32 bits: -2147483648 stays.
template <int N>
UTILS_SSE_INLINE I32<N> absolute_wrap(I32<N> x)
{
    const auto sign = mm::srai_epi32<31>(x.v);
    return {mm::sub_epi32(mm::xor_si(x.v, sign), sign)};
}
UTILS_SSE_INLINE int absolute_wrap(int x)
{
    const auto bits = static_cast<std::uint32_t>(x);
    return static_cast<int>(x < 0 ? 0u - bits : bits);
}

// floor((x + y) / 2) of exact sums. The processor averages unsigned numbers and rounds up; seen from above, with every value
// replaced by its distance from the largest one, up is down. Distances average to distances, so chains need one change
// each way, which compilers find.
template <int N>
UTILS_SSE_INLINE I16<N> average_down(I16<N> x, I16<N> y)
{
    const auto largest = I16<N>::broadcast(32767).v;
    const auto distance = mm::avg_epu16(mm::xor_si(x.v, largest), mm::xor_si(y.v, largest));
    return {mm::xor_si(distance, largest)};
}

} // namespace UTILS_SSE_TIER
} // namespace simd
