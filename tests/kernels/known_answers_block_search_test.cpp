// What utils_sse.h promises of the block-matching searches, as numbers worked out by hand.
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

// A grey image of 100, and a search in it. Blocks hold pixels of 110 and 90 in equal numbers: mean 100, deviation 10.
struct Search
{
    static constexpr int stride = 256;
    int rows = 200;
    int half = 0;
    int width = 32;
    float deviation = 30; // a perfect single row then scores 3200 * 0.85 / 15 = 181 roughly, 87 finely
    float mean = 100.9f;  // counts as 100
    int threshold = 0;
    int column_offset = 0;
    std::vector<unsigned char> image = std::vector<unsigned char>(200 * stride, 100);
    std::vector<unsigned short> row_in{}, column_in{};
    std::vector<unsigned short> row_out = std::vector<unsigned short>(9, 7777);
    std::vector<unsigned short> column_out = std::vector<unsigned short>(9, 7777);
    std::vector<unsigned char> best = std::vector<unsigned char>(9, 0);
    int slots = -1;
    alignas(16) unsigned char work[33 * 64] = {};
    alignas(16) unsigned char reference[33 * 64] = {};
    alignas(16) int scratch[4] = {-1, -1, -1, -1};

    // Alternating pixels; the first `swapped` neighbours exchanged, each of which takes 200 + 200 from the products.
    static unsigned char pattern(int c, int swapped) { return (c + (c < 2 * swapped)) % 2 ? 90 : 110; }

    Search& block(int row, int column, int swapped = 0)
    {
        for (int r = 0; r < 2 * half + 1; ++r)
            for (int c = 0; c < width; ++c) {
                image[static_cast<std::size_t>((row + r) * stride + column + c)] = pattern(c, swapped);
                reference[r * width + c] = pattern(c, 0);
            }
        return at(row, column);
    }
    Search& at(int row, int column)
    {
        row_in.push_back(static_cast<unsigned short>(row));
        column_in.push_back(static_cast<unsigned short>(column));
        return *this;
    }
    Search& rough(int count = -2)
    {
        CUtils_SSE::RoughCorrelation(image.data(), row_in.data(), column_in.data(), row_out.data(), column_out.data(),
                                     count == -2 ? static_cast<int>(row_in.size()) : count, &slots, work, reference,
                                     best.data(), half, stride, rows, scratch, width, deviation, mean, threshold);
        return *this;
    }
    Search& fine(int count = 1)
    {
        CUtils_SSE::FineCorrelation(image.data(), row_in.data(), column_in.data(), row_out.data(), column_out.data(), count,
                                    &slots, work, reference, best.data(), half, stride, rows, scratch, width, deviation, mean,
                                    threshold, column_offset);
        return *this;
    }
    void expect(std::initializer_list<std::vector<int>> wanted) const // row, column, score
    {
        EXPECT_EQ(slots, static_cast<int>(wanted.size()));
        std::size_t s = 0;
        for (const std::vector<int>& slot : wanted) {
            ++s;
            EXPECT_EQ(row_out[s], slot[0]) << "slot " << s;
            EXPECT_EQ(column_out[s], slot[1]) << "slot " << s;
            EXPECT_EQ(best[s], slot[2]) << "slot " << s;
        }
        for (const std::size_t untouched : {std::size_t{0}, s + 1}) {
            EXPECT_EQ(row_out[untouched], 7777);
            EXPECT_EQ(column_out[untouched], 7777);
            EXPECT_EQ(best[untouched], 0);
        }
    }
};

TEST(BlockSearchAnswers, ScoresAndWhatTheirLowByteKeeps)
{
    Search().block(50, 60).rough().expect({{50, 60, 181}});
    Search().block(50, 60, 4).rough().expect({{50, 60, 90}});   // 1600 * 0.85 / 15
    Search().block(50, 60, 16).rough().expect({{50, 60, 181}}); // the negative counts as much: |-181.3|
    const auto high = [](int half, float deviation) {
        Search s;
        s.half = half;
        s.deviation = deviation;
        s.block(50, 60);
        return s;
    };
    // 17 of the 33 rows: 54400 products of 100 * 2.55 / 527 = 263.2, which wraps; a larger deviation brings it below 256.
    high(16, 10).rough().expect({{50, 60, 7}});
    high(16, 10.5f).rough().expect({{50, 60, 250}});
    high(1, 10).rough().expect({{50, 60, 347 - 256}}); // 6400 * 2.55 / 47
    // A flat reference: the value is infinite, and its low byte 0.
    high(16, 0).rough().expect({});
}

TEST(BlockSearchAnswers, ThresholdsAndFlatBlocks)
{
    Search limit;
    limit.threshold = 181; // to be exceeded
    limit.block(50, 60).rough().expect({});
    limit.threshold = 180;
    limit.rough().expect({{50, 60, 181}});
    limit.rough().expect({{50, 60, 181}});
    // The best score is the caller's: what was there stays unless exceeded.
    limit.best[1] = 181;
    limit.row_out[1] = 3;
    limit.rough();
    EXPECT_EQ(limit.row_out[1], 3);
    // Flat candidates score 0. Below 0 even they open a cluster, in which nothing exceeds the best score of 0.
    Search flat;
    flat.at(50, 60).rough().expect({});
    flat.threshold = -1;
    flat.rough();
    EXPECT_EQ(flat.slots, 1);
    EXPECT_EQ(flat.row_out[1], 7777);
    for (const int count : {0, -1}) {
        Search none;
        none.block(50, 60).rough(count).expect({});
        none.fine(count).expect({});
        EXPECT_EQ(none.work[0], 0);
        EXPECT_EQ(none.scratch[0], -1);
    }
}

TEST(BlockSearchAnswers, ClustersOpenWhenBothDistancesExceedFifteen)
{
    Search().block(50, 60, 4).block(90, 70).rough().expect({{90, 70, 181}});               // 40 rows, but 10 columns
    Search().block(50, 60).block(90, 70, 4).rough().expect({{50, 60, 181}});               // the better one stays
    Search().block(50, 60).block(65, 100).rough().expect({{50, 60, 181}});                 // 15 rows; equal scores: the first
    Search().block(50, 60).block(66, 76, 4).rough().expect({{50, 60, 181}, {66, 76, 90}}); // 16 and 16
    // The anchor is the first candidate of a cluster, not its best one: 50 to 66, not 60 to 66.
    Search().block(50, 60, 4).block(60, 100).block(66, 140).rough().expect({{60, 100, 181}, {66, 140, 181}});
    // There is no way back to an earlier cluster.
    Search().block(50, 60).block(90, 100).at(50, 60).rough().expect({{50, 60, 181}, {90, 100, 181}, {50, 60, 181}});
    // Within 15 rows of the first anchor, -100, no cluster opens, and slot 0 stays as it is.
    Search near;
    near.block(0, 60).row_in[0] = static_cast<unsigned short>(-90);
    near.rough().expect({});
}

TEST(BlockSearchAnswers, RowsAreClampedAndPositionsSigned)
{
    Search above;
    above.block(0, 60).row_in[0] = static_cast<unsigned short>(-20);
    above.rough().expect({{65516, 60, 181}});
    Search below;
    below.block(199, 60).row_in[0] = 500;
    below.half = 1; // three times the last row, of which two count: 6400 * 0.85 / 47
    std::copy_n(below.reference, 32, below.reference + 32);
    std::copy_n(below.reference, 32, below.reference + 64);
    below.rough().expect({{500, 60, 115}});
    for (int i = 0; i < 96; ++i)
        EXPECT_EQ(below.work[i], i % 2 ? 90 : 110) << i;
    Search shorter;
    shorter.rows = 150; // the rest of the memory is no part of the image
    shorter.block(199, 60).rough().expect({});
}

TEST(BlockSearchAnswers, TheLastCandidateIsLeftBehind)
{
    Search s;
    s.block(50, 60).at(50, 61).at(120, 7);
    s.image[120 * Search::stride + 7] = 132; // mean 101
    s.rough();
    EXPECT_EQ(s.work[0], 132);
    EXPECT_EQ(std::count(s.work + 1, s.work + 32, 100), 31);
    EXPECT_EQ(s.scratch[0], 31 * 31 + 7);
    for (const int lane : {1, 2, 3})
        EXPECT_EQ(s.scratch[lane], 8);
    s.row_in = {0, 120 - 5};
    s.column_in = {0, 7 - 5};
    s.column_in[1] = 9; // ends at row 120, column 14
    s.fine();
    EXPECT_EQ(s.scratch[0], 0);
    EXPECT_EQ(std::count(s.work, s.work + 32, 100), 32);
}

TEST(BlockSearchAnswers, PixelsBeyondWholeStepsCountInTheSizeOnly)
{
    // 32 of 48 pixels: the mean is truncated to 66, S2 = 16 * 44^2 + 16 * 24^2 = 40192, C = 16 * 44 * 10 - 16 * 24 * 10 = 3200,
    // sigma = sqrt(837.33), 3200 * 255 / (sigma * 30) / 23 = 40.9
    Search s;
    s.width = 48;
    s.block(50, 60).rough().expect({{50, 60, 40}});
    EXPECT_EQ(s.work[47], 90);
}

// A noisy image in which one block alone is the reference.
TEST(BlockSearchAnswers, FineSearchFindsAndReportsTheOffsetCentre)
{
    Search s;
    unsigned state = 1;
    for (unsigned char& pixel : s.image) {
        state = state * 1664525u + 1013904223u;
        pixel = state >> 31 ? 110 : 90;
    }
    s.half = 2;
    s.deviation = 10.2f; // 255 * N / (N - 1) / 1.02 = 251
    s.threshold = 200;
    s.column_offset = -9;
    for (int r = 0; r < 5; ++r)
        std::copy_n(s.image.data() + (70 + r) * Search::stride + 60, 32, s.reference + r * 32);
    s.row_in = {9, 65, 75, 76}; // entry 0 is not read; 76 is too far away
    s.column_in = {9, 65, 55, 55};
    for (const int from : {1, 2}) {
        std::fill(s.best.begin(), s.best.end(), static_cast<unsigned char>(0));
        std::swap(s.row_in[1], s.row_in[static_cast<std::size_t>(from)]);
        std::swap(s.column_in[1], s.column_in[static_cast<std::size_t>(from)]);
        s.fine();
        EXPECT_EQ(s.slots, 1);
        EXPECT_EQ(s.row_out[1], 70 + 2);
        EXPECT_EQ(s.column_out[1], 60 + 4 - 9);
        EXPECT_NEAR(s.best[1], 251, 2);
    }
    s.row_in[1] = 76;
    s.fine();
    EXPECT_EQ(s.slots, 0);
    // Every row counts: 5 rows of 32 pixels.
    Search whole;
    whole.half = 2;
    whole.block(50, 60);
    whole.row_in = {0, 50};
    whole.column_in = {0, 60};
    whole.deviation = 10.5f;
    whole.threshold = 240;
    whole.fine().expect({{52, 64, 244}}); // 16000 * 255 / 105 / 159
}

} // namespace
