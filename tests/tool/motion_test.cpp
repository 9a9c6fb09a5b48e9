// Block matching on pictures made for it, and on the built-in scanner's speckle with its known motion.
#include "arrows.h"
#include "bad_input.h"
#include "demo_checks.h"
#include "motion.h"
#include "motion_picture.h"
#include "synthetic_motion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <string>

using namespace echo2image;

namespace {

using Outcome = BlockMotion::Outcome;

GreyImage picture(int width, int height, const std::function<int(int column, int row)>& grey)
{
    GreyImage image;
    image.width = width;
    image.height = height;
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column)
            image.pixels.push_back(static_cast<std::uint8_t>(grey(column, row)));
    return image;
}

// Blobs of 3 x 3 pixels of random grey: no two places are alike.
int texture(int column, int row)
{
    auto bits = static_cast<std::uint32_t>((column + 300) / 3 * 4096 + (row + 300) / 3);
    for (const std::uint32_t factor : {0x7feb352du, 0x846ca68bu})
        bits = (bits ^ bits >> 15) * factor;
    return static_cast<int>(bits >> 24);
}

// Every picture row of even number; the others are of one grey, so that the rough search sees all of the contrast or none.
int interlaced(int column, int row)
{
    return row % 2 == 0 ? texture(column, row) : 128;
}

TEST(Motion, IsFoundToThePixel)
{
    struct Case
    {
        MotionOptions options;
        int right;
        int down;
        int (*grey)(int, int);
    };
    MotionOptions small;
    small.block_rows = 5;
    small.grid = 7;
    MotionOptions wide;
    wide.block_columns = 96;
    wide.block_rows = 63;
    wide.search_columns = 40;
    wide.search_rows = 25;
    wide.grid = 20;
    MotionOptions still;
    still.search_columns = still.search_rows = 0;
    const Case cases[] = {{{}, 0, 0, texture},    {{}, 12, -12, texture},  {{}, -12, 7, texture},
                          {small, 1, 2, texture}, {wide, 40, 25, texture}, {wide, -38, -25, texture},
                          {still, 0, 0, texture}, {{}, 4, 6, interlaced},  {{}, -3, -8, interlaced}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.right << ", " << c.down << ", block of " << c.options.block_columns << " x "
                                        << c.options.block_rows);
        const GreyImage first = picture(230, 210, c.grey);
        const GreyImage second = picture(230, 210, [&](int x, int y) { return c.grey(x - c.right, y - c.down); });
        int inside = 0;
        for (const BlockMotion& block : track(first, second, c.options)) {
            const int column = block.column + c.right;
            const int row = block.row + c.down;
            if (column < 0 || row < 0 || column + c.options.block_columns > 230 || row + c.options.block_rows > 210)
                continue; // it has left the picture
            // Of interlaced pictures only blocks that begin with a row of contrast can be found: the rough search must see it.
            if (c.grey == interlaced && block.row % 2 != 0)
                continue;
            ++inside;
            ASSERT_TRUE(block.tracked()) << block.column << ", " << block.row;
            ASSERT_EQ(block.right, c.right) << block.column << ", " << block.row;
            ASSERT_EQ(block.down, c.down) << block.column << ", " << block.row;
            ASSERT_GE(block.correlation, 254.0 / 255);
            ASSERT_LE(block.correlation, 1);
        }
        EXPECT_GT(inside, 9);
    }
}

TEST(Motion, LeavesThePictureByAFewPixels)
{
    MotionOptions options;
    options.grid = 14; // 126 columns: blocks at both edges
    const GreyImage first = picture(32 + 7 * 14, 33 + 7 * 14, texture);
    const GreyImage second = picture(first.width, first.height, [](int x, int y) { return texture(x + 4, y - 3); });
    const std::vector<BlockMotion> blocks = track(first, second, options);
    ASSERT_EQ(blocks.size(), 64u);
    EXPECT_EQ(blocks.front().column, 0);
    EXPECT_EQ(blocks.back().row, 7 * 14);
    for (const BlockMotion& block : blocks) {
        EXPECT_EQ(block.right, -4) << block.column << ", " << block.row;
        EXPECT_EQ(block.down, 3) << block.column << ", " << block.row;
    }
}

TEST(Motion, IsNotInvented)
{
    const GreyImage first = picture(100, 100, texture);
    const auto expect_all = [&](const GreyImage& from, const GreyImage& to, const MotionOptions& options, Outcome outcome) {
        const std::vector<BlockMotion> blocks = track(from, to, options);
        EXPECT_GT(blocks.size(), 9u);
        for (const BlockMotion& block : blocks) {
            EXPECT_EQ(to_string(block.outcome), std::string(to_string(outcome))) << block.column << ", " << block.row;
            EXPECT_TRUE(block.right == 0 && block.down == 0 && block.correlation == 0);
        }
    };
    const GreyImage flat = picture(100, 100, [](int, int) { return 77; });
    const GreyImage dimmer = picture(100, 100, [](int x, int y) { return 77 + texture(x, y) / 64; });
    const GreyImage other = picture(100, 100, [](int x, int y) { return texture(y + 200, x); });
    const GreyImage negative = picture(100, 100, [](int x, int y) { return 255 - texture(x, y); });
    expect_all(flat, first, {}, Outcome::flat);
    expect_all(dimmer, first, {}, Outcome::flat);
    expect_all(first, flat, {}, Outcome::poor);
    expect_all(first, other, {}, Outcome::poor);
    expect_all(first, negative, {}, Outcome::poor);

    // What is seen dimly is what it was before.
    MotionOptions still;
    still.search_columns = still.search_rows = 3;
    for (const BlockMotion& block : track(first, dimmer, still))
        EXPECT_TRUE(block.tracked() && block.right == 0 && block.down == 0) << block.column << ", " << block.row;

    // The fine search sees 5 pixels more than the range: there is more to be found further away.
    MotionOptions near;
    near.search_columns = near.search_rows = 4;
    const GreyImage moved = picture(100, 100, [](int x, int y) { return texture(x, y - 6); });
    for (const BlockMotion& block : track(first, moved, near)) {
        if (block.row + 6 + near.block_rows > 100)
            continue;
        EXPECT_NE(to_string(block.outcome), std::string("tracked")) << block.right << ", " << block.down;
    }
    near.search_rows = 6;
    const std::vector<BlockMotion> blocks = track(first, moved, near);
    EXPECT_GT(std::count_if(blocks.begin(), blocks.end(), [](const BlockMotion& b) { return b.tracked() && b.down == 6; }), 9);
}

TEST(Motion, RefusesWhatTheSearchesCannotDo)
{
    const auto expect_refusal = [](const std::function<void(MotionOptions&)>& change, const std::string& named) {
        MotionOptions options;
        change(options);
        try {
            check_motion_options(options, 200, 100);
            ADD_FAILURE() << "accepted: " << named;
        } catch (const BadInput& error) {
            EXPECT_EQ(std::string(error.what()).rfind(named + ": expected ", 0), 0u) << error.what();
        }
    };
    for (const int columns : {0, 16, 48, 224, 288})
        expect_refusal([&](MotionOptions& o) { o.block_columns = columns; }, "--block");
    for (const int rows : {-3, 1, 32, 101, 257})
        expect_refusal([&](MotionOptions& o) { o.block_rows = rows; }, "--block");
    expect_refusal([](MotionOptions& o) { o.grid = 0; }, "--grid");
    expect_refusal([](MotionOptions& o) { o.search_columns = -1; }, "--search");
    expect_refusal([](MotionOptions& o) { o.search_rows = 129; }, "--search");
    for (const double threshold : {-0.1, 1.0, std::nan("")})
        expect_refusal([&](MotionOptions& o) { o.threshold = threshold; }, "--threshold");
    MotionOptions largest;
    largest.block_columns = 192;
    largest.block_rows = 99;
    EXPECT_NO_THROW(check_motion_options(largest, 200, 100));
}

TEST(Motion, MakesATable)
{
    MotionOptions options;
    options.block_columns = 64;
    BlockMotion tracked = {10, 20, Outcome::tracked, -3, 2, 0.5};
    const BlockMotion poor = {26, 20, Outcome::poor};
    const std::string head = "column,row,right_px,down_px,right_mm,down_mm,correlation,outcome\n";
    EXPECT_EQ(csv_of({tracked, poor}, options, 0.2e-3), head + "41.5,36.0,-3,2,-0.6000,0.4000,0.500,tracked\n"
                                                               "57.5,36.0,,,,,,poor\n");
    EXPECT_EQ(csv_of({tracked}, options, 0), head + "41.5,36.0,-3,2,,,0.500,tracked\n");
    EXPECT_EQ(quantile({5, 1, 4, 2, 3}, 0.5), 3);
    EXPECT_EQ(quantile({5, 1, 4, 2, 3}, 1), 5);
    EXPECT_EQ(quantile({5, 1, 4, 2, 3}, 0), 1);
}

TEST(Motion, IsDrawnFromWhereItWasToWhereItWent)
{
    const MotionOptions options;
    const std::vector<BlockMotion> blocks = {{8, 12, Outcome::tracked, 10, 0, 0.9}, {24, 12, Outcome::poor}};
    EXPECT_EQ(arrow_magnification(blocks, options), 1);
    EXPECT_EQ(arrow_magnification({{0, 0, Outcome::tracked, 3, 4, 0.9}}, options), 2);
    EXPECT_EQ(arrow_magnification({{0, 0, Outcome::tracked, 0, 0, 0.9}}, options), 1);

    constexpr int zoom = 2;
    constexpr int magnification = 3;
    GreyImage image = picture(200, 120, [](int, int) { return 50; });
    draw_arrows(image, zoom, magnification, blocks, options);
    const auto marked = [](const GreyImage& in, int row) {
        const auto begin = in.marks.begin() + std::ptrdiff_t{row} * in.width;
        const auto end = begin + in.width;
        const auto first = std::find(begin, end, 255);
        const auto last = std::find(std::make_reverse_iterator(end), std::make_reverse_iterator(begin), 255);
        return std::pair{first - begin, last.base() - begin - 1};
    };
    // The middle of the block lies at (24, 28.5): pixel (47.5, 56.5) of the larger picture, rounded up.
    EXPECT_EQ(marked(image, 57), (std::pair<std::ptrdiff_t, std::ptrdiff_t>{48, 48 + 10 * zoom * magnification}));
    const auto at = [&](int column, int row) { return image.pixels[static_cast<std::size_t>(row * image.width + column)]; };
    EXPECT_EQ(at(60, 57), 255);
    EXPECT_EQ(at(60, 58), 0); // seam
    EXPECT_EQ(at(60, 59), 50);
    EXPECT_EQ(std::count(image.marks.begin() + 65 * 200, image.marks.end(), 255), 0);

    // The key: 0.2 mm are the first of 0.1, 0.2, 0.5, 1 .. that make an arrow of 24 pixels.
    const GreyImage keyed = with_arrow_key(image, zoom, magnification, 0.05e-3);
    EXPECT_EQ(keyed.width, 200);
    ASSERT_GT(keyed.height, 120);
    EXPECT_TRUE(std::equal(image.pixels.begin(), image.pixels.end(), keyed.pixels.begin()));
    EXPECT_EQ(marked(keyed, (keyed.height + 120) / 2), (std::pair<std::ptrdiff_t, std::ptrdiff_t>{16, 16 + 24}));
    // Without a known size, 5 pixels make 30.
    const GreyImage in_pixels = with_arrow_key(image, zoom, magnification, 0);
    EXPECT_EQ(marked(in_pixels, (keyed.height + 120) / 2), (std::pair<std::ptrdiff_t, std::ptrdiff_t>{16, 16 + 30}));
}

TEST(SyntheticMotion, IsWhatItsTruthSays)
{
    MotionField field = {1e-3, 20e-3, 0, 0.9, 1.1};
    double right = 0;
    double down = 0;
    field.displacement(3e-3, 30e-3, right, down);
    EXPECT_NEAR(right, 0.2e-3, 1e-15);
    EXPECT_NEAR(down, -1e-3, 1e-15);
    field = {1e-3, 20e-3, 0.5 * 3.14159265358979323846, 1, 1};
    field.displacement(3e-3, 20e-3, right, down); // a quarter turn clockwise: from the right of the center to below it
    EXPECT_NEAR(right, -2e-3, 1e-15);
    EXPECT_NEAR(down, 2e-3, 1e-15);

    // The same samples on every machine: FNV-1a of the second frame.
    std::uint64_t digest = 0xcbf29ce484222325;
    for (const std::int16_t sample : synthesise_motion(1).frames[1])
        digest = (digest ^ static_cast<std::uint16_t>(sample)) * 0x100000001b3;
    EXPECT_EQ(digest, 0x3629eb9f056dca97u);

    for (const std::uint32_t seed : {1u, 5u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        MotionPair pair = synthesise_motion(seed);
        const MotionOptions options;
        const MotionPicture found =
            make_motion_picture(pair.description, {}, options, {pair.frames[0], {}}, {pair.frames[1], {}});
        EXPECT_TRUE(all_ok(check_motion(found, options, pair))) << table_of(check_motion(found, options, pair));

        // The check notices another motion, and a picture that is off by some pixels.
        MotionPair other = pair;
        other.truth.axial_stretch = 1;
        EXPECT_FALSE(all_ok(check_motion(found, options, other)));
        other = pair;
        other.truth.angle = -pair.truth.angle;
        EXPECT_FALSE(all_ok(check_motion(found, options, other)));
        MotionPicture off = found;
        for (BlockMotion& block : off.blocks)
            block.right += 1;
        EXPECT_FALSE(all_ok(check_motion(off, options, pair)));
        off = found;
        for (std::size_t i = 0; i < off.blocks.size(); i += 10)
            off.blocks[i].outcome = Outcome::poor;
        EXPECT_FALSE(all_ok(check_motion(off, options, pair)));
    }
}

} // namespace
