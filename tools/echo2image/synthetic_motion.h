// Two frames of the built-in scanner's speckle with a known motion between them.
#pragma once

#include "recording.h"

#include <cstdint>
#include <vector>

namespace echo2image {

// Tissue that turns about a point and is compressed along depth, which widens it across. Where it was a point lies at p, it
// then lies at center + rotation * stretch * (p - center); there are no other motions, so this is the truth everywhere.
struct MotionField
{
    double center_lateral; // metres
    double center_depth;
    double angle;           // radians, clockwise in a picture with depth downwards
    double axial_stretch;   // below 1: compressed
    double lateral_stretch; // above 1: widened

    // What to add to the place of the first frame.
    void displacement(double lateral, double depth, double& to_right, double& down) const;
};

struct MotionPair
{
    Description description;             // of either frame
    std::vector<std::int16_t> frames[2]; // [line][sample]
    MotionField truth;
};

MotionPair synthesise_motion(std::uint32_t seed);

} // namespace echo2image
