// The built-in scanner's colour mode: a sloping vessel with a parabolic flow profile in tissue that its walls push about, as
// I/Q ensembles of any length. Every pixel's velocity is known. A seed gives the same samples on every machine, and a longer
// ensemble begins with the shorter one.
#pragma once

#include "flow.h"
#include "recording.h"

#include <cstdint>
#include <vector>

namespace echo2image {

struct Vessel
{
    double depth = 17e-3;        // metres: its axis in the middle of the probe
    double slope = 0.5235987756; // radians that it descends by to the right
    double radius = 3.5e-3;      // metres
    double peak_speed = 0.45;    // m/s along the axis, in the middle; positive to the upper left
    double wall_speed = 5e-3;    // m/s that the walls move outwards
};

struct FlowScene
{
    Vessel vessel;
    double noise = 6;         // standard deviation of I and of Q in steps of the converter
    double tissue_level = 46; // dB of tissue over blood
};

struct SyntheticFlow
{
    Description description; // as if read from a file; axes [line, sample, firing, component]
    EnsembleFrame frame;
    FlowScene scene;
    // [line][sample]:
    std::vector<float> velocity; // m/s along the line, positive towards the probe
    std::vector<float> radius;   // distance from the vessel's axis in units of its radius, negative above the axis
};

SyntheticFlow synthesise_flow(std::uint32_t seed, int firings, const FlowScene& scene = {});

} // namespace echo2image
