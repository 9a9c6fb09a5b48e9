// Envelope detection with Q15 taps, specialised to one decimation and one filter length each.
#include "envelope/detection.h"
#include "simd/loops.h"
#include "utils_sse.h"

using namespace detection;
using namespace simd;

namespace {

// The low-pass. Tap vector g meets the eight samples from Decimation * g on, so that all eight products of an instruction
// belong to outputs that are wanted:
//
//   decimation 4   samples   0  1  2  3 |  4  5  6  7      4  5  6  7 |  8  9 10 11      ..
//                  taps      h0 h1 h2 h3 | h0 h1 h2 h3     h4 h5 h6 h7 | h4 h5 h6 h7
//                            output 0    | output 1        output 0    | output 1
//   decimation 8   samples   0  1  2  3    4  5  6  7      8  9 10 11   12 13 14 15      ..
//                  taps      h0 h1 h2 h3   h4 h5 h6 h7     h8 h9 ..
//                            output 0                      output 0
//
// Two or four accumulators like this, whose loads coincide, make four outputs; neighbouring lanes are then added once or
// twice for all of them together. Only the windows of the four outputs are read. Registers of more blocks hold as many times
// the samples of one, in a row, and the outputs that belong to these.
//
// Machine code of the inner loop (GCC 12 and Clang 14, x86-64), four outputs of I and Q: all tap vectors stay in registers,
// nothing is spilled.
//   decimation, taps       4, 12    4, 16    4, 32    8, 32
//   pmaddwd                   12       16       32       32
//   paddd                     10       14       30       30
//   shufps                     4        4        4       12
//   loads                     10       12       20       14
//   all instructions          55       68      116      128    (GCC; Clang 52, 64, 112, 125)
// docs/performance.md has the cycles that these take at least, and those that they take.
template <int Decimation, int Taps, int Blocks>
struct Filter
{
    static constexpr int kOutputs = 4 * Blocks;              // at a time
    static constexpr int kOutputsPerVector = 8 / Decimation; // of each block
    static constexpr int kVectors = Taps / Decimation;
    static constexpr int kAccumulators = 4 / kOutputsPerVector;
    static constexpr int kNext = Blocks * kOutputsPerVector; // loads from one accumulator's first to the next one's
    static constexpr int kLoads = kVectors + (kAccumulators - 1) * kNext;

    I16<Blocks> h[kVectors];

    // Of tables with two halves the first is read, so that every output, in a block or alone, has the same taps.
    explicit UTILS_SSE_INLINE Filter(const short* table)
    {
        repeat<kVectors>([&](auto g) UTILS_SSE_LAMBDA {
            const short* p = table + 8 * g;
            h[g] = in_every_block<Blocks>(kOutputsPerVector == 2 ? load_four_twice(p) : load<i16>(p));
        });
    }

    // The sums of the outputs whose first has its window at x. Reads their windows and nothing else.
    UTILS_SSE_INLINE I32<Blocks> sums(const short* x) const
    {
        I32<Blocks> sum[kAccumulators];
        repeat<kLoads>([&](auto l) UTILS_SSE_LAMBDA {
            const I16<Blocks> samples = in_order(I16<Blocks>::load(x + l * Decimation));
            repeat<kAccumulators>([&](auto a) UTILS_SSE_LAMBDA {
                constexpr int g = decltype(l)::value - decltype(a)::value * kNext;
                if constexpr (g == 0)
                    sum[a] = multiply_add_pairs(samples, h[g]);
                else if constexpr (g > 0 && g < kVectors)
                    sum[a] = in_order(add_wrap(sum[a], multiply_add_pairs(samples, h[g])));
            });
        });
        if constexpr (kAccumulators == 2)
            return collect_pairs(add_neighbours_wrap(sum[0], sum[1]));
        else
            return collect_lanes(fold_each_wrap(sum[0], sum[1], sum[2], sum[3]));
    }
};

// The sum of one output, for lines that are shorter than four. Reads its window and nothing else.
int one_sum(const short* x, const short* table, int decimation, int vectors)
{
    i32 sum{_mm_setzero_si128()};
    for (int g = 0; g < vectors; ++g) {
        const short* p = x + g * decimation;
        sum = add_wrap(sum, multiply_add_pairs(decimation == 4 ? load_four(p) : load<i16>(p), load<i16>(table + 8 * g)));
    }
    sum = add_neighbours_wrap(sum, sum);
    return lane_0(add_neighbours_wrap(sum, sum));
}

template <int Signals>
void detect_one_by_one(const Lines<Signals>& in, float* out, const short* table, int count, int decimation, int vectors)
{
    for (std::ptrdiff_t j = 0; j < count; ++j) {
        float sum[Signals];
        repeat<Signals>([&](auto s) UTILS_SSE_LAMBDA {
            sum[s] = to_float(one_sum(in.line[s] + j * decimation, table, decimation, vectors) >> 15);
        });
        out[j] = envelope(sum);
    }
}

// In registers of at most `Blocks` blocks: the widest that a line fills.
template <int Blocks, int Decimation, int Taps, int Signals>
UTILS_SSE_INLINE void detect_in(const Lines<Signals>& in, float* out, const short* table, int lines, std::ptrdiff_t in_stride,
                                std::ptrdiff_t out_stride, int count)
{
    using LowPass = Filter<Decimation, Taps, Blocks>;
    if constexpr (Blocks > 1) {
        if (count < LowPass::kOutputs)
            return detect_in<Blocks / 2, Decimation, Taps>(in, out, table, lines, in_stride, out_stride, count);
    }
    const LowPass filter(table);
    for (int l = 0; l < lines; ++l) {
        const Lines<Signals> line_in = in.from(l * in_stride);
        float* line_out = out + l * out_stride;
        const auto block = [&](std::ptrdiff_t j) UTILS_SSE_LAMBDA {
            F32<Blocks> sum[Signals];
            repeat<Signals>([&](auto s) UTILS_SSE_LAMBDA {
                sum[s] = to_float(shift_right<15>(filter.sums(line_in.line[s] + j * Decimation)));
            });
            store(line_out + j, envelope(sum));
        };
        if (count >= LowPass::kOutputs)
            cover_blocks<LowPass::kOutputs>(count, block);
        else
            detect_one_by_one(line_in, line_out, table, count, Decimation, LowPass::kVectors);
        // Unlike the general detectors: what is left of the output line becomes zero.
        if (count < out_stride)
            std::memset(line_out + count, 0, static_cast<std::size_t>(out_stride - count) * sizeof(float));
    }
}

template <int Decimation, int Taps, int Signals>
void detect(const Lines<Signals>& in, float* out, const short* table, int lines, std::ptrdiff_t in_stride,
            std::ptrdiff_t out_stride, int count)
{
    if (count >= 0)
        detect_in<UTILS_SSE_MOST_BLOCKS, Decimation, Taps>(in, out, table, lines, in_stride, out_stride, count);
}

} // namespace

// The last two arguments, filter length and decimation, are there for hosts that call all detectors alike.

void CUtils_SSE::EnvelopDetectGenSSE4(const short* inI, const short* inQ, float* out, const short* h, int lines, int inStride,
                                      int outStride, int count, int, int)
{
    detect<4, 12, 2>({{inI, inQ}}, out, h, lines, inStride, outStride, count);
}

void CUtils_SSE::EnvelopDetectGenSSE4PI(const short* inI, const short* inQ, const short* inC, float* out, const short* h,
                                        int lines, int inStride, int outStride, int count, int, int)
{
    detect<4, 12, 3>({{inI, inQ, inC}}, out, h, lines, inStride, outStride, count);
}

void CUtils_SSE::EvelopDetectDec4(const short* inI, const short* inQ, float* out, const short* h, int lines, int inStride,
                                  int outStride, int count)
{
    detect<4, 12, 2>({{inI, inQ}}, out, h, lines, inStride, outStride, count);
}

void CUtils_SSE::EvelopDetectHarmDec4(const short* inI, const short* inQ, const short* inC, float* out, const short* h,
                                      int lines, int inStride, int outStride, int count)
{
    detect<4, 12, 3>({{inI, inQ, inC}}, out, h, lines, inStride, outStride, count);
}

void CUtils_SSE::EnvelopDetectGenSSED4F4(const short* inI, const short* inQ, float* out, const short* h, int lines,
                                         int inStride, int outStride, int count, int, int)
{
    detect<4, 16, 2>({{inI, inQ}}, out, h, lines, inStride, outStride, count);
}

void CUtils_SSE::EnvelopDetectGenSSED4F4PI(const short* inI, const short* inQ, const short* inC, float* out, const short* h,
                                           int lines, int inStride, int outStride, int count, int, int)
{
    detect<4, 16, 3>({{inI, inQ, inC}}, out, h, lines, inStride, outStride, count);
}

void CUtils_SSE::EnvelopDetectGenSSED4F8(const short* inI, const short* inQ, float* out, const short* h, int lines,
                                         int inStride, int outStride, int count, int, int)
{
    detect<4, 32, 2>({{inI, inQ}}, out, h, lines, inStride, outStride, count);
}

void CUtils_SSE::EnvelopDetectGenSSED4F8PI(const short* inI, const short* inQ, const short* inC, float* out, const short* h,
                                           int lines, int inStride, int outStride, int count, int, int)
{
    detect<4, 32, 3>({{inI, inQ, inC}}, out, h, lines, inStride, outStride, count);
}

void CUtils_SSE::EnvelopDetectGenSSED8F4(const short* inI, const short* inQ, float* out, const short* h, int lines,
                                         int inStride, int outStride, int count, int, int)
{
    detect<8, 32, 2>({{inI, inQ}}, out, h, lines, inStride, outStride, count);
}

void CUtils_SSE::EnvelopDetectGenSSED8F4PI(const short* inI, const short* inQ, const short* inC, float* out, const short* h,
                                           int lines, int inStride, int outStride, int count, int, int)
{
    detect<8, 32, 3>({{inI, inQ, inC}}, out, h, lines, inStride, outStride, count);
}
