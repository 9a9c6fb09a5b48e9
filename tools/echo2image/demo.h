// The pictures of `echo2image demo`. Each is made of the built-in scanner's echoes and measured against what is known of them.
// A new picture is a function like those below, with an entry in the list of command_demo.cpp.
#pragma once

#include "check.h"
#include "output_file.h"
#include "stage_times.h"

#include <cstdint>
#include <string>
#include <vector>

namespace echo2image {

struct DemoOutcome
{
    std::string summary; // size of the picture and whatever else one line can say
    std::vector<Check> checks;
};

// Writes and finishes the picture; the caller commits it when all pictures are there.
using DemoPicture = DemoOutcome (*)(std::uint32_t seed, OutputFile& file, StageTimes& times);

DemoOutcome make_bmode_picture(std::uint32_t seed, OutputFile& file, StageTimes& times);
DemoOutcome make_harmonic_picture(std::uint32_t seed, OutputFile& file, StageTimes& times);
DemoOutcome make_colour_picture(std::uint32_t seed, OutputFile& file, StageTimes& times);
DemoOutcome make_motion_demo(std::uint32_t seed, OutputFile& file, StageTimes& times);

// The pairs of firings behind the harmonic picture as a recording: raw samples and the description that names them.
// Finishes both files.
void write_pairs(std::uint32_t seed, OutputFile& samples, const std::string& samples_name, OutputFile& description);

} // namespace echo2image
