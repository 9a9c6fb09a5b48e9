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

// All other lengths: one column after the other, in single precision.
UTILS_SSE_APART void filter_any(int n, const float* inI, const float* inQ, float* outI, float* outQ, const float* matrix)
{
    for (std::ptrdiff_t r = 0; r < n; ++r) {
        float sumI = 0.0f;
        float sumQ = 0.0f;
        for (std::ptrdiff_t c = 0; c < n; ++c, ++matrix) {
            sumI += *matrix * inI[c];
            sumQ += *matrix * inQ[c];
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
