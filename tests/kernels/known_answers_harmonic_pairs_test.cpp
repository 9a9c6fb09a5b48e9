// What utils_sse.h promises of pulse-inversion pairs, as numbers worked out by hand.
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Samples = std::vector<short>;

// A frame of lines that are constant each.
Samples frame(std::initializer_list<short> lines, std::size_t n)
{
    Samples samples;
    for (const short value : lines)
        samples.insert(samples.end(), n, value);
    return samples;
}

// Line `line`, split where the body ends: all values of either part must agree.
struct Parts
{
    int body;
    int tail;
};

Parts parts(const Samples& samples, std::size_t line, std::size_t n)
{
    const short* values = samples.data() + line * n;
    for (std::size_t i = 0; i < n; ++i)
        EXPECT_EQ(values[i], values[i < n / 8 * 8 ? 0 : n - 1]) << "line " << line << ", sample " << i;
    return {values[0], values[n - 1]};
}

TEST(HarmonicPairs, SumsSaturateInTheBodyAndWrapInTheTail)
{
    struct
    {
        short a, b, c, d;
        Parts sum, half, quarter, three_quarters; // the last two of four lines only
        int half_of_two;                          // tail of two lines
        int flag;
    } const cases[] = {
        {32767, 32767, 0, 0, {32767, -2}, {16383, 32767}, {24575, 32767}, {8191, 32767}, 32767, 1023},
        {-32768, 32767, 0, 0, {-1, -1}, {-1, -1}, {-1, -16385}, {-1, 16383}, -1, 1023},
        {-32768, -32768, -32768, -32768, {-32768, 0}, {-32768, -32768}, {-32768, -32768}, {-32768, -32768}, 0, 1023},
        {32767, 0, 0, 0, {32767, 32767}, {16383, 16383}, {24575, 24575}, {8191, 8191}, 16383, 0},
        {20000, 20000, 20000, 20000, {32767, -25536}, {32767, 20000}, {32767, 20000}, {32767, 20000}, -25536, 0},
        {-3, 0, 0, 0, {-3, -3}, {-2, -2}, {-3, -3}, {-1, -1}, -2, 0},
        {0, 4, 10, 30, {4, 4}, {22, 2}, {13, 1}, {31, 3}, 22, 0},
    };
    const std::size_t n = 12;
    const auto expect = [](Parts found, Parts expected, const char* what, short a) {
        EXPECT_EQ(found.body, expected.body) << what << " of " << a;
        EXPECT_EQ(found.tail, expected.tail) << what << " of " << a;
    };
    for (const auto& c : cases) {
        const Samples src = frame({c.a, c.b, c.c, c.d}, n); // the second pair lies behind the last one
        Samples two(2 * n, 77), two_clip(2 * n, 5), four(4 * n, 77), four_clip = frame({5, 6, 7, 8}, n);
        CUtils_SSE::InterpRFHarm2(two.data(), src.data(), two_clip.data(), 3, n);
        CUtils_SSE::InterpRFHarm4(four.data(), src.data(), four_clip.data(), 3, n);
        expect(parts(two, 0, n), c.sum, "first of two", c.a);
        expect(parts(two, 1, n), {c.half.body, c.half_of_two}, "second of two", c.a);
        expect(parts(four, 0, n), c.sum, "first of four", c.a);
        expect(parts(four, 1, n), c.quarter, "second of four", c.a);
        expect(parts(four, 2, n), c.half, "third of four", c.a);
        expect(parts(four, 3, n), c.three_quarters, "last of four", c.a);
        expect(parts(two_clip, 0, n), {c.flag, 5}, "mask of two", c.a);
        expect(parts(two_clip, 1, n), {5, 5}, "mask between two", c.a); // left alone
        for (std::size_t line = 0; line < 4; ++line)
            expect(parts(four_clip, line, n), {c.flag, 5}, "mask of four", c.a); // copied whole
    }
}

TEST(HarmonicPairs, OnlyWholePairsMakeLines)
{
    const Samples src = frame({1, 2, 3, 4, 5, 6}, 8);
    for (const int lines : {-2, 1, 4, 5}) {
        Samples dst(10 * 8, 77), clip(10 * 8, 5);
        CUtils_SSE::InterpRFHarm2(dst.data(), src.data(), clip.data(), lines, 8);
        const int two[5] = {3, 5, 7, 9, 77}; // (3 + 7) / 2, (7 + 11) / 2
        for (std::size_t line = 0; line < 5; ++line)
            EXPECT_EQ(parts(dst, line, 8).body, lines >= 4 ? two[line] : 77) << lines;
        dst.assign(dst.size(), 77);
        CUtils_SSE::InterpRFHarm4(dst.data(), src.data(), clip.data(), lines, 8);
        const int four[9] = {3, 4, 5, 6, 7, 8, 9, 10, 77};
        for (std::size_t line = 0; line < 9; ++line)
            EXPECT_EQ(parts(dst, line, 8).body, lines >= 4 ? four[line] : 77) << lines;
    }
}

// One pair of constant lines blended: the output at every sample.
Samples blended(short first, short second, int n, int start, int end, int percent)
{
    const auto count = static_cast<std::size_t>(n);
    Samples out(count, 77), clip(count, 5);
    CUtils_SSE::BlendTwoRF2D(frame({first, second}, count).data(), out.data(), clip.data(), 1, n, start, end, percent);
    const bool clipped = (first == 32767 || first == -32768) && (second == 32767 || second == -32768);
    for (std::size_t i = 0; i < count; ++i)
        EXPECT_EQ(clip[i], i < count / 8 * 8 ? (clipped ? 1023 : 0) : 5) << i;
    return out;
}

TEST(HarmonicPairs, BlendingFadesTheSecondFiring)
{
    const Samples ramp = blended(1, 6400, 36, 15, 31, 50); // a ramp of 8 .. 23
    for (int i = 0; i < 36; ++i) {
        const int expected = i < 8 ? 6401 : i < 24 ? 6401 - 200 * (i - 8) : i < 32 ? 3201 : 77;
        EXPECT_EQ(ramp[static_cast<std::size_t>(i)], expected) << i;
    }
    // Ties go to the even neighbour of the weighted sample, before the first firing is added.
    const Samples ties = blended(1, 5, 24, 8, 16, 50);
    EXPECT_EQ(ties[7], 6);
    EXPECT_EQ(ties[16], 3);                               // 2.5 -> 2
    EXPECT_EQ(blended(1, 7, 8, 0, 0, 50)[0], 5);          // 3.5 -> 4
    EXPECT_EQ(blended(-9, 1000, 24, 8, 16, 100)[16], -9); // nothing of the second firing
    EXPECT_EQ(blended(32767, 32767, 24, 8, 16, 0)[20], 32767);
    EXPECT_EQ(blended(-30000, 30000, 8, 0, 0, -200)[0], 2767); // the weighted sample saturates first: 90000 -> 32767
    EXPECT_EQ(blended(32767, 0, 8, 0, 0, 0)[0], 32767);
    // A ramp that ends before it starts: what lies beyond begins at its end.
    const Samples reversed = blended(0, 100, 40, 24, 8, 50);
    for (std::size_t i = 0; i < 40; ++i)
        EXPECT_EQ(reversed[i], i < 8 ? 100 : 50) << i;
    EXPECT_EQ(blended(1, 2, 7, 0, 8, 50), Samples(7, 77));
}

} // namespace
