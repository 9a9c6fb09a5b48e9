// Mixing of an ensemble with a complex exponential, which shifts its Doppler spectrum.
#include "simd/loops.h"
#include "utils_sse.h"

#include <cmath>

using namespace simd;

namespace {

// Single-precision constants, exact to the bit.
constexpr float kPi = 3.14159274f;          // 0x40490FDB
constexpr float kTwoPi = 6.28318548f;       // 0x40C90FDB
constexpr float kHalfPi = 1.57079637f;      // 0x3FC90FDB
constexpr float kLinear = 1.27323949f;      // 0x3FA2F983: 4 / pi
constexpr float kQuadratic = -0.405284733f; // 0xBECF817B: -4 / pi^2
constexpr float kCorrection = 0.224999994f; // 0x3E666666

// The phases of firings k .. k + 3, brought to -pi .. pi. Firing 0 has phase 0 also where 0 * theta would be NaN.
UTILS_SSE_INLINE f32 phases(int k, f32 theta)
{
    const auto number = [=](int lane) UTILS_SSE_LAMBDA { return static_cast<float>(k + lane); };
    f32 x = f32{_mm_setr_ps(number(0), number(1), number(2), number(3))} * theta;
    const f32 two_pi = broadcast<f32>(kTwoPi);
    x = x - to_float(truncate_to_int(x / two_pi)) * two_pi;
    // x - 2 pi above pi, x + 2 pi below -pi
    const f32 turn = bit_or(bit_and(greater(x, broadcast<f32>(kPi)), two_pi),
                            bit_and(less(x, broadcast<f32>(-kPi)), broadcast<f32>(-kTwoPi)));
    x = x - turn;
    return k == 0 ? without_lane_0(x) : x;
}

// A parabola through the zeros and the peaks of the sine, and a second one that takes most of the error out of it.
UTILS_SSE_INLINE f32 sine(f32 x)
{
    const f32 y = broadcast<f32>(kLinear) * x + (broadcast<f32>(kQuadratic) * x) * absolute(x);
    return y + broadcast<f32>(kCorrection) * (y * absolute(y) - y);
}

UTILS_SSE_INLINE f32 cosine(f32 x)
{
    const f32 ahead = x + broadcast<f32>(kHalfPi);
    return sine(ahead - bit_and(not_less(ahead, broadcast<f32>(kPi)), broadcast<f32>(kTwoPi)));
}

// V: f32, or float of the scalar stage.
template <class V>
struct Sample
{
    V I, Q;
};
template <class V>
UTILS_SSE_INLINE Sample<V> rotated(V I, V Q, V c, V s)
{
    return {c * I - s * Q, c * Q + s * I};
}

template <int N>
UTILS_SSE_INLINE void mix(float* ensembleI, float* ensembleQ, float theta)
{
    const f32 steps = broadcast<f32>(theta);
    repeat<(N + 3) / 4>([&](auto p) UTILS_SSE_LAMBDA {
        constexpr int k = 4 * p;
        const f32 phase = phases(k, steps);
        const f32 s = sine(phase);
        const f32 c = cosine(phase);
        // Of 10 firings the last two; elements 10 and 11 would keep their values and are not touched.
        if constexpr (k + 2 == N) {
            const Sample<f32> z = rotated(load_two(ensembleI + k), load_two(ensembleQ + k), c, s);
            store_two(ensembleI + k, z.I);
            store_two(ensembleQ + k, z.Q);
        } else {
            const Sample<f32> z = rotated(load<f32>(ensembleI + k), load<f32>(ensembleQ + k), c, s);
            store(ensembleI + k, z.I);
            store(ensembleQ + k, z.Q);
        }
    });
}

// All other lengths, on purpose without reduction of the phase and without approximation.
UTILS_SSE_APART void mix_any(int n, float* ensembleI, float* ensembleQ, float theta)
{
    for (int k = 0; k < n; ++k) {
        const auto phase = static_cast<double>(static_cast<float>(k) * theta);
        const auto c = static_cast<float>(std::cos(phase));
        const auto s = static_cast<float>(std::sin(phase));
        const Sample<float> z = rotated(ensembleI[k], ensembleQ[k], c, s);
        ensembleI[k] = z.I;
        ensembleQ[k] = z.Q;
    }
}

} // namespace

void CUtils_SSE::MixingClutter(int n, float* ensembleI, float* ensembleQ, float theta)
{
    switch (n) {
    case 8:
        return mix<8>(ensembleI, ensembleQ, theta);
    case 10:
        return mix<10>(ensembleI, ensembleQ, theta);
    case 12:
        return mix<12>(ensembleI, ensembleQ, theta);
    default:
        return mix_any(n, ensembleI, ensembleQ, theta);
    }
}
