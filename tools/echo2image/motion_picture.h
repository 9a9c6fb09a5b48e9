// From two frames to the picture of `motion`: arrows from where speckle was to where it went, over the first frame.
#pragma once

#include "chain.h"
#include "motion.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace echo2image {

// A frame as its recording holds it.
struct RecordedFrame
{
    std::vector<std::int16_t> echoes; // of RF and I/Q
    std::vector<std::uint8_t> grey;   // of grey values
};

struct MotionPicture
{
    ChainParameters chain; // every choice made, with the reference; the width is that of the pictures tracked
    int tracked_width = 0; // pixels that options and blocks count
    int tracked_height = 0;
    double pixel_size = 0; // metres; 0 when unknown
    std::vector<BlockMotion> blocks;
    int magnification = 1; // of the arrows
    GreyImage image;       // arrows are marked white pixels
};

// Both frames become grey pictures with one reference, chosen from both unless `wanted` names it, and without a scale; these
// are tracked. Small pictures are shown larger. Throws BadInput.
MotionPicture make_motion_picture(const Description& description, const ChainParameters& wanted, const MotionOptions& options,
                                  const RecordedFrame& first, const RecordedFrame& second, StageTimes* times = nullptr,
                                  const std::function<void(int, int)>& between_rows = {});

} // namespace echo2image
