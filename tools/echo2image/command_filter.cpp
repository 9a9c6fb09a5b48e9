#include "bad_input.h"
#include "bmode_options.h"
#include "commands.h"
#include "filter_options.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace echo2image {

Command add_filter_command(CLI::App& program)
{
    auto options = std::make_shared<BmodeOptions>();
    options->command = "filter";
    CLI::App* app = program.add_subcommand("filter", "Filter the grey frames of a cine, along time and in space");
    add_input_and_output(*app, *options);
    add_filter_options(*app);
    app->add_option("--width", options->width, "Width in pixels (default: the recording's, or fits its lines)")
        ->type_name("PIXELS");
    app->add_flag("--scale", options->scale, "Add a scale in millimetres at the left and the bottom edge");
    add_timing_options(*app, options->timing);
    app->footer("A filter sees a frame and those before it. A filter may be given more than once.");
    return {app, [options, app] {
                options->filters = chosen_filters(*app, options->recording);
                if (options->filters.empty())
                    throw BadInput("filter: expected at least one filter, such as --median3, found none");
                return make_pictures(*options);
            }};
}

} // namespace echo2image
