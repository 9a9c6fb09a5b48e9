// Verbs of floats and doubles, and of both with 32-bit integers.
#pragma once

#include "simd/integers.h"

#include <cmath>

namespace simd {
inline namespace UTILS_SSE_TIER {

// --- floats --------------------------------------------------------------------------------------------------------

template <int N>
UTILS_SSE_INLINE F32<N> operator+(F32<N> x, F32<N> y)
{
    return {mm::add_ps(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE F32<N> operator-(F32<N> x, F32<N> y)
{
    return {mm::sub_ps(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE F32<N> operator*(F32<N> x, F32<N> y)
{
    return {mm::mul_ps(x.v, y.v)};
}

template <int N>
UTILS_SSE_INLINE F32<N> operator/(F32<N> x, F32<N> y)
{
    return {mm::div_ps(x.v, y.v)};
}

// x < y ? x : y and x > y ? x : y: of a NaN and a number, and of zeros of both signs, the second.
template <int N>
UTILS_SSE_INLINE F32<N> minimum(F32<N> x, F32<N> y)
{
    return {mm::min_ps(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE F32<N> maximum(F32<N> x, F32<N> y)
{
    return {mm::max_ps(x.v, y.v)};
}
UTILS_SSE_INLINE float minimum(float x, float y)
{
    return x < y ? x : y;
}
UTILS_SSE_INLINE float maximum(float x, float y)
{
    return x > y ? x : y;
}

// Bits; with a mask from a comparison, select() takes x where it held and y elsewhere.
template <int N>
UTILS_SSE_INLINE F32<N> bit_and(F32<N> x, F32<N> y)
{
    return {mm::and_ps(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE F32<N> bit_or(F32<N> x, F32<N> y)
{
    return {mm::or_ps(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE F32<N> bit_xor(F32<N> x, F32<N> y)
{
    return {mm::xor_ps(x.v, y.v)};
}
// The bits of x that are not set in y.
template <int N>
UTILS_SSE_INLINE F32<N> bit_without(F32<N> x, F32<N> y)
{
    return {mm::andnot_ps(y.v, x.v)};
}
template <int N>
UTILS_SSE_INLINE F32<N> select(F32<N> mask, F32<N> x, F32<N> y)
{
    return bit_or(bit_and(mask, x), bit_without(y, mask));
}
// The sign bit cleared.
template <int N>
UTILS_SSE_INLINE F32<N> absolute(F32<N> x)
{
    return bit_without(x, F32<N>::broadcast(-0.0f));
}
UTILS_SSE_INLINE float absolute(float x)
{
    return std::fabs(x);
}

// Masks of ordered comparisons: nothing is set where an operand is NaN. not_less() holds there.
template <int N>
UTILS_SSE_INLINE F32<N> less(F32<N> x, F32<N> y)
{
    return {mm::cmplt_ps(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE F32<N> greater(F32<N> x, F32<N> y)
{
    return {mm::cmpgt_ps(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE F32<N> equal(F32<N> x, F32<N> y)
{
    return {mm::cmpeq_ps(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE F32<N> not_less(F32<N> x, F32<N> y)
{
    return {mm::cmpnlt_ps(x.v, y.v)};
}
// The same of x >= y: set where an operand is NaN.
template <int N>
UTILS_SSE_INLINE F32<N> not_greater_equal(F32<N> x, F32<N> y)
{
    return {mm::cmpnge_ps(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE F32<N> less_equal(F32<N> x, F32<N> y)
{
    return {mm::cmple_ps(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE F32<N> greater_equal(F32<N> x, F32<N> y)
{
    return {mm::cmpge_ps(x.v, y.v)};
}

// x0 y0 x1 y1, and x2 y2 x3 y3.
template <int N>
UTILS_SSE_INLINE F32<N> interleave_low(F32<N> x, F32<N> y)
{
    return {mm::unpacklo_ps(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE F32<N> interleave_high(F32<N> x, F32<N> y)
{
    return {mm::unpackhi_ps(x.v, y.v)};
}
// x0 x2 y0 y2, and x1 x3 y1 y3.
template <int N>
UTILS_SSE_INLINE F32<N> even_lanes(F32<N> x, F32<N> y)
{
    return {mm::shuffle_ps<_MM_SHUFFLE(2, 0, 2, 0)>(x.v, y.v)};
}
template <int N>
UTILS_SSE_INLINE F32<N> odd_lanes(F32<N> x, F32<N> y)
{
    return {mm::shuffle_ps<_MM_SHUFFLE(3, 1, 3, 1)>(x.v, y.v)};
}
// x1 x2 x3 y0
UTILS_SSE_INLINE f32 following(f32 x, f32 y)
{
    const __m128 joined = _mm_move_ss(x.v, y.v); // y0 x1 x2 x3
    return {_mm_shuffle_ps(joined, joined, _MM_SHUFFLE(0, 3, 2, 1))};
}
// 0 x1 x2 x3
UTILS_SSE_INLINE f32 without_lane_0(f32 x)
{
    return {_mm_move_ss(x.v, _mm_setzero_ps())};
}
// The lower half of x, then that of y; and the same of the upper halves.
UTILS_SSE_INLINE f32 low_halves(f32 x, f32 y)
{
    return {_mm_movelh_ps(x.v, y.v)};
}
UTILS_SSE_INLINE f32 high_halves(f32 x, f32 y)
{
    return {_mm_movehl_ps(y.v, x.v)};
}
template <int N>
UTILS_SSE_INLINE F32x2<N> operator*(F32x2<N> x, F32x2<N> y)
{
    return {x.low * y.low, x.high * y.high};
}

template <int N>
UTILS_SSE_INLINE InOrder<F32<N>> operator*(InOrder<F32<N>> x, InOrder<F32<N>> y)
{
    return {x.first * y.first, x.second * y.second};
}

// broadcast<V>(x): x in every lane; x itself when V is float. Do it before the loop.
template <class V>
UTILS_SSE_INLINE V broadcast(float x)
{
    if constexpr (std::is_same<V, float>::value)
        return x;
    else
        return V::broadcast(x);
}

template <int N>
UTILS_SSE_INLINE F32x2<N> operator+(F32x2<N> x, F32x2<N> y)
{
    return {x.low + y.low, x.high + y.high};
}
template <int N>
UTILS_SSE_INLINE F32x2<N> operator-(F32x2<N> x, F32x2<N> y)
{
    return {x.low - y.low, x.high - y.high};
}
template <int N>
UTILS_SSE_INLINE F32x2<N> bit_and(F32x2<N> x, F32x2<N> y)
{
    return {bit_and(x.low, y.low), bit_and(x.high, y.high)};
}
UTILS_SSE_INLINE f32x2 broadcast_twice(float x)
{
    return f32x2::broadcast(x);
}

// Correctly rounded. A root taken in double and rounded to single is the same number, since 53 >= 2 * 24 + 2 bits.
template <int N>
UTILS_SSE_INLINE F32<N> square_root(F32<N> x)
{
    return {mm::sqrt_ps(x.v)};
}
UTILS_SSE_INLINE float square_root(float x)
{
    return std::sqrt(x);
}

// (lane 0 + lane 1) + (lane 2 + lane 3)
UTILS_SSE_INLINE float fold(f32 x)
{
    const __m128 swapped = _mm_shuffle_ps(x.v, x.v, _MM_SHUFFLE(2, 3, 0, 1)); // 1 0 3 2
    const __m128 pairs = _mm_add_ps(x.v, swapped);                            // 0+1 . 2+3 .
    return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_movehl_ps(pairs, pairs)));
}

// a0 + a1, a2 + a3, b0 + b1, b2 + b3
template <int N>
UTILS_SSE_INLINE F32<N> add_neighbours(F32<N> a, F32<N> b)
{
    const auto even = mm::shuffle_ps<_MM_SHUFFLE(2, 0, 2, 0)>(a.v, b.v); // a0 a2 b0 b2
    const auto odd = mm::shuffle_ps<_MM_SHUFFLE(3, 1, 3, 1)>(a.v, b.v);  // a1 a3 b1 b3
    return {mm::add_ps(even, odd)};
}
// fold(a), fold(b), fold(a), fold(b), and fold(a) .. fold(d).
template <int N>
UTILS_SSE_INLINE F32<N> fold(F32<N> a, F32<N> b)
{
    const F32<N> pairs = add_neighbours(a, b);
    return add_neighbours(pairs, pairs);
}
template <int N>
UTILS_SSE_INLINE F32<N> fold(F32<N> a, F32<N> b, F32<N> c, F32<N> d)
{
    return add_neighbours(add_neighbours(a, b), add_neighbours(c, d));
}
template <int Lane>
UTILS_SSE_INLINE float lane(f32 x)
{
    return _mm_cvtss_f32(_mm_shuffle_ps(x.v, x.v, _MM_SHUFFLE(Lane, Lane, Lane, Lane)));
}

UTILS_SSE_INLINE f32 add_to_lane_0(f32 x, float y)
{
    return {_mm_add_ss(x.v, _mm_set_ss(y))};
}

// --- doubles -------------------------------------------------------------------------------------------------------

UTILS_SSE_INLINE f64 operator+(f64 x, f64 y)
{
    return {_mm_add_pd(x.v, y.v)};
}
UTILS_SSE_INLINE f64 operator-(f64 x, f64 y)
{
    return {_mm_sub_pd(x.v, y.v)};
}
UTILS_SSE_INLINE f64 operator*(f64 x, f64 y)
{
    return {_mm_mul_pd(x.v, y.v)};
}
UTILS_SSE_INLINE f64 operator/(f64 x, f64 y)
{
    return {_mm_div_pd(x.v, y.v)};
}
UTILS_SSE_INLINE f64 broadcast_double(double x)
{
    return {_mm_set1_pd(x)};
}
UTILS_SSE_INLINE double square_root(double x)
{
    return std::sqrt(x);
}
// lane 0 + lane 1
UTILS_SSE_INLINE double fold(f64 x)
{
    return _mm_cvtsd_f64(_mm_add_sd(x.v, _mm_unpackhi_pd(x.v, x.v)));
}
template <int Lane>
UTILS_SSE_INLINE double lane(f64 x)
{
    return _mm_cvtsd_f64(Lane == 0 ? x.v : _mm_unpackhi_pd(x.v, x.v));
}
// Lanes 0 and 1 as doubles, exactly, and lanes 2 and 3.
UTILS_SSE_INLINE f64 low_to_double(i32 x)
{
    return {_mm_cvtepi32_pd(x.v)};
}
UTILS_SSE_INLINE f64 high_to_double(i32 x)
{
    return {_mm_cvtepi32_pd(_mm_unpackhi_epi64(x.v, x.v))};
}
UTILS_SSE_INLINE f64 low_to_double(f32 x)
{
    return {_mm_cvtps_pd(x.v)};
}
UTILS_SSE_INLINE f64 high_to_double(f32 x)
{
    return {_mm_cvtps_pd(_mm_movehl_ps(x.v, x.v))};
}
// Rounded to nearest: low into lanes 0 and 1, high into lanes 2 and 3.
UTILS_SSE_INLINE f32 to_float(f64 low, f64 high)
{
    return {_mm_movelh_ps(_mm_cvtpd_ps(low.v), _mm_cvtpd_ps(high.v))};
}

// --- between floats and 32-bit integers ----------------------------------------------------------------------------
// NaN and values outside the 32-bit range give -2147483648. The scalar twins use the instruction too: as a C++ cast such
// values are undefined, and compilers fold them to whatever they like.

template <int N>
UTILS_SSE_INLINE I32<N> round_to_int(F32<N> x)
{
    return {mm::cvtps_epi32(x.v)};
}
UTILS_SSE_INLINE int round_to_int(float x)
{
    return _mm_cvtss_si32(_mm_set_ss(x));
}
template <int N>
UTILS_SSE_INLINE I32<N> truncate_to_int(F32<N> x)
{
    return {mm::cvttps_epi32(x.v)};
}
UTILS_SSE_INLINE int truncate_to_int(float x)
{
    return _mm_cvttss_si32(_mm_set_ss(x));
}

// The bits as they are, for masks.
template <int N>
UTILS_SSE_INLINE F32<N> as_floats(I16<N> x)
{
    return {mm::as_ps(x.v)};
}

template <int N>
UTILS_SSE_INLINE F32<N> to_float(I32<N> x)
{
    return {mm::cvtepi32_ps(x.v)};
}
template <int N>
UTILS_SSE_INLINE F32x2<N> to_float(I32x2<N> x)
{
    return {to_float(x.low), to_float(x.high)};
}
template <int N>
UTILS_SSE_INLINE InOrder<F32<N>> to_float(InOrder<I32<N>> x)
{
    return {to_float(x.first), to_float(x.second)};
}
UTILS_SSE_INLINE float to_float(int x)
{
    return static_cast<float>(x);
}
UTILS_SSE_INLINE float to_float(short x)
{
    return static_cast<float>(x);
}

} // namespace UTILS_SSE_TIER
} // namespace simd
