// What utils_sse.h promises of phases, colour lines and FFT support, as numbers worked out by hand and by other means.
#include "test_data.h"
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#define PLAIN_LIBRARY plain_doppler
#include "plain/plain.h"

namespace {

using Plain = plain_doppler;
using Floats = std::vector<float>;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

std::uint32_t bits(float x)
{
    return operations::Value(x).as<std::uint32_t>();
}

bool same(float x, float y)
{
    return bits(x) == bits(y) || (std::isnan(x) && std::isnan(y));
}

struct Phases
{
    float phase[4];
    float negated[4];
};

Phases phases(float y, float x, float bound)
{
    Phases result;
    float ys[4] = {1, 1, y, 1};
    float xs[4] = {1, 1, x, 1};
    CUtils_SSE::ATan2Bound(0, ys, xs, bound, result.phase, result.negated);
    return result;
}
float phase(float y, float x, float bound)
{
    return phases(y, x, bound).phase[2];
}

TEST(Phase, BitsAtTheLandmarks)
{
    const struct
    {
        float y, x, bound;
        std::uint32_t phase, negated;
    } cases[] = {
        {1, 1, 1, 0x3f490fdb, 0xbf490fdb},   // pi / 4
        {1, -1, 1, 0xc016cbe4, 0x4016cbe4},  // -3 pi / 4: negative on the whole left
        {-1, -1, 1, 0xc016cbe4, 0x4016cbe4}, //
        {-1, 1, 1, 0, 0x80000000},           // 0 on the lower right
        {0, 0, 1, 0x3fc90fea, 0xbfc90fea},   // pi / 2 or just beside it, whatever the signs of the zeros
        {-0.0f, -0.0f, 1, 0x3fc90fea, 0xbfc90fea},
        {0, 1, 1, 0xb5f80000, 0x35f80000},      // just below 0
        {-0.0f, -1, 2, 0xc0490fe2, 0x40490fe2}, // just beyond pi
        {0, -1, 1, 0xc0490ffb, 0x40490ffb},     // the same OR pi
        {1, 1, 0.2f, 0x3f69dfff, 0xbf69dfff},   // pi / 4 OR pi / 5, 0x3f20d97c
        {1, -1, 0.5f, 0xffdfcfff, 0x7fdfcfff},  // 3 pi / 4 OR pi / 2: exponents that make a NaN
        {1, 1, 0.25f, 0x3f490fdb, 0xbf490fdb},  // the limit itself
        {-1, 1, 0, 0x80000000, 0},              // 0 reaches both limits, 0 and -0
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.y << " " << c.x << " " << c.bound);
        const Phases found = phases(c.y, c.x, c.bound);
        EXPECT_EQ(bits(found.phase[2]), c.phase) << std::hex << bits(found.phase[2]);
        EXPECT_TRUE(same(found.negated[2], operations::Value(c.negated).as<float>())) << std::hex << bits(found.negated[2]);
    }
}

TEST(Phase, FollowsTheArctangentWithItsOwnSigns)
{
    for (int degrees = -180; degrees <= 180; ++degrees)
        for (const float scale : {1e-6f, 1.0f, 3e14f}) {
            const double angle = degrees * 3.141592653589793 / 180;
            const float y = scale * static_cast<float>(std::sin(angle));
            const float x = scale * static_cast<float>(std::cos(angle));
            const double magnitude = std::atan2(std::fabs(y), x);
            const double expected = x < 0 ? -magnitude : y < 0 ? 0 : magnitude;
            EXPECT_NEAR(phase(y, x, 2), expected, 0.0103) << degrees;
        }
}

TEST(Phase, SpecialValuesOfEverySign)
{
    const float magnitudes[] = {0, FLT_TRUE_MIN, FLT_MIN, 1e-20f, 1e-10f, 0.5f, 1, 3, 1e10f, 1e38f, FLT_MAX, infinity, nan};
    int nans = 0;
    for (const float bound : {0.0f, -0.0f, 0.2f, 0.5f, 0.75f, 1.0f, 2.0f, -0.5f, infinity, nan})
        for (const float my : magnitudes)
            for (const float mx : magnitudes)
                for (int signs = 0; signs < 4; ++signs) {
                    const float y = signs & 1 ? -my : my;
                    const float x = signs & 2 ? -mx : mx;
                    float ys[4] = {1, 1, y, 1};
                    float xs[4] = {1, 1, x, 1};
                    Phases expected;
                    Plain::ATan2Bound(0, ys, xs, bound, expected.phase, expected.negated);
                    const Phases found = phases(y, x, bound);
                    ASSERT_TRUE(same(found.phase[2], expected.phase[2])) << y << " " << x << " " << bound;
                    ASSERT_TRUE(same(found.negated[2], expected.negated[2])) << y << " " << x << " " << bound;
                    if (std::isnan(y) || std::isnan(x)) {
                        ASSERT_TRUE(std::isnan(found.phase[2])) << y << " " << x << " " << bound;
                        ++nans;
                    }
                }
    EXPECT_EQ(nans, 10 * 4 * 25);
}

TEST(ColorLowPass, SignsAndTwiceCountedSamples)
{
    const struct
    {
        int n;
        short sample;
        float expected;
    } cases[] = {
        {0, -1, 0},
        {-8, -1, 0},
        {-3, -1, 0},
        {7, -1, -7},               // no body
        {8, -1, 8 * 65535},        // no tail
        {9, -1, 8 * 65535 - 5},    // samples 4 .. 8 in the tail
        {12, 1, 16},               //
        {15, -32768, -98304},      // 8 * 32768 - 11 * 32768
        {16, 3, 48},               //
        {20, -1, 16 * 65535 - 12}, // samples 8 .. 19 in the tail
    };
    for (const auto& c : cases) {
        const std::vector<short> samples(32, c.sample);
        const Floats ones(32, 1.0f);
        EXPECT_EQ(CUtils_SSE::ColorLowPass(samples.data() + 8, ones.data() + 8, c.n), c.expected) << c.n;
    }
    // Products 0 .. 3 of a block join the lanes before products 4 .. 7: 1 + 2^24 - 2^24 + 1, one after the other.
    const std::vector<short> samples(16, 1);
    Floats taps(16, 0.0f);
    taps[0] = taps[12] = 1;
    taps[4] = 0x1p24f;
    taps[8] = -0x1p24f;
    EXPECT_EQ(CUtils_SSE::ColorLowPass(samples.data(), taps.data(), 16), 1.0f);
}

TEST(DemodulateColor, CrossedWithAnExactScale)
{
    const short rf[9] = {-1, 32767, -32768, -32768, 5, 6, 7, 8, -1};
    const short table1[9] = {16384, 32767, -32768, 32767, 0, 0, 0, 0, 16384};
    const short zero[9] = {};
    const float expected[9] = {-0.5f, 32766, 32768, -32767, 0, 0, 0, 0, -0.5f};
    for (const int n : {1, 2, 4, 5, 7, 8, 9}) {
        Floats out1(9, 77.0f);
        Floats out2(9, 77.0f);
        CUtils_SSE::DemodulateColor(rf, table1, zero, out1.data(), out2.data(), n);
        for (int i = 0; i < 9; ++i) {
            EXPECT_EQ(out1[static_cast<std::size_t>(i)], i < n ? 0.0f : 77.0f) << n << " " << i;
            EXPECT_EQ(out2[static_cast<std::size_t>(i)], i < n ? expected[i] : 77.0f) << n << " " << i;
        }
    }
}

TEST(DemodulateColorNew, StraightAndRoundedDown)
{
    const short rf[9] = {1000, -1, -32768, 127, -128, 128, -129, 3, 1000};
    alignas(16) const short table1[9] = {32767, 1, -32768, 1, 1, 1, 1, 64, 32767};
    alignas(16) const short table2[9] = {};
    const int expected[9] = {255992, -1, 8388608, 0, -1, 1, -2, 1, 255992};
    for (const int n : {1, 2, 4, 5, 7, 8, 9}) {
        alignas(16) int out1[9] = {77, 77, 77, 77, 77, 77, 77, 77, 77};
        alignas(16) int out2[9] = {77, 77, 77, 77, 77, 77, 77, 77, 77};
        CUtils_SSE::DemodulateColorNew(rf, table1, table2, out1, out2, n);
        for (int i = 0; i < 9; ++i) {
            EXPECT_EQ(out1[i], i < n ? expected[i] : 77) << n << " " << i;
            EXPECT_EQ(out2[i], i < n ? 0 : 77) << n << " " << i;
        }
    }
}

struct AlignedFree
{
    void operator()(float* table) const { CUtils_SSE::aligned_free(table); }
};
using Table = std::unique_ptr<float, AlignedFree>;

Table table_for(int n)
{
    return Table(CUtils_SSE::CreateFFTCoeffs(n));
}

TEST(FFT, TableHoldsCosinesThenSines)
{
    const Table sixteen = table_for(16);
    const float quarter = 6.12323426e-17f; // of pi / 2, which no double is
    const struct
    {
        int t;
        float value;
    } entries[] = {{0, 1},      {1, 0.923879504f},      {2, 0.707106769f}, {4, quarter},
                   {8, -1},     {12, -1.83697015e-16f}, {16 + 0, 0},       {16 + 2, 0.707106769f},
                   {16 + 4, 1}, {16 + 8, 2 * quarter},  {16 + 12, -1}};
    for (const auto& entry : entries)
        EXPECT_EQ(bits(sixteen.get()[entry.t]), bits(entry.value)) << entry.t << ": " << sixteen.get()[entry.t];

    std::vector<int> lengths = {512, 1000, 1024, 2048, 4096, 8192, 12345};
    for (int n = 1; n <= 260; ++n)
        lengths.push_back(n);
    for (const int n : lengths) {
        const Table table = table_for(n);
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(table.get()) % 16, 0u);
        for (int k = 0; k < n; ++k) {
            const double x = k * 6.283185307179586 / n;
            const float c = table.get()[k];
            const float s = table.get()[n + k];
#ifdef __GLIBC__ // other libraries' functions are coarser
            ASSERT_EQ(bits(c), bits(static_cast<float>(std::cos(x)))) << k << " of " << n;
            ASSERT_EQ(bits(s), bits(static_cast<float>(std::sin(x)))) << k << " of " << n;
#endif
            ASSERT_NEAR(c, std::cos(x), 3.1e-8);
            ASSERT_NEAR(s, std::sin(x), 3.1e-8);
        }
    }
}

TEST(FFT, LengthsWithoutATable)
{
    EXPECT_NE(table_for(0), nullptr);
    EXPECT_NE(table_for(-1), nullptr);
    EXPECT_NE(table_for(INT_MIN), nullptr);
    EXPECT_EQ(table_for(INT_MAX), nullptr);
    EXPECT_EQ(table_for(1 << 29), nullptr);       // 2^32 bytes
    EXPECT_EQ(table_for((1 << 29) - 2), nullptr); // 2^32 - 16, and 20 more that aligned_malloc() adds
    const float input[64] = {};
    const float table[128] = {};
    for (const int n : {INT_MIN, -16, 0, 1, 8, 12, 15, 17, 24, 48}) {
        float out[64] = {77};
        EXPECT_EQ(CUtils_SSE::FFTmagnitude(out, input, table, n), 1.0f) << n;
        EXPECT_EQ(out[0], 77.0f) << n;
    }
}

TEST(FFT, ShortestLengthByHand)
{
    // A unit sample at 5 is the real part of lane j of the steps with stride 4 where (o + 4 (3 - j)) mod 16 is 5. So B of
    // bins 4k .. 4k + 3 holds it, as the first part of its own, in one lane each, and A nowhere but as second part of k = 1.
    const auto circle = [](int t) { return t * 3.141592653589793 / 8; };
    const Table table = table_for(16);
    float input[16] = {};
    input[5] = 1;
    float out[16];
    const float largest = CUtils_SSE::FFTmagnitude(out, input, table.get(), 16);
    double expected_largest = 0;
    for (int k = 0; k < 4; ++k)
        for (int j = 0; j < 4; ++j) {
            double a = 0;
            double b_re = 0;
            double b_im = 0;
            const auto sample = [&](int o) { return (o + 4 * (3 - j)) % 16 == 5 ? 1.0 : 0.0; };
            a = sample(4 * k) + std::cos(circle(4 * k + 2 * (3 - j))) * sample(4 * k + 1);
            b_re = sample(4 * k + 1) + std::cos(circle(4 * k + 1 + 2 * (3 - j))) * sample(4 * k + 2);
            b_im = sample(4 * k + 1) + std::sin(circle(4 * k + 1 + 2 * (3 - j))) * sample(4 * k + 2);
            const double c = std::cos(circle(4 * k + j));
            const double s = std::sin(circle(4 * k + j));
            const double expected = std::hypot(c * b_re - s * b_im + a, s * b_re + c * b_im + a);
            EXPECT_NEAR(out[4 * k + j], expected, 1e-6) << 4 * k + j;
            expected_largest = std::max(expected_largest, expected);
        }
    EXPECT_NEAR(largest, expected_largest, 1e-6);
    EXPECT_GT(largest, 1.4f);

    input[5] = 0;
    EXPECT_EQ(bits(CUtils_SSE::FFTmagnitude(out, input, table.get(), 16)), 0u);
    EXPECT_EQ(std::count(out, out + 16, 0.0f), 16);
}

TEST(FFT, EqualsTheRecursionAtEveryLength)
{
    Random random(7);
    for (int n = 16; n <= 8192; n *= 2) {
        const auto size = static_cast<std::size_t>(n);
        const Table table = table_for(n);
        Floats input(size);
        for (float& x : input)
            x = static_cast<float>(static_cast<int>(below(random, 20001)) - 10000) / 16;
        Floats expected(size);
        Floats found(size);
        const float largest = Plain::FFTmagnitude(expected.data(), input.data(), table.get(), n);
        EXPECT_EQ(CUtils_SSE::FFTmagnitude(found.data(), input.data(), table.get(), n), largest) << n;
        EXPECT_EQ(found, expected) << n;
        EXPECT_EQ(*std::max_element(found.begin(), found.end()), largest) << n;

        // The largest of the numbers, though some are not.
        input[size / 2 + 5] = nan;
        const float largest_number = CUtils_SSE::FFTmagnitude(found.data(), input.data(), table.get(), n);
        float wanted = 0;
        for (const float x : found)
            wanted = x > wanted ? x : wanted;
        EXPECT_EQ(largest_number, wanted) << n;
        EXPECT_TRUE(std::any_of(found.begin(), found.end(), [](float x) { return std::isnan(x); })) << n;
    }
}

} // namespace
