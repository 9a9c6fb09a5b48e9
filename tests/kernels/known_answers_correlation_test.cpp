// What utils_sse.h promises of similarity scores and the centroid, as numbers worked out by hand.
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

using Samples = std::vector<short>;
using Pixels = std::vector<unsigned char>;

int size(const Samples& samples)
{
    return static_cast<int>(samples.size());
}
double correlation(const Samples& a, const Samples& b)
{
    return CUtils_SSE::Correlation(a.data(), b.data(), size(a));
}
float correlation_f(const Samples& a, const Samples& b)
{
    return CUtils_SSE::CorrelationF(a.data(), b.data(), size(a));
}

TEST(Similarity, CorrelationIsTheMeanProduct)
{
    EXPECT_EQ(correlation({1, 2, 3}, {1, 2, 3}), 14.0 / 3.0);
    EXPECT_EQ(correlation_f({1, 2, 3}, {1, 2, 3}), 14.0f / 3.0f);
    // Two products of -32768 squared wrap in a pair of the body, and nowhere else.
    EXPECT_EQ(correlation(Samples(8, -32768), Samples(8, -32768)), -1073741824.0);
    EXPECT_EQ(correlation_f(Samples(8, -32768), Samples(8, -32768)), -1073741824.0f);
    EXPECT_EQ(correlation(Samples(7, -32768), Samples(7, -32768)), 1073741824.0);
    EXPECT_EQ(correlation(Samples(8, -32768), Samples(8, 32767)), -1073709056.0);
    // 2^30 + 1 in one pair: exact in double, in float the one is rounded away before it is added.
    const Samples a = {-32768, 1, -32768, 0, 0, 0, 0, 0};
    const Samples b = {-32768, 1, 32767, 0, 0, 0, 0, 0};
    EXPECT_EQ(correlation(a, b) * 8, 32769.0);
    EXPECT_EQ(correlation_f(a, b) * 8, 32768.0f);
}

TEST(Similarity, FloatPairSumsAreRoundedBeforeFourLanesAreFolded)
{
    // Pair sums 2^30, -2^30 + 1, 3, 0. Another fold than (0 + 1) + (2 + 3) would lose the 3 in float.
    const Samples a = {-32768, 0, -32768, -1, 3, 0, 0, 0};
    const Samples b = {-32768, 0, 32767, 32767, 1, 0, 0, 0};
    EXPECT_EQ(correlation_f(a, b) * 8, 3.0f);
    EXPECT_EQ(correlation(a, b) * 8, 4.0);
}

TEST(Similarity, DoubleSumsRoundOnceTheyAreBeyond53Bits)
{
    // Odd pair sums near 2^31: two lanes pass 2^53 within 2^25 samples, and then lose a one at every second addition. The exact
    // sum is 36025503936217099. Below that every sum is exact, far beyond 32 bits.
    Samples a((1u << 25) + 5, 32767);
    for (std::size_t i = 1; i < a.size(); i += 2)
        a[i] = 32766;
    EXPECT_EQ(correlation(a, a) * size(a), 36025503927829256.0);
    a.resize(100003);
    EXPECT_EQ(correlation(a, a), 107367573213334.0 / 100003.0);
    EXPECT_EQ(correlation(Samples(100003, 1), Samples(100003, -1)), -1.0);
}

TEST(Similarity, NormalizedScores)
{
    const Samples a = {3, -1, 4, 1, -5, 9, 2, -6, 5, 3, -5};
    Samples negative, line;
    for (const short x : a) {
        negative.push_back(static_cast<short>(-x));
        line.push_back(static_cast<short>(2 * x + 5));
    }
    const int n = size(a);
    EXPECT_EQ(CUtils_SSE::NormalizedCorrelation(a.data(), a.data(), n), 1.0);
    EXPECT_EQ(CUtils_SSE::NormalizedCorrelationF(a.data(), negative.data(), n), -1.0f);
    EXPECT_NEAR(CUtils_SSE::NormalizedCovariance(a.data(), line.data(), n), 1.0, 1e-14);
    EXPECT_NEAR(CUtils_SSE::NormalizedCovarianceF(a.data(), line.data(), n), 1.0f, 1e-5f);
    EXPECT_NEAR(CUtils_SSE::NormalizedCovariance(negative.data(), line.data(), n), -1.0, 1e-14);
    // 1 2 3 against 1 3 2: products 13 of 14; deviations -1 0 1 and -1 1 0: 1 of 2.
    const Samples x = {1, 2, 3};
    const Samples y = {1, 3, 2};
    EXPECT_EQ(CUtils_SSE::NormalizedCorrelation(x.data(), y.data(), 3), 13.0 / 14.0);
    EXPECT_EQ(CUtils_SSE::NormalizedCorrelationF(x.data(), y.data(), 3), 13.0f / 14.0f);
    EXPECT_NEAR(CUtils_SSE::NormalizedCovariance(x.data(), y.data(), 3), 0.5, 1e-14);
    EXPECT_NEAR(CUtils_SSE::NormalizedCovarianceF(x.data(), y.data(), 3), 0.5f, 1e-6f);
}

TEST(Similarity, WithoutSamplesOrVarianceThereIsNoScore)
{
    const Samples zeros(16, 0), constant(16, 4), ramp = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    for (const int n : {0, -3}) {
        EXPECT_TRUE(std::isnan(CUtils_SSE::Correlation(nullptr, nullptr, n)));
        EXPECT_TRUE(std::isnan(CUtils_SSE::CorrelationF(nullptr, nullptr, n)));
        EXPECT_TRUE(std::isnan(CUtils_SSE::NormalizedCorrelation(nullptr, nullptr, n)));
        EXPECT_TRUE(std::isnan(CUtils_SSE::NormalizedCorrelationF(nullptr, nullptr, n)));
        EXPECT_TRUE(std::isnan(CUtils_SSE::NormalizedCovariance(nullptr, nullptr, n)));
        EXPECT_TRUE(std::isnan(CUtils_SSE::NormalizedCovarianceF(nullptr, nullptr, n)));
    }
    EXPECT_TRUE(std::isnan(CUtils_SSE::NormalizedCorrelation(zeros.data(), ramp.data(), 16)));
    EXPECT_TRUE(std::isnan(CUtils_SSE::NormalizedCovariance(constant.data(), ramp.data(), 16)));
    EXPECT_TRUE(std::isnan(CUtils_SSE::NormalizedCovarianceF(ramp.data(), constant.data(), 16)));
}

TEST(SumAbsDiff, Floats)
{
    const float a[5] = {1, -2, 3, 1e8f, 0.5f};
    const float b[5] = {-1, 2, 3, 0, 1};
    EXPECT_EQ(CUtils_SSE::SumAbsDiff(a, b, 3), 6.0f);
    EXPECT_EQ(CUtils_SSE::SumAbsDiff(a + 4, b + 4, 1), 0.5f);
    EXPECT_EQ(CUtils_SSE::SumAbsDiff(a, b, 4), 100000008.0f); // (2 + 4) + (0 + 1e8); a sum of 1e8 + 2 + 4 would be lost
    EXPECT_EQ(CUtils_SSE::SumAbsDiff(a, b, 0), 0.0f);
}

TEST(SumAbsDiff, PixelsAreCountedOnceAndBeyond32Bits)
{
    alignas(16) static const unsigned char black[1008] = {};
    alignas(16) unsigned char white[1008];
    std::fill(white, white + 1008, static_cast<unsigned char>(255));
    for (const int n : {-1, 0, 1, 63, 64, 127, 1000}) {
        EXPECT_EQ(CUtils_SSE::SumAbsDiff(black, white, n), n > 0 ? 255LL * n : 0) << n;
        EXPECT_EQ(CUtils_SSE::SumAbsDiff(white, black, n), n > 0 ? 255LL * n : 0) << n;
    }
    constexpr int many = 17000000;
    auto* const dark = static_cast<unsigned char*>(CUtils_SSE::aligned_malloc(many, 16));
    auto* const bright = static_cast<unsigned char*>(CUtils_SSE::aligned_malloc(many, 16));
    ASSERT_TRUE(dark != nullptr && bright != nullptr);
    std::fill(dark, dark + many, static_cast<unsigned char>(0));
    std::fill(bright, bright + many, static_cast<unsigned char>(255));
    EXPECT_EQ(CUtils_SSE::SumAbsDiff(dark, bright, many), 4335000000);
    CUtils_SSE::aligned_free(dark);
    CUtils_SSE::aligned_free(bright);
}

struct Centre
{
    float x, y;
};

Centre centroid(const Pixels& image, int stride, int rows, int first)
{
    Centre centre = {77, 77};
    CUtils_SSE::Centroid(centre.x, centre.y, image.data(), stride, rows, first);
    return centre;
}

// An image with one bright pixel; the region begins at column `first`.
Centre of_one_pixel(int stride, int rows, int first, int column, int row)
{
    Pixels image(static_cast<std::size_t>(stride) * static_cast<std::size_t>(rows));
    image[static_cast<std::size_t>(row) * static_cast<std::size_t>(stride) + static_cast<std::size_t>(column)] = 200;
    return centroid(image, stride, rows, first);
}

TEST(Centroid, CountsFromOneInTheBodyFromTheFirstColumn)
{
    struct
    {
        int stride, rows, first, column, row;
        Centre expected;
    } const cases[] = {
        {40, 4, 0, 5, 2, {6, 3}},
        {40, 4, 0, 39, 3, {40, 4}},
        {33, 3, 16, 16, 0, {1, 1}},          // body
        {33, 3, 16, 31, 1, {16, 2}},         // body
        {33, 3, 16, 32, 2, {33, 3}},         // tail: 17 columns, but column 32 of the image
        {40000, 1, 5, 32771, 0, {32767, 1}}, // weights of the body stop there
        {40000, 1, 5, 39000, 0, {32767, 1}},
        {40001, 1, 0, 40000, 0, {40001, 1}},  // those of the tail do not
        {16, 40000, 0, 3, 39999, {4, 40000}}, // nor do those of rows
        {17, 40000, 0, 16, 39999, {17, 40000}},
    };
    for (const auto& c : cases) {
        const Centre found = of_one_pixel(c.stride, c.rows, c.first, c.column, c.row);
        EXPECT_EQ(found.x, c.expected.x) << "pixel " << c.column << " of " << c.first << " .. " << c.stride;
        EXPECT_EQ(found.y, c.expected.y) << "pixel " << c.column << " of " << c.first << " .. " << c.stride;
    }
    // Body and tail weigh alike only from column 0: the centre of a uniform region of 17 columns.
    EXPECT_EQ(centroid(Pixels(3 * 17, 9), 17, 3, 0).x, 9.0f);
    EXPECT_EQ(centroid(Pixels(3 * 33, 9), 33, 3, 16).x, (8.5f * 16 + 33) / 17);
    EXPECT_EQ(centroid(Pixels(3 * 33, 9), 33, 3, 16).y, 2.0f);
}

TEST(Centroid, NothingBrightHasNoCentre)
{
    for (const Centre& centre : {centroid(Pixels(64, 0), 32, 2, 0), centroid(Pixels(64, 1), 32, 0, 0),
                                 centroid(Pixels(64, 1), 32, 2, 32), centroid(Pixels(64, 1), 32, 2, -1)}) {
        EXPECT_TRUE(std::isnan(centre.x));
        EXPECT_TRUE(std::isnan(centre.y));
    }
}

} // namespace
