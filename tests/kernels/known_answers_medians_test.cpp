// What utils_sse.h promises of the median filters, as numbers worked out by hand, and the exactness of the 5x5 medians.
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using Samples = std::vector<short>;
using Floats = std::vector<float>;

// Frames of one value each, in a call of one block and one pixel more: what the body makes of them, and the tail.
template <class T>
struct Results
{
    T body, tail;
};

template <class T, class Filter>
Results<T> of_three(const Filter& filter, int a, int b, int c)
{
    const std::size_t n = 16 / sizeof(T) + 1;
    const auto frame = [=](int value) { return std::vector<T>(n, static_cast<T>(value)); };
    std::vector<T> dst(n + 1, 77);
    filter(dst.data(), frame(a).data(), frame(b).data(), frame(c).data(), static_cast<int>(n));
    EXPECT_EQ(dst[n], 77);
    EXPECT_EQ(dst[0], dst[n - 2]);
    return {dst[0], dst[n - 1]};
}

template <class T, class Filter>
Results<T> of_five(const Filter& filter, const int (&f)[5])
{
    const std::size_t n = 16 / sizeof(T) + 1;
    const auto frame = [=](int value) { return std::vector<T>(n, static_cast<T>(value)); };
    std::vector<T> dst(n + 1, 77);
    filter(dst.data(), frame(f[0]).data(), frame(f[1]).data(), frame(f[2]).data(), frame(f[3]).data(), frame(f[4]).data(),
           static_cast<int>(n));
    EXPECT_EQ(dst[n], 77);
    EXPECT_EQ(dst[0], dst[n - 2]);
    return {dst[0], dst[n - 1]};
}

const auto median = [](auto... arguments) { CUtils_SSE::MedianFilter(arguments...); };
const auto extremum = [](auto... arguments) { CUtils_SSE::ExtremumFilter(arguments...); };

TEST(TemporalMedian, BodyOfFiveFramesIsNoMedianButTheTailIs)
{
    const struct
    {
        int frames[5];
        int body, tail;
    } cases[] = {{{9, 1, 2, 3, 4}, 2, 3}, {{0, 4, 3, 2, 1}, 3, 2},     {{0, 1, 1, 3, 3}, 1, 1},
                 {{0, 3, 0, 1, 2}, 2, 1}, {{200, 255, 0, 0, 9}, 9, 9}, {{7, 7, 200, 201, 202}, 200, 200}};
    for (const auto& c : cases) {
        const Results<unsigned char> bytes = of_five<unsigned char>(median, c.frames);
        const Results<short> shorts = of_five<short>(median, c.frames);
        EXPECT_EQ(bytes.body, c.body);
        EXPECT_EQ(bytes.tail, c.tail);
        EXPECT_EQ(shorts.body, c.body);
        EXPECT_EQ(shorts.tail, c.tail);
    }
    // Bytes are unsigned, 16-bit values are signed.
    EXPECT_EQ(of_three<unsigned char>(median, 127, 128, 255).body, 128);
    EXPECT_EQ(of_three<short>(median, -32768, 32767, -1).body, -1);
    EXPECT_EQ(of_five<short>(median, {-3, 100, -30000, 30000, -2}).tail, -2);

    // Frame 1 has no say in whole blocks.
    const Bytes f2(32, 1), f3(32, 2), f4(32, 3), f5(32, 4);
    for (const int first : {0, 9, 255}) {
        const Bytes f1(32, static_cast<unsigned char>(first));
        Bytes dst(32);
        CUtils_SSE::MedianFilter(dst.data(), f1.data(), f2.data(), f3.data(), f4.data(), f5.data(), 32);
        EXPECT_EQ(dst, Bytes(32, 2));
    }
}

TEST(ExtremumFilter, BlendsInTheBodyAndSelectsInTheTail)
{
    const struct
    {
        int f1, f2, f3, body, tail;
    } three[] = {{127, 127, 127, 63, 127}, {0, 100, 255, 52, 255}, {128, 0, 0, 64, 0},
                 {0, 254, 0, 1, 0},        {255, 0, 255, 64, 255}, {100, 200, 0, 50, 0}};
    for (const auto& c : three) {
        const Results<unsigned char> found = of_three<unsigned char>(extremum, c.f1, c.f2, c.f3);
        EXPECT_EQ(found.body, c.body) << c.f1 << " " << c.f2 << " " << c.f3;
        EXPECT_EQ(found.tail, c.tail) << c.f1 << " " << c.f2 << " " << c.f3;
    }
    const struct
    {
        int frames[5];
        int body, tail;
    } five[] = {{{127, 127, 127, 127, 127}, 253, 127},
                {{0, 0, 0, 0, 0}, 0, 0},
                {{255, 255, 255, 255, 255}, 255, 255},
                {{100, 110, 120, 130, 140}, 243, 120},
                {{255, 0, 0, 0, 0}, 255, 0}};
    for (const auto& c : five) {
        const Results<unsigned char> found = of_five<unsigned char>(extremum, c.frames);
        EXPECT_EQ(found.body, c.body) << c.frames[0] << " " << c.frames[1];
        EXPECT_EQ(found.tail, c.tail) << c.frames[0] << " " << c.frames[1];
    }
}

// Values that jump from pixel to pixel, and a destination full of 77.
template <class T>
struct Image
{
    int width, height;
    std::vector<T> src, dst;

    Image(int w, int h) : width(w), height(h), src(static_cast<std::size_t>(w * h)), dst(src.size(), T(77))
    {
        for (std::size_t i = 0; i < src.size(); ++i)
            src[i] = static_cast<T>(i % 100 + (i % 2 == 0 ? 100 : 0));
    }
    T source(int x, int y) const { return src[static_cast<std::size_t>(y * width + x)]; }
    T result(int x, int y) const { return dst[static_cast<std::size_t>(y * width + x)]; }

    template <int Radius>
    T median(int x, int y) const
    {
        std::vector<T> values;
        for (int dy = -Radius; dy <= Radius; ++dy)
            for (int dx = -Radius; dx <= Radius; ++dx)
                values.push_back(source(x + dx, y + dy));
        std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
        return values[values.size() / 2];
    }

    // Columns first .. last of the inner rows hold medians.
    template <int Radius>
    void expect_filtered(int first, int last) const
    {
        for (int y = Radius; y < height - Radius; ++y)
            for (int x = first; x <= last; ++x)
                ASSERT_EQ(result(x, y), median<Radius>(x, y)) << "column " << x << " of " << width << ", row " << y;
    }
    void expect_row_copied(int y) const
    {
        for (int x = 0; x < width; ++x)
            ASSERT_EQ(result(x, y), source(x, y)) << "column " << x << " of " << width << ", row " << y;
    }
    void expect_copied(int x) const
    {
        for (int y = 0; y < height; ++y)
            ASSERT_EQ(result(x, y), source(x, y)) << "column " << x << " of " << width << ", row " << y;
    }
};

TEST(Median3x3, BytesBelowSixteenColumnsAreOnlyCopied)
{
    for (const int width : {3, 15, 16, 17, 18, 30, 31, 50, 2100}) {
        Image<unsigned char> image(width, 4);
        CUtils_SSE::MedianFilter2DWin3(image.dst.data(), image.src.data(), width, width, 4);
        image.expect_row_copied(0);
        image.expect_row_copied(3);
        image.expect_copied(0);
        image.expect_copied(width - 1);
        if (width < 16)
            ASSERT_EQ(image.dst, image.src);
        else
            image.expect_filtered<1>(1, width - 2);
    }
}

TEST(Median3x3, FloatsLeaveTwoColumnsOfAnEvenWidth)
{
    for (const int width : {1, 2, 3, 4, 5, 6, 7, 20, 21, 1030}) {
        Image<float> image(width, 3);
        CUtils_SSE::MedianFilter2DWin3(image.dst.data(), image.src.data(), width, width, 3);
        const int last = width % 2 != 0 ? width - 2 : width - 4;
        image.expect_row_copied(0);
        image.expect_row_copied(2);
        image.expect_copied(0);
        image.expect_filtered<1>(1, last);
        for (int x = std::max(last + 1, 0); x < width; ++x)
            image.expect_copied(x);
    }
    // Nothing in front of the row takes part in a width of 3.
    Floats guarded(1 + 9, 5.0f);
    guarded[0] = std::numeric_limits<float>::quiet_NaN();
    Floats dst(9);
    CUtils_SSE::MedianFilter2DWin3(dst.data(), guarded.data() + 1, 3, 3, 3);
    EXPECT_EQ(dst, Floats(9, 5.0f));
}

TEST(Median3x3, ShortsCopyBytesAndEndWhereTheWidthSays)
{
    const struct
    {
        int width, last;
    } cases[] = {{7, 0},   {8, 6},   {9, 7},   {13, 11}, {14, 12}, {15, 13}, {16, 12},
                 {17, 13}, {18, 14}, {19, 15}, {20, 18}, {24, 18}, {25, 19}, {1040, 1038}};
    for (const auto& c : cases) {
        Image<short> image(c.width, 3);
        for (short& value : image.src)
            value = static_cast<short>(-300 * value - 5);
        CUtils_SSE::MedianFilter2DWin3Short(image.dst.data(), image.src.data(), c.width, c.width, 3);
        image.expect_filtered<1>(1, c.last);
        for (int y = 0; y < 3; ++y)
            for (int x = y == 1 ? c.last + 1 : 0; x < c.width; ++x) {
                const bool half = x == c.width / 2 && c.width % 2 != 0; // its low byte only
                const int kept = half ? (image.source(x, y) & 255) : 77;
                ASSERT_EQ(image.result(x, y), x < c.width / 2 || (x == 0 && y == 1) ? image.source(x, y) : kept)
                    << "column " << x << " of " << c.width << ", row " << y;
            }
    }
}

TEST(Median3x3, NanAndZerosFollowTheStatedSteps)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const auto centre = [](const Floats& window) {
        Floats dst(9);
        CUtils_SSE::MedianFilter2DWin3(dst.data(), window.data(), 3, 3, 3);
        return dst[4];
    };
    // A comparison with NaN fails, and then minimum and maximum give their second operand.
    EXPECT_EQ(centre({nan, 1, 2, 3, 4, 5, 6, 7, 8}), 4);
    EXPECT_TRUE(std::isnan(centre({1, 2, 3, 4, 5, 6, 7, 8, nan})));
    EXPECT_TRUE(std::isnan(centre(Floats(9, nan))));
    EXPECT_TRUE(std::signbit(centre(Floats(9, -0.0f))));
    EXPECT_FALSE(std::signbit(centre({-0.0f, 0.0f, -0.0f, -0.0f, 0.0f, -0.0f, 0.0f, 0.0f, 0.0f})));
}

template <class T, class Filter>
void expect_exact_5x5(const Filter& filter)
{
    const int most = 1040 / static_cast<int>(sizeof(T));
    std::mt19937 random(5);
    for (int width = 1; width < most; width += width < 80 ? 1 : 61)
        for (const int height : {1, 4, 5, 6, 7}) {
            Image<T> image(width, height);
            const unsigned levels = random() % 4 == 0 ? 2 : 250; // many equal ones, or few
            for (T& value : image.src)
                value = static_cast<T>(random() % levels);
            filter(image.dst.data(), image.src.data(), width, width, height);
            image.template expect_filtered<2>(2, width - 3);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    if (x < 2 || y < 2 || x >= width - 2 || y >= height - 2) {
                        ASSERT_EQ(image.result(x, y), image.source(x, y)) << x << " " << y << " of " << width;
                    }
        }
}

TEST(Median5x5, IsExactAndCopiesTheBorders)
{
    expect_exact_5x5<unsigned char>([](auto... a) { CUtils_SSE::MedianFilter2DWin5(a...); });
    expect_exact_5x5<float>([](auto... a) { CUtils_SSE::MedianFilter2DWin5(a...); });
    expect_exact_5x5<short>([](auto... a) { CUtils_SSE::MedianFilter2DWin5Short(a...); });
}

// A network of minima and maxima that is right for all inputs of zeros and ones is right for all inputs (0-1 principle): all
// 2^25 windows, 1024 of them side by side.
TEST(Median5x5, EveryWindowOfZerosAndOnes)
{
    constexpr int blocks = 1 << 10;
    constexpr int width = 5 * blocks;
    Bytes src(5 * width);
    Bytes dst(5 * width);
    for (unsigned high = 0; high < 1u << 15; ++high) {
        for (unsigned low = 0; low < blocks; ++low) {
            const unsigned window = high << 10 | low;
            for (unsigned y = 0; y < 5; ++y)
                for (unsigned x = 0; x < 5; ++x)
                    src[y * width + 5 * low + x] = static_cast<unsigned char>(window >> (5 * y + x) & 1u);
        }
        CUtils_SSE::MedianFilter2DWin5(dst.data(), src.data(), width, width, 5);
        for (unsigned low = 0; low < blocks; ++low) {
            unsigned ones = 0;
            for (unsigned window = high << 10 | low; window != 0; window &= window - 1)
                ++ones;
            ASSERT_EQ(dst[2 * width + 5 * low + 2], ones > 12) << "window " << (high << 10 | low);
        }
    }
}

TEST(Median5x5, NanStaysInItsNeighbourhood)
{
    const int width = 40;
    Image<float> image(width, 12);
    image.src[6 * width + 17] = std::numeric_limits<float>::quiet_NaN();
    CUtils_SSE::MedianFilter2DWin5(image.dst.data(), image.src.data(), width, width, 12);
    for (int y = 2; y < 10; ++y)
        for (int x = 2; x < width - 2; ++x) {
            const float found = image.result(x, y);
            if (std::abs(x - 17) > 2 || std::abs(y - 6) > 2) {
                ASSERT_EQ(found, image.median<2>(x, y));
                continue;
            }
            bool occurs = false;
            for (int k = 0; k < 25; ++k) {
                const float value = image.source(x + k % 5 - 2, y + k / 5 - 2);
                occurs |= std::memcmp(&value, &found, sizeof value) == 0;
            }
            EXPECT_TRUE(occurs) << found << " is none of the 25 around " << x << " " << y;
        }
}

} // namespace
