// echo2image motion: how the speckle of one frame went to the next.
#include "bad_input.h"
#include "commands.h"
#include "motion_recording.h"
#include "option_values.h"
#include "progress.h"
#include "timing_options.h"
#include "units.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace echo2image {

namespace fs = std::filesystem;

namespace {

// As typed; empty when not given.
struct MotionCommandOptions
{
    std::string recording;
    std::string frames[2];
    std::string data;
    std::string output;
    std::string csv;
    std::string block;
    std::string grid;
    std::string search;
    std::string threshold;
    std::string dynamic_range;
    std::string width;
    bool scale = false;
    TimingOptions timing;
};

// "20x12": across, then down.
void set_pair(const char* name, const char* example, const std::string& text, int& across, int& down)
{
    const std::size_t x = text.find('x');
    if (x == std::string::npos)
        throw BadInput(std::string(name) + ": expected pixels across and down, such as " + example + ", found \"" + text +
                       "\"");
    across = static_cast<int>(whole_number(name, text.substr(0, x), 0, 16384));
    down = static_cast<int>(whole_number(name, text.substr(x + 1), 0, 16384));
}

MotionOptions wanted_by(const MotionCommandOptions& typed)
{
    MotionOptions options;
    if (!typed.block.empty())
        set_pair("--block", "32x33", typed.block, options.block_columns, options.block_rows);
    if (!typed.grid.empty())
        options.grid = static_cast<int>(whole_number("--grid", typed.grid, 1, 16384));
    if (typed.search.find('x') != std::string::npos)
        set_pair("--search", "20x12", typed.search, options.search_columns, options.search_rows);
    else if (!typed.search.empty())
        options.search_columns = options.search_rows = static_cast<int>(whole_number("--search", typed.search, 0, 16384));
    if (!typed.threshold.empty())
        options.threshold = quantity_of("--threshold", typed.threshold, Quantity::number, 0, 1);
    check_motion_options(options, std::numeric_limits<int>::max(), std::numeric_limits<int>::max());
    return options;
}

void expect_output(const char* name, const fs::path& file, const char* extension, const Description& description)
{
    if (file.extension() != extension)
        throw BadInput(std::string(name) + ": expected a file name ending in " + extension + ", found \"" + file.string() +
                       "\"");
    check_target(file);
    for (const fs::path& input : {description.source, description.data_file}) {
        std::error_code error;
        if (fs::equivalent(file, input, error))
            throw BadInput(file.string() + ": cannot be written: it is the recording itself");
    }
}

// What was found, in a line or two.
void report(const MotionCommandOptions& typed, const MotionPicture& picture)
{
    std::vector<double> lengths;
    std::vector<double> correlations;
    for (const BlockMotion& block : picture.blocks)
        if (block.tracked()) {
            lengths.push_back(std::hypot(block.right, block.down));
            correlations.push_back(block.correlation);
        }
    std::printf("%s: %d x %d pixels, tracked at %d x %d", typed.output.c_str(), picture.image.width, picture.image.height,
                picture.tracked_width, picture.tracked_height);
    if (picture.pixel_size > 0)
        std::printf(" of %s", with_unit(picture.pixel_size, Quantity::length).c_str());
    std::printf(", arrows %d times as long as the motion\n", picture.magnification);
    std::printf("%zu of %zu blocks tracked", lengths.size(), picture.blocks.size());
    if (!lengths.empty()) {
        std::printf(", correlation %.2f in the median", quantile(correlations, 0.5));
        for (const auto& [name, share] : {std::pair{"motion", 0.5}, {"95 % below", 0.95}}) {
            const double pixels = quantile(lengths, share);
            std::printf(", %s %.1f px", name, pixels);
            if (picture.pixel_size > 0)
                std::printf(" (%.3f mm)", pixels * 1e3 * picture.pixel_size);
        }
    }
    std::printf("\n");
}

int run_motion(const MotionCommandOptions& typed)
{
    Recipe recipe;
    recipe.motion.emplace().options = wanted_by(typed);
    const int made = repetitions(typed.timing);
    const Recording recording = Recording::open(typed.recording, typed.data);
    const Description& description = recording.description();
    recipe.frame = whole_number("A", typed.frames[0], 0, description.frames - 1);
    recipe.motion->second_frame = whole_number("B", typed.frames[1], 0, description.frames - 1);
    ChainParameters wanted;
    if (!typed.dynamic_range.empty())
        wanted.dynamic_range =
            quantity_of("--dynamic-range", typed.dynamic_range, Quantity::level, least_dynamic_range, greatest_dynamic_range);
    if (!typed.width.empty())
        wanted.width = static_cast<int>(whole_number("--width", typed.width, 1, 16384));
    wanted.scale = typed.scale;

    expect_output("-o", typed.output, ".png", description);
    OutputFile picture_file(typed.output);
    std::optional<OutputFile> csv_file;
    if (!typed.csv.empty()) {
        expect_output("--csv", typed.csv, ".csv", description);
        csv_file.emplace(typed.csv);
    }

    StageTimes times;
    std::optional<Progress> progress;
    const std::array<RecordedFrame, 2> frames = read_pair(recording, recipe.frame, *recipe.motion, &times);
    MotionPicture picture;
    for (int repetition = 0; repetition < made; ++repetition) {
        const ChainTimer timer(times);
        picture = make_motion_picture(description, wanted, recipe.motion->options, frames[0], frames[1], &times,
                                      [&](int row, int rows) {
                                          stop_when_interrupted();
                                          if (row == 0)
                                              progress.emplace("rows of blocks", rows);
                                          else
                                              progress->step();
                                      });
    }
    progress.reset();

    recipe.command = "motion";
    recipe.file = typed.recording;
    recipe.input_digest = recording.digest();
    recipe.chain = picture.chain;
    {
        const StageTimer timer(&times, "write", 0, StageKind::apart);
        write_picture(picture_file, picture.image, recipe);
        if (csv_file) {
            const std::string csv = csv_of(picture.blocks, recipe.motion->options, picture.pixel_size);
            csv_file->write(csv.data(), csv.size());
            csv_file->finish();
        }
    }
    stop_when_interrupted();
    picture_file.commit();
    if (csv_file)
        csv_file->commit();
    report(typed, picture);
    if (typed.timing.timing)
        std::fputs(table_of(times, 1, made).c_str(), stdout);
    return exit_ok;
}

} // namespace

Command add_motion_command(CLI::App& program)
{
    auto options = std::make_shared<MotionCommandOptions>();
    CLI::App* app =
        program.add_subcommand("motion", "Track speckle from one frame to another: block matching, drawn as arrows");
    app->add_option("RECORDING", options->recording, "Description (.yml), NumPy file (.npy) or MetaImage (.mha, .mhd)")
        ->required();
    app->add_option("A", options->frames[0], "The frame that is tracked, counted from 0")->required();
    app->add_option("B", options->frames[1], "The frame it is found in")->required();
    app->add_option("-o,--output", options->output, "Frame A with arrows, a PNG file")->type_name("PICTURE.png")->required();
    app->add_option("--csv", options->csv, "Also write a table of the blocks")->type_name("FILE.csv");
    app->add_option("--data", options->data, "Folder with the samples that a description names")->type_name("FOLDER");

    const char* search = "Search, in pixels of the picture";
    app->add_option("--block", options->block, "Size of a block: a multiple of 32 across, odd down (default: 32x33)")
        ->type_name("WIDTHxHEIGHT")
        ->group(search);
    app->add_option("--grid", options->grid, "From block to block (default: 16)")->type_name("PIXELS")->group(search);
    app->add_option("--search", options->search, "How far to look each way, or across and down (default: 12)")
        ->type_name("PIXELS|ACROSSxDOWN")
        ->group(search);
    app->add_option("--threshold", options->threshold,
                    "Normalised cross-correlation that a match must exceed, 0 to below 1 (default: 0.4)")
        ->type_name("C")
        ->group(search);

    const char* picture = "Picture";
    app->add_option("--dynamic-range", options->dynamic_range,
                    "Of RF and I/Q, from white down to black, 1 to 90 dB (default: 60 dB)")
        ->type_name("LEVEL")
        ->group(picture);
    app->add_option("--width", options->width, "Width in pixels that is tracked (default: fits the lines, 512 to 1024)")
        ->type_name("PIXELS")
        ->group(picture);
    app->add_flag("--scale", options->scale, "Add a scale in millimetres at the left and the bottom edge")->group(picture);
    add_timing_options(*app, options->timing);
    return {app, [options] { return run_motion(*options); }};
}

} // namespace echo2image
