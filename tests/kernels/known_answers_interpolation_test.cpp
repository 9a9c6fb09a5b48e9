// What utils_sse.h promises of line interpolation, as numbers worked out by hand.
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using Shorts = std::vector<short>;

// Widths with whole blocks, without any, and with both; long ones go other ways, aligned and unaligned.
const std::size_t widths[] = {1, 3, 7, 8, 10, 16, 23, 40, 505, 512, 8203, 16400};

// A frame whose line l is filled with the l-th value.
template <class T>
std::vector<T> frame(std::size_t width, const std::vector<T>& values)
{
    std::vector<T> result;
    for (const T value : values)
        result.insert(result.end(), width, value);
    return result;
}

template <class T, class Kernel>
std::vector<T> run(Kernel kernel, int factor, std::size_t width, const std::vector<T>& lines)
{
    const std::vector<T> src = frame(width, lines);
    std::vector<T> dst(src.size() * static_cast<std::size_t>(factor), T(77));
    kernel(dst.data(), src.data(), static_cast<int>(lines.size()), static_cast<int>(width));
    return dst;
}

TEST(InterpolationAnswers, Interpolate2RoundsDownAndBlanksItsLastLine)
{
    for (const std::size_t n : widths) {
        SCOPED_TRACE(n);
        EXPECT_EQ(run(CUtils_SSE::Interpolate2, 2, n, Shorts{-3, 0, 32767, -32768, -32768}),
                  frame(n, Shorts{-3, -2, 0, 16383, 32767, -1, -32768, -32768, -32768, 0}));
        EXPECT_EQ(run(CUtils_SSE::Interpolate2, 2, n, Shorts{5}), frame(n, Shorts{5, 0}));
        EXPECT_EQ(run(CUtils_SSE::Interpolate2_8bit, 2, n, Bytes{0, 255, 254}),
                  frame(n, Bytes{0, 127, 255, 254, 254, 254})); // doubled, unlike there
    }
}

TEST(InterpolationAnswers, Interpolate4CopiesBytesNotSamples)
{
    for (const std::size_t n : widths) {
        SCOPED_TRACE(n);
        Shorts expected = frame(
            n, Shorts{0x1234, 0x0da7, 0x091a, 0x048d, 0, 0, 1, 2, 3, -8190, -16382, -24574, -32766, -32766, -32766, -32766});
        for (const std::size_t line : {0u, 4u, 8u}) { // the second half keeps its 77 = 0x4d
            const short a = expected[line * n];
            for (std::size_t i = n / 2; i < n; ++i)
                expected[line * n + i] = 77;
            if (n % 2)
                expected[line * n + n / 2] = static_cast<short>(a & 255);
        }
        EXPECT_EQ(run(CUtils_SSE::Interpolate4, 4, n, Shorts{0x1234, 0, 3, -32766}), expected);
        EXPECT_EQ(run(CUtils_SSE::Interpolate4, 4, n, Shorts{9}), frame(n, Shorts{9, 9, 9, 9}));
    }
    // a = 32767, b = -32768 and back: sums that need more than 16 bits.
    const Shorts extremes = run(CUtils_SSE::Interpolate4, 4, 9, Shorts{32767, -32768, 32767});
    for (std::size_t i = 0; i < 9; ++i) {
        EXPECT_EQ(extremes[9 + i], 16383);
        EXPECT_EQ(extremes[18 + i], -1);
        EXPECT_EQ(extremes[27 + i], -16385);
        EXPECT_EQ(extremes[5 * 9 + i], -16385);
    }
}

TEST(InterpolationAnswers, Interpolate4Of8BitRunsOnIntoTheNextLine)
{
    // Columns 0 .. m - 1 of the third and fourth line are those of one source line further on.
    const struct
    {
        std::size_t n, m;
    } cases[] = {{7, 0}, {8, 0}, {15, 0}, {16, 16}, {17, 15}, {23, 9}, {24, 24}, {100, 92}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.n);
        Bytes expected = frame(c.n, Bytes{100, 110, 120, 130, 140, 165, 190, 215, 0, 0, 0, 0, 0, 0, 0, 0});
        for (std::size_t i = 0; i < c.m; ++i) {
            expected[2 * c.n + i] = 165;
            expected[3 * c.n + i] = 190;
            expected[6 * c.n + i] = 197; // (3 * 240 + 70) >> 2
            expected[7 * c.n + i] = 155;
        }
        EXPECT_EQ(run(CUtils_SSE::Interpolate4_8bit, 4, c.n, Bytes{100, 140, 240, 70}), expected);
    }
}

// The same as it is told: steps of 16 pixels that run on, then the columns behind floor(n / 8) * 8 again, then the blanking.
TEST(InterpolationAnswers, Interpolate4Of8BitEqualsItsSteps)
{
    const std::size_t lines = 5;
    std::vector<std::size_t> sizes{383, 384, 393, 512, 16400, 16411, 40000};
    for (std::size_t n = 1; n < 70; ++n)
        sizes.push_back(n);
    for (const std::size_t n : sizes) {
        Bytes src(lines * n + n); // steps read on behind the frame
        for (std::size_t i = 0; i < src.size(); ++i)
            src[i] = static_cast<unsigned char>(i * i * 2654435761u >> 13);
        Bytes expected(4 * lines * n, 77);
        const auto between = [&](std::size_t l, std::size_t i, std::size_t weight) {
            const std::size_t sum = (4 - weight) * src[l * n + i] + weight * src[(l + 1) * n + i];
            expected[(4 * l + weight) * n + i] = static_cast<unsigned char>(sum / 4);
        };
        for (std::size_t l = 0; l + 1 < lines; ++l) {
            std::copy_n(&src[l * n], n, &expected[4 * l * n]);
            for (std::size_t step = 0; step < n / 8; ++step)
                for (const std::size_t weight : {1u, 2u, 3u})
                    for (std::size_t i = 16 * step; i < 16 * step + 16; ++i)
                        if ((l + 1) * n + i < src.size())
                            between(l, i, weight);
            for (std::size_t i = n / 8 * 8; i < n; ++i)
                for (const std::size_t weight : {1u, 2u, 3u})
                    between(l, i, weight);
        }
        std::fill(expected.end() - static_cast<std::ptrdiff_t>(8 * n), expected.end(), static_cast<unsigned char>(0));

        Bytes dst(4 * lines * n, 77);
        CUtils_SSE::Interpolate4_8bit(dst.data(), src.data(), static_cast<int>(lines), static_cast<int>(n));
        ASSERT_EQ(dst, expected) << "n = " << n;
    }
}

TEST(InterpolationAnswers, Interpolate4Of8BitBlanksTheLinesThatExist)
{
    for (const std::size_t n : widths)
        for (const int lines : {1, 2}) {
            const auto frame_size = static_cast<std::size_t>(4 * lines) * n;
            const std::size_t margin = 8 * n;
            Bytes room(margin + frame_size + margin, 77);
            const Bytes src(2 * n, 255);
            CUtils_SSE::Interpolate4_8bit(room.data() + margin, src.data(), lines, static_cast<int>(n));
            Bytes expected(room.size(), 77);
            std::fill_n(expected.begin() + static_cast<std::ptrdiff_t>(margin), frame_size, static_cast<unsigned char>(0));
            EXPECT_EQ(room, expected) << lines << " lines of " << n;
        }
}

TEST(InterpolationAnswers, LevelChoosesTheKernel)
{
    const Bytes src{10, 20, 40, 80};
    const auto at_level = [&](int level) {
        return run([=](unsigned char* dst, const unsigned char* from, int lines,
                       int n) { CUtils_SSE::Interpolate_8bit(dst, from, lines, n, level); },
                   4, 40, src);
    };
    for (const int level : {INT_MIN, -1, 0}) {
        Bytes expected = frame(40, Bytes{10, 20, 40, 80});
        expected.resize(4 * expected.size(), 77);
        EXPECT_EQ(at_level(level), expected) << level;
    }
    Bytes doubled = frame(40, Bytes{10, 15, 20, 30, 40, 60, 80, 80});
    doubled.resize(2 * doubled.size(), 77);
    EXPECT_EQ(at_level(1), doubled);
    for (const int level : {2, 7, INT_MAX})
        EXPECT_EQ(at_level(level), run(CUtils_SSE::Interpolate4_8bit, 4, 40, src)) << level;
}

} // namespace
