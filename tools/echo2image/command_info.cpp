#include "commands.h"
#include "input_file.h"
#include "png_file.h"
#include "recipe.h"
#include "recording.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

namespace echo2image {

namespace {

struct InfoOptions
{
    std::string file;
    std::string data;
};

int run_info(const InfoOptions& options)
{
    if (!is_png(options.file)) {
        std::fputs(describe(Recording::open(options.file, options.data, Need::layout)).c_str(), stdout);
        return exit_ok;
    }
    const PngPicture picture = read_png(options.file);
    recipe_of(picture.text, options.file); // anything but a recipe is turned down
    std::string text =
        "Picture: " + std::to_string(picture.image.width) + " x " + std::to_string(picture.image.height) + " pixels\n";
    for (const auto& [keyword, value] : picture.text)
        text += printable(keyword) + ": " + printable(value) + "\n";
    std::fputs(text.c_str(), stdout);
    return exit_ok;
}

} // namespace

Command add_info_command(CLI::App& program)
{
    auto options = std::make_shared<InfoOptions>();
    CLI::App* app = program.add_subcommand("info", "Say what a recording holds, or how a picture was made");
    app->add_option("FILE", options->file, "A recording, or a PNG made by echo2image")->required();
    app->add_option("--data", options->data, "Folder with the samples that a description names")->type_name("FOLDER");
    return {app, [options] { return run_info(*options); }};
}

} // namespace echo2image
