#include "demo.h"
#include "demo_checks.h"
#include "motion_recording.h"
#include "recipe.h"
#include "units.h"

#include <cstdio>

namespace echo2image {

DemoOutcome make_motion_demo(std::uint32_t seed, OutputFile& file, StageTimes& times)
{
    const MotionPair pair = [&] {
        const StageTimer timer(&times, "synthesise", 0, StageKind::apart);
        return synthesise_motion(seed);
    }();
    ChainParameters wanted;
    wanted.scale = true;
    MotionOptions options;
    options.grid = 32;
    const MotionPicture picture = motion_picture_of(pair, wanted, options, &times);

    Recipe recipe;
    recipe.command = "demo";
    recipe.input = Recipe::Input::synthetic;
    recipe.seed = seed;
    recipe.input_digest = digest_of(pair);
    recipe.chain = picture.chain;
    recipe.motion.emplace().options = options;
    {
        const StageTimer timer(&times, "write", 0, StageKind::apart);
        write_picture(file, picture.image, recipe);
    }
    char text[160];
    std::snprintf(text, sizeof text, "%d x %d pixels, tracked at %d x %d of %s, arrows %d times as long as the motion",
                  picture.image.width, picture.image.height, picture.tracked_width, picture.tracked_height,
                  with_unit(picture.pixel_size, Quantity::length).c_str(), picture.magnification);
    return {text, check_motion(picture, options, pair)};
}

} // namespace echo2image
