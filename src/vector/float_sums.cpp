// Sums and dot products of float arrays. Four lanes and one order of additions are the contract, so a single sum cannot be
// faster than its chain of dependent additions; two sums of one pass run side by side.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

float CUtils_SSE::SumFloats(const float* a, int n)
{
    return sum_in_lanes(
        n, [=](auto v, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return load<decltype(v)>(a + i); }, ahead<64>(a));
}

float CUtils_SSE::FDotProduct(const float* a, const float* b, int n)
{
    return sum_in_lanes(
        n, [=](auto v, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return load<decltype(v)>(a + i) * load<decltype(v)>(b + i); },
        ahead<64>(a), ahead<64>(b));
}

void CUtils_SSE::FDotProduct(float* outA, float* outB, const float* a, const float* b, const float* c, int n)
{
    // Unlike the other sums: the tail is summed on its own and joins lane 0 before the fold.
    float tailA = 0.0f;
    float tailB = 0.0f;
    const auto one = [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        tailA = tailA + a[i] * c[i];
        tailB = tailB + b[i] * c[i];
    };
    if (UTILS_SSE_OUT_OF_LINE(n >= 4)) {
        f32 lanesA = broadcast<f32>(0.0f);
        f32 lanesB = broadcast<f32>(0.0f);
        const Rest rest = read_blocks<4, 4>(
            n,
            [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
                const f32 common = load<f32>(c + i);
                lanesA = lanesA + load<f32>(a + i) * common;
                lanesB = lanesB + load<f32>(b + i) * common;
            },
            ahead<64>(a), ahead<64>(b), ahead<64>(c));
        for_up_to_three(rest, one);
        *outA = fold(add_to_lane_0(lanesA, tailA));
        *outB = fold(add_to_lane_0(lanesB, tailB));
        return;
    }
    for_few(n, one); // nothing to join
    *outA = tailA;
    *outB = tailB;
}
