#include "timing_options.h"

#include "bad_input.h"
#include "option_values.h"

#include <CLI/CLI.hpp>

namespace echo2image {

namespace {

constexpr int usual_repetitions = 10;
constexpr int most_repetitions = 1000000;

} // namespace

void add_timing_options(CLI::App& app, TimingOptions& options)
{
    app.add_flag("--timing", options.timing, "Print what each stage of the chain takes per frame, and frames per second");
    app.add_option("--repeat", options.repeat, "With --timing: make every frame so many times (default: 10)")->type_name("N");
}

int repetitions(const TimingOptions& options)
{
    if (!options.timing && !options.repeat.empty())
        throw BadInput("--repeat: expected together with --timing, found alone");
    if (!options.repeat.empty())
        return static_cast<int>(whole_number("--repeat", options.repeat, 1, most_repetitions));
    return options.timing ? usual_repetitions : 1;
}

} // namespace echo2image
