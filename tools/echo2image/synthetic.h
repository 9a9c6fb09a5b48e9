// The built-in scanner: a seeded phantom of point scatterers with wires and cysts, and the RF lines that a linear array
// would record from it. Its truth is known, so pictures of it can be checked.
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

struct SyntheticFrame
{
    Description description;      // as if read from a file; source names the seed
    std::vector<std::int16_t> rf; // [line][sample]
    Phantom truth;
};

SyntheticFrame synthesise(std::uint32_t seed);

} // namespace echo2image
