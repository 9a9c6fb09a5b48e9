// Quadrature demodulation: RF lines times carrier tables, without filter or decimation.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

constexpr float kQ15ToUnit = 3.05185094e-05f; // the float nearest to 1 / 32767

// Zeroes samples from `rest` on: what DemodulateNew leaves of a partial block.
UTILS_SSE_INLINE void clear_rest(short* out, std::ptrdiff_t rest, int n)
{
    for_rest(rest, n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { out[i] = 0; });
}

} // namespace

void CUtils_SSE::Demodulate(const short* rf, const short* table1, const short* table2, float* out1, float* out2, int n)
{
    const auto mix = [](float* out, i16 samples, i16 carrier) UTILS_SSE_LAMBDA {
        const f32 unit = broadcast<f32>(kQ15ToUnit);
        const i32x2 product = multiply_exact(samples, carrier);
        store(out, to_float(product.low) * unit);
        store(out + 4, to_float(product.high) * unit);
    };
    const std::ptrdiff_t rest = for_whole_blocks<8, 4>(
        n,
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const i16 samples = load<i16>(rf + i);
            mix(out1 + i, samples, load<i16>(table2 + i)); // crossed on purpose
            mix(out2 + i, samples, load<i16>(table1 + i));
        },
        ahead<1024>(rf), ahead<1024>(table1), ahead<1024>(table2));
    for_rest(rest, n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        out1[i] = to_float(multiply_exact(rf[i], table2[i])) * kQ15ToUnit;
        out2[i] = to_float(multiply_exact(rf[i], table1[i])) * kQ15ToUnit;
    });
}

void CUtils_SSE::DemodulateNew(const short* rf, short* out1, short* out2, const short* table1, const short* table2, int lines,
                               int n)
{
    for (int line = 0; line < lines; ++line, rf += n, out1 += n, out2 += n) {
        const std::ptrdiff_t rest = for_whole_blocks<8, 4>(
            n,
            [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
                const i16 samples = load<i16>(rf + i);
                store(out1 + i, multiply_q15(samples, load<i16>(table1 + i)));
                store(out2 + i, multiply_q15(samples, load<i16>(table2 + i)));
            },
            ahead<64>(rf));
        clear_rest(out1, rest, n); // the tail is zeroed, not computed
        clear_rest(out2, rest, n);
    }
}

void CUtils_SSE::DemodulateHarmInterp(const short* rf, const short* tableA, const short* tableB, short* outA, short* outB,
                                      short* outC, short* outD, const short* tableC, const short* tableD, int lines, int n)
{
    // The last line is left alone, and so is the tail of every line.
    for (int line = 1; line < lines; ++line, rf += n, outA += n, outB += n, outC += n, outD += n) {
        for_whole_blocks<8, 4>(
            n,
            [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
                const i16 samples = load<i16>(rf + i);
                store(outA + i, multiply_q15(samples, load<i16>(tableA + i)));
                store(outB + i, multiply_q15(samples, load<i16>(tableB + i)));
                store(outC + i, multiply_q15(samples, load<i16>(tableC + i)));
                store(outD + i, multiply_q15(samples, load<i16>(tableD + i)));
            },
            ahead<64>(rf));
    }
}
