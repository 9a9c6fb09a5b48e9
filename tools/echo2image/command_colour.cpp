// echo2image colour: flow of a recording's I/Q ensembles over its grey picture.
#include "bad_input.h"
#include "colour_options.h"
#include "colour_recipe.h"
#include "commands.h"
#include "npy_write.h"
#include "option_values.h"
#include "portable_math.h"
#include "units.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace echo2image {

namespace fs = std::filesystem;

namespace {

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
        : options_(options), recording_(recording),
          chain_(recording.description(), wanted_by(options, recording.description())),
          frame_(chosen_frame(options, recording.description())), repetitions_(repetitions(options.timing))
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
        if (!pictures_.empty() || !maps_.empty())
            make();
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
        if (options_.timing.timing && (!pictures_.empty() || !maps_.empty()))
            std::fputs(table_of(times_, 1, repetitions_).c_str(), stdout);
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
            const StageTimer timer(&times_, "read", recording_.description().lines, StageKind::apart);
            return read_ensembles(recording_, frame_, chain_.parameters().firings);
        }();
        FlowMaps maps;
        std::vector<ColourImage> images(pictures_.size());
        for (int repetition = 0; repetition < repetitions_; ++repetition) {
            stop_when_interrupted();
            const ChainTimer timer(times_);
            maps = chain_.flow(ensembles, &times_);
            if (repetition == 0)
                chain_.choose(maps);
            for (std::size_t i = 0; i < pictures_.size(); ++i)
                images[i] = chain_.picture(maps, pictures_[i].quantity, &times_);
        }
        stop_when_interrupted();
        std::size_t file = 0;
        for (std::size_t i = 0; i < pictures_.size(); ++i)
            write(files[file++], maps, images[i], pictures_[i]);
        for (const Map& map : maps_)
            write(files[file++], maps, map);
        for (OutputFile& each : files)
            each.commit();
    }

    void write(OutputFile& file, const FlowMaps& maps, const ColourImage& image, Picture& picture)
    {
        ColourRecipe recipe;
        recipe.base.command = "colour";
        recipe.base.file = options_.recording;
        recipe.base.frame = frame_;
        recipe.base.input_digest = recording_.digest();
        recipe.parameters = chain_.parameters();
        recipe.parameters.quantity = picture.quantity;
        const StageTimer timer(&times_, "write", maps.lines, StageKind::apart);
        write_picture(file, image, recipe);
        picture.width = image.width;
        picture.height = image.height;
        picture.pixel_size = image.pixel_size;
    }

    void write(OutputFile& file, const FlowMaps& maps, const Map& map)
    {
        const StageTimer timer(&times_, "write", maps.lines, StageKind::apart);
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
    int repetitions_;
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

} // namespace

Command add_colour_command(CLI::App& program)
{
    auto options = std::make_shared<ColourOptions>();
    CLI::App* app = program.add_subcommand("colour", "Make colour pictures of the flow in a recording's I/Q ensembles");
    add_options(*app, *options);
    return {app, [options] { return run_colour(*options); }};
}

} // namespace echo2image
