// Verbs of floats, and of floats with 32-bit integers.
#pragma once

#include "simd/types.h"

#include <cmath>

namespace simd {
inline namespace UTILS_SSE_TIER {

// --- floats --------------------------------------------------------------------------------------------------------

UTILS_SSE_INLINE f32 operator+(f32 x, f32 y)
{
    return {_mm_add_ps(x.v, y.v)};
}
UTILS_SSE_INLINE f32 operator-(f32 x, f32 y)
{
    return {_mm_sub_ps(x.v, y.v)};
}
UTILS_SSE_INLINE f32 operator*(f32 x, f32 y)
{
    return {_mm_mul_ps(x.v, y.v)};
}

UTILS_SSE_INLINE f32x2 operator*(f32x2 x, f32x2 y)
{
    return {x.low * y.low, x.high * y.high};
}

// broadcast<V>(x): x in every lane; x itself when V is float. Do it before the loop.
template <class V>
UTILS_SSE_INLINE V broadcast(float x);
template <>
UTILS_SSE_INLINE f32 broadcast<f32>(float x)
{
    return {_mm_set1_ps(x)};
}
template <>
UTILS_SSE_INLINE float broadcast<float>(float x)
{
    return x;
}

UTILS_SSE_INLINE f32x2 operator+(f32x2 x, f32x2 y)
{
    return {x.low + y.low, x.high + y.high};
}
UTILS_SSE_INLINE f32x2 operator-(f32x2 x, f32x2 y)
{
    return {x.low - y.low, x.high - y.high};
}
UTILS_SSE_INLINE f32x2 broadcast_twice(float x)
{
    return {{_mm_set1_ps(x)}, {_mm_set1_ps(x)}};
}

// Correctly rounded. A root taken in double and rounded to single is the same number, since 53 >= 2 * 24 + 2 bits.
UTILS_SSE_INLINE f32 square_root(f32 x)
{
    return {_mm_sqrt_ps(x.v)};
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

UTILS_SSE_INLINE f32 add_to_lane_0(f32 x, float y)
{
    return {_mm_add_ss(x.v, _mm_set_ss(y))};
}

// --- between floats and 32-bit integers ----------------------------------------------------------------------------
// NaN and values outside the 32-bit range give -2147483648. The scalar twins use the instruction too: as a C++ cast such
// values are undefined, and compilers fold them to whatever they like.

UTILS_SSE_INLINE i32 round_to_int(f32 x)
{
    return {_mm_cvtps_epi32(x.v)};
}
UTILS_SSE_INLINE int round_to_int(float x)
{
    return _mm_cvtss_si32(_mm_set_ss(x));
}
UTILS_SSE_INLINE i32 truncate_to_int(f32 x)
{
    return {_mm_cvttps_epi32(x.v)};
}
UTILS_SSE_INLINE int truncate_to_int(float x)
{
    return _mm_cvttss_si32(_mm_set_ss(x));
}

UTILS_SSE_INLINE f32 to_float(i32 x)
{
    return {_mm_cvtepi32_ps(x.v)};
}
UTILS_SSE_INLINE f32x2 to_float(i32x2 x)
{
    return {to_float(x.low), to_float(x.high)};
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
