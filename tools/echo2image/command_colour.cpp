// echo2image colour: flow of a recording's I/Q ensembles over its grey picture.
#include "bad_input.h"
#include "colour_recipe.h"
#include "commands.h"
#include "npy_write.h"
#include "portable_math.h"
#include "units.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace echo2image {

namespace fs = std::filesystem;

namespace {

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
    bool timing = false;
};

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

std::int64_t whole_number(const char* name, const std::string& text, std::int64_t least, std::int64_t greatest)
{
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < least || value > greatest)
        throw BadInput(std::string(name) + ": expected a whole number from " + std::to_string(least) + " to " +
                       std::to_string(greatest) + ", found \"" + text + "\"");
    return value;
}

// "3x5": lines by samples.
void set_average(const std::string& text, FlowOptions& flow)
{
    const std::size_t cross = text.find('x');
    if (cross == std::string::npos)
        throw BadInput("--average: expected LINESxSAMPLES, both odd, such as 3x5, found \"" + text + "\"");
    flow.average_lines = static_cast<int>(whole_number("--average", text.substr(0, cross), 1, most_averaged));
    flow.average_samples = static_cast<int>(whole_number("--average", text.substr(cross + 1), 1, most_averaged));
}

ColourParameters wanted_by(const ColourOptions& options)
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

// Speeds become phases, for which the recording must be known.
ColourChain chain_of(const ColourOptions& options, const Description& description)
{
    ColourParameters wanted = wanted_by(options);
    if (options.tissue_speed.empty())
        return {description, wanted};
    if (wanted.unit == SpeedUnit::radians) {
        wanted.tissue_phase = quantity_of("--tissue-speed", options.tissue_speed, Quantity::angle, 0, portable::pi);
        return {description, wanted};
    }
    const double nyquist = ColourChain(description, wanted).nyquist_speed();
    wanted.tissue_phase =
        quantity_of("--tissue-speed", options.tissue_speed, Quantity::speed, 0, nyquist) / nyquist * portable::pi;
    return {description, wanted};
}

void expect_extension(const char* name, const fs::path& file, const char* extension)
{
    if (file.extension() != extension)
        throw BadInput(std::string(name) + ": expected a file name ending in " + extension + ", found \"" + file.string() +
                       "\"");
}

// The matrix and what it lets through, from rest to the Nyquist velocity.
void print_filter(const ColourChain& chain)
{
    const int firings = chain.parameters().firings;
    const std::vector<double>& matrix = chain.estimator().matrix();
    std::printf("filter %s of %d firings; row: firing after the filter, column: firing before it\n",
                to_string(chain.parameters().flow.filter).c_str(), firings);
    for (std::size_t i = 0; i < matrix.size(); ++i)
        std::printf("%9.5f%s", matrix[i], (i + 1) % static_cast<std::size_t>(firings) == 0 ? "\n" : " ");
    std::printf("\n%14s %14s %14s %14s\n", "rad per firing", "cycles", chain.speed_known() ? "cm/s" : "", "response dB");
    constexpr int steps = 32;
    for (int step = 0; step <= steps; ++step) {
        const double phase = portable::pi * step / steps;
        const double power = power_response(matrix, firings, phase);
        char speed[32] = "";
        if (chain.speed_known())
            std::snprintf(speed, sizeof speed, "%.3f", 100 * chain.nyquist_speed() * step / steps);
        char level[32] = "below -150";
        if (power > 1e-15)
            std::snprintf(level, sizeof level, "%.2f", 10 / portable::log(10.0) * portable::log(power));
        std::printf("%14.4f %14.5f %14s %14s\n", phase, 0.5 * step / steps, speed, level);
    }
}

class ColourRun
{
public:
    ColourRun(const ColourOptions& options, const Recording& recording)
        : options_(options), recording_(recording), chain_(chain_of(options, recording.description())),
          frame_(options.frame.empty() ? 0 : whole_number("--frame", options.frame, 0, recording.description().frames - 1))
    {
        add_picture("-o", options.output, FlowQuantity::velocity);
        add_picture("--power", options.power, FlowQuantity::power);
        add_picture("--spread", options.spread, FlowQuantity::spread);
        if (!options.npy.empty()) {
            expect_extension("--npy", options.npy, ".npy");
            for (const char* map : {"phase", "power", "spread", "velocity"})
                if (map != std::string("velocity") || chain_.speed_known())
                    maps_.push_back({map, map_name(map)});
        }
        for (const Picture& picture : pictures_)
            check(picture.name);
        for (const Map& map : maps_)
            check(map.name);
    }

    void run()
    {
        if (options_.show_filter)
            print_filter(chain_);
        const auto start = std::chrono::steady_clock::now();
        if (!pictures_.empty() || !maps_.empty())
            make();
        seconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

    void report() const
    {
        for (const Picture& picture : pictures_) {
            std::printf("%s: %d x %d pixels", picture.name.string().c_str(), picture.width, picture.height);
            if (picture.pixel_size > 0)
                std::printf(" of %s", with_unit(picture.pixel_size, Quantity::length).c_str());
            const ColourParameters& p = chain_.parameters();
            std::printf(", %d firings, filter %s%s", p.firings, to_string(p.flow.filter).c_str(),
                        p.flow.mix ? " after mixing" : "");
            if (chain_.speed_known())
                std::printf(", Nyquist %.4g cm/s", 100 * chain_.nyquist_speed());
            std::printf(", colour above %.1f dB\n", *p.least_power);
        }
        for (const Map& map : maps_)
            std::printf("%s: %s, float32 [line][sample], %lld x %lld\n", map.name.string().c_str(), meaning(map.what),
                        static_cast<long long>(recording_.description().lines),
                        static_cast<long long>(recording_.description().samples));
        if (options_.timing)
            std::fputs(table_of(times_, seconds_, 1).c_str(), stdout);
    }

private:
    struct Picture
    {
        FlowQuantity quantity;
        fs::path name;
        int width = 0;
        int height = 0;
        double pixel_size = 0;
    };
    struct Map
    {
        std::string what;
        fs::path name;
    };

    static const char* meaning(const std::string& what)
    {
        return what == "phase" ? "radians per firing" : what == "power" ? "dB" : what == "spread" ? "0 to 1" : "m/s";
    }

    void add_picture(const char* option, const std::string& name, FlowQuantity quantity)
    {
        if (name.empty())
            return;
        expect_extension(option, name, ".png");
        pictures_.push_back({quantity, name});
    }

    fs::path map_name(const std::string& map) const
    {
        const fs::path base = options_.npy;
        return base.parent_path() / (base.stem().string() + '-' + map + ".npy");
    }

    // The output can be written, replaces no input, and no other output has its name.
    void check(const fs::path& output)
    {
        check_target(output);
        std::error_code error;
        for (const fs::path& input : {recording_.description().source, recording_.description().data_file})
            if (fs::equivalent(output, input, error))
                throw BadInput(output.string() + ": cannot be written: it is the recording itself");
        const fs::path whole = fs::weakly_canonical(output, error);
        if (std::find(outputs_.begin(), outputs_.end(), whole) != outputs_.end())
            throw BadInput(output.string() + ": cannot be written: two outputs have this name");
        outputs_.push_back(whole);
    }

    void make()
    {
        std::vector<OutputFile> files; // in the order of pictures_ and maps_
        for (const Picture& picture : pictures_)
            files.emplace_back(picture.name); // before the long work
        for (const Map& map : maps_)
            files.emplace_back(map.name);

        const EnsembleFrame ensembles = [&] {
            const StageTimer timer(&times_, "read", recording_.description().lines);
            return read_ensembles(recording_, frame_, chain_.parameters().firings);
        }();
        const FlowMaps maps = chain_.flow(ensembles, &times_);
        chain_.choose(maps);
        stop_when_interrupted();
        std::size_t file = 0;
        for (Picture& picture : pictures_)
            write(files[file++], maps, picture);
        for (const Map& map : maps_)
            write(files[file++], maps, map);
        for (OutputFile& each : files)
            each.commit();
    }

    void write(OutputFile& file, const FlowMaps& maps, Picture& picture)
    {
        const ColourImage image = chain_.picture(maps, picture.quantity, &times_);
        ColourRecipe recipe;
        recipe.base.command = "colour";
        recipe.base.file = options_.recording;
        recipe.base.frame = frame_;
        recipe.base.input_digest = recording_.digest();
        recipe.parameters = chain_.parameters();
        recipe.parameters.quantity = picture.quantity;
        const StageTimer timer(&times_, "write", maps.lines);
        write_picture(file, image, recipe);
        picture.width = image.width;
        picture.height = image.height;
        picture.pixel_size = image.pixel_size;
    }

    void write(OutputFile& file, const FlowMaps& maps, const Map& map)
    {
        const StageTimer timer(&times_, "write", maps.lines);
        write_npy_header(file, {maps.lines, maps.samples});
        write_npy_values(file, map.what == "phase"    ? chain_.phases(maps)
                               : map.what == "power"  ? maps.power
                               : map.what == "spread" ? maps.spread
                                                      : chain_.velocities(maps));
        file.finish();
    }

    const ColourOptions& options_;
    const Recording& recording_;
    ColourChain chain_;
    std::int64_t frame_;
    std::vector<Picture> pictures_;
    std::vector<Map> maps_;
    std::vector<fs::path> outputs_;
    StageTimes times_;
    double seconds_ = 0;
};

int run_colour(const ColourOptions& options)
{
    if (options.output.empty() && options.power.empty() && options.spread.empty() && options.npy.empty() &&
        !options.show_filter)
        throw BadInput("colour: expected an output, -o PICTURE.png, --power, --spread, --npy or --show-filter, found none");
    const Recording recording = Recording::open(options.recording, options.data);
    ColourRun run(options, recording);
    run.run();
    run.report();
    return exit_ok;
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

Command add_colour_command(CLI::App& program)
{
    auto options = std::make_shared<ColourOptions>();
    CLI::App* app = program.add_subcommand("colour", "Make colour pictures of the flow in a recording's I/Q ensembles");
    app->add_option("RECORDING", options->recording, "Description (.yml), NumPy file (.npy) or MetaImage (.mha, .mhd)")
        ->required();
    app->add_option("-o,--output", options->output, "The velocity over the grey picture")->type_name("PICTURE.png");
    app->add_option("--power", options->power, "The power over the grey picture")->type_name("PICTURE.png");
    app->add_option("--spread", options->spread, "The spread over the grey picture")->type_name("PICTURE.png");
    app->add_option("--npy", options->npy,
                    "The maps, float32 [line][sample]: MAPS-velocity.npy in m/s, -phase in radians per firing, -power in dB, "
                    "-spread")
        ->type_name("MAPS.npy");
    app->add_option("--data", options->data, "Folder with the samples that a description names")->type_name("FOLDER");
    app->add_option("--frame", options->frame, "Frame to show, counted from 0 (default: 0)")->type_name("K");
    add_flow_options(*app, *options);
    add_colour_options(*app, *options);
    const char* grey = "Grey picture";
    app->add_option("--dynamic-range", options->dynamic_range, "From white down to black, 1 to 90 dB (default: 60 dB)")
        ->type_name("LEVEL")
        ->group(grey);
    app->add_option("--reference", options->reference, "Magnitude that is white (default: the largest)")
        ->type_name("VALUE")
        ->group(grey);
    app->add_option("--width", options->width, "Width in pixels, without margins (default: fits the lines, 512 to 1024)")
        ->type_name("PIXELS")
        ->group(grey);
    app->add_flag("--scale", options->scale, "Add a scale in millimetres at the left and the bottom edge")->group(grey);
    app->add_flag("--timing", options->timing, "Print what each stage takes");
    app->footer(priority_help);
    return {app, [options] { return run_colour(*options); }};
}

} // namespace echo2image
