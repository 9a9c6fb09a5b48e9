#include "bad_input.h"
#include "colour_recipe.h"
#include "commands.h"
#include "motion_recording.h"
#include "recipe.h"
#include "synthetic.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace echo2image {

namespace fs = std::filesystem;

namespace {

struct VerifyOptions
{
    std::string picture;
    std::string input;
    std::string data;
};

// The same picture made again, and the digest of what it was made from.
struct Repetition
{
    std::string input_digest;
    std::string failure; // why no picture could be made of an input that is not the original one
    GreyImage image;
};

// Where the recording is now: as named in the recipe, or beside the picture.
fs::path recording_of(const Recipe& recipe, const VerifyOptions& options)
{
    if (!options.input.empty())
        return options.input;
    const fs::path named = fs::u8path(recipe.file);
    std::error_code error;
    if (fs::exists(named, error))
        return named;
    const fs::path beside = fs::path(options.picture).parent_path() / named.filename();
    if (fs::exists(beside, error))
        return beside;
    throw BadInput(options.picture + ": its recording " + named.string() + " is not there any more; --input can name it");
}

Repetition repeat(const Recipe& recipe, const VerifyOptions& options)
{
    Repetition repetition;
    if (recipe.input == Recipe::Input::synthetic && recipe.motion) {
        const MotionPair pair = synthesise_motion(recipe.seed);
        repetition.input_digest = digest_of(pair);
        repetition.image = motion_picture_of(pair, recipe.chain, recipe.motion->options).image;
        return repetition;
    }
    if (recipe.input == Recipe::Input::synthetic) {
        const bool pairs = recipe.chain.rf.pulse_inversion != PulseInversion::none;
        const SyntheticFrame frame = pairs ? synthesise_pairs(recipe.seed).frame : synthesise(recipe.seed);
        repetition.input_digest = digest_of(frame.rf);
        const Chain chain(frame.description, recipe.chain);
        repetition.image = chain.picture(chain.envelope(frame.rf));
        return repetition;
    }
    const Recording recording = Recording::open(recording_of(recipe, options), options.data);
    repetition.input_digest = recording.digest();
    try {
        if (recipe.frame >= recording.description().frames)
            throw BadInput("frame " + std::to_string(recipe.frame) + " of " + std::to_string(recording.description().frames));
        if (recipe.motion) {
            repetition.image = motion_picture_of(recording, recipe.chain, recipe.frame, *recipe.motion).image;
            return repetition;
        }
        const Chain chain(recording.description(), recipe.chain);
        FrameFilters filters = filters_before(recording, chain, recipe.frame);
        if (chain.has_envelope()) {
            const EnvelopeFrame envelope = chain.envelope(read_frame(recording, chain, recipe.frame));
            repetition.image = chain.shown(filters.next(chain.grey(envelope)), envelope.clipped);
        } else {
            repetition.image = chain.shown(filters.next(chain.grey(recording.read_frame_u8(recipe.frame))), {});
        }
    } catch (const BadInput& error) {
        if (repetition.input_digest == recipe.input_digest)
            throw;
        repetition.failure = error.what();
    }
    return repetition;
}

bool check(const char* what, const std::string& stated, const std::string& found)
{
    if (stated == found)
        std::printf("%s: equal, SHA-256 %s\n", what, found.c_str());
    else
        std::printf("%s: SHA-256 %s expected, found %s\n", what, stated.c_str(), found.c_str());
    return stated == found;
}

bool check_pixels(const GreyImage& made, const PngPicture& picture)
{
    const GreyImage& found = picture.image;
    if (!picture.grey) {
        std::printf("pixels: grey ones expected, found colours\n");
        return false;
    }
    if (made.width != found.width || made.height != found.height) {
        std::printf("pixels: %d x %d expected, found %d x %d\n", made.width, made.height, found.width, found.height);
        return false;
    }
    std::size_t differing = 0;
    std::size_t first = 0;
    int largest_difference = 0;
    const auto marked = [](const GreyImage& image, std::size_t i) { return !image.marks.empty() && image.marks[i] != 0; };
    for (std::size_t i = made.pixels.size(); i-- > 0;) {
        const int difference = std::abs(made.pixels[i] - found.pixels[i]);
        largest_difference = std::max(largest_difference, difference);
        if (difference != 0 || marked(made, i) != marked(found, i)) {
            ++differing;
            first = i;
        }
    }
    if (differing == 0) {
        std::printf("pixels: all %d x %d equal\n", made.width, made.height);
        return true;
    }
    const std::size_t width = static_cast<std::size_t>(made.width);
    std::printf("pixels: %zu of %zu differ, by up to %d; first at column %zu, row %zu: %d expected, found %d\n", differing,
                made.pixels.size(), largest_difference, first % width, first / width, made.pixels[first], found.pixels[first]);
    return false;
}

int run_verify(const VerifyOptions& options)
{
    const PngPicture picture = read_png(options.picture);
    const Recipe recipe = recipe_of(picture.text, options.picture);
    if (!options.input.empty() && recipe.input == Recipe::Input::synthetic)
        throw BadInput(options.picture + ": was made of synthetic echoes; --input does not apply");
    if (is_colour_recipe(picture.text)) {
        const bool synthetic = recipe.input == Recipe::Input::synthetic;
        const fs::path recording = synthetic ? fs::path() : recording_of(recipe, options);
        return verify_colour(picture, options.picture, recording, options.data) ? exit_ok : exit_differs;
    }
    if (recipe.chain.reference == 0 && recipe.chain.dynamic_range != 0)
        throw BadInput(options.picture + ": its recipe lacks \"Reference\"");

    const Repetition again = repeat(recipe, options);
    if (recipe.program != program_version())
        std::printf("program: made by %s, repeated by %s\n", recipe.program.c_str(), program_version().c_str());
    bool equal = check("input", recipe.input_digest, again.input_digest);
    equal = check("recipe", recipe.pixel_digest, digest_of(picture.image)) && equal;
    if (again.failure.empty())
        equal = check_pixels(again.image, picture) && equal;
    else
        std::printf("pixels: this input gives no such picture: %s\n", again.failure.c_str());
    return equal ? exit_ok : exit_differs;
}

} // namespace

Command add_verify_command(CLI::App& program)
{
    auto options = std::make_shared<VerifyOptions>();
    CLI::App* app = program.add_subcommand("verify", "Make a picture again from its recipe and compare every pixel");
    app->add_option("PICTURE", options->picture, "A PNG made by echo2image")->required();
    app->add_option("--input", options->input, "The recording, when it is no longer where the recipe says")
        ->type_name("RECORDING");
    app->add_option("--data", options->data, "Folder with the samples that a description names")->type_name("FOLDER");
    app->footer("Exit code 0: equal. 1: something differs. 2: the picture or its recording cannot be read.");
    return {app, [options] { return run_verify(*options); }};
}

} // namespace echo2image
