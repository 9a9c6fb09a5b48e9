// What the command line of bmode says, and what it asks of a recording.
#pragma once

#include "chain.h"
#include "timing_options.h"

#include <cstdint>
#include <string>

namespace CLI {
class App;
}

namespace echo2image {

// As typed; empty when not given.
struct BmodeOptions
{
    std::string command = "bmode"; // or "filter"
    std::string recording;
    std::string data;
    std::string output;
    std::string envelope;
    std::string frame;
    std::string frames;
    std::string dynamic_range;
    std::string reference;
    std::string taps;
    std::string decimation;
    std::string bandwidth;
    std::string center_frequency;
    std::string width;
    bool general = false;
    bool compare = false;
    std::string interpolate;
    std::string harmonic;
    std::string ramp;
    std::string percent;
    std::string upsample;
    std::string sound_speed;
    bool smooth = false;
    std::vector<FilterStep> filters;
    bool scale = false;
    TimingOptions timing;
};

struct FrameRange
{
    std::int64_t first;
    std::int64_t end;
};

// Both: the options must outlive parsing.
void add_input_and_output(CLI::App& app, BmodeOptions& options);
void add_options(CLI::App& app, BmodeOptions& options);

// Both throw BadInput.
ChainParameters wanted_by(const BmodeOptions& options, const Description& description);
FrameRange chosen_frames(const BmodeOptions& options, const Description& description);

// What bmode and filter do; returns the exit code. Throws BadInput.
int make_pictures(const BmodeOptions& options);

} // namespace echo2image
