// The internal sorting routines, exhaustively over small values, and what they do with equal and unordered floats.
#include "filters/sorting.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace {

using namespace simd;

const float nan_value = std::numeric_limits<float>::quiet_NaN();

// All arrays of Count values out of Count different ones; `prepared` says which of them a routine is made for.
template <class T, std::size_t Count, class Routine, class Prepared>
void expect_sorts(const Routine& routine, const Prepared& prepared)
{
    const T levels[] = {static_cast<T>(std::numeric_limits<T>::lowest()), T(0), T(1), T(100), std::numeric_limits<T>::max()};
    constexpr std::size_t base = Count > 5 ? 3 : 5;
    std::size_t numbers = 1;
    for (std::size_t i = 0; i < Count; ++i)
        numbers *= base;
    std::size_t tried = 0;
    for (std::size_t number = 0; number < numbers; ++number) {
        std::array<T, Count> values;
        for (std::size_t i = 0, rest = number; i < Count; ++i, rest /= base)
            values[i] = levels[rest % base * (base == 3 ? 2 : 1)];
        if (!prepared(values))
            continue;
        ++tried;
        std::array<T, Count> expected = values;
        std::sort(expected.begin(), expected.end());
        routine(values.data());
        ASSERT_EQ(values, expected);
    }
    ASSERT_GT(tried, 10u);
}

template <class T>
void expect_all_sort()
{
    const auto any = [](const auto&) { return true; };
    const auto but_last = [](const auto& values) { return std::is_sorted(values.begin(), values.end() - 1); };
    expect_sorts<T, 3>([](T* x) { SortThree(x); }, any);
    expect_sorts<T, 5>([](T* x) { SortFive(x); }, any);
    expect_sorts<T, 3>([](T* x) { InsertLastOfThree(x); }, but_last);
    expect_sorts<T, 6>([](T* x) { InsertLastOfSix(x); }, but_last);
    expect_sorts<T, 9>([](T* x) { InsertLastOfNine(x); }, but_last);
}

TEST(Sorting, RoutinesSortEveryArrangement)
{
    expect_all_sort<unsigned char>();
    expect_all_sort<short>();
    expect_all_sort<int>();
    expect_all_sort<float>();
}

TEST(Sorting, EqualAndUnorderedValuesStayWhereTheyAre)
{
    float zeros[5] = {0.0f, -0.0f, 0.0f, -0.0f, 0.0f};
    SortFive(zeros);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(std::signbit(zeros[i]), i % 2 != 0) << i;
    float unordered[3] = {3.0f, nan_value, 1.0f}; // no pair of neighbours is ever exchanged
    SortThree(unordered);
    EXPECT_EQ(unordered[0], 3.0f);
    EXPECT_TRUE(std::isnan(unordered[1]));
    EXPECT_EQ(unordered[2], 1.0f);
    float last[3] = {1.0f, 2.0f, nan_value};
    InsertLastOfThree(last);
    EXPECT_TRUE(std::isnan(last[2]));
    float passed[6] = {nan_value, 1.0f, 2.0f, 5.0f, 6.0f, 3.0f}; // the first greater one is found behind a NaN
    InsertLastOfSix(passed);
    EXPECT_TRUE(std::isnan(passed[0]));
    EXPECT_EQ(passed[3], 3.0f);
    EXPECT_EQ(passed[5], 6.0f);
    float signs[3] = {-0.0f, 1.0f, 0.0f};
    InsertLastOfThree(signs);
    EXPECT_TRUE(std::signbit(signs[0]));
    EXPECT_FALSE(std::signbit(signs[1]));
}

TEST(Sorting, LargerOfTwoIsTheFirstWhenEqual)
{
    const int values[] = {-5, 7, 7};
    EXPECT_EQ(LargerOf(values, values + 1), values + 1);
    EXPECT_EQ(LargerOf(values + 1, values), values + 1);
    EXPECT_EQ(LargerOf(values + 1, values + 2), values + 1);
    EXPECT_EQ(LargerOf(values + 2, values + 1), values + 2);
}

// A list sorted of zeros and ones is known by how many ones it has; merging all pairs of them right means merging right
// (0-1 principle).
template <int M, int N>
void expect_merges()
{
    for (int a = 0; a <= M; ++a)
        for (int b = 0; b <= N; ++b) {
            Sorted<int, M> x{};
            Sorted<int, N> y{};
            for (int i = 0; i < M; ++i)
                x.at[i] = i >= M - a;
            for (int i = 0; i < N; ++i)
                y.at[i] = i >= N - b;
            const Sorted<int, M + N> merged = merge(x, y);
            for (int i = 0; i < M + N; ++i)
                ASSERT_EQ(merged.at[i], i >= M + N - a - b) << a << " ones of " << M << ", " << b << " of " << N;
        }
}

TEST(Sorting, MergesOfAllSizesInUse)
{
    expect_merges<1, 1>();
    expect_merges<2, 2>();
    expect_merges<4, 1>();
    expect_merges<4, 4>();
    expect_merges<6, 5>();
    expect_merges<8, 8>();
    expect_merges<10, 4>();
    expect_merges<1, 4>();
    expect_merges<3, 5>();
    expect_merges<7, 2>();
}

} // namespace
