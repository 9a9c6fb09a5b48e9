#include "demo_colour.h"

#include "colour_recipe.h"
#include "flow_checks.h"
#include "output_file.h"
#include "synthetic_flow.h"
#include "units.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace echo2image {

bool demo_colour(const std::filesystem::path& folder, std::uint32_t seed)
{
    constexpr int firings = 12;
    const std::filesystem::path name = folder / "colour.png";
    OutputFile file(name); // before the work

    const SyntheticFlow flow = synthesise_flow(seed, firings);
    ColourParameters wanted;
    wanted.flow.average_lines = 3;
    wanted.flow.average_samples = 3;
    wanted.scale = true;
    ColourChain chain(flow.description, wanted);
    const FlowMaps maps = chain.flow(flow.frame);
    chain.choose(maps);
    const ColourImage picture = chain.picture(maps, FlowQuantity::velocity);

    ColourRecipe recipe;
    recipe.base.command = "demo";
    recipe.base.input = Recipe::Input::synthetic;
    recipe.base.seed = seed;
    recipe.base.input_digest = digest_of(flow.frame.iq);
    recipe.parameters = chain.parameters();
    write_picture(file, picture, recipe);
    const std::vector<Check> checks = check_flow(chain, maps, picture, flow);
    stop_when_interrupted();
    file.commit();

    std::printf("\n%s: seed %u, %d x %d pixels of %s, %d firings, filter %s, +-%.1f cm/s\n\n", name.string().c_str(), seed,
                picture.width, picture.height, with_unit(picture.pixel_size, Quantity::length).c_str(), firings,
                to_string(chain.parameters().flow.filter).c_str(), 100 * chain.nyquist_speed());
    std::fputs(table_of(profile_of(chain, maps, flow)).c_str(), stdout);
    std::printf("\n%s", table_of(checks).c_str());
    const auto right = std::count_if(checks.begin(), checks.end(), [](const Check& check) { return check.ok; });
    std::printf("\n%td of %zu measurements of flow are right\n", right, checks.size());
    return all_ok(checks);
}

} // namespace echo2image
