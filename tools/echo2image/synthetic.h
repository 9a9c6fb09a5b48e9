// The built-in scanner: a seeded phantom of point scatterers with wires and cysts, and the RF lines that a linear array
// would record from it. Its truth is known, so pictures of it can be checked. A seed gives the same samples on every
// machine.
#pragma once

#include "recording.h"

#include <cstdint>
#include <vector>

namespace echo2image {

struct Wire
{
    double lateral; // metres
    double depth;   // metres
};

struct Cyst
{
    double lateral;
    double depth;
    double radius;
    double contrast_db; // scatterer power inside against outside; minus infinity for a fluid cyst
};

struct Phantom
{
    std::vector<Wire> wires;
    std::vector<Cyst> cysts;
    double speckle_top; // metres: a stretch of depth with nothing but fully developed speckle
    double speckle_bottom;
};

// Width at half height of the correlation of speckle intensity, in metres, in the middle of the speckle stretch. It
// follows from beam and pulse alone.
struct SpeckleSize
{
    double lateral;
    double axial;
};

struct SyntheticFrame
{
    Description description;      // as if read from a file; source names the seed
    std::vector<std::int16_t> rf; // [line][sample]
    Phantom truth;
    SpeckleSize speckle_size;
};

SyntheticFrame synthesise(std::uint32_t seed);

// Two firings of every line with opposite polarity.
struct PulseInversionFrame
{
    SyntheticFrame frame;        // rf is [line][firing][sample]; the speckle size is that of the second harmonic
    double fundamental_left = 0; // by the sum of both firings, relative to the first alone
    double harmonic_gain = 0;    // second harmonic of the sum, likewise
    double sheet_depth = 0;      // metres; the sheet across all lines, whose echo both firings clip
    double clipped_reach = 0;    // metres before and behind the sheet
};

// The same phantom under a sheet right below the probe. Tissue answers with the square of the pulse as well, more and more
// so on the way to the focus. The second firing is a little weaker than the first.
PulseInversionFrame synthesise_pairs(std::uint32_t seed);

} // namespace echo2image
