#include "motion_picture.h"

#include "arrows.h"

#include <algorithm>

namespace echo2image {

namespace {

constexpr int wide_enough = 500; // pixels, for arrows to be told apart
constexpr int greatest_zoom = 4;
constexpr int highest = 2048;

int zoom_for(int width, int height)
{
    int zoom = 1;
    while (zoom < greatest_zoom && zoom * width < wide_enough && (zoom + 1) * height <= highest)
        ++zoom;
    return zoom;
}

} // namespace

MotionPicture make_motion_picture(const Description& description, const ChainParameters& wanted, const MotionOptions& options,
                                  const RecordedFrame& first, const RecordedFrame& second, StageTimes* times,
                                  const std::function<void(int, int)>& between_rows)
{
    ChainParameters plain = Chain(description, wanted).parameters(); // refuses a scale where there can be none
    plain.scale = false;
    Chain tracked(description, plain);
    EnvelopeFrame envelopes[2];
    if (tracked.has_envelope()) {
        envelopes[0] = tracked.envelope(first.echoes, times);
        envelopes[1] = tracked.envelope(second.echoes, times);
        if (wanted.reference == 0) {
            const float reference = std::max(largest(envelopes[0]), largest(envelopes[1]));
            tracked.set_reference(reference > 0 ? reference : 1);
        }
    }
    const auto grey = [&](const Chain& through, int which) {
        if (through.has_envelope())
            return through.picture(envelopes[which], times);
        return through.picture(which == 0 ? first.grey : second.grey, times);
    };
    const GreyImage from = grey(tracked, 0);
    const GreyImage to = grey(tracked, 1);

    MotionPicture result;
    result.chain = tracked.parameters();
    result.chain.scale = wanted.scale;
    result.tracked_width = from.width;
    result.tracked_height = from.height;
    result.pixel_size = from.pixel_size;
    {
        const StageTimer timer(times, "motion search", 0);
        result.blocks = track(from, to, options, between_rows);
    }

    const int zoom = zoom_for(from.width, from.height);
    ChainParameters larger = tracked.parameters();
    larger.width = from.width * zoom;
    const Chain shown(description, larger);
    result.image = grey(shown, 0);
    const StageTimer timer(times, "draw", 0);
    result.magnification = arrow_magnification(result.blocks, options);
    result.image.marks.clear(); // of clipped echoes; here marks are arrows
    draw_arrows(result.image, zoom, result.magnification, result.blocks, options);
    if (wanted.scale)
        result.image = with_scale(result.image, shown.converter());
    result.image = with_arrow_key(result.image, zoom, result.magnification, result.pixel_size);
    return result;
}

} // namespace echo2image
