// Holds what the colour chain made of the built-in vessel against its truth.
#pragma once

#include "check.h"
#include "colour_chain.h"
#include "synthetic_flow.h"

#include <string>
#include <vector>

namespace echo2image {

// Velocity at one distance from the vessel's axis, all along it.
struct ProfilePoint
{
    double radius = 0;   // in units of the vessel's, negative above the axis
    double truth = 0;    // cm/s along the line, towards the probe
    double measured = 0; // cm/s
};

std::vector<ProfilePoint> profile_of(const ColourChain& chain, const FlowMaps& maps, const SyntheticFlow& flow);
std::string table_of(const std::vector<ProfilePoint>& profile);

// The profile point by point, the single pixels' error, and which of the picture's pixels are coloured. `picture` is the
// velocity picture; its left margin may hold a scale.
std::vector<Check> check_flow(const ColourChain& chain, const FlowMaps& maps, const ColourImage& picture,
                              const SyntheticFlow& flow);

} // namespace echo2image
