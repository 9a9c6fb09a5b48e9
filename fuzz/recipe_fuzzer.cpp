// Recipes as "keyword: text" lines: what is understood says the same when it is written and read again, and making its
// picture of small recordings, as `verify` does, ends well.
#include "colour_recipe.h"
#include "harness.h"
#include "motion_recording.h"

using namespace fuzz;

namespace {

constexpr int widest = 200; // of pictures that are made: larger ones take longer and show nothing new

TextFields fields_of(std::string_view text)
{
    TextFields fields;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        const std::size_t colon = line.find(": ");
        if (colon != std::string_view::npos)
            fields.emplace_back(line.substr(0, colon), line.substr(colon + 2));
    }
    return fields;
}

Recording small_recording(const Folder& folder, Content content)
{
    Description d;
    d.content = content;
    d.axes = {"frame", "line", "firing", "sample"};
    d.shape = {3, 12, 10, 64};
    if (content == Content::rf)
        d.shape[2] = 2; // pulse inversion
    if (content == Content::iq) {
        d.axes.emplace_back("component");
        d.shape.push_back(2);
    }
    if (content == Content::bmode) {
        d.axes = {"frame", "line", "sample"};
        d.shape = {3, 12, 64};
        d.type = ElementType::uint8;
    }
    std::string noise(content == Content::bmode ? 3 * 12 * 64 : 3 * 12 * 10 * 64 * 4, '\0');
    std::uint32_t state = 1;
    for (char& byte : noise)
        byte = static_cast<char>((state = state * 1664525u + 1013904223u) >> 24);
    d.format = "raw";
    d.source = d.data_file = folder.write(to_string(content), noise);
    fit_size(d.data_file, d.shape, 0, content == Content::bmode ? 1 : 2);
    d.sampling_frequency = 20e6;
    d.center_frequency = 5e6;
    d.pulse_repetition_frequency = 5e3;
    d.sample_spacing = d.sound_speed / (2 * d.sampling_frequency);
    d.geometry.line_pitch = 0.0003;
    d.geometry.first_line = -0.0016;
    return Recording(d);
}

void make_colours(const Recording& recording, const ColourParameters& wanted)
{
    ColourChain chain(recording.description(), wanted);
    const FlowMaps maps = chain.flow(read_ensembles(recording, 0, wanted.firings));
    chain.choose(maps);
    const ColourImage image = chain.picture(maps, wanted.quantity);
    demand(image.width > 0 && image.height > 0 && image.red.size() == image.green.size(), "a picture has its pixels");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Folder folder;
    static const Recording recordings[] = {small_recording(folder, Content::rf), small_recording(folder, Content::iq),
                                           small_recording(folder, Content::bmode)};
    const TextFields text = fields_of(text_of(data, size));
    const fs::path name = "picture.png";
    if (is_colour_recipe(text)) {
        read_or_reject([&] {
            const ColourRecipe recipe = colour_recipe_of(text, name);
            if (recipe.parameters.width <= widest)
                make_colours(recordings[1], recipe.parameters);
        });
        return 0;
    }
    read_or_reject([&] {
        const Recipe recipe = recipe_of(text, name);
        const TextFields again = to_text(recipe);
        demand(to_text(recipe_of(again, name)) == again, "a recipe reads back as it was written");
        for (const Recording& recording : recordings)
            if (recipe.chain.width <= widest)
                read_or_reject([&] {
                    if (recipe.motion)
                        motion_picture_of(recording, recipe.chain, recipe.frame, *recipe.motion);
                    else
                        make_picture(recording, recipe.chain);
                });
    });
    return 0;
}
