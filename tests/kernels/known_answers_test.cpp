// What utils_sse.h promises, as numbers worked out by hand.
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <vector>

namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

// Runs a conversion on n copies of one value; all outputs must agree.
template <class Out, class In, class Convert>
Out converted(In value, int n, Convert convert)
{
    const std::vector<In> in(static_cast<std::size_t>(n), value);
    std::vector<Out> out(static_cast<std::size_t>(n), Out(77));
    convert(out.data(), in.data(), n);
    for (const Out other : out)
        EXPECT_EQ(other, out[0]) << "for " << value << ", n = " << n;
    return out[0];
}

TEST(KnownAnswers, OneSumAddsFourLanesThenTheTail)
{
    const float ones[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    const float lanes[8] = {1e8f, 1, -1e8f, 1, 1, 1, 1, 1}; // one after the other would give 5
    EXPECT_EQ(CUtils_SSE::SumFloats(lanes, 8), 0.0f);
    EXPECT_EQ(CUtils_SSE::FDotProduct(lanes, ones, 8), 0.0f);
    const float fold[4] = {1e8f, -1e8f, 3, 0}; // (lane 0 + lane 2) first would give 0
    EXPECT_EQ(CUtils_SSE::SumFloats(fold, 4), 3.0f);
    const float tail[5] = {1e8f, -1e8f, 0, 0, 1};
    EXPECT_EQ(CUtils_SSE::SumFloats(tail, 5), 1.0f);
    EXPECT_EQ(CUtils_SSE::FDotProduct(tail, ones, 5), 1.0f);
    EXPECT_EQ(CUtils_SSE::SumFloats(nullptr, 0), 0.0f);
    EXPECT_EQ(CUtils_SSE::FDotProduct(nullptr, nullptr, -1), 0.0f);
}

TEST(KnownAnswers, TwoDotProductsAddTheirTailIntoLaneZero)
{
    const float ones[7] = {1, 1, 1, 1, 1, 1, 1};
    const float lost[5] = {1e8f, -1e8f, 0, 0, 1};       // 1e8 + 1 is 1e8
    const float kept[7] = {1e8f, -1e8f, 0, 0, 3, 3, 3}; // 1e8 + 9 is 1e8 + 8; 3 by 3 all would be lost
    float a = 77;
    float b = 77;
    CUtils_SSE::FDotProduct(&a, &b, lost, ones, ones, 5);
    EXPECT_EQ(a, 0.0f);
    EXPECT_EQ(b, 5.0f);
    CUtils_SSE::FDotProduct(&a, &b, ones, kept, ones, 7);
    EXPECT_EQ(a, 7.0f);
    EXPECT_EQ(b, 8.0f);
    CUtils_SSE::FDotProduct(&a, &b, nullptr, nullptr, nullptr, 0);
    EXPECT_EQ(a, 0.0f);
    EXPECT_EQ(b, 0.0f);
    CUtils_SSE::FDotProduct(&a, &a, ones, lost, ones, 5); // outA is written before outB
    EXPECT_EQ(a, 0.0f);
}

TEST(KnownAnswers, WeightsBelongToTheirArrays)
{
    const float a[1] = {100};
    const float b[1] = {20};
    float dst[1] = {40};
    CUtils_SSE::Average(dst, b, 1);
    EXPECT_EQ(dst[0], 30.0f);
    CUtils_SSE::Average(dst, a, b, 1, 0.25f);
    EXPECT_EQ(dst[0], 40.0f);
    CUtils_SSE::Average(dst, a, b, 1, 2.0f);
    EXPECT_EQ(dst[0], 180.0f);
}

TEST(KnownAnswers, Distance)
{
    float dst[5] = {3, 3, 2e19f, 1e-23f, 1};
    const float src[5] = {4, -4, 0, 0, 1};
    CUtils_SSE::Distance(dst, src, 5);
    EXPECT_EQ(dst[0], 5.0f);
    EXPECT_EQ(dst[1], 5.0f);
    EXPECT_EQ(dst[2], infinity);
    EXPECT_EQ(dst[3], 0.0f);
    EXPECT_EQ(dst[4], 1.41421356f);
}

TEST(KnownAnswers, ApplyGainRoundsInTheBodyAndTruncatesInTheTail)
{
    struct
    {
        float product;
        int body;
        int tail;
    } const cases[] = {{2.5f, 2, 2},
                       {2.7f, 3, 2},
                       {3.5f, 4, 3},
                       {-2.7f, -3, -2},
                       {-0.5f, 0, 0},
                       {2147483520.0f, 2147483520, 2147483520},
                       {3e9f, INT_MIN, INT_MIN},
                       {2147483648.0f, INT_MIN, INT_MIN},
                       {-3e9f, INT_MIN, INT_MIN},
                       {nan, INT_MIN, INT_MIN}};
    const auto gain = [](int* dst, const float* x, int n) {
        const std::vector<float> half(static_cast<std::size_t>(n), 0.5f);
        CUtils_SSE::ApplyGain(x, half.data(), dst, n);
    };
    for (const auto& c : cases) {
        EXPECT_EQ(converted<int>(2 * c.product, 4, gain), c.body) << c.product;
        EXPECT_EQ(converted<int>(2 * c.product, 3, gain), c.tail) << c.product;
    }
}

TEST(KnownAnswers, FloatToByteScaled)
{
    struct
    {
        float product;
        int body;
        int tail;
    } const cases[] = {{2.5f, 2, 2},
                       {2.6f, 3, 2},
                       {-2.6f, 3, 2},
                       {254.5f, 254, 254},
                       {254.6f, 255, 254},
                       {255.5f, 255, 255},
                       {-300, 255, 255},
                       {-32767.25f, 255, 255},
                       {-32767.5f, 0, 255},
                       {-40000, 0, 255},
                       {40000, 255, 255},
                       {2147483520.0f, 255, 255},
                       {2147483648.0f, 0, 0},
                       {-2147483520.0f, 0, 255},
                       {-2147483648.0f, 0, 0},
                       {-infinity, 0, 0},
                       {nan, 0, 0}};
    const auto scale = [](unsigned char* dst, const float* src, int n) { CUtils_SSE::FloatToByte(dst, src, 2.0f, n); };
    for (const auto& c : cases) {
        EXPECT_EQ(converted<unsigned char>(c.product / 2, 16, scale), c.body) << c.product;
        EXPECT_EQ(converted<unsigned char>(c.product / 2, 15, scale), c.tail) << c.product;
    }
}

TEST(KnownAnswers, FloatToByteTable)
{
    struct
    {
        float value;
        int body;
        int tail;
    } const cases[] = {
        {2.6f, 3, 2},         {2.5f, 2, 2},           {-1.0f, 65535, 65535},  {-0.6f, 65535, 0},         {40000, 32767, 40000},
        {70000, 32767, 4464}, {-32769, 32768, 32767}, {-40000, 32768, 25536}, {2147483648.0f, 32768, 0}, {nan, 32768, 0}};
    // Two tables make the whole index visible.
    std::vector<unsigned char> low(65536);
    std::vector<unsigned char> high(65536);
    for (std::size_t i = 0; i < 65536; ++i) {
        low[i] = static_cast<unsigned char>(i);
        high[i] = static_cast<unsigned char>(i >> 8);
    }
    const auto index = [&](float value, int n) {
        const auto look_up = [](const std::vector<unsigned char>& table) {
            return [&](unsigned char* dst, const float* src, int count) {
                CUtils_SSE::FloatToByte(dst, src, table.data(), count);
            };
        };
        return converted<unsigned char>(value, n, look_up(low)) + 256 * converted<unsigned char>(value, n, look_up(high));
    };
    for (const auto& c : cases) {
        EXPECT_EQ(index(c.value, 16), c.body) << c.value;
        EXPECT_EQ(index(c.value, 15), c.tail) << c.value;
    }
}

TEST(KnownAnswers, DemodulateIsCrossedAndScaledBy32767)
{
    const short rf[9] = {32767, 1000, -1, -32768, 5, 6, 7, 8, -1};
    const short one[9] = {32767, 32767, 16384, 32767, 0, 0, 0, 0, 16384};
    const short zero[9] = {};
    float out1[9];
    float out2[9];
    CUtils_SSE::Demodulate(rf, one, zero, out1, out2, 9);
    const float expected[9] = {32767, 1000, -0.500015259f, -32768, 0, 0, 0, 0, -0.500015259f};
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(out1[i], 0.0f) << i;
        EXPECT_EQ(out2[i], expected[i]) << i;
    }
}

TEST(KnownAnswers, DemodulateNewIsStraightAndZeroesItsTail)
{
    alignas(16) const short table1[12] = {-32768, 1, 32767, 16384, -1, 0, 2, 3, 32767, 32767, 32767, 32767};
    alignas(16) const short table2[12] = {32767, -1, 1, 0, 0, 0, 0, 0, 32767, 32767, 32767, 32767};
    const short rf[24] = {-32768, -1, 32767, 3, 1, 9, 9, 9, 9, 9, 9, 9, -32768, -1, 32767, 3, 1, 9, 9, 9, 9, 9, 9, 9};
    const short expected1[12] = {32767, -1, 32766, 1, -1, 0, 0, 0, 0, 0, 0, 0};
    const short expected2[12] = {-32767, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    std::vector<short> out1(24, 77);
    std::vector<short> out2(24, 77);
    CUtils_SSE::DemodulateNew(rf, out1.data(), out2.data(), table1, table2, 2, 12);
    for (std::size_t i = 0; i < 24; ++i) {
        EXPECT_EQ(out1[i], expected1[i % 12]) << i;
        EXPECT_EQ(out2[i], expected2[i % 12]) << i;
    }
}

TEST(KnownAnswers, DemodulateHarmInterpLeavesTailsAndTheLastLine)
{
    alignas(16) short table[4][8];
    for (short t = 0; t < 4; ++t)
        for (short& entry : table[t])
            entry = static_cast<short>(0x1000 << t); // one eighth, a quarter, a half, minus one
    const std::vector<short> rf(3 * 12, 800);
    for (const int lines : {1, 3}) {
        std::vector<std::vector<short>> out(4, std::vector<short>(3 * 12, 77));
        CUtils_SSE::DemodulateHarmInterp(rf.data(), table[0], table[1], out[0].data(), out[1].data(), out[2].data(),
                                         out[3].data(), table[2], table[3], lines, 12);
        const short product[4] = {100, 200, 400, -800};
        for (std::size_t t = 0; t < 4; ++t)
            for (std::size_t i = 0; i < 36; ++i)
                EXPECT_EQ(out[t][i], lines == 3 && i < 24 && i % 12 < 8 ? product[t] : 77) << t << " " << i;
    }
}

TEST(KnownAnswers, EnvelopeOfAnyShape)
{
    // A second line 20 samples after the first, outputs 5 apart, every fourth window of eight.
    std::vector<short> ramp(40);
    for (std::size_t i = 0; i < 40; ++i)
        ramp[i] = static_cast<short>(i < 20 ? i : 1000 + i);
    const std::vector<short> zero(40, 0);
    for (const int tap : {0, 7}) {
        float h[8] = {};
        h[tap] = 1;
        std::vector<float> out(10, -1.0f);
        CUtils_SSE::EnvelopDetectGen(ramp.data(), zero.data(), out.data(), h, 2, 20, 5, 3, 8, 4);
        const auto first = static_cast<float>(tap);
        const float expected[10] = {first, first + 4, first + 8, -1, -1, first + 1020, first + 1024, first + 1028, -1, -1};
        EXPECT_EQ(out, std::vector<float>(expected, expected + 10)) << "tap " << tap;
    }
}

TEST(KnownAnswers, EnvelopeMagnitudeAndThirdSignal)
{
    const std::vector<short> three(64, 3);
    const std::vector<short> four(64, 4);
    const std::vector<short> zero(64, 0);
    const std::vector<short> negative(64, -100);
    const float one = 1;
    const float sequential[8] = {1e8f, 1, -1e8f, 1, 1, 1, 1, 1}; // in lanes it would sum to 0
    const std::vector<short> ones(64, 1);
    for (const int count : {1, 3, 4, 9, 33}) {
        const auto filled = [&](float value) { return std::vector<float>(static_cast<std::size_t>(count), value); };
        std::vector<float> out = filled(77);
        CUtils_SSE::EnvelopDetectGen(three.data(), four.data(), out.data(), &one, 1, 64, 64, count, 1, 1);
        EXPECT_EQ(out, filled(5));
        CUtils_SSE::EnvelopDetectGen(zero.data(), ones.data(), out.data(), sequential, 1, 64, 64, count, 8, 1);
        EXPECT_EQ(out, filled(5));
        CUtils_SSE::EnvelopDetectGen(three.data(), four.data(), out.data(), &one, 1, 64, 64, count, 0, 1);
        EXPECT_EQ(out, filled(0));
        for (const auto with_third : {&CUtils_SSE::EnvelopDetectGenPI, &CUtils_SSE::EvelopDetectHarmGen}) {
            with_third(zero.data(), zero.data(), negative.data(), out.data(), &one, 1, 64, 64, count, 1, 1);
            EXPECT_EQ(out, filled(-100));
            with_third(three.data(), four.data(), negative.data(), out.data(), &one, 1, 64, 64, count, 1, 1);
            EXPECT_EQ(out, filled(-95));
        }
    }
}

TEST(KnownAnswers, PackedPixels)
{
    using Bytes = std::vector<unsigned char>;
    for (const std::size_t n : {1u, 15u, 16u, 17u, 64u}) {
        const int pixels = static_cast<int>(n);
        Bytes packed(4 * n);
        const auto expect_pixels = [&](const Bytes& pixel) {
            for (std::size_t i = 0; i < 4 * n; ++i)
                ASSERT_EQ(packed[i], pixel[i % 4]) << "byte " << i << " of " << n << " pixels";
        };
        CUtils_SSE::BWToColour(packed.data(), Bytes(n, 0x80).data(), pixels, 0xff);
        expect_pixels({0x80, 0x80, 0x80, 0xff});
        CUtils_SSE::RGBToColour(packed.data(), Bytes(n, 1).data(), Bytes(n, 2).data(), Bytes(n, 3).data(), pixels, 4);
        expect_pixels({3, 2, 1, 4});
        Bytes red(n), green(n), blue(n), grey(n);
        CUtils_SSE::ColourToRGB(red.data(), green.data(), blue.data(), packed.data(), pixels);
        CUtils_SSE::ColourToBW(grey.data(), packed.data(), pixels);
        EXPECT_EQ(red, Bytes(n, 1));
        EXPECT_EQ(green, Bytes(n, 2));
        EXPECT_EQ(blue, Bytes(n, 3));
        EXPECT_EQ(grey, Bytes(n, 3));
    }
}

} // namespace
