#include "motion_recording.h"

#include "bad_input.h"

namespace echo2image {

std::array<RecordedFrame, 2> read_pair(const Recording& recording, std::int64_t first_frame, const MotionRecipe& motion,
                                       StageTimes* times)
{
    const Description& description = recording.description();
    std::array<RecordedFrame, 2> frames;
    const std::int64_t numbers[] = {first_frame, motion.second_frame};
    for (std::size_t k = 0; k < frames.size(); ++k) {
        const StageTimer timer(times, "read", description.lines, StageKind::apart);
        if (numbers[k] >= description.frames)
            throw BadInput("frame " + std::to_string(numbers[k]) + " of " + std::to_string(description.frames));
        if (description.content == Content::bmode)
            frames[k].grey = recording.read_frame_u8(numbers[k]);
        else
            frames[k].echoes = recording.read_frame_i16(numbers[k]);
    }
    return frames;
}

MotionPicture motion_picture_of(const Recording& recording, const ChainParameters& wanted, std::int64_t first_frame,
                                const MotionRecipe& motion)
{
    const std::array<RecordedFrame, 2> frames = read_pair(recording, first_frame, motion);
    return make_motion_picture(recording.description(), wanted, motion.options, frames[0], frames[1]);
}

MotionPicture motion_picture_of(const MotionPair& pair, const ChainParameters& wanted, const MotionOptions& options,
                                StageTimes* times)
{
    return make_motion_picture(pair.description, wanted, options, {pair.frames[0], {}}, {pair.frames[1], {}}, times);
}

std::string digest_of(const MotionPair& pair)
{
    std::vector<std::int16_t> samples = pair.frames[0];
    samples.insert(samples.end(), pair.frames[1].begin(), pair.frames[1].end());
    return digest_of(samples);
}

} // namespace echo2image
