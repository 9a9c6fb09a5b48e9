// The words of the kernels: every vector verb equals its scalar twin, or what its comment says, for all values that matter.
#include "simd/vectors.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <random>
#include <vector>

namespace {

using namespace simd;

std::vector<float> special_floats()
{
    std::vector<float> values = {0.0f,           -0.0f,      0.5f,      1.5f,          2.5f,          -0.5f,
                                 -2.5f,          32767.5f,   -32768.5f, 1e-45f,        -1e-40f,       3.4e38f,
                                 INFINITY,       -INFINITY,  NAN,       2147483520.0f, 2147483648.0f, -2147483648.0f,
                                 -2147483904.0f, 8388609.0f, 4194304.5f};
    std::mt19937 random(7);
    for (int i = 0; i < 100000; ++i) {
        const auto bits = static_cast<std::uint32_t>(random());
        float value;
        std::memcpy(&value, &bits, sizeof value);
        values.push_back(value);
    }
    while (values.size() % 4 != 0)
        values.push_back(0.0f);
    return values;
}

TEST(Simd, FloatVerbsEqualTheirScalarTwins)
{
    const std::vector<float> values = special_floats();
    for (std::size_t i = 0; i < values.size(); i += 4) {
        int rounded[4];
        int truncated[4];
        int magnitude[4];
        float root[4];
        const f32 x = load<f32>(&values[i]);
        store(rounded, round_to_int(x));
        store(truncated, truncate_to_int(x));
        store(magnitude, absolute_wrap(truncate_to_int(x)));
        store(root, square_root(x));
        for (int lane = 0; lane < 4; ++lane) {
            const float value = values[i + static_cast<std::size_t>(lane)];
            ASSERT_EQ(rounded[lane], round_to_int(value)) << value;
            ASSERT_EQ(truncated[lane], truncate_to_int(value)) << value;
            ASSERT_EQ(magnitude[lane], absolute_wrap(truncate_to_int(value))) << value;
            const bool in_range = value >= -2147483648.0f && value < 2147483648.0f;
            ASSERT_EQ(rounded[lane], in_range ? static_cast<int>(std::nearbyint(static_cast<double>(value))) : INT_MIN)
                << value;
            ASSERT_EQ(truncated[lane], in_range ? static_cast<int>(value) : INT_MIN) << value;
            const float correct = static_cast<float>(std::sqrt(static_cast<double>(value)));
            if (std::isnan(correct))
                ASSERT_TRUE(std::isnan(root[lane]) && std::isnan(square_root(value))) << value;
            else
                ASSERT_TRUE(root[lane] == correct && square_root(value) == correct) << value;
        }
    }
}

TEST(Simd, FoldAddsNeighboursFirst)
{
    // In any other order 1e8 would swallow a one.
    const float lanes[4] = {1e8f, -1e8f, 1.0f, 1.0f};
    EXPECT_EQ(fold(load<f32>(lanes)), 2.0f);
    const float crossed[4] = {1e8f, 1.0f, -1e8f, 1.0f};
    EXPECT_EQ(fold(load<f32>(crossed)), 0.0f);
    float first[4];
    store(first, add_to_lane_0(load<f32>(crossed), 8.0f));
    EXPECT_EQ(first[0], 100000008.0f);
    EXPECT_EQ(first[1], 1.0f);
}

TEST(Simd, ShortVerbsAreExactForEveryShort)
{
    const short others[] = {-32768, -32767, -16384, -2, -1, 0, 1, 2, 3, 255, 16384, 32766, 32767};
    for (const short other : others)
        for (int base = SHRT_MIN; base <= SHRT_MAX; base += 8) {
            short x[8];
            for (int lane = 0; lane < 8; ++lane)
                x[lane] = static_cast<short>(base + lane);
            const short y[8] = {other, other, other, other, other, other, other, other};
            int product[8];
            int widened[8];
            short q15[8];
            short magnitude[8];
            const i32x2 exact = multiply_exact(load<i16>(x), load<i16>(y));
            const i32x2 wide = widen(load<i16>(x));
            store(product, exact.low);
            store(product + 4, exact.high);
            store(widened, wide.low);
            store(widened + 4, wide.high);
            store(q15, multiply_q15(load<i16>(x), load<i16>(y)));
            store(magnitude, absolute_wrap(load<i16>(x)));
            for (int lane = 0; lane < 8; ++lane) {
                const int expected = x[lane] * other;
                ASSERT_EQ(widened[lane], x[lane]);
                ASSERT_EQ(product[lane], expected) << x[lane] << " * " << other;
                ASSERT_EQ(q15[lane], std::min(expected >> 15, SHRT_MAX)) << x[lane] << " * " << other;
                ASSERT_EQ(magnitude[lane], x[lane] == SHRT_MIN ? SHRT_MIN : std::abs(x[lane]));
            }
            for_each_unsigned_lane(load<i16>(x),
                                   [&](int lane, int value) { ASSERT_EQ(value, static_cast<unsigned short>(x[lane])); });
        }
}

TEST(Simd, IntegerSumsWrapAndShiftsRoundDown)
{
    const short x[8] = {-32768, -32768, 32767, 2, -1, 0, 100, 200};
    const short y[8] = {-32768, -32768, 32767, 3, 1, 5, -100, 200};
    int sum[4];
    const i32 pairs = multiply_add_pairs(load<i16>(x), load<i16>(y));
    store(sum, pairs);
    const int expected[4] = {INT_MIN, 1073676295, -1, 30000};
    EXPECT_TRUE(std::equal(sum, sum + 4, expected));
    store(sum, add_neighbours_wrap(pairs, add_wrap(pairs, pairs)));
    const int neighbours[4] = {INT_MIN + 1073676295, 29999, 2147352590, 59998};
    EXPECT_TRUE(std::equal(sum, sum + 4, neighbours));
    store(sum, shift_right<15>(pairs));
    EXPECT_EQ(sum[2], -1);
    EXPECT_EQ(lane_0(shift_right<15>(pairs)), -65536);
    short half[8];
    store(half, shift_right<1>(add_wrap(load<i16>(x), broadcast_short(1))));
    const short halves[8] = {-16384, -16384, -16384, 1, 0, 0, 50, 100};
    EXPECT_TRUE(std::equal(half, half + 8, halves));
}

TEST(Simd, AveragesRoundDown)
{
    for (int x = 0; x < 256; ++x)
        for (int base = 0; base < 256; base += 16) {
            unsigned char y[16];
            unsigned char average[16];
            for (int lane = 0; lane < 16; ++lane)
                y[lane] = static_cast<unsigned char>(base + lane);
            store(average, average_down(broadcast_byte(static_cast<unsigned char>(x)), load<u8>(y)));
            for (int lane = 0; lane < 16; ++lane)
                ASSERT_EQ(average[lane], (x + y[lane]) / 2) << x << " and " << int{y[lane]};
        }
    for (const short x : std::initializer_list<short>{-32768, -32767, -3, -2, -1, 0, 1, 2, 32766, 32767})
        for (int base = SHRT_MIN; base <= SHRT_MAX; base += 8) {
            const short same[8] = {x, x, x, x, x, x, x, x};
            short y[8];
            short average[8];
            for (int lane = 0; lane < 8; ++lane)
                y[lane] = static_cast<short>(base + lane);
            store(average, average_down(load<i16>(same), load<i16>(y)));
            for (int lane = 0; lane < 8; ++lane)
                ASSERT_EQ(average[lane], std::floor((x + y[lane]) / 2.0)) << x << " and " << y[lane];
        }
}

TEST(Simd, NarrowingSaturates)
{
    const int ints[8] = {INT_MIN, -32769, -32768, -1, 0, 32767, 32768, INT_MAX};
    short shorts[8];
    store(shorts, narrow_saturate(load<i32>(ints), load<i32>(ints + 4)));
    const short expected_shorts[8] = {-32768, -32768, -32768, -1, 0, 32767, 32767, 32767};
    EXPECT_TRUE(std::equal(shorts, shorts + 8, expected_shorts));

    const short wide[8] = {-32768, -1, 0, 1, 254, 255, 256, 32767};
    unsigned char bytes[16];
    store(bytes, narrow_saturate(load<i16>(wide), load<i16>(wide)));
    const unsigned char expected_bytes[8] = {0, 0, 0, 1, 254, 255, 255, 255};
    EXPECT_TRUE(std::equal(bytes, bytes + 8, expected_bytes));
    EXPECT_TRUE(std::equal(bytes + 8, bytes + 16, expected_bytes));
}

} // namespace
