#include "colour_options.h"

#include "bad_input.h"
#include "option_values.h"
#include "portable_math.h"
#include "units.h"

#include <CLI/CLI.hpp>

#include <string>
#include <type_traits>

namespace echo2image {

namespace {

constexpr const char* priority_help = R"(Who has a pixel, colour or grey:

  spread                                    grey
    1 |         :                           255 |         :
      |  grey   :  grey                         |  grey   :  colour
      |.........:........ --spread-threshold    |.........:........ --tissue-grey
      |  grey   :  colour                       |  colour :  colour
    0 +---------:--------> power              0 +---------:--------> speed
          --power-threshold                         --tissue-speed

A pixel is coloured where both say so.

Towards the probe is positive: red to yellow with the usual map; away from it is blue to cyan.)";

// "3x5": lines by samples.
void set_average(const std::string& text, FlowOptions& flow)
{
    const std::size_t cross = text.find('x');
    if (cross == std::string::npos)
        throw BadInput("--average: expected LINESxSAMPLES, both odd, such as 3x5, found \"" + text + "\"");
    flow.average_lines = static_cast<int>(whole_number("--average", text.substr(0, cross), 1, most_averaged));
    flow.average_samples = static_cast<int>(whole_number("--average", text.substr(cross + 1), 1, most_averaged));
}

ColourParameters but_tissue_speed(const ColourOptions& options)
{
    ColourParameters wanted;
    const auto set = [](auto& value, const char* name, const std::string& text, Quantity quantity, double least,
                        double greatest) {
        if (!text.empty())
            value = static_cast<std::remove_reference_t<decltype(value)>>(quantity_of(name, text, quantity, least, greatest));
    };
    wanted.flow.filter = clutter_filter_of(options.filter);
    wanted.flow.mix = options.mix;
    set_average(options.average, wanted.flow);
    if (!options.firings.empty())
        wanted.firings = static_cast<int>(whole_number("--firings", options.firings, fewest_firings, most_firings));
    wanted.unit = speed_unit_of(options.unit);
    wanted.map = velocity_map_of(options.map);
    set(wanted.center_frequency, "--center-frequency", options.center_frequency, Quantity::frequency, 1e4, 1e9);
    set(wanted.pulse_repetition_frequency, "--pulse-repetition-frequency", options.repetition_frequency, Quantity::frequency, 1,
        1e6);
    set(wanted.sound_speed, "--sound-speed", options.sound_speed, Quantity::speed, 100, 20000);
    set(wanted.baseline, "--baseline", options.baseline, Quantity::number, -1, 1);
    set(wanted.least_power, "--power-threshold", options.power_threshold, Quantity::level, 0, 300);
    set(wanted.greatest_spread, "--spread-threshold", options.spread_threshold, Quantity::number, 0.01, 1);
    if (!options.tissue_grey.empty())
        wanted.tissue_grey = static_cast<int>(whole_number("--tissue-grey", options.tissue_grey, 0, 255));
    set(wanted.dynamic_range, "--dynamic-range", options.dynamic_range, Quantity::level, least_dynamic_range,
        greatest_dynamic_range);
    set(wanted.reference, "--reference", options.reference, Quantity::number, 1e-6, 1e9);
    if (!options.width.empty())
        wanted.width = static_cast<int>(whole_number("--width", options.width, 1, 1 << 30));
    wanted.scale = options.scale;
    return wanted;
}

void add_flow_options(CLI::App& app, ColourOptions& options)
{
    const char* flow = "Flow";
    app.add_option("--firings", options.firings, "Use the first N firings (default: all)")->type_name("N")->group(flow);
    app.add_option("--filter", options.filter,
                   "Clutter filter: none, mean, poly:ORDER, iir:CUTOFF in cycles per firing, dct:COUNT (default: poly:1)")
        ->type_name("NAME")
        ->group(flow);
    app.add_flag("--mix", options.mix, "Bring the clutter around each pixel to rest before the filter")->group(flow);
    app.add_flag("--show-filter", options.show_filter, "Print the filter's matrix and frequency response")->group(flow);
    app.add_option("--average", options.average, "Average over so many lines and samples, both odd (default: 3x5)")
        ->type_name("LxS")
        ->group(flow);
    app.add_option("--center-frequency", options.center_frequency, "Of the echoes (default: the recording's)")
        ->type_name("FREQUENCY")
        ->group(flow);
    app.add_option("--pulse-repetition-frequency", options.repetition_frequency,
                   "From firing to firing (default: the recording's)")
        ->type_name("FREQUENCY")
        ->group(flow);
    app.add_option("--sound-speed", options.sound_speed, "In place of the recording's, such as \"1540 m/s\"; moves depths")
        ->type_name("SPEED")
        ->group(flow);
}

void add_colour_options(CLI::App& app, ColourOptions& options)
{
    const char* colours = "Colours";
    app.add_option("--map", options.map, names_of_velocity_maps() + " (default: red-yellow)")
        ->type_name("NAME")
        ->group(colours);
    app.add_option("--unit", options.unit, "Of the bar: cm/s, m/s or rad, which is per firing (default: cm/s)")
        ->type_name("UNIT")
        ->group(colours);
    app.add_option("--baseline", options.baseline, "Middle of the range shown, -1 to 1 Nyquist velocities (default: 0)")
        ->type_name("SHIFT")
        ->group(colours);
    app.add_option("--power-threshold", options.power_threshold,
                   "Least power after the filter (default: 18 dB below the strongest flow)")
        ->type_name("LEVEL")
        ->group(colours);
    app.add_option("--spread-threshold", options.spread_threshold, "Greatest spread (default: 0.5)")
        ->type_name("SPREAD")
        ->group(colours);
    app.add_option("--tissue-speed", options.tissue_speed, "Tissue is slower (default: 0.08 Nyquist velocities) ..")
        ->type_name("SPEED")
        ->group(colours);
    app.add_option("--tissue-grey", options.tissue_grey, ".. and at least as bright, 0 to 255 (default: 96)")
        ->type_name("GREY")
        ->group(colours);
}

} // namespace

void add_options(CLI::App& app, ColourOptions& options)
{
    app.add_option("RECORDING", options.recording, "Description (.yml), NumPy file (.npy) or MetaImage (.mha, .mhd)")
        ->required();
    app.add_option("-o,--output", options.output, "The velocity over the grey picture")->type_name("PICTURE.png");
    app.add_option("--power", options.power, "The power over the grey picture")->type_name("PICTURE.png");
    app.add_option("--spread", options.spread, "The spread over the grey picture")->type_name("PICTURE.png");
    app.add_option("--npy", options.npy,
                   "The maps, float32 [line][sample]: MAPS-velocity.npy in m/s, -phase in radians per firing, -power in dB, "
                   "-spread")
        ->type_name("MAPS.npy");
    app.add_option("--data", options.data, "Folder with the samples that a description names")->type_name("FOLDER");
    app.add_option("--frame", options.frame, "Frame to show, counted from 0 (default: 0)")->type_name("K");
    add_flow_options(app, options);
    add_colour_options(app, options);
    const char* grey = "Grey picture";
    app.add_option("--dynamic-range", options.dynamic_range, "From white down to black, 1 to 90 dB (default: 60 dB)")
        ->type_name("LEVEL")
        ->group(grey);
    app.add_option("--reference", options.reference, "Magnitude that is white (default: the largest)")
        ->type_name("VALUE")
        ->group(grey);
    app.add_option("--width", options.width, "Width in pixels, without margins (default: fits the lines, 512 to 1024)")
        ->type_name("PIXELS")
        ->group(grey);
    app.add_flag("--scale", options.scale, "Add a scale in millimetres at the left and the bottom edge")->group(grey);
    add_timing_options(app, options.timing);
    app.footer(priority_help);
}

// The tissue's speed becomes a phase, for which the Nyquist velocity must be known.
ColourParameters wanted_by(const ColourOptions& options, const Description& description)
{
    ColourParameters wanted = but_tissue_speed(options);
    if (options.tissue_speed.empty())
        return wanted;
    if (wanted.unit == SpeedUnit::radians) {
        wanted.tissue_phase = quantity_of("--tissue-speed", options.tissue_speed, Quantity::angle, 0, portable::pi);
        return wanted;
    }
    const double nyquist = ColourChain(description, wanted).nyquist_speed();
    wanted.tissue_phase =
        quantity_of("--tissue-speed", options.tissue_speed, Quantity::speed, 0, nyquist) / nyquist * portable::pi;
    return wanted;
}

std::int64_t chosen_frame(const ColourOptions& options, const Description& description)
{
    return options.frame.empty() ? 0 : whole_number("--frame", options.frame, 0, description.frames - 1);
}

} // namespace echo2image
