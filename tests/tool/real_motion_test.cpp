// Block matching on recordings. The figures come from an exhaustive search in double precision, and for the disk from its
// rotation.
#include "motion_recording.h"
#include "real_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

using namespace echo2image;

namespace {

struct Cine
{
    Recording recording;

    explicit Cine(const char* name) : recording(Recording::open(real_data::example(name), real_data::folder())) {}

    // The block at this place tracked alone, in a window that holds all that the search can see.
    BlockMotion match(std::int64_t second_frame, int row, int column, double threshold) const
    {
        MotionOptions options;
        options.threshold = threshold;
        options.grid = 1024;
        constexpr int margin = 17;
        GreyImage windows[2];
        const std::int64_t frames[] = {0, second_frame};
        for (int k = 0; k < 2; ++k) {
            const std::vector<std::uint8_t> frame = recording.read_frame_u8(frames[k]);
            windows[k].width = options.block_columns + 2 * margin;
            windows[k].height = options.block_rows + 2 * margin;
            for (int r = row - margin; r < row - margin + windows[k].height; ++r) {
                const auto begin = frame.begin() + r * recording.description().lines + column - margin;
                windows[k].pixels.insert(windows[k].pixels.end(), begin, begin + windows[k].width);
            }
        }
        const std::vector<BlockMotion> blocks = track(windows[0], windows[1], options);
        EXPECT_EQ(blocks.size(), 1u);
        return blocks.front();
    }
};

struct Known
{
    std::int64_t frame;
    int row;
    int column;
    double correlation;
    int down;
    int right;
};

TEST(RealMotion, IsWhatAnExhaustiveSearchFinds)
{
    SKIP_WITHOUT_REAL_DATA();
    const Cine disk("disk_bmode");
    const Cine bone("bone");
    const std::pair<const Cine*, std::vector<Known>> recordings[] = {{&disk,
                                                                      {{4, 109, 20, 0.736, -2, 0},
                                                                       {4, 109, 60, 0.636, -1, 0},
                                                                       {4, 109, 101, 0.580, 0, 0},
                                                                       {4, 109, 145, 0.550, 1, 0},
                                                                       {4, 109, 180, 0.731, 2, 0},
                                                                       {4, 50, 101, 0.527, 0, 2},
                                                                       {4, 165, 101, 0.589, 0, -1},
                                                                       {8, 109, 20, 0.645, -4, 1},
                                                                       {8, 109, 60, 0.485, -2, 0},
                                                                       {8, 109, 101, 0.423, 0, 0},
                                                                       {8, 109, 145, 0.453, 3, 0},
                                                                       {8, 109, 180, 0.600, 4, 0},
                                                                       {8, 50, 101, 0.447, 0, 4},
                                                                       {8, 165, 101, 0.388, -1, -3}}},
                                                                     {&bone,
                                                                      {{1, 40, 200, 0.963, 0, 0},
                                                                       {1, 120, 60, 0.970, 0, 0},
                                                                       {1, 150, 260, 0.931, 1, -2},
                                                                       {1, 180, 360, 0.914, 0, -2},
                                                                       {1, 260, 100, 0.988, 0, 1},
                                                                       {3, 40, 200, 0.900, 0, 0},
                                                                       {3, 120, 60, 0.808, -1, 1},
                                                                       {3, 150, 260, 0.883, 1, 1},
                                                                       {3, 180, 360, 0.840, -1, -1},
                                                                       {3, 260, 100, 0.985, 1, 0}}}};
    for (const auto& [cine, blocks] : recordings)
        for (const Known& known : blocks) {
            SCOPED_TRACE(testing::Message() << cine->recording.description().title << ", frame " << known.frame << ", block "
                                            << known.row << ", " << known.column);
            const BlockMotion found = cine->match(known.frame, known.row, known.column, 0.3);
            ASSERT_TRUE(found.tracked());
            // Scores have steps of 1/255, downwards: smooth peaks have a flat top.
            EXPECT_NEAR(found.down, known.down, 1);
            EXPECT_NEAR(found.right, known.right, 1);
            EXPECT_GT(found.correlation, known.correlation - 0.0075);
            EXPECT_LT(found.correlation, known.correlation + 0.0025);
        }
}

TEST(RealMotion, OfTheDiskIsARotation)
{
    SKIP_WITHOUT_REAL_DATA();
    const Recording recording = Recording::open(real_data::example("disk_bmode"), real_data::folder());
    struct Expected
    {
        std::int64_t frame;
        double tracked; // share of the blocks in the disk
        double right;   // of these within 2 pixels of the rotation
    };
    for (const Expected& expected : {Expected{4, 0.97, 1}, {8, 0.7, 1}}) {
        SCOPED_TRACE(expected.frame);
        MotionRecipe motion;
        motion.second_frame = expected.frame;
        const MotionPicture picture = motion_picture_of(recording, {}, 0, motion);
        EXPECT_NEAR(picture.pixel_size, 0.1e-3, 1e-12);
        // 6.0 mrad per firing, clockwise, about (-0.77 mm, 22.5 mm); the picture begins at (-12.5 mm, 10 mm).
        const double angle = 6.0e-3 * static_cast<double>(expected.frame);
        double blocks = 0;
        double tracked = 0;
        double right = 0;
        for (const BlockMotion& block : picture.blocks) {
            const double x = (block.column + 15.5) - (-0.77 + 12.5) * 10;
            const double z = (block.row + 16.0) - (22.5 - 10) * 10;
            if (std::hypot(x, z) > 80)
                continue;
            ++blocks;
            tracked += block.tracked() ? 1 : 0;
            const double to_right = x * (std::cos(angle) - 1) - z * std::sin(angle);
            const double down = x * std::sin(angle) + z * (std::cos(angle) - 1);
            if (block.tracked() && std::hypot(block.right - to_right, block.down - down) <= 2)
                ++right;
        }
        EXPECT_GT(blocks, 60);
        EXPECT_GE(tracked, expected.tracked * blocks) << blocks;
        EXPECT_GE(right, expected.right * tracked) << tracked;
    }
}

} // namespace
