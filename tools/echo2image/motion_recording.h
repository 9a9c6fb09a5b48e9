// Pictures of motion from recordings and from the built-in scanner.
#pragma once

#include "motion_picture.h"
#include "recipe.h"
#include "synthetic_motion.h"

#include <array>
#include <cstdint>
#include <string>

namespace echo2image {

// The pair of frames that is compared; throws BadInput.
std::array<RecordedFrame, 2> read_pair(const Recording& recording, std::int64_t first_frame, const MotionRecipe& motion,
                                       StageTimes* times = nullptr);
MotionPicture motion_picture_of(const Recording& recording, const ChainParameters& wanted, std::int64_t first_frame,
                                const MotionRecipe& motion); // throws BadInput
MotionPicture motion_picture_of(const MotionPair& pair, const ChainParameters& wanted, const MotionOptions& options,
                                StageTimes* times = nullptr);

std::string digest_of(const MotionPair& pair); // SHA-256 of both frames' samples, one after the other

} // namespace echo2image
