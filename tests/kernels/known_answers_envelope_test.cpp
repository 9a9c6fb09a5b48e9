// What utils_sse.h promises of the envelope with Q15 taps, of one output, and of its smoothing, as numbers worked out by hand.
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <climits>
#include <vector>

namespace {

using Floats = std::vector<float>;
using Samples = std::vector<short>;
using Pixels = std::vector<unsigned char>;

// A detector with any number of inputs; `ignored` goes to the arguments without an effect.
struct Detector
{
    int decimation;
    int taps;
    bool third;
    void (*run)(const Samples* in, float* out, const short* h, int lines, int inStride, int outStride, int count, int ignored);
};

#define UTILS_SSE_TWO(name)                                                                                                    \
    [](const Samples* in, float* out, const short* h, int lines, int inStride, int outStride, int count, int ignored) {        \
        CUtils_SSE::name(in[0].data(), in[1].data(), out, h, lines, inStride, outStride, count, ignored, ignored);             \
    }
#define UTILS_SSE_THREE(name)                                                                                                  \
    [](const Samples* in, float* out, const short* h, int lines, int inStride, int outStride, int count, int ignored) {        \
        CUtils_SSE::name(in[0].data(), in[1].data(), in[2].data(), out, h, lines, inStride, outStride, count, ignored,         \
                         ignored);                                                                                             \
    }
const Detector detectors[] = {
    {4, 12, false, UTILS_SSE_TWO(EnvelopDetectGenSSE4)},
    {4, 12, false,
     [](const Samples* in, float* out, const short* h, int lines, int inStride, int outStride, int count, int) {
         CUtils_SSE::EvelopDetectDec4(in[0].data(), in[1].data(), out, h, lines, inStride, outStride, count);
     }},
    {4, 12, true, UTILS_SSE_THREE(EnvelopDetectGenSSE4PI)},
    {4, 12, true,
     [](const Samples* in, float* out, const short* h, int lines, int inStride, int outStride, int count, int) {
         CUtils_SSE::EvelopDetectHarmDec4(in[0].data(), in[1].data(), in[2].data(), out, h, lines, inStride, outStride, count);
     }},
    {4, 16, false, UTILS_SSE_TWO(EnvelopDetectGenSSED4F4)},
    {4, 16, true, UTILS_SSE_THREE(EnvelopDetectGenSSED4F4PI)},
    {4, 32, false, UTILS_SSE_TWO(EnvelopDetectGenSSED4F8)},
    {4, 32, true, UTILS_SSE_THREE(EnvelopDetectGenSSED4F8PI)},
    {8, 32, false, UTILS_SSE_TWO(EnvelopDetectGenSSED8F4)},
    {8, 32, true, UTILS_SSE_THREE(EnvelopDetectGenSSED8F4PI)},
};

struct Table
{
    alignas(16) short entry[64] = {};

    void set(const Detector& detector, int tap, int value)
    {
        const int place = detector.decimation == 8 ? tap : tap / 4 * 8 + tap % 4;
        entry[place] = static_cast<short>(value);
        if (detector.decimation == 4)
            entry[place + 4] = static_cast<short>(value);
    }
};

TEST(KnownAnswers, FixedEnvelopeShiftsTheWholeSumAndKeepsTheThirdSign)
{
    for (const Detector& detector : detectors)
        for (const int count : {1, 4, 6, 13}) {
            SCOPED_TRACE(testing::Message() << detector.decimation << ", " << detector.taps << " taps, count " << count);
            const auto constant = [](int value) { return Samples(160, static_cast<short>(value)); };
            const auto envelope = [&](int i, int q, int c, const Table& table) {
                const Samples in[] = {constant(i), constant(q), constant(c)};
                Floats out(static_cast<std::size_t>(count), 77.0f);
                detector.run(in, out.data(), table.entry, 1, 160, count, count, INT_MIN);
                EXPECT_EQ(out, Floats(out.size(), out[0]));
                return out[0];
            };
            Table first;
            first.set(detector, 0, 32767);
            // 3 * 32767 >> 15 is 2, 4 * 32767 >> 15 is 3; -1 * 32767 >> 15 is -1 and would be 0 if rounded towards zero.
            EXPECT_EQ(envelope(3, 4, 0, first), 3.6055512f);
            EXPECT_EQ(envelope(-1, 0, 0, first), 1.0f);
            EXPECT_EQ(envelope(0, 0, -100, first), detector.third ? -100.0f : 0.0f);
            Table halves; // 3 / 2 twice: 3 after the whole sum, 2 if each product were shifted
            halves.set(detector, 0, 16384);
            halves.set(detector, detector.taps - 1, 16384);
            EXPECT_EQ(envelope(3, 0, 5, halves), detector.third ? 8.0f : 3.0f);
            Table wrapping; // four times 2^30 in one sum is 0, twice -2^31
            for (int tap = 0; tap < 2; ++tap)
                wrapping.set(detector, tap, -32768);
            EXPECT_EQ(envelope(-32768, 0, 0, wrapping), 65536.0f);
            for (int tap = 2; tap < 4; ++tap)
                wrapping.set(detector, tap, -32768);
            EXPECT_EQ(envelope(-32768, -32768, 0, wrapping), 0.0f);
        }
}

TEST(KnownAnswers, FixedEnvelopeMeetsItsSamplesAndZeroesTheRestOfTheLine)
{
    for (const Detector& detector : detectors)
        for (int tap = 0; tap < detector.taps; ++tap) {
            SCOPED_TRACE(testing::Message() << detector.decimation << ", tap " << tap << " of " << detector.taps);
            // Two lines of 13 outputs, 16 apart; each sample is twice its index, halved by the tap, 200 more in the second line.
            Samples ramp(400);
            for (std::size_t i = 0; i < 400; ++i)
                ramp[i] = static_cast<short>(2 * (i < 160 ? i : i + 40));
            const Samples in[] = {Samples(400, 0), ramp, Samples(400, 0)};
            Table table;
            table.set(detector, tap, 16384);
            Floats out(33, -1.0f);
            detector.run(in, out.data(), table.entry, 2, 160, 16, 13, 7);
            Floats expected(33, 0.0f);
            for (std::size_t j = 0; j < 13; ++j) {
                expected[j] = static_cast<float>(static_cast<int>(j) * detector.decimation + tap);
                expected[16 + j] = expected[j] + 200;
            }
            expected[32] = -1.0f;
            EXPECT_EQ(out, expected);
            detector.run(in, out.data(), table.entry, 2, 160, 16, 0, 7);
            expected.assign(32, 0.0f);
            expected.push_back(-1.0f);
            EXPECT_EQ(out, expected) << "count 0";
            out.assign(33, -1.0f);
            detector.run(in, out.data(), table.entry, 2, 160, 16, -1, 7);
            EXPECT_EQ(out, Floats(33, -1.0f)) << "count -1";
        }
}

TEST(KnownAnswers, EnvelopeOfOneOutput)
{
    const float three[] = {3};
    const float four[] = {4};
    const float minus_seven[] = {-7};
    const float one[] = {1};
    EXPECT_EQ(CUtils_SSE::Envelope(three, four, one, 1), 5.0f);
    EXPECT_EQ(CUtils_SSE::EnvelopeSum(three, four, minus_seven, one, 1), -2.0f);
    EXPECT_EQ(CUtils_SSE::EnvelopeSum(four, three, one, minus_seven, 1), 28.0f); // the weights come last
    EXPECT_EQ(CUtils_SSE::Envelope(nullptr, nullptr, nullptr, 0), 0.0f);
    EXPECT_EQ(CUtils_SSE::EnvelopeSum(nullptr, nullptr, nullptr, nullptr, -3), 0.0f);
    // Lane 0 holds 1e8, whose neighbours are 8 apart: the tail of 3 + 3 joins it as one 6 and gives 8, 3 by 3 it would be lost.
    const float tail[] = {1e8f, -1e8f, 0, 0, 3, 3};
    const float ones[] = {1, 1, 1, 1, 1, 1};
    const float zeros[6] = {};
    EXPECT_EQ(CUtils_SSE::Envelope(tail, zeros, ones, 6), 8.0f);
    EXPECT_EQ(CUtils_SSE::Envelope(zeros, tail, ones, 6), 8.0f);
    EXPECT_EQ(CUtils_SSE::EnvelopeSum(zeros, zeros, tail, ones, 6), 8.0f);
}

// An image of equal rows but for row 4, which is `bright`.
Pixels with_row(int rows, int cols, int dark, int bright)
{
    Pixels image(static_cast<std::size_t>(rows * cols), static_cast<unsigned char>(dark));
    std::fill_n(image.begin() + 4 * cols, cols, static_cast<unsigned char>(bright));
    return image;
}

TEST(KnownAnswers, SmoothingAcrossRows)
{
    constexpr int rows = 9;
    for (const int cols : {5, 20, 47}) { // of 20 columns 0 .. 15 are body
        const auto size = static_cast<std::size_t>(rows * cols);
        Pixels out(size);
        Floats work(size);
        for (const int value : {0, 77, 255})
            for (const int flag : {0, 1, -5}) {
                const Pixels flat(size, static_cast<unsigned char>(value));
                CUtils_SSE::FilterTheEnvelop(out.data(), flat.data(), work.data(), rows, cols, flag);
                EXPECT_EQ(out, flat);
                CUtils_SSE::FilterTheEnvelopSSE(out.data(), flat.data(), nullptr, rows, cols, flag);
                EXPECT_EQ(out, flat);
            }
        const auto expect_rows = [&](const std::vector<int>& expected, const char* name) {
            for (int r = 2; r < rows - 2; ++r)
                for (int c = 0; c < cols; ++c)
                    EXPECT_EQ(out[static_cast<std::size_t>(r * cols + c)], expected[static_cast<std::size_t>(r - 2)])
                        << name << ", row " << r << ", column " << c << " of " << cols;
        };
        // 255 between zeros: 175.3, 47.8, -7.97
        const Pixels bright = with_row(rows, cols, 0, 255);
        CUtils_SSE::FilterTheEnvelop(out.data(), bright.data(), work.data(), rows, cols, 0);
        expect_rows({0, 47, 175, 47, 0}, "truncated");
        EXPECT_EQ(work[static_cast<std::size_t>(2 * cols)], -7.96875f);
        CUtils_SSE::FilterTheEnvelopSSE(out.data(), bright.data(), nullptr, rows, cols, 1);
        expect_rows({0, 47, 175, 47, 0}, "16 bits");
        // Three rows of 255 between zeros: 270.9 in the middle, 14 where only the low 8 bits are kept.
        Pixels band = with_row(rows, cols, 0, 255);
        std::fill_n(band.begin() + 3 * cols, 3 * cols, static_cast<unsigned char>(255));
        CUtils_SSE::FilterTheEnvelop(out.data(), band.data(), work.data(), rows, cols, 0);
        expect_rows({39, 215, 255, 215, 39}, "clamped");
        CUtils_SSE::FilterTheEnvelopSSE(out.data(), band.data(), nullptr, rows, cols, 0);
        for (int c = 0; c < cols; ++c)
            EXPECT_EQ(out[static_cast<std::size_t>(4 * cols + c)], c < cols / 16 * 16 ? 255 : 14) << c << " of " << cols;
    }
}

TEST(KnownAnswers, SmoothingAlongRowsRoundsAndWrapsItsEdges)
{
    constexpr int rows = 9;
    constexpr int cols = 21;
    const auto size = static_cast<std::size_t>(rows * cols);
    const auto at = [](int r, int c) { return static_cast<std::size_t>(r * cols + c); };
    Pixels out(size);
    Floats work(size);
    Pixels band = with_row(rows, cols, 0, 255);
    std::fill_n(band.begin() + 3 * cols, 3 * cols, static_cast<unsigned char>(255));
    CUtils_SSE::FilterTheEnvelop(out.data(), band.data(), work.data(), rows, cols, 1);
    for (const int c : {0, 1, cols - 2, cols - 1})
        EXPECT_EQ(out[at(4, c)], 15) << c; // 270.9 + 0.5
    for (int c = 2; c < cols - 2; ++c) {
        EXPECT_EQ(out[at(4, c)], 255) << c;
        EXPECT_EQ(out[at(2, c)], 40) << c; // 39.8 rounds up
    }
    const Pixels line = with_row(rows, cols, 0, 255);
    CUtils_SSE::FilterTheEnvelop(out.data(), line.data(), work.data(), rows, cols, 1);
    EXPECT_EQ(out[at(2, 0)], 249); // -7.97 + 0.5 truncates to -7
    EXPECT_EQ(out[at(2, 2)], 0);
    // One pixel of 128 in an edge row, which only the pass along rows touches: 88, 24 and -4, and 128 itself in the corner.
    Pixels dot(size, 0);
    dot[at(1, 8)] = 128;
    dot[at(0, 0)] = 128;
    CUtils_SSE::FilterTheEnvelop(out.data(), dot.data(), work.data(), rows, cols, 1);
    const int expected[] = {0, 24, 88, 24, 0};
    for (int c = 6; c <= 10; ++c)
        EXPECT_EQ(out[at(1, c)], expected[c - 6]) << c;
    EXPECT_EQ(out[at(0, 0)], 128);
}

} // namespace
