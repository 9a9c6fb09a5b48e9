// What utils_sse.h promises of integer vectors, as numbers worked out by hand.
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using Samples = std::vector<short>;

struct Parts
{
    int body;
    int tail;
};

// Eight columns of the body and one of the tail, all of them alike.
Parts of_nine(const Samples& samples)
{
    for (std::size_t i = 0; i < 8; ++i)
        EXPECT_EQ(samples.at(i), samples[0]) << i;
    return {samples[0], samples.at(8)};
}

TEST(IntegerVectors, DotProductShiftsPairsInTheBodyAndProductsInTheTail)
{
    EXPECT_EQ(CUtils_SSE::DotProduct(Samples(8, 16384).data(), Samples(8, 16384).data(), 8), 65536.0f);
    // 181 * 181 = 32761: two of them are one whole 32768 and a rest, a single one is none.
    EXPECT_EQ(CUtils_SSE::DotProduct(Samples(8, 181).data(), Samples(8, 181).data(), 8), 4.0f);
    EXPECT_EQ(CUtils_SSE::DotProduct(Samples(7, 181).data(), Samples(7, 181).data(), 7), 0.0f);
    EXPECT_EQ(CUtils_SSE::DotProduct(Samples(8, 1).data(), Samples(8, -1).data(), 8), -4.0f); // rounded down
    EXPECT_EQ(CUtils_SSE::DotProduct(Samples(7, 1).data(), Samples(7, -1).data(), 7), -7.0f);
    EXPECT_EQ(CUtils_SSE::DotProduct(Samples(8, -32768).data(), Samples(8, -32768).data(), 8), -262144.0f); // each pair wraps
    EXPECT_EQ(CUtils_SSE::DotProduct(Samples(1, -32768).data(), Samples(1, -32768).data(), 1), 32768.0f);
    EXPECT_EQ(CUtils_SSE::DotProduct(nullptr, nullptr, 0), 0.0f);
}

TEST(IntegerVectors, MeansWrapInTheBodyAndDivideInTheEnd)
{
    const int quarters[5] = {256, 256, 256, 256, 1536};
    EXPECT_EQ(CUtils_SSE::SumProduct(quarters, 4), 1.0f);
    EXPECT_EQ(CUtils_SSE::SumProduct(quarters, 5), 2.0f);
    const int large[5] = {1 << 30, 1 << 30, 1 << 30, 1 << 30, 1 << 30};
    EXPECT_EQ(CUtils_SSE::SumProduct(large, 4), 0.0f); // 2^32 wraps
    EXPECT_EQ(CUtils_SSE::SumProduct(large, 3), 4194304.0f);
    EXPECT_EQ(CUtils_SSE::SumProduct(large, 5), 838860.8f);
    // As integers 2^24 + 3 becomes 2^24 + 4 at once; the tail loses its ones.
    const int odd[5] = {1 << 24, 1, 1, 1, 0};
    EXPECT_EQ(CUtils_SSE::SumProduct(odd, 4), 16777220.0f / 1024.0f);
    EXPECT_EQ(CUtils_SSE::SumProduct(odd, 3), 16777216.0f / 3.0f * 0.00390625f);

    EXPECT_EQ(CUtils_SSE::SumProduct2(Samples{1, 2, 3, 4, 5, 6, 7, 8, 12}.data(), 8), 4.5f);
    EXPECT_EQ(CUtils_SSE::SumProduct2(Samples{1, 2, 3, 4, 5, 6, 7, 8, 18}.data(), 9), 6.0f);
    EXPECT_EQ(CUtils_SSE::SumProduct2(Samples(65536, -32768).data(), 65536), -32768.0f);
    EXPECT_EQ(CUtils_SSE::SumProduct2(Samples(131072, -32768).data(), 131072), 0.0f); // -2^32 wraps
    for (const int n : {0, -5}) {
        EXPECT_TRUE(std::isnan(CUtils_SSE::SumProduct(nullptr, n)));
        EXPECT_TRUE(std::isnan(CUtils_SSE::SumProduct2(nullptr, n)));
    }
}

TEST(IntegerVectors, Average2GivesTheLargestSampleForNegativeSums)
{
    struct
    {
        short a, b;
        Parts mean;
    } const cases[] = {
        {-4, -2, {32767, -3}},          {3, 4, {3, 3}},          {-1, -2, {32767, -1}}, {0, -1, {32767, 0}},
        {-32768, 32767, {32767, 0}},    {-32767, 32767, {0, 0}}, {1, -1, {0, 0}},       {-32768, -32768, {32767, -32768}},
        {32767, 32766, {32766, 32766}},
    };
    for (const auto& c : cases) {
        Samples dst(9);
        CUtils_SSE::Average2(dst.data(), Samples(9, c.a).data(), Samples(9, c.b).data(), 9);
        EXPECT_EQ(of_nine(dst).body, c.mean.body) << c.a << " and " << c.b;
        EXPECT_EQ(of_nine(dst).tail, c.mean.tail) << c.a << " and " << c.b;
    }
}

// The two functions of columns, of rows that are constant each.
struct Columns
{
    Parts mean;
    Parts magnitude;
};
Columns of_columns(const Samples& row_values, std::size_t stride = 9)
{
    const auto rows = static_cast<int>(row_values.size());
    Samples src;
    for (const short value : row_values)
        src.insert(src.end(), stride, value);
    Samples mean(9, 77), magnitude(9, 77);
    CUtils_SSE::Average(mean.data(), src.data(), rows, static_cast<int>(stride), 9);
    CUtils_SSE::MaxAbsoluteValue(magnitude.data(), src.data(), rows, static_cast<int>(stride), 9);
    return {of_nine(mean), of_nine(magnitude)};
}

TEST(IntegerVectors, ColumnsRoundInTheBodyAndTruncateInTheTail)
{
    struct
    {
        Samples rows;
        Columns expected;
    } const cases[] = {
        {{1, 2}, {{2, 1}, {2, 2}}}, // 1.5
        {{2, 3}, {{2, 2}, {3, 3}}}, // 2.5
        {{-1, -2}, {{-2, -1}, {2, 2}}},
        {{5, -7, 6}, {{1, 1}, {7, 7}}},
        {{-32768}, {{-32768, -32768}, {32767, -32768}}},
        {{0, -32768, 32767, -32767}, {{-8192, -8192}, {32767, -32768}}},
        {{}, {{-32768, 0}, {0, 0}}},
    };
    for (const auto& c : cases)
        for (const std::size_t stride : {9u, 12u}) {
            const Columns found = of_columns(c.rows, stride);
            const auto where = testing::Message() << c.rows.size() << " rows, stride " << stride;
            EXPECT_EQ(found.mean.body, c.expected.mean.body) << where;
            EXPECT_EQ(found.mean.tail, c.expected.mean.tail) << where;
            EXPECT_EQ(found.magnitude.body, c.expected.magnitude.body) << where;
            EXPECT_EQ(found.magnitude.tail, c.expected.magnitude.tail) << where;
        }
}

TEST(IntegerVectors, ColumnMeansAddFloatsRowByRow)
{
    // 513 rows of -32768 are beyond 2^24, where floats are even numbers: every single one that is added to them is lost.
    Samples lost(513, -32768);
    lost.insert(lost.end(), 16384, 1);
    EXPECT_EQ(of_columns(lost).mean.body, -995); // -16809984 / 16897 = -994.85; exact sums would give -993.88
    EXPECT_EQ(of_columns(lost).mean.tail, -994);
}

TEST(IntegerVectors, ColumnsBeyondTheStrideHaveFewerRows)
{
    // Columns 0 .. 7, 8 .. 15 and 16 of a stride of 8: two rows, one, none.
    Samples src(24);
    for (std::size_t i = 0; i < 16; ++i)
        src[i] = i < 8 ? 10 : 30;
    Samples mean(17, 77), magnitude(17, 77);
    CUtils_SSE::Average(mean.data(), src.data(), 2, 8, 17);
    CUtils_SSE::MaxAbsoluteValue(magnitude.data(), src.data(), 2, 8, 17);
    for (std::size_t i = 0; i < 17; ++i) {
        EXPECT_EQ(mean[i], i < 8 ? 20 : i < 16 ? 15 : 0) << i;
        EXPECT_EQ(magnitude[i], i < 16 ? 30 : 0) << i;
    }
    CUtils_SSE::Average(mean.data(), src.data(), -1, 8, 17);
    EXPECT_EQ(mean[0], 20);
}

TEST(IntegerVectors, FlagsTellClippedEchoesNotSaturatedSums)
{
    struct
    {
        short a, b;
        int sum;
        float flag;
    } const cases[] = {
        {32767, 32767, 32767, 1023.0f}, {32767, 1, 32767, 0.0f},        {-32768, 32767, -1, 1023.0f},
        {-32768, -1, -32768, 0.0f},     {-32767, -32767, -32768, 0.0f}, {-32768, -32768, -32768, 1023.0f},
        {32766, 32767, 32767, 0.0f},    {100, -200, -100, 0.0f},
    };
    for (const auto& c : cases) {
        alignas(16) float flags[15];
        Samples dst(15);
        CUtils_SSE::AddSaturate(dst.data(), flags, Samples(15, c.a).data(), Samples(15, c.b).data(), 15);
        for (std::size_t i = 0; i < 15; ++i) {
            EXPECT_EQ(dst[i], c.sum) << c.a << " + " << c.b << " at " << i;
            EXPECT_EQ(flags[i], c.flag) << c.a << " + " << c.b << " at " << i;
        }
    }
}

} // namespace
