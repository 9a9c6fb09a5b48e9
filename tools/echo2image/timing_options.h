// --timing and --repeat, which all commands that make pictures of a recording have.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace echo2image {

// As typed.
struct TimingOptions
{
    bool timing = false;
    std::string repeat;
};

void add_timing_options(CLI::App& app, TimingOptions& options); // the options must outlive parsing

// How often every frame is made. Throws BadInput.
int repetitions(const TimingOptions& options);

} // namespace echo2image
