// Mixing of an ensemble with a complex exponential, which shifts its Doppler spectrum.
#include "simd/loops.h"
#include "utils_sse.h"

#include <cmath>

using namespace simd;

namespace {

// How many blocks of firings 0 .. 7 are computed side by side.
constexpr int kWide = UTILS_SSE_MOST_BLOCKS < 2 ? UTILS_SSE_MOST_BLOCKS : 2;

// Constants in all lanes, read from memory: GCC would otherwise load and spread each of them in every call.
struct Lanes
{
    float lane[4 * kWide];

    constexpr explicit Lanes(float x) : lane()
    {
        for (float& value : lane)
            value = x;
    }
};
struct alignas(16) Constants
{
    float firing[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    Lanes pi{3.14159274f};            // 0x40490FDB
    Lanes minus_pi{-3.14159274f};     // 0xC0490FDB
    Lanes two_pi{6.28318548f};        // 0x40C90FDB
    Lanes minus_two_pi{-6.28318548f}; // 0xC0C90FDB
    Lanes half_pi{1.57079637f};       // 0x3FC90FDB
    Lanes linear{1.27323949f};        // 0x3FA2F983: 4 / pi
    Lanes quadratic{-0.405284733f};   // 0xBECF817B: -4 / pi^2
    Lanes correction{0.224999994f};   // 0x3E666666
};
constexpr Constants kConstants;

// SSE arithmetic takes aligned operands straight from memory.
template <class V>
UTILS_SSE_INLINE V load_lanes(const float* p)
{
    if constexpr (V::blocks == 1)
        return load_aligned(p);
    else
        return V::load(p);
}
template <class V>
UTILS_SSE_INLINE V load_lanes(const Lanes& constant)
{
    return load_lanes<V>(constant.lane);
}

// All vectors of an ensemble take each step side by side. A chain of 55 to 80 cycles leads through the steps of one vector, and
// processors do not look far enough ahead to find the next vector behind it: one after the other took 1.7 times as long.

UTILS_SSE_INLINE f32 without_first_lane(f32 x)
{
    return without_lane_0(x);
}
#if UTILS_SSE_MOST_BLOCKS >= 2
UTILS_SSE_INLINE F32<2> without_first_lane(F32<2> x)
{
    return {_mm256_blend_ps(x.v, _mm256_setzero_ps(), 1)};
}
#endif

// The phases of firings 0 .. Firings - 1, brought to -pi .. pi. Firing 0 has phase 0 also where 0 * theta would be NaN.
template <int Firings, class V, int Vectors>
UTILS_SSE_INLINE void phases(const Constants& c, float theta, V (&x)[Vectors])
{
    const V two_pi = load_lanes<V>(c.two_pi);
    repeat<Vectors>([&](auto v) UTILS_SSE_LAMBDA { x[v] = load_lanes<V>(c.firing + v * V::lanes) * broadcast<V>(theta); });
    // Of clutter, which is slow, no phase reaches a whole turn, and there is nothing to take off.
    if (UTILS_SSE_OUT_OF_LINE(!(absolute((Firings - 1) * theta) < c.two_pi.lane[0]))) {
        V turns[Vectors];
        repeat<Vectors>([&](auto v) UTILS_SSE_LAMBDA { turns[v] = to_float(truncate_to_int(x[v] / two_pi)); });
        repeat<Vectors>([&](auto v) UTILS_SSE_LAMBDA { x[v] = x[v] - turns[v] * two_pi; });
    }
    repeat<Vectors>([&](auto v) UTILS_SSE_LAMBDA {
        const V down = bit_and(greater(x[v], load_lanes<V>(c.pi)), two_pi);
        const V up = bit_and(less(x[v], load_lanes<V>(c.minus_pi)), load_lanes<V>(c.minus_two_pi));
        x[v] = x[v] - bit_or(down, up);
    });
    x[0] = without_first_lane(x[0]);
}

// The phase whose sine is the cosine of x: x + pi / 2, which is not below pi just where x is not below pi / 2.
template <class V>
UTILS_SSE_INLINE V quarter_turn_ahead(const Constants& c, V x)
{
    const V half_pi = load_lanes<V>(c.half_pi);
    return (x + half_pi) - bit_and(not_less(x, half_pi), load_lanes<V>(c.two_pi));
}

// A parabola through the zeros and the peaks of the sine, and a second one that takes most of the error out of it.
template <class V, int Count>
UTILS_SSE_INLINE void sines(const Constants& c, V (&x)[Count])
{
    V y[Count];
    repeat<Count>([&](auto i) UTILS_SSE_LAMBDA { y[i] = (load_lanes<V>(c.quadratic) * x[i]) * absolute(x[i]); });
    repeat<Count>([&](auto i) UTILS_SSE_LAMBDA { y[i] = load_lanes<V>(c.linear) * x[i] + y[i]; });
    repeat<Count>([&](auto i) UTILS_SSE_LAMBDA { x[i] = y[i] * absolute(y[i]) - y[i]; });
    repeat<Count>([&](auto i) UTILS_SSE_LAMBDA { x[i] = y[i] + load_lanes<V>(c.correction) * x[i]; });
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

// Eight firings in one vector of two blocks.
#if UTILS_SSE_MOST_BLOCKS >= 2
UTILS_SSE_INLINE void mix_eight(float* ensembleI, float* ensembleQ, float theta)
{
    using V = F32<2>;
    const Constants& constants = *in_memory(&kConstants);
    V x[2];
    {
        V phase[1];
        phases<8>(constants, theta, phase);
        x[0] = phase[0];
        x[1] = quarter_turn_ahead(constants, phase[0]);
    }
    sines(constants, x);
    const Sample<V> z = rotated(V::load(ensembleI), V::load(ensembleQ), x[1], x[0]);
    store(ensembleI, z.I);
    store(ensembleQ, z.Q);
}
#endif

template <int N>
UTILS_SSE_INLINE void mix(float* ensembleI, float* ensembleQ, float theta)
{
    const Constants& constants = *in_memory(&kConstants);
    constexpr int whole = N / 4;
    constexpr bool half = N % 4 != 0; // the last two of 10 firings
    f32 phase[whole + half];
    phases<N>(constants, theta, phase);

    // Sines of the whole vectors, then their cosines. Half a vector has both: s8 s9 c8 c9.
    f32 x[2 * whole + half];
    repeat<whole>([&](auto v) UTILS_SSE_LAMBDA {
        x[v] = phase[v];
        x[whole + v] = quarter_turn_ahead(constants, phase[v]);
    });
    if constexpr (half)
        x[2 * whole] = low_halves(phase[whole], quarter_turn_ahead(constants, phase[whole]));
    sines(constants, x);

    repeat<whole>([&](auto v) UTILS_SSE_LAMBDA {
        float* const I = ensembleI + 4 * v;
        float* const Q = ensembleQ + 4 * v;
        const Sample<f32> z = rotated(load<f32>(I), load<f32>(Q), x[whole + v], x[v]);
        store(I, z.I);
        store(Q, z.Q);
    });
    // Elements 10 and 11 would keep their values and are not touched.
    if constexpr (half) {
        float* const I = ensembleI + 4 * whole;
        float* const Q = ensembleQ + 4 * whole;
        const f32 sin = x[2 * whole];
        const Sample<f32> z = rotated(load_two(I), load_two(Q), high_halves(sin, sin), sin);
        store_two(I, z.I);
        store_two(Q, z.Q);
    }
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
#if UTILS_SSE_MOST_BLOCKS >= 2
        return mix_eight(ensembleI, ensembleQ, theta);
#else
        return mix<8>(ensembleI, ensembleQ, theta);
#endif
    case 10:
        return mix<10>(ensembleI, ensembleQ, theta);
    case 12:
        return mix<12>(ensembleI, ensembleQ, theta);
    default:
        return mix_any(n, ensembleI, ensembleQ, theta);
    }
}
