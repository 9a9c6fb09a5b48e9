// echo2image demo: the built-in scanner through the whole chain, held against its truth.
#include "bad_input.h"
#include "commands.h"
#include "demo.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace echo2image {

namespace fs = std::filesystem;

namespace {

constexpr char pairs_samples[] = "pairs.raw";
constexpr char pairs_description[] = "pairs.yml";

struct DemoOptions
{
    std::string folder = "pictures";
    std::string seed = "1";
    std::string recording;
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

void make_folder(const char* option, const fs::path& folder)
{
    std::error_code error;
    fs::create_directories(folder, error);
    std::error_code ignored;
    if (!fs::is_directory(folder, ignored))
        throw BadInput(std::string(option) + ": expected a folder or the name for a new one, found \"" + folder.string() +
                       "\"" + (error ? ": " + error.message() : ""));
}

struct Entry
{
    const char* file; // in the demo's folder
    DemoPicture make;
};

constexpr Entry entries[] = {
    {"bmode.png", make_bmode_picture},
    {"harmonic.png", make_harmonic_picture},
    {"colour.png", make_colour_picture},
    {"motion.png", make_motion_demo},
};

// The files of a demo, opened before the work and put in place together.
struct Outputs
{
    std::vector<OutputFile> pictures; // one per entry
    std::vector<OutputFile> recording;

    explicit Outputs(const DemoOptions& options)
    {
        make_folder("-o", options.folder);
        for (const Entry& entry : entries)
            pictures.emplace_back(fs::path(options.folder) / entry.file);
        if (options.recording.empty())
            return;
        make_folder("--write-recording", options.recording);
        for (const char* name : {pairs_samples, pairs_description})
            recording.emplace_back(fs::path(options.recording) / name);
    }
    void commit()
    {
        for (std::vector<OutputFile>* files : {&pictures, &recording})
            for (OutputFile& file : *files)
                file.commit();
    }
};

int run_demo(const DemoOptions& options)
{
    const std::uint32_t seed = seed_of(options.seed);
    Outputs outputs(options);

    StageTimes times;
    std::vector<DemoOutcome> outcomes;
    for (std::size_t i = 0; i < std::size(entries); ++i) {
        stop_when_interrupted();
        outcomes.push_back(entries[i].make(seed, outputs.pictures[i], times));
    }
    if (!outputs.recording.empty()) {
        const StageTimer timer(&times, "write recording", 0, StageKind::apart);
        write_pairs(seed, outputs.recording[0], pairs_samples, outputs.recording[1]);
    }
    stop_when_interrupted();
    outputs.commit();

    std::ptrdiff_t right = 0;
    std::size_t measured = 0;
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        const std::vector<Check>& checks = outcomes[i].checks;
        std::printf("%s: seed %s, %s\n\n%s\n", (fs::path(options.folder) / entries[i].file).string().c_str(),
                    options.seed.c_str(), outcomes[i].summary.c_str(), table_of(checks).c_str());
        right += std::count_if(checks.begin(), checks.end(), [](const Check& check) { return check.ok; });
        measured += checks.size();
    }
    if (!options.recording.empty())
        std::printf("%s: the pairs of firings, for bmode --harmonic\n",
                    (fs::path(options.recording) / pairs_description).string().c_str());
    std::printf("%td of %zu measurements are right\n", right, measured);
    if (options.timing)
        std::printf("\n%s", table_of(times, static_cast<std::int64_t>(outcomes.size()), 1).c_str());
    return static_cast<std::size_t>(right) == measured ? exit_ok : exit_differs;
}

} // namespace

Command add_demo_command(CLI::App& program)
{
    auto options = std::make_shared<DemoOptions>();
    CLI::App* app = program.add_subcommand(
        "demo", "Make pictures of the built-in scanner's phantom and hold what they show against the truth");
    app->add_option("-o,--output", options->folder, "Folder for the pictures, made when missing (default: pictures)")
        ->type_name("FOLDER");
    app->add_option("--seed", options->seed, "Another phantom of the same kind, 0 to 4294967295 (default: 1)")->type_name("N");
    app->add_option("--write-recording", options->recording,
                    "Also write the pairs of firings behind harmonic.png as a recording, pairs.raw and pairs.yml")
        ->type_name("FOLDER");
    app->add_flag("--timing", options->timing, "Print what each stage takes");
    app->footer("Exit code 0: every measurement is right. 1: one is wrong. 2: a file cannot be written.");
    return {app, [options] { return run_demo(*options); }};
}

} // namespace echo2image
