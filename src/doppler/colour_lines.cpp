// Phase of the colour estimates, and the lines they come from: low-pass and demodulation.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

constexpr float kPi = 3.14159274f;
constexpr float kQuarterPi = 0.785398185f;
constexpr float kThreeQuarterPi = 2.3561945f;
constexpr float kTiny = 1.00000001e-10f; // keeps the ratio finite at the origin
constexpr float kQ15 = 3.05175781e-05f;  // 1 / 32768

// Samples as the low-pass reads them in whole blocks: without their sign, -1 as 65535.
UTILS_SSE_INLINE f32x2 unsigned_to_float(i16 x)
{
    const i16 nothing = zero<i16>();
    return to_float(i32x2{{interleave_low(x, nothing).v}, {interleave_high(x, nothing).v}});
}

} // namespace

void CUtils_SSE::ATan2Bound(int, float* y, float* x, float bound, float* phase, float* negated)
{
    const f32 re = load<f32>(x);
    const f32 im = load<f32>(y);
    const f32 nothing = zero<f32>();
    const f32 sign = broadcast<f32>(-0.0f);
    const f32 left = not_greater_equal(re, nothing); // also where re is NaN, which then arrives in the phase
    const f32 flip = bit_and(left, sign);

    // On the left, (re + ay) / (ay - re) is the ratio of the right with |re|, negated; a ratio of 0 has no say in its sign.
    const f32 ax = absolute(re);
    const f32 ay = absolute(im) + broadcast<f32>(kTiny);
    const f32 r = bit_xor((ax - ay) / (ax + ay), flip);
    const f32 base = select(left, broadcast<f32>(kThreeQuarterPi), broadcast<f32>(kQuarterPi));
    const f32 a = (r * r * broadcast<f32>(0.1963f) - broadcast<f32>(0.9817f)) * r + base;

    // The mask of the second term comes from re, not from im. That makes the phase a on the upper right, 0 on the lower
    // right and -a on the whole left.
    const f32 p = bit_or(bit_and(a, not_less(im, nothing)), bit_and(bit_xor(a, sign), left));

    // A bound that is crossed is ORed to the phase, bit by bit, on purpose.
    const f32 hi = broadcast<f32>(bound * kPi);
    const f32 lo = bit_xor(hi, sign);
    const f32 crossed = bit_or(bit_and(lo, less_equal(p, lo)), bit_and(hi, greater_equal(p, hi)));
    const f32 result = bit_or(crossed, p);
    store(phase, result);
    store(negated, bit_xor(result, sign));
}

float CUtils_SSE::ColorLowPass(const short* samples, const float* taps, int n)
{
    float sum = 0;
    Rest tail{0, n};
    if (UTILS_SSE_OUT_OF_LINE(n >= 8)) {
        f32 lanes = zero<f32>();
        const Rest rest = read_blocks<8, 2>(n, [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const f32x2 products = unsigned_to_float(load<i16>(samples + i)) * load<f32x2>(taps + i);
            lanes = lanes + products.low + products.high;
        });
        sum = fold(lanes);
        if (rest.count == 0)
            return sum;
        // The tail starts in the middle of the blocks: their second half counts twice, now with its sign.
        tail = {rest.i / 2, n - static_cast<int>(rest.i / 2)};
    }
    if (UTILS_SSE_OUT_OF_LINE(tail.count >= 4))
        do {
            const f32 products = to_float(widen(load_four(samples + tail.i)).low) * load<f32>(taps + tail.i);
            repeat<4>([&](auto k) UTILS_SSE_LAMBDA { sum = sum + lane<k()>(products); });
            tail.i += 4;
            tail.count -= 4;
        } while (tail.count >= 4);
    for_up_to_three(tail, [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { sum = sum + to_float(samples[i]) * taps[i]; });
    return sum;
}

void CUtils_SSE::DemodulateColor(const short* rf, const short* table1, const short* table2, float* out1, float* out2, int n)
{
    // Crossed on purpose.
    map_products(n, rf, table2, table1, out1, out2, [](auto products) UTILS_SSE_LAMBDA {
        const auto x = to_float(products);
        return x * broadcast<std::remove_const_t<decltype(x)>>(kQ15);
    });
}
