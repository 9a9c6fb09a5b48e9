// The clutter filter as a matrix: one real matrix applied to the I and the Q ensemble of a pixel.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

template <int N>
struct Ensemble
{
    static constexpr int vectors = (N + 3) / 4;
    f32 part[vectors];

    // Of 10 elements the last two fill half a vector; the other half is zero.
    static UTILS_SSE_INLINE Ensemble load(const float* x)
    {
        Ensemble e;
        repeat<vectors>([&](auto p) UTILS_SSE_LAMBDA {
            if constexpr (4 * p + 2 == N)
                e.part[p] = load_two(x + 4 * p);
            else
                e.part[p] = simd::load<f32>(x + 4 * p);
        });
        return e;
    }
};

// The four lanes of a row's sum, not yet folded. They begin with their first product, not with 0.
template <int N>
UTILS_SSE_INLINE f32 lanes_of(const Ensemble<N>& row, const Ensemble<N>& x)
{
    f32 sum = row.part[0] * x.part[0];
    repeat<Ensemble<N>::vectors - 1>([&](auto p) UTILS_SSE_LAMBDA { sum = sum + row.part[p + 1] * x.part[p + 1]; });
    return sum;
}

// Results of I and Q for the four rows from `row` on, Step elements apart.
struct FourRows
{
    f32 I, Q;
};

template <int N, int Step>
UTILS_SSE_INLINE FourRows four_rows(const float* row, const Ensemble<N>& I, const Ensemble<N>& Q)
{
    f32 lanesI[4];
    f32 lanesQ[4];
    repeat<4>([&](auto r) UTILS_SSE_LAMBDA {
        const Ensemble<N> coefficients = Ensemble<N>::load(row + r * Step);
        lanesI[r] = lanes_of(coefficients, I);
        lanesQ[r] = lanes_of(coefficients, Q);
    });
    return {fold(lanesI[0], lanesI[1], lanesI[2], lanesI[3]), fold(lanesQ[0], lanesQ[1], lanesQ[2], lanesQ[3])};
}

// Both inputs are in registers before anything is stored: outputs may be inputs.
template <int N>
UTILS_SSE_INLINE void filter(const float* inI, const float* inQ, float* outI, float* outQ, const float* matrix)
{
    const Ensemble<N> I = Ensemble<N>::load(inI);
    const Ensemble<N> Q = Ensemble<N>::load(inQ);
    repeat<N / 4>([&](auto block) UTILS_SSE_LAMBDA {
        const FourRows rows = four_rows<N, N>(matrix + block * 4 * N, I, Q);
        store(outI + block * 4, rows.I);
        store(outQ + block * 4, rows.Q);
    });
}

// 10 firings, on purpose: row 2b of the matrix makes both outputs 2b and 2b + 1, odd rows are not read.
UTILS_SSE_INLINE void filter_pairs(const float* inI, const float* inQ, float* outI, float* outQ, const float* matrix)
{
    constexpr int N = 10;
    const Ensemble<N> I = Ensemble<N>::load(inI);
    const Ensemble<N> Q = Ensemble<N>::load(inQ);
    const FourRows rows = four_rows<N, 2 * N>(matrix, I, Q);
    const Ensemble<N> last = Ensemble<N>::load(matrix + 8 * N);
    const f32 lastIQ = fold(lanes_of(last, I), lanes_of(last, Q)); // I Q I Q
    store(outI, interleave_low(rows.I, rows.I));
    store(outI + 4, interleave_high(rows.I, rows.I));
    store(outQ, interleave_low(rows.Q, rows.Q));
    store(outQ + 4, interleave_high(rows.Q, rows.Q));
    const f32 pairs = interleave_low(lastIQ, lastIQ); // I I Q Q
    store_two(outI + 8, pairs);
    store_upper_two(outQ + 8, pairs);
}

// All other lengths: one column after the other, in single precision. A lane is a row, so that several rows are summed side by
// side; blocks of 4 x 4 entries are turned for that, so a column's entries of four rows lie in a vector.
template <int Fours>
struct Rows
{
    f32 I[Fours] = {};
    f32 Q[Fours] = {};

    // Four columns of 4 * Fours rows, n apart.
    UTILS_SSE_INLINE void add_columns(const float* matrix, std::ptrdiff_t n, const float* inI, const float* inQ)
    {
        f32 x[4], y[4];
        repeat<4>([&](auto column) UTILS_SSE_LAMBDA {
            x[column] = broadcast<f32>(inI[column]);
            y[column] = broadcast<f32>(inQ[column]);
        });
        repeat<Fours>([&](auto four) UTILS_SSE_LAMBDA {
            const float* const first = matrix + 4 * four * n;
            const f32 a = simd::load<f32>(first);
            const f32 b = simd::load<f32>(first + n);
            const f32 c = simd::load<f32>(first + 2 * n);
            const f32 d = simd::load<f32>(first + 3 * n);
            const f32 evenAB = even_lanes(a, b); // a0 a2 b0 b2
            const f32 oddAB = odd_lanes(a, b);
            const f32 evenCD = even_lanes(c, d);
            const f32 oddCD = odd_lanes(c, d);
            const f32 columns[] = {even_lanes(evenAB, evenCD), even_lanes(oddAB, oddCD), odd_lanes(evenAB, evenCD),
                                   odd_lanes(oddAB, oddCD)};
            repeat<4>([&](auto column) UTILS_SSE_LAMBDA {
                I[four] = I[four] + columns[column] * x[column];
                Q[four] = Q[four] + columns[column] * y[column];
            });
        });
    }
};

// Results of the 4 * Fours rows from `matrix` on; outI and outQ are those of the first.
template <int Fours>
UTILS_SSE_INLINE void filter_rows(int n, const float* inI, const float* inQ, float* outI, float* outQ, const float* matrix)
{
    Rows<Fours> rows;
    std::ptrdiff_t c = 0;
    for (; c + 4 <= n; c += 4)
        rows.add_columns(matrix + c, n, inI + c, inQ + c);
    repeat<Fours>([&](auto four) UTILS_SSE_LAMBDA {
        store(outI + 4 * four, rows.I[four]);
        store(outQ + 4 * four, rows.Q[four]);
    });
    for (; c < n; ++c)
        for (std::ptrdiff_t r = 0; r < 4 * Fours; ++r) {
            outI[r] += matrix[r * n + c] * inI[c];
            outQ[r] += matrix[r * n + c] * inQ[c];
        }
}

// As many rows at a time as registers hold sums of; returns the first row that is left.
template <int Fours>
UTILS_SSE_INLINE std::ptrdiff_t filter_whole_fours(std::ptrdiff_t r, int n, const float* inI, const float* inQ, float* outI,
                                                   float* outQ, const float* matrix)
{
    for (; r + 4 * Fours <= n; r += 4 * Fours)
        filter_rows<Fours>(n, inI, inQ, outI + r, outQ + r, matrix + r * n);
    if constexpr (Fours > 1)
        r = filter_whole_fours<Fours / 2>(r, n, inI, inQ, outI, outQ, matrix);
    return r;
}

UTILS_SSE_APART void filter_any(int n, const float* inI, const float* inQ, float* outI, float* outQ, const float* matrix)
{
    constexpr int fours = sizeof(void*) == 8 ? 4 : 1;
    std::ptrdiff_t r = filter_whole_fours<fours>(0, n, inI, inQ, outI, outQ, matrix);
    for (; r < n; ++r) {
        float sumI = 0.0f;
        float sumQ = 0.0f;
        for (std::ptrdiff_t c = 0; c < n; ++c) {
            sumI += matrix[r * n + c] * inI[c];
            sumQ += matrix[r * n + c] * inQ[c];
        }
        outI[r] = sumI;
        outQ[r] = sumQ;
    }
}

} // namespace

void CUtils_SSE::IIRPerformMatrix(int n, float* inI, float* inQ, float* outI, float* outQ, float* matrix)
{
    switch (n) {
    case 8:
        return filter<8>(inI, inQ, outI, outQ, matrix);
    case 10:
        return filter_pairs(inI, inQ, outI, outQ, matrix);
    case 12:
        return filter<12>(inI, inQ, outI, outQ, matrix);
    default:
        return filter_any(n, inI, inQ, outI, outQ, matrix);
    }
}
