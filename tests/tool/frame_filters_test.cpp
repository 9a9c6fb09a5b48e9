// Filters over the frames of a cine: what each makes of pixels, frames of any size, and chains.
#include "bad_input.h"
#include "frame_filters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

using namespace echo2image;

namespace {

using Frame = std::vector<std::uint8_t>;
using Cine = std::vector<Frame>;
using K = FilterKind;

Cine filtered(const Cine& cine, const std::vector<FilterStep>& steps, int rows, int columns, std::size_t first = 0)
{
    FrameFilters filters(steps, rows, columns);
    Cine result;
    for (std::size_t k = first; k < cine.size(); ++k)
        result.push_back(filters.next(cine[k]));
    return result;
}

// Noise with many black pixels.
Cine noise(std::size_t frames, int pixels)
{
    std::mt19937 generator(static_cast<unsigned>(pixels));
    Cine cine(frames, Frame(static_cast<std::size_t>(pixels)));
    for (Frame& frame : cine)
        for (std::uint8_t& pixel : frame)
            pixel = generator() % 4 == 0 ? 0 : static_cast<std::uint8_t>(generator() >> 8);
    return cine;
}

int middle(std::vector<int> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

int mean_of_seen(const std::vector<int>& values)
{
    const auto seen = static_cast<int>(std::count_if(values.begin(), values.end(), [](int v) { return v != 0; }));
    return seen == 0 ? 0 : std::accumulate(values.begin(), values.end(), 0) * (256 / seen) / 256;
}

// What a filter along time makes of the values of one pixel, oldest first.
int expected(const FilterStep& step, const std::vector<int>& v)
{
    const auto last = [&](std::ptrdiff_t count) { return std::vector<int>(v.end() - count, v.end()); };
    const int sum4 = v[v.size() - 1] + v[v.size() - 2] + v[v.size() - 3] + v[v.size() - 4];
    switch (step.kind) {
    case K::median3:
        return middle(last(3));
    case K::median5:
        return middle(last(5));
    case K::extremum3: {
        const std::vector<int> f = last(3);
        const auto magnitude = [](int x) { return x <= 127 ? x : 256 - x; };
        int chosen = 0;
        for (const int x : f)
            chosen = magnitude(x) >= magnitude(chosen) ? x : chosen;
        const int a = magnitude(chosen);
        return ((f[0] + f[1] + f[2] - chosen) / 2 * (128 - a) + chosen * a) / 256;
    }
    case K::average:
        return step.value == 2 ? (v.back() + v[v.size() - 2] + 1) / 2 : sum4 / 4;
    case K::mask_average:
        return mean_of_seen(last(step.value));
    case K::adaptive:
    case K::weight_adjust: {
        const std::vector<int> f = last(5);
        const int bright = std::max(f[0], f[4]);
        const int weight = step.kind == K::adaptive ? bright : step.value;
        return (mean_of_seen({f[1], f[2], f[3]}) * (255 - weight) + bright * weight) / 256;
    }
    case K::persist: {
        int shown = v.front();
        for (const int x : v)
            shown = (shown * step.value + x * (16 - step.value)) / 16;
        return shown;
    }
    default:
        return -1;
    }
}

TEST(FrameFilters, FollowTheirDefinitionsWhateverTheSize)
{
    const FilterStep along_time[] = {{K::median3},           {K::median5},         {K::extremum3},  {K::persist, 1},
                                     {K::persist, 15},       {K::average, 2},      {K::average, 4}, {K::mask_average, 2},
                                     {K::mask_average, 3},   {K::mask_average, 8}, {K::adaptive},   {K::weight_adjust, 1},
                                     {K::weight_adjust, 255}};
    struct Size
    {
        int rows;
        int columns;
    };
    for (const Size& size : {Size{1, 1}, {3, 5}, {1, 16}, {2, 17}, {7, 15}, {16, 16}, {5, 47}}) {
        SCOPED_TRACE(std::to_string(size.rows) + " x " + std::to_string(size.columns));
        const int pixels = size.rows * size.columns;
        const Cine cine = noise(10, pixels);
        for (const FilterStep& step : along_time) {
            const Cine found = filtered(cine, {step}, size.rows, size.columns);
            for (std::size_t k = 0; k < cine.size(); ++k)
                for (std::size_t i = 0; i < cine[k].size(); ++i) {
                    std::vector<int> values(8, cine[0][i]); // the first frame stands for all before it
                    for (std::size_t j = 0; j <= k; ++j)
                        values.push_back(cine[j][i]);
                    ASSERT_EQ(found[k][i], expected(step, values)) << to_text({step}) << ", frame " << k << ", pixel " << i;
                }
        }
        const auto pixel = [&](int row, int column) {
            return int{cine[0][static_cast<std::size_t>(std::min(row, size.rows - 1) * size.columns +
                                                        std::min(column, size.columns - 1))]};
        };
        for (const FilterStep& step : {FilterStep{K::median2d, 3}, {K::median2d, 5}, {K::box}}) {
            const Frame found = filtered({cine[0]}, {step}, size.rows, size.columns)[0];
            ASSERT_EQ(found.size(), cine[0].size());
            for (int row = 0; row < size.rows; ++row)
                for (int column = 0; column < size.columns; ++column) {
                    int value = pixel(row, column);
                    const int reach = step.value / 2;
                    if (step.kind == K::box) {
                        value = (value + pixel(row, column + 1) + pixel(row + 1, column) + pixel(row + 1, column + 1)) / 4;
                    } else if (row >= reach && column >= reach && row < size.rows - reach && column < size.columns - reach) {
                        std::vector<int> window;
                        for (int y = row - reach; y <= row + reach; ++y)
                            for (int x = column - reach; x <= column + reach; ++x)
                                window.push_back(pixel(y, x));
                        value = middle(window);
                    }
                    ASSERT_EQ(found[static_cast<std::size_t>(row * size.columns + column)], value)
                        << to_text({step}) << ", row " << row << ", column " << column;
                }
        }
    }
}

// The same by hand, of pixels that stand in whole blocks (of 16) and behind them.
TEST(FrameFilters, KnownAnswers)
{
    const auto last = [](const std::vector<FilterStep>& steps, const std::vector<std::uint8_t>& values) {
        Cine cine;
        for (const std::uint8_t value : values)
            cine.emplace_back(19, value);
        const Frame frame = filtered(cine, steps, 1, 19).back();
        EXPECT_EQ(std::count(frame.begin(), frame.end(), frame[0]), 19) << to_text(steps);
        return int{frame[0]};
    };
    EXPECT_EQ(last({{K::median5}}, {9, 1, 2, 3, 4}), 3); // the kernel's whole blocks would give 2
    EXPECT_EQ(last({{K::median5}}, {0, 4, 3, 2, 1}), 2); // and 3
    EXPECT_EQ(last({{K::extremum3}}, {0, 100, 255}), 52);
    EXPECT_EQ(last({{K::average, 2}}, {0, 1}), 1);
    EXPECT_EQ(last({{K::average, 4}}, {0, 0, 1, 2}), 0);
    EXPECT_EQ(last({{K::persist, 12}}, {255, 0}), 191);
    EXPECT_EQ(last({{K::persist, 12}}, {255, 0, 0}), 143);
    EXPECT_EQ(last({{K::mask_average, 3}}, {255, 255, 255}), 254);
    EXPECT_EQ(last({{K::mask_average, 3}}, {0, 200, 0}), 200);
    EXPECT_EQ(last({{K::adaptive}}, {100, 100, 100, 100, 100}), 99);
    EXPECT_EQ(last({{K::adaptive}}, {255, 10, 10, 10, 0}), 254);
    EXPECT_EQ(last({{K::weight_adjust, 128}}, {200, 100, 100, 100, 0}), 149);
    // In the order given.
    EXPECT_EQ(last({{K::median3}, {K::persist, 8}}, {0, 0, 240}), 0);
    EXPECT_EQ(last({{K::persist, 8}, {K::median3}}, {0, 0, 240, 0}), 60);
}

TEST(FrameFilters, NeedTheFramesTheySay)
{
    const std::vector<FilterStep> steps = {{K::median3}, {K::box}, {K::average, 4}, {K::median5}};
    EXPECT_EQ(frames_before(steps), 2 + 3 + 4);
    EXPECT_EQ(frames_before({{K::median3}, {K::persist, 3}}), whole_history);
    EXPECT_EQ(frames_before({{K::median2d, 5}}), 0);
    const Cine cine = noise(14, 400);
    const Frame whole = filtered(cine, steps, 20, 20).back();
    EXPECT_EQ(filtered(cine, steps, 20, 20, 13 - 9).back(), whole);
    EXPECT_NE(filtered(cine, steps, 20, 20, 13 - 8).back(), whole);
    EXPECT_EQ(filtered(cine, {}, 20, 20), cine);
}

TEST(FrameFilters, AreToldInWords)
{
    const std::vector<FilterStep> steps = {{K::median2d, 5}, {K::box}, {K::persist, 12}, {K::box}, {K::mask_average, 4}};
    EXPECT_EQ(to_text(steps), "median2d 5, box, persist 12, box, mask-average 4");
    EXPECT_EQ(filters_of(to_text(steps)), steps);
    EXPECT_EQ(filter_of("median2d", ""), (FilterStep{K::median2d, 3}));
    EXPECT_EQ(filter_of("weight-adjust", ""), (FilterStep{K::weight_adjust, 128}));
    const struct
    {
        const char* text;
        const char* complaint;
    } cases[] = {{"median4", "expected one of median3, "},
                 {"", "found \"\""},
                 {"median3, ", "found \"\""},
                 {"box 2", "--box: expected no value, found \"2\""},
                 {"persist", "--persist: expected 1..15, found nothing"},
                 {"persist 16", "found \"16\""},
                 {"persist -1", "found \"-1\""},
                 {"average 3", "--average: expected 2|4, found \"3\""},
                 {"median2d 4", "found \"4\""},
                 {"median2d 5x", "found \"5x\""},
                 {"mask-average 99999999999", "found \"99999999999\""}};
    for (const auto& c : cases) {
        try {
            filters_of(c.text);
            ADD_FAILURE() << c.text;
        } catch (const BadInput& error) {
            EXPECT_NE(std::string(error.what()).find(c.complaint), std::string::npos) << error.what();
        }
    }
    EXPECT_THROW(FrameFilters({{K::box}}, 50000, 50000), BadInput);
}

} // namespace
