// Quadrature demodulation: RF lines times carrier tables, without filter or decimation.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

constexpr float kQ15ToUnit = 3.05185094e-05f; // the float nearest to 1 / 32767

// The same samples mixed with several carriers.
template <class Vector, int Carriers>
struct Mixed
{
    Vector with[Carriers];
};

template <class Vector, class... More>
UTILS_SSE_INLINE Mixed<Vector, 1 + sizeof...(More)> mixed(Vector first, More... more)
{
    return {{first, more...}};
}

// The tail of mixed lines is zeroed, not computed.
UTILS_SSE_INLINE void clear_both(short* out1, short* out2, Rest rest)
{
    cover<4>(rest, [=](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        Part<i16, 2 * count()>::store(out1 + i, zero<i16>());
        Part<i16, 2 * count()>::store(out2 + i, zero<i16>());
    });
}

// Lines of a block at least. A function of its own with the very parameters of its caller, which jumps here and has nothing to
// save and restore for shorter ones.
UTILS_SSE_APART void mix_with_two(const short* rf, short* out1, short* out2, const short* table1, const short* table2,
                                  int lines, int n)
{
    for (int line = 0; line < lines; ++line, rf += n, out1 += n, out2 += n) {
        const Rest rest = map_blocks<8, 4>(
            n,
            [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
                const auto samples = run.load(rf + i);
                return mixed(multiply_q15(samples, run.load(table1 + i)), multiply_q15(samples, run.load(table2 + i)));
            },
            [=](std::ptrdiff_t i, const auto& products) UTILS_SSE_LAMBDA {
                store(out1 + i, products.with[0]);
                store(out2 + i, products.with[1]);
            },
            ahead<64>(rf));
        clear_both(out1, out2, rest);
    }
}

// All lines but the last, without their tails; for the rest the same.
UTILS_SSE_APART void mix_with_four(const short* rf, const short* tableA, const short* tableB, short* outA, short* outB,
                                   short* outC, short* outD, const short* tableC, const short* tableD, int lines, int n)
{
    for (int line = 1; line < lines; ++line, rf += n, outA += n, outB += n, outC += n, outD += n) {
        map_blocks<8, 4>(
            n,
            [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
                const auto samples = run.load(rf + i);
                return mixed(multiply_q15(samples, run.load(tableA + i)), multiply_q15(samples, run.load(tableB + i)),
                             multiply_q15(samples, run.load(tableC + i)), multiply_q15(samples, run.load(tableD + i)));
            },
            [=](std::ptrdiff_t i, const auto& products) UTILS_SSE_LAMBDA {
                store(outA + i, products.with[0]);
                store(outB + i, products.with[1]);
                store(outC + i, products.with[2]);
                store(outD + i, products.with[3]);
            },
            ahead<64>(rf));
    }
}

} // namespace

void CUtils_SSE::Demodulate(const short* rf, const short* table1, const short* table2, float* out1, float* out2, int n)
{
    // Crossed on purpose.
    map_products(
        n, rf, table2, table1, out1, out2,
        [](auto products) UTILS_SSE_LAMBDA {
            const auto x = to_float(products);
            return x * broadcast<std::remove_const_t<decltype(x)>>(kQ15ToUnit);
        },
        ahead<1024>(rf), ahead<1024>(table1), ahead<1024>(table2));
}

void CUtils_SSE::DemodulateNew(const short* rf, short* out1, short* out2, const short* table1, const short* table2, int lines,
                               int n)
{
    if (UTILS_SSE_OUT_OF_LINE(n >= 8))
        mix_with_two(rf, out1, out2, table1, table2, lines, n);
    else
        for (int line = 0; line < lines; ++line, out1 += n, out2 += n)
            clear_both(out1, out2, Rest{0, n});
}

void CUtils_SSE::DemodulateHarmInterp(const short* rf, const short* tableA, const short* tableB, short* outA, short* outB,
                                      short* outC, short* outD, const short* tableC, const short* tableD, int lines, int n)
{
    if (UTILS_SSE_OUT_OF_LINE(n >= 8))
        mix_with_four(rf, tableA, tableB, outA, outB, outC, outD, tableC, tableD, lines, n);
}
