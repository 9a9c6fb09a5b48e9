// Envelope detection for any filter length and decimation.
//
// The sums over the taps are strictly sequential, but outputs do not depend on each other: each lane of a vector computes
// an output of its own, and up to four vectors of outputs run side by side, enough to hide the latency of the additions.
//
// Neighbouring outputs read samples `decimation` apart. A tile of outputs is therefore staged first: its samples are
// converted to float once and sorted into phases, so that the samples which four neighbouring outputs meet at one tap lie
// side by side. With tap k = q * decimation + r, output t meets sample (t + q) * decimation + r, entry t + q of phase r:
//
//   samples, decimation 3:   0  1  2 | 3  4  5 | 6  7  8 | 9 10 11 | ..
//   phase 0:                 0  3  6  9 ..     tap 0 of outputs 0..3 starts here, tap 3 one entry later
//   phase 1:                 1  4  7 10 ..     tap 1, tap 4 one entry later
//   phase 2:                 2  5  8 11 ..
//
// Long filters run in segments of taps, the sums being kept between them. Stack: 10 KB for two signals, 15 KB for three.
//
// Machine code of the inner loop (GCC 12, x86-64, two signals): 8 loads, 8 mulps, 8 addps and the tap's movss and shufps for
// 16 outputs of I and Q, everything in registers.
#include "envelope/detection.h"
#include "simd/loops.h"
#include "utils_sse.h"

#include <algorithm>

using namespace detection;
using namespace simd;

namespace {

constexpr int kStage = 1024;  // floats of one signal's stage
constexpr int kSegment = 128; // taps at a time, so that eight outputs fit the stage whatever the decimation
constexpr int kTile = 256;    // outputs at a time, at most

// Staging costs a fixed amount and something for each sample; it saves something with each product. Measured, in units of a
// third of a product. Fewer than four outputs would leave lanes empty.
constexpr bool worth_staging(int outputs, int taps, int decimation)
{
    return outputs >= 4 && taps > 0 && decimation > 0 &&
           outputs * (std::int64_t{3} * taps - std::int64_t{2} * std::min(taps, decimation)) > 192;
}

// Vectors of outputs side by side. Two signals and four vectors are eight sums, one tap and two products in flight: 16
// registers hold them. 32-bit code has eight registers.
constexpr int kSideBySide = sizeof(void*) == 8 ? 4 : 2;

constexpr int round_up_to_4(int x)
{
    return (x + 3) & ~3;
}

// How a segment of taps of a tile of outputs lies in the stage.
struct Phases
{
    int outputs;
    int taps;
    int decimation; // at least 1
    int rows;       // phases in use: a filter shorter than the decimation leaves some out
    int stride;     // floats from phase to phase
};

// Stages what `phases.outputs` windows of `phases.taps` samples, `phases.decimation` apart, read: nothing else is read.
// Entries behind the last window become zero, so that lanes beyond the last output stay harmless.
void stage_phases(float* stage, const short* x, const Phases& phases)
{
    const std::ptrdiff_t d = phases.decimation;
    const std::ptrdiff_t samples = (phases.outputs - 1) * d + phases.taps;
    if (d == 1) {
        int m = 0;
        for (; m + 8 <= samples; m += 8) {
            const i32x2 eight = widen(load<i16>(x + m));
            store(stage + m, to_float(eight.low));
            store(stage + m + 4, to_float(eight.high));
        }
        for (; m < phases.stride; ++m)
            stage[m] = m < samples ? to_float(x[m]) : 0.0f;
        return;
    }

    for (int r = 0; r < phases.rows; r += 4) {
        float* row = stage + static_cast<std::ptrdiff_t>(r) * phases.stride;
        const int rows = phases.rows - r;
        // Four entries of up to four phases. Letters are entries, digits phases: a0 a1 a2 a3, b0 .. to a0 b0 c0 d0, a1 ..
        const auto sort_four = [&](int m, __m128i a, __m128i b, __m128i c, __m128i e) UTILS_SSE_LAMBDA {
            const __m128i ac = _mm_unpacklo_epi16(a, c);
            const __m128i be = _mm_unpacklo_epi16(b, e);
            const i32x2 phase01 = widen(i16{_mm_unpacklo_epi16(ac, be)});
            const i32x2 phase23 = widen(i16{_mm_unpackhi_epi16(ac, be)});
            store(row + m, to_float(phase01.low));
            if (rows > 1)
                store(row + phases.stride + m, to_float(phase01.high));
            if (rows > 2)
                store(row + 2 * phases.stride + m, to_float(phase23.low));
            if (rows > 3)
                store(row + 3 * phases.stride + m, to_float(phase23.high));
        };
        const auto four_phases = [=](int entry) UTILS_SSE_LAMBDA {
            return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(x + entry * d + r));
        };
        const auto four_phases_inside = [=](int entry) UTILS_SSE_LAMBDA {
            const std::ptrdiff_t first = entry * d + r;
            short inside[4] = {0, 0, 0, 0};
            for (std::ptrdiff_t i = 0; i < 4 && first + i < samples; ++i)
                inside[i] = x[first + i];
            return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(inside));
        };
        int m = 0;
        for (; (m + 3) * d + r + 3 < samples && m < phases.stride; m += 4)
            sort_four(m, four_phases(m), four_phases(m + 1), four_phases(m + 2), four_phases(m + 3));
        for (; m < phases.stride; m += 4)
            sort_four(m, four_phases_inside(m), four_phases_inside(m + 1), four_phases_inside(m + 2),
                      four_phases_inside(m + 3));
    }
}

// The sums of one tile, [signal][output].
template <int Signals>
using Sums = float[Signals][kTile];

// Adds the staged segment to the sums of Vectors * 4 outputs from output t on, tap after tap.
template <int Signals, int Vectors>
void add_taps(Sums<Signals>& sums, int t, const float (&stage)[Signals][kStage], const float* h, const Phases& phases)
{
    f32 sum[Signals][Vectors];
    const auto for_each = [](const auto& f) UTILS_SSE_LAMBDA {
        repeat<Signals>([&](auto s) UTILS_SSE_LAMBDA { repeat<Vectors>([&](auto v) UTILS_SSE_LAMBDA { f(s, v); }); });
    };
    for_each([&](auto s, auto v) UTILS_SSE_LAMBDA { sum[s][v] = load<f32>(&sums[s][t + 4 * v]); });

    int k = 0;
    for (int q = 0; k < phases.taps; ++q) {
        const float* entry = &stage[0][t + q];
        for (const int end = std::min(k + phases.rows, phases.taps); k < end; ++k, entry += phases.stride) {
            const f32 tap = broadcast<f32>(h[k]);
            for_each([&](auto s, auto v)
                         UTILS_SSE_LAMBDA { sum[s][v] = sum[s][v] + load<f32>(entry + s * kStage + 4 * v) * tap; });
        }
    }

    for_each([&](auto s, auto v) UTILS_SSE_LAMBDA { store(&sums[s][t + 4 * v], sum[s][v]); });
}

// A tile of outputs by way of the stage.
template <int Signals>
void detect_staged(const Lines<Signals>& in, float* out, const float* h, int taps, Phases phases, int reach)
{
    alignas(16) float stage[Signals][kStage];
    alignas(16) Sums<Signals> sums;
    const int lanes = round_up_to_4(phases.outputs);
    phases.stride = round_up_to_4(lanes + reach);
    for (int s = 0; s < Signals; ++s)
        std::fill_n(sums[s], lanes, 0.0f);

    for (int k = 0; k < taps; k += kSegment) {
        phases.taps = std::min(kSegment, taps - k);
        for (int s = 0; s < Signals; ++s)
            stage_phases(stage[s], in.line[s] + k, phases);
        int t = 0;
        for (; t + 4 * kSideBySide <= lanes; t += 4 * kSideBySide)
            add_taps<Signals, kSideBySide>(sums, t, stage, h + k, phases);
        for (; t + 8 <= lanes; t += 8)
            add_taps<Signals, 2>(sums, t, stage, h + k, phases);
        if (t < lanes)
            add_taps<Signals, 1>(sums, t, stage, h + k, phases);
    }

    const auto finish = [&](auto v, std::ptrdiff_t t) UTILS_SSE_LAMBDA {
        using V = decltype(v);
        V sum[Signals];
        for (int s = 0; s < Signals; ++s)
            sum[s] = load<V>(&sums[s][t]);
        store(out + t, envelope(sum));
    };
    const Rest rest = read_blocks<4, 1>(phases.outputs, [&](std::ptrdiff_t t) UTILS_SSE_LAMBDA { finish(f32(), t); });
    for_up_to_three(rest, [&](std::ptrdiff_t t) UTILS_SSE_LAMBDA { finish(float(), t); });
}

// Outputs one at a time: what is too little for the stage, and decimation 0.
template <int Signals>
void detect_one_by_one(const Lines<Signals>& in, float* out, const float* h, int outputs, int taps, int decimation)
{
    for (std::ptrdiff_t j = 0; j < outputs; ++j) {
        float sum[Signals] = {};
        for (std::ptrdiff_t k = 0; k < taps; ++k)
            for (int s = 0; s < Signals; ++s)
                sum[s] = sum[s] + to_float(in.line[s][j * decimation + k]) * h[k];
        out[j] = envelope(sum);
    }
}

template <int Signals>
void detect(const Lines<Signals>& in, float* out, const float* h, int lines, std::ptrdiff_t in_stride,
            std::ptrdiff_t out_stride, int count, int taps, int decimation)
{
    if (!worth_staging(count, taps, decimation)) {
        for (int line = 0; line < lines; ++line)
            detect_one_by_one(in.from(line * in_stride), out + line * out_stride, h, count, taps, decimation);
        return;
    }

    Phases phases;
    phases.decimation = decimation;
    phases.rows = std::min({decimation, taps, kSegment});
    const int reach = (std::min(taps, kSegment) - 1) / decimation;
    // Rows times stride fits the stage: 1024 / rows is at least 8, and reach is 1 at most where it is below 16.
    const int tile = std::min((kStage / phases.rows & ~3) - round_up_to_4(reach), kTile);

    for (int line = 0; line < lines; ++line) {
        const auto tile_in = [&](std::ptrdiff_t first) { return in.from(line * in_stride + first * decimation); };
        float* line_out = out + line * out_stride;
        int first = 0;
        for (; count - first >= 4; first += phases.outputs) {
            phases.outputs = std::min(tile, count - first);
            detect_staged(tile_in(first), line_out + first, h, taps, phases, reach);
        }
        if (first < count)
            detect_one_by_one(tile_in(first), line_out + first, h, count - first, taps, decimation);
    }
}

} // namespace

void CUtils_SSE::EnvelopDetectGen(const short* inI, const short* inQ, float* out, const float* h, int lines, int inStride,
                                  int outStride, int count, int taps, int decimation)
{
    detect<2>({{inI, inQ}}, out, h, lines, inStride, outStride, count, taps, decimation);
}

void CUtils_SSE::EnvelopDetectGenPI(const short* inI, const short* inQ, const short* inC, float* out, const float* h, int lines,
                                    int inStride, int outStride, int count, int taps, int decimation)
{
    detect<3>({{inI, inQ, inC}}, out, h, lines, inStride, outStride, count, taps, decimation);
}

void CUtils_SSE::EvelopDetectHarmGen(const short* inI, const short* inQ, const short* inC, float* out, const float* h,
                                     int lines, int inStride, int outStride, int count, int taps, int decimation)
{
    detect<3>({{inI, inQ, inC}}, out, h, lines, inStride, outStride, count, taps, decimation);
}
