#include "bad_input.h"
#include "bmode.h"
#include "filter_design.h"
#include "portable_math.h"
#include "sample_gain.h"

#include <utils_sse.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>

namespace echo2image {

namespace {

static_assert(std::is_same_v<std::int16_t, short>, "the kernels' samples are shorts");

constexpr std::int64_t most_samples = 1 << 27; // of a line; keeps every size within the kernels' ints
constexpr std::int64_t block_samples = 32768;  // lines are worked on in blocks of about this size
constexpr int demodulation_block = 8;          // DemodulateNew zeroes what remains behind the last whole block

std::int64_t lines_per_block(std::int64_t samples, std::int64_t lines)
{
    return std::clamp<std::int64_t>(block_samples / samples, 1, lines);
}

std::int16_t q15(double value)
{
    return static_cast<std::int16_t>(std::floor(32767 * value + 0.5));
}

} // namespace

EnvelopeDetector::EnvelopeDetector(const Description& description, const DetectorOptions& options) : description_(description)
{
    const std::string where = description.source.string() + ": ";
    if (description.content == Content::bmode)
        throw BadInput(where + "grey values have no envelope to detect");
    if (description.lines < 1 || description.samples < 1 || description.samples > most_samples ||
        description.lines > std::numeric_limits<std::int64_t>::max() / most_samples)
        throw BadInput(where + "lines of 1 to " + std::to_string(most_samples) + " samples expected, found " +
                       std::to_string(description.lines) + " lines of " + std::to_string(description.samples));
    if (options.decimation < 0 || options.decimation > description.samples)
        throw BadInput("--decimation must lie between 1 and the " + std::to_string(description.samples) +
                       " samples of a line, found " + std::to_string(options.decimation));

    if (description.content == Content::iq) {
        if (options.taps > 1 || options.bandwidth != 0)
            throw BadInput(where + "I/Q samples are not filtered; leave out --taps and --bandwidth");
        taps_ = {1.0F};
        decimation_ = std::max(1, options.decimation);
        return;
    }

    const DetectorOptions chosen = choose_detector(description, options);
    decimation_ = chosen.decimation;
    bandwidth_ = chosen.bandwidth;
    const double cutoff = 0.5 * bandwidth_ / description.sampling_frequency;
    int line_end = 0; // samples that must be readable behind the last window
    if (chosen.kind == DetectorKind::fixed) {
        // An odd filter has its middle on a sample; the last tap is zero.
        fixed_ = find_fixed_detector(chosen.taps, chosen.decimation);
        taps_ = design_low_pass(chosen.taps - 1, cutoff, 2.0);
        table_ = tap_table(*fixed_, taps_);
        line_end = 1 + fixed_detector_overread;
    } else {
        taps_ = design_low_pass(chosen.taps, cutoff, 2.0);
    }
    if (!(std::fabs(description.offset) <= 32768))
        throw BadInput(where + "offset must lie within the 16 bits of the samples, found " +
                       std::to_string(description.offset));

    // Half a filter of silence on either side centers output j on sample j * decimation and keeps the line's depth range.
    const std::int64_t padded = description.samples + static_cast<std::int64_t>(taps_.size()) - 1 + line_end;
    padded_ = static_cast<int>((padded + demodulation_block - 1) / demodulation_block * demodulation_block);
    std::shared_ptr<std::int16_t> carrier = aligned_samples(std::int64_t{2} * padded_);
    const double turns_per_sample = description.center_frequency / description.sampling_frequency;
    for (int i = 0; i < padded_; ++i) {
        const double turns = turns_per_sample * i;
        const double angle = 2 * portable::pi * (turns - std::floor(turns));
        carrier.get()[i] = q15(portable::cos(angle));
        carrier.get()[padded_ + i] = q15(-portable::sin(angle));
    }
    carrier_ = carrier;
}

const char* EnvelopeDetector::name() const
{
    return fixed_ != nullptr ? fixed_->name : "EnvelopDetectGen";
}

std::int64_t EnvelopeDetector::samples() const
{
    return (description_.samples + decimation_ - 1) / decimation_;
}

EnvelopeFrame EnvelopeDetector::detect(const std::vector<std::int16_t>& frame, StageTimes* times) const
{
    const std::int64_t components = description_.content == Content::iq ? 2 : 1;
    const std::int64_t expected = description_.lines * description_.samples * components;
    if (static_cast<std::int64_t>(frame.size()) != expected)
        throw BadInput(description_.source.string() + ": a frame of " + std::to_string(expected) + " numbers expected, found " +
                       std::to_string(frame.size()));
    EnvelopeFrame envelope;
    envelope.lines = description_.lines;
    envelope.samples = samples();
    envelope.sample_spacing = sample_spacing();
    envelope.values.resize(static_cast<std::size_t>(envelope.lines * envelope.samples));
    if (description_.content == Content::iq)
        detect_iq(frame, envelope, times);
    else
        detect_rf(frame, envelope, times);
    return envelope;
}

void EnvelopeDetector::detect_rf(const std::vector<std::int16_t>& frame, EnvelopeFrame& envelope, StageTimes* times) const
{
    const std::int64_t samples = description_.samples;
    const std::int64_t block = lines_per_block(padded_, description_.lines);
    const auto rf = aligned_samples(block * padded_);
    const auto in_phase = aligned_samples(block * padded_);
    const auto quadrature = aligned_samples(block * padded_);

    std::vector<float> taps = taps_;
    const SampleGain gain = [&] {
        const StageTimer timer(times, "scale", 0);
        return SampleGain(frame, description_.offset);
    }();
    for (float& tap : taps)
        tap *= gain.undo();

    for (std::int64_t first = 0; first < description_.lines; first += block) {
        const std::int64_t lines = std::min(block, description_.lines - first);
        {
            const StageTimer timer(times, "scale", lines);
            for (std::int64_t line = 0; line < lines; ++line) {
                const std::int16_t* source = frame.data() + (first + line) * samples;
                std::transform(source, source + samples, rf.get() + line * padded_ + (taps_.size() - 1) / 2,
                               [&](std::int16_t sample) { return gain.apply(sample); });
            }
        }
        {
            const StageTimer timer(times, "demodulate", lines);
            CUtils_SSE::DemodulateNew(rf.get(), in_phase.get(), quadrature.get(), carrier_.get(), carrier_.get() + padded_,
                                      static_cast<int>(lines), padded_);
        }
        const StageTimer timer(times, "envelope", lines);
        const int count = static_cast<int>(envelope.samples);
        float* const values = envelope.values.data() + first * envelope.samples;
        if (fixed_ != nullptr) {
            fixed_->detect(in_phase.get(), quadrature.get(), values, table_.taps.get(), static_cast<int>(lines), padded_, count,
                           count, fixed_->taps, decimation_);
            CUtils_SSE::FScaleArray(values, values, static_cast<float>(2.0 / table_.gain) * gain.undo(),
                                    static_cast<int>(lines) * count);
        } else {
            CUtils_SSE::EnvelopDetectGen(in_phase.get(), quadrature.get(), values, taps.data(), static_cast<int>(lines),
                                         padded_, count, count, static_cast<int>(taps.size()), decimation_);
        }
    }
}

void EnvelopeDetector::detect_iq(const std::vector<std::int16_t>& frame, EnvelopeFrame& envelope, StageTimes* times) const
{
    const std::int64_t samples = description_.samples;
    const std::int64_t block = lines_per_block(samples, description_.lines);
    std::vector<std::int16_t> in_phase(static_cast<std::size_t>(block * samples));
    std::vector<std::int16_t> quadrature(in_phase.size());

    for (std::int64_t first = 0; first < description_.lines; first += block) {
        const std::int64_t lines = std::min(block, description_.lines - first);
        {
            const StageTimer timer(times, "split I and Q", lines);
            const std::int16_t* pairs = frame.data() + first * samples * 2;
            for (std::int64_t i = 0; i < lines * samples; ++i) {
                in_phase[static_cast<std::size_t>(i)] = pairs[2 * i];
                quadrature[static_cast<std::size_t>(i)] = pairs[2 * i + 1];
            }
        }
        const StageTimer timer(times, "envelope", lines);
        CUtils_SSE::EnvelopDetectGen(in_phase.data(), quadrature.data(), envelope.values.data() + first * envelope.samples,
                                     taps_.data(), static_cast<int>(lines), static_cast<int>(samples),
                                     static_cast<int>(envelope.samples), static_cast<int>(envelope.samples), 1, decimation_);
    }
}

} // namespace echo2image
