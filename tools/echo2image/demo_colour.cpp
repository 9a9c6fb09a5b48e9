#include "colour_recipe.h"
#include "demo.h"
#include "flow_checks.h"
#include "synthetic_flow.h"
#include "units.h"

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace echo2image {

DemoOutcome make_colour_picture(std::uint32_t seed, OutputFile& file, StageTimes& times)
{
    constexpr int firings = 12;
    const SyntheticFlow flow = [&] {
        const StageTimer timer(&times, "synthesise", 0, StageKind::apart);
        return synthesise_flow(seed, firings);
    }();
    ColourParameters wanted;
    wanted.flow.average_lines = 3;
    wanted.flow.average_samples = 5;
    wanted.scale = true;
    ColourChain chain(flow.description, wanted);
    const FlowMaps maps = chain.flow(flow.frame, &times);
    chain.choose(maps);
    const ColourImage picture = chain.picture(maps, FlowQuantity::velocity, &times);
    {
        const StageTimer timer(&times, "write", 0, StageKind::apart);
        ColourRecipe recipe;
        recipe.base.command = "demo";
        recipe.base.input = Recipe::Input::synthetic;
        recipe.base.seed = seed;
        recipe.base.input_digest = digest_of(flow.frame.iq);
        recipe.parameters = chain.parameters();
        write_picture(file, picture, std::move(recipe));
    }
    const StageTimer timer(&times, "check", 0, StageKind::apart);
    char text[160];
    std::snprintf(text, sizeof text, "%d x %d pixels of %s, %d firings, filter %s, Nyquist %.1f cm/s", picture.width,
                  picture.height, with_unit(picture.pixel_size, Quantity::length).c_str(), firings,
                  to_string(chain.parameters().flow.filter).c_str(), 100 * chain.nyquist_speed());
    std::string summary = text + ("\n\n" + table_of(profile_of(chain, maps, flow)));
    summary.pop_back(); // the caller ends the line
    return {summary, check_flow(chain, maps, picture, flow)};
}

} // namespace echo2image
