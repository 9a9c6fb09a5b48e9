// Element-wise arithmetic of float arrays.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

void CUtils_SSE::SumFloatArrays(float* dst, const float* a, const float* b, int n)
{
    map_floats(
        n, dst, [](auto x, auto y) UTILS_SSE_LAMBDA { return x + y; }, a, b);
}

void CUtils_SSE::FScaleArray(float* dst, const float* src, float scale, int n)
{
    map_floats(
        n, dst, [scale](auto x) UTILS_SSE_LAMBDA { return x * broadcast<decltype(x)>(scale); }, src);
}

void CUtils_SSE::Average(float* dst, const float* src, int n)
{
    map_floats_into(
        n, dst, [](auto x, auto y) UTILS_SSE_LAMBDA { return (x + y) * broadcast<decltype(x)>(0.5f); }, src);
}

void CUtils_SSE::Average(float* dst, const float* a, const float* b, int n, float w)
{
    const float rest = 1.0f - w;
    map_floats(
        n, dst,
        [w, rest](auto x, auto y) UTILS_SSE_LAMBDA {
            using V = decltype(x);
            return y * broadcast<V>(rest) + x * broadcast<V>(w);
        },
        a, b);
}

void CUtils_SSE::Distance(float* dst, const float* src, int n)
{
    map_floats_into(
        n, dst, [](auto x, auto y) UTILS_SSE_LAMBDA { return square_root(x * x + y * y); }, src);
}
