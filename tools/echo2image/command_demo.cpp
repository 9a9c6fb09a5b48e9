// echo2image demo: the built-in scanner through the whole chain, held against its truth.
#include "bad_input.h"
#include "commands.h"
#include "demo_checks.h"
#include "demo_colour.h"
#include "recipe.h"
#include "synthetic.h"
#include "units.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace echo2image {

namespace fs = std::filesystem;

namespace {

struct DemoOptions
{
    std::string folder = "pictures";
    std::string seed = "1";
    bool timing = false;
};

std::uint32_t seed_of(const std::string& text)
{
    std::uint32_t seed = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
    if (error != std::errc() || end != text.data() + text.size())
        throw BadInput("--seed: expected a whole number from 0 to 4294967295, found \"" + text + "\"");
    return seed;
}

void make_folder(const fs::path& folder)
{
    std::error_code error;
    fs::create_directories(folder, error);
    std::error_code ignored;
    if (!fs::is_directory(folder, ignored))
        throw BadInput("-o: expected a folder or the name for a new one, found \"" + folder.string() + "\"" +
                       (error ? ": " + error.message() : ""));
}

int run_demo(const DemoOptions& options)
{
    const std::uint32_t seed = seed_of(options.seed);
    make_folder(options.folder);
    const fs::path name = fs::path(options.folder) / "bmode.png";
    OutputFile file(name); // before the work

    StageTimes times;
    SyntheticFrame frame;
    {
        const StageTimer timer(&times, "synthesise", 0);
        frame = synthesise(seed);
    }
    Chain chain(frame.description, ChainParameters());
    const EnvelopeFrame envelope = chain.envelope(frame.rf, &times);
    chain.set_reference(largest(envelope));
    const GreyImage image = chain.picture(envelope, &times);
    const ScanConverter converter(frame.description.geometry, envelope.lines, envelope.samples, envelope.sample_spacing,
                                  envelope.first_sample_offset, chain.parameters().width);
    const GreyImage picture = with_scale(image, converter);

    Recipe recipe;
    recipe.command = "demo";
    recipe.input = Recipe::Input::synthetic;
    recipe.seed = seed;
    recipe.input_digest = digest_of(frame.rf);
    recipe.chain = chain.parameters();
    recipe.chain.scale = true;
    {
        const StageTimer timer(&times, "write", 0);
        write_picture(file, picture, recipe);
    }
    std::vector<Check> checks;
    {
        const StageTimer timer(&times, "check", 0);
        checks = check_envelope(envelope, frame);
        const std::vector<Check> of_picture = check_picture(image, converter, chain.parameters().dynamic_range, frame);
        checks.insert(checks.end(), of_picture.begin(), of_picture.end());
    }
    stop_when_interrupted();
    file.commit();

    std::printf("%s: seed %s, %d x %d pixels of %s, %g dB below %g\n\n", name.string().c_str(), options.seed.c_str(),
                picture.width, picture.height, with_unit(picture.pixel_size, Quantity::length).c_str(),
                chain.parameters().dynamic_range, static_cast<double>(chain.parameters().reference));
    std::fputs(table_of(checks).c_str(), stdout);
    const auto right = std::count_if(checks.begin(), checks.end(), [](const Check& check) { return check.ok; });
    std::printf("\n%td of %zu measurements are right\n", right, checks.size());
    if (options.timing) {
        std::printf("\n");
        for (const StageTimes::Stage& stage : times.stages())
            std::printf("%-16s %10.3f ms\n", stage.name.c_str(), stage.seconds * 1e3);
    }
    const bool flow_ok = demo_colour(options.folder, seed);
    return all_ok(checks) && flow_ok ? exit_ok : exit_differs;
}

} // namespace

Command add_demo_command(CLI::App& program)
{
    auto options = std::make_shared<DemoOptions>();
    CLI::App* app = program.add_subcommand(
        "demo", "Make a picture of the built-in scanner's phantom and hold what it shows against the truth");
    app->add_option("-o,--output", options->folder, "Folder for bmode.png, made when missing (default: pictures)")
        ->type_name("FOLDER");
    app->add_option("--seed", options->seed, "Another phantom of the same kind, 0 to 4294967295 (default: 1)")->type_name("N");
    app->add_flag("--timing", options->timing, "Print what each stage takes");
    app->footer("Exit code 0: every measurement is right. 1: one is wrong. 2: the picture cannot be written.");
    return {app, [options] { return run_demo(*options); }};
}

} // namespace echo2image
