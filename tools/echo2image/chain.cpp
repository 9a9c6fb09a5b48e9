#include "chain.h"

#include "bad_input.h"

#include <utils_sse.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <utility>

namespace echo2image {

namespace {

constexpr double usual_dynamic_range = 60;
constexpr std::uint8_t mostly = 128; // a pixel is marked when at least half of what it shows is

bool positive(double value)
{
    return std::isfinite(value) && value > 0;
}

std::string number(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.9g", value);
    return text;
}

} // namespace

Description at_sound_speed(Description description, double sound_speed)
{
    if (sound_speed == 0)
        return description;
    const std::string where = description.source.string() + ": ";
    if (!positive(sound_speed))
        throw BadInput("the sound speed must be positive, found " + number(sound_speed) + " m/s");
    if (description.geometry.kind == Geometry::Kind::picture)
        throw BadInput(where + "--sound-speed works on lines, found rows and columns of a picture");
    const double ratio = sound_speed / description.sound_speed;
    description.sample_spacing *= ratio;
    description.geometry.start_depth *= ratio;
    description.sound_speed = sound_speed;
    return description;
}

Chain::Chain(const Description& stated, const ChainParameters& wanted) : parameters_(wanted)
{
    const Description description = at_sound_speed(stated, wanted.sound_speed);
    const std::string where = description.source.string() + ": ";
    if (wanted.smooth && description.geometry.kind == Geometry::Kind::picture)
        throw BadInput(where + "--smooth works on lines, found rows and columns of a picture");
    if (wanted.center_frequency != 0 && description.content != Content::rf)
        throw BadInput(where + "only RF takes --center-frequency, found " + to_string(description.content));
    const RfStages stages(description, wanted.rf);
    if (!stages.idle())
        stages_ = stages;
    parameters_.rf = stages.options();
    lines_ = stages.description().lines;
    if (description.content == Content::bmode)
        prepare_grey_values(description, wanted);
    else
        prepare_echoes(stages.description(), wanted);
    parameters_.width = converter_->width();
    const bool rows = description.geometry.kind == Geometry::Kind::picture;
    grey_rows_ = rows ? description.samples : lines_;
    grey_columns_ = rows ? lines_ : detector_ ? detector_->samples() : description.samples;
    filters(); // finds out whether they can be
    if (wanted.scale && !converter_->size_known())
        throw BadInput(where + "--scale needs pixels of known size; the description lacks column_spacing and row_spacing");
}

void Chain::prepare_grey_values(const Description& description, const ChainParameters& wanted)
{
    if (wanted.taps != 0 || wanted.decimation != 0 || wanted.bandwidth != 0 || wanted.reference != 0 ||
        wanted.dynamic_range != 0 || wanted.detector != DetectorKind::automatic)
        throw BadInput(description.source.string() +
                       ": holds grey values already; --taps, --decimation, --bandwidth, --general, --reference and "
                       "--dynamic-range have nothing to act on");
    converter_.emplace(description.geometry, description.lines, description.samples, description.sample_spacing, 0.0,
                       wanted.width);
}

void Chain::prepare_echoes(const Description& description, const ChainParameters& wanted)
{
    if (description.geometry.kind == Geometry::Kind::picture)
        throw BadInput(description.source.string() +
                       ": echoes need the geometry of their lines, found rows and columns of a picture");
    if (wanted.reference != 0 && !positive(wanted.reference))
        throw BadInput("the reference must be a positive number, found " + number(wanted.reference));
    if (wanted.dynamic_range == 0)
        parameters_.dynamic_range = usual_dynamic_range;
    check_dynamic_range(parameters_.dynamic_range);

    Description effective = description;
    if (wanted.center_frequency != 0) {
        if (!positive(wanted.center_frequency))
            throw BadInput("the center frequency must be positive, found " + number(wanted.center_frequency) + " Hz");
        effective.center_frequency = wanted.center_frequency;
    }
    detector_.emplace(effective, DetectorOptions{wanted.taps, wanted.decimation, wanted.bandwidth, wanted.detector});
    parameters_.decimation = detector_->decimation();
    if (description.content == Content::rf) {
        parameters_.center_frequency = effective.center_frequency;
        parameters_.detector = detector_->kind();
        parameters_.taps = detector_->taps();
        parameters_.bandwidth = detector_->bandwidth();
    }
    converter_.emplace(effective.geometry, effective.lines, detector_->samples(), detector_->sample_spacing(), 0.0,
                       wanted.width);
}

EnvelopeFrame Chain::envelope(const std::vector<std::int16_t>& frame, StageTimes* times) const
{
    if (!stages_)
        return detector_->detect(frame, times);
    const RfFrame lines = stages_->process(frame, times);
    EnvelopeFrame envelope = detector_->detect(lines.samples, times);
    if (!lines.clipped.empty())
        envelope.clipped = clipped_envelope(lines.clipped);
    if (lines.unit != 1)
        for (std::int64_t line = 0; line < envelope.lines; ++line) {
            float* const values = envelope.values.data() + line * envelope.samples;
            CUtils_SSE::FScaleArray(values, values, lines.unit, static_cast<int>(envelope.samples));
        }
    return envelope;
}

// An envelope value stands for the samples that are nearest to it.
std::vector<std::uint8_t> Chain::clipped_envelope(const std::vector<std::int16_t>& clipped) const
{
    const std::int64_t from_samples = static_cast<std::int64_t>(clipped.size()) / lines_;
    const std::int64_t samples = detector_->samples();
    const std::int64_t decimation = detector_->decimation();
    const std::int64_t finer = parameters_.rf.upsampling != Upsampling::none ? 2 : 1;
    std::vector<std::uint8_t> result(static_cast<std::size_t>(lines_ * samples));
    for (std::int64_t line = 0; line < lines_; ++line)
        for (std::int64_t j = 0; j < samples; ++j) {
            const std::int64_t first = std::max<std::int64_t>(0, (2 * j - 1) * decimation / (2 * finer));
            const std::int64_t last = std::min(from_samples - 1, (2 * j + 1) * decimation / (2 * finer));
            const std::int16_t* const from = clipped.data() + static_cast<std::size_t>(line * from_samples);
            if (std::any_of(from + first, from + last + 1, [](std::int16_t flag) { return flag != 0; }))
                result[static_cast<std::size_t>(line * samples + j)] = 255;
        }
    return result;
}

std::vector<std::uint8_t> Chain::grey(const EnvelopeFrame& envelope, StageTimes* times) const
{
    return grey(compress(envelope, parameters_.reference, parameters_.dynamic_range, times), times);
}

std::vector<std::uint8_t> Chain::grey(const std::vector<std::uint8_t>& recorded, StageTimes* times) const
{
    return parameters_.smooth ? smooth(recorded, lines_, times) : recorded;
}

GreyImage Chain::shown(const std::vector<std::uint8_t>& grey_lines, const std::vector<std::uint8_t>& clipped,
                       StageTimes* times) const
{
    GreyImage image = converter_->convert(grey_lines, times);
    if (std::any_of(clipped.begin(), clipped.end(), [](std::uint8_t flag) { return flag != 0; })) {
        image.marks = converter_->convert(clipped, times).pixels;
        for (std::uint8_t& mark : image.marks)
            mark = mark >= mostly ? 255 : 0;
    }
    return parameters_.scale ? with_scale(image, *converter_) : image;
}

GreyImage Chain::picture(const EnvelopeFrame& envelope, StageTimes* times) const
{
    return shown(filters().next(grey(envelope, times), times), envelope.clipped, times);
}

GreyImage Chain::picture(const std::vector<std::uint8_t>& recorded, StageTimes* times) const
{
    return shown(filters().next(grey(recorded, times), times), {}, times);
}

float largest(const EnvelopeFrame& envelope)
{
    return envelope.values.empty() ? 0 : *std::max_element(envelope.values.begin(), envelope.values.end());
}

} // namespace echo2image
