// What the command line of colour says, and what it asks of a recording.
#pragma once

#include "colour_chain.h"
#include "timing_options.h"

#include <cstdint>
#include <string>

namespace CLI {
class App;
}

namespace echo2image {

// As typed; empty when not given and nothing stands for it.
struct ColourOptions
{
    std::string recording;
    std::string data;
    std::string output;
    std::string power;
    std::string spread;
    std::string npy;
    std::string frame;
    std::string firings;
    std::string filter = "poly:1";
    std::string average = "3x5";
    std::string center_frequency;
    std::string repetition_frequency;
    std::string sound_speed;
    std::string unit = "cm/s";
    std::string map = "red-yellow";
    std::string baseline;
    std::string power_threshold;
    std::string spread_threshold;
    std::string tissue_speed;
    std::string tissue_grey;
    std::string dynamic_range;
    std::string reference;
    std::string width;
    bool mix = false;
    bool show_filter = false;
    bool scale = false;
    TimingOptions timing;
};

void add_options(CLI::App& app, ColourOptions& options); // the options must outlive parsing

// Both throw BadInput.
ColourParameters wanted_by(const ColourOptions& options, const Description& description);
std::int64_t chosen_frame(const ColourOptions& options, const Description& description);

} // namespace echo2image
