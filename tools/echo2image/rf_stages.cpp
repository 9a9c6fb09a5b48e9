#include "rf_stages.h"

#include "bad_input.h"
#include "sample_gain.h"

#include <utils_sse.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace echo2image {

namespace {

// The upsamplers read in front of short lines, and Upsample2 takes x[4] for x[5] in output 3. With this silence in front,
// which is what they assume there, and at least as many samples behind it, every output follows their formula.
constexpr std::int64_t upsampling_lead = 8;
// The magnitudes of the taps add up to 1756 / 1024 and 20 / 16: what is not larger than this stays within 16 bits.
constexpr int upsampling_limit = 19105;
constexpr int fast_upsampling_limit = 26212;

constexpr std::int64_t pair_block = 8;               // the pair kernels have no proper tail
constexpr std::int64_t longest_blended_line = 32760; // whole blocks below 32768
// Of a recording that does not state its bandwidth, relative to its center frequency.
constexpr double usual_relative_bandwidth = 0.4;
// Firings of opposite polarity correlate by nearly -1, those of an ensemble by nearly +1, noise by 0.
constexpr double least_opposition = -0.25;

// Behind the last line there is no neighbour to interpolate with.
std::int64_t lines_after(std::int64_t lines, int factor)
{
    return factor * (lines - 1) + 1;
}

} // namespace

RfStages::RfStages(const Description& description, const RfOptions& options)
    : before_(description), after_(description), options_(options)
{
    const std::string where = description.source.string() + ": ";
    if (options.interpolate != 1 && options.interpolate != 2 && options.interpolate != 4)
        throw BadInput("--interpolate: expected 2 or 4, found " + std::to_string(options.interpolate));
    if (idle())
        return;
    if (description.content != Content::rf)
        throw BadInput(where + "--upsample, --interpolate and --harmonic need RF, found " + to_string(description.content));
    if (!(std::fabs(description.offset) <= 32768))
        throw BadInput(where + "offset must lie within the 16 bits of the samples, found " +
                       std::to_string(description.offset));
    prepare_pulse_inversion(where);
    const double elements = static_cast<double>(description.lines + 1) * static_cast<double>(description.samples + pair_block) *
                            std::max(2, options.interpolate) * (options.upsampling != Upsampling::none ? 2 : 1);
    constexpr int most = std::numeric_limits<int>::max();
    if (!(elements <= most)) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "--upsample, --interpolate and --harmonic make frames of at most %d samples, found %.0f", most, elements);
        throw BadInput(where + text);
    }

    after_.offset = 0; // process() takes it out
    after_.dead_lines.clear();
    if (options.upsampling != Upsampling::none) {
        after_.samples *= 2;
        after_.sampling_frequency *= 2;
        after_.sample_spacing /= 2;
    }
    after_.lines = lines_after(description.lines, options.interpolate);
    after_.geometry.line_pitch /= options.interpolate;
    after_.geometry.angle_step /= options.interpolate;
}

bool RfStages::idle() const
{
    return options_.upsampling == Upsampling::none && options_.interpolate == 1 &&
           options_.pulse_inversion == PulseInversion::none;
}

void RfStages::prepare_pulse_inversion(const std::string& where)
{
    if (options_.pulse_inversion == PulseInversion::none)
        return;
    if (before_.firings != 2)
        throw BadInput(where + "--harmonic needs pulse inversion, 2 firings of every line with opposite polarity (axis " +
                       "firing); found " + std::to_string(before_.firings) + (before_.firings == 1 ? " firing" : " firings"));
    if (before_.offset != 0)
        throw BadInput(where + "--harmonic needs samples whose silence is 0, found offset " + std::to_string(before_.offset));
    after_.firings = 1;
    if (options_.pulse_inversion == PulseInversion::blend) {
        prepare_blending(where);
    } else {
        after_.center_frequency *= 2;
        after_.bandwidth *= std::sqrt(2.0); // the square of a bell has a spectrum wider by sqrt(2)
    }
}

void RfStages::prepare_blending(const std::string& where)
{
    if (before_.samples > longest_blended_line)
        throw BadInput(where + "--harmonic blend takes lines of at most " + std::to_string(longest_blended_line) +
                       " samples, found " + std::to_string(before_.samples));
    const auto samples = static_cast<int>(before_.samples);
    if (options_.ramp_start < 0 && options_.ramp_end < 0) {
        options_.ramp_start = samples / 3;
        options_.ramp_end = samples * 2 / 3;
    }
    if (options_.ramp_start < 0 || options_.ramp_end < options_.ramp_start || options_.ramp_end > samples)
        throw BadInput(where + "--ramp must lie within the line and not end before it starts, found samples " +
                       std::to_string(options_.ramp_start) + " to " + std::to_string(options_.ramp_end) + " of " +
                       std::to_string(samples));
    if (options_.percent < 0 || options_.percent > 100)
        throw BadInput("--percent: expected 0 to 100, found " + std::to_string(options_.percent));
    // The harmonic near the probe and the fundamental beyond: a band with both.
    const double fundamental = before_.center_frequency;
    after_.center_frequency = 1.5 * fundamental;
    after_.bandwidth = fundamental + (before_.bandwidth > 0 ? before_.bandwidth : usual_relative_bandwidth * fundamental);
}

RfFrame RfStages::process(const std::vector<std::int16_t>& frame, StageTimes* times) const
{
    const bool pairs = options_.pulse_inversion != PulseInversion::none;
    const std::int64_t expected = before_.lines * before_.samples * (pairs ? 2 : 1);
    if (static_cast<std::int64_t>(frame.size()) != expected)
        throw BadInput(before_.source.string() + ": a frame of " + std::to_string(expected) + " samples expected, found " +
                       std::to_string(frame.size()));
    RfFrame result;
    if (pairs) {
        const StageTimer timer(times, "pulse inversion", before_.lines);
        result = combined(frame);
    } else {
        result.samples = frame;
    }
    // The kernels that sum pairs make lines in between as well.
    const bool more_lines = options_.interpolate > 1 && options_.pulse_inversion != PulseInversion::sum;
    if (options_.upsampling != Upsampling::none || more_lines) {
        const StageTimer timer(times, "scale", 0);
        const int limit = options_.upsampling == Upsampling::full   ? upsampling_limit
                          : options_.upsampling == Upsampling::fast ? fast_upsampling_limit
                                                                    : 32767;
        const SampleGain gain(result.samples, before_.offset, limit);
        result.unit = gain.undo();
        std::transform(result.samples.begin(), result.samples.end(), result.samples.begin(),
                       [&](std::int16_t sample) { return gain.apply(sample); });
    }
    if (options_.upsampling != Upsampling::none) {
        const StageTimer timer(times, "upsample", static_cast<std::int64_t>(result.samples.size()) / before_.samples);
        result.samples = upsampled(result.samples);
    }
    if (more_lines) {
        const StageTimer timer(times, "interpolate", before_.lines);
        result.samples = interpolated(result.samples);
    }
    return result;
}

RfFrame RfStages::combined(const std::vector<std::int16_t>& pairs) const
{
    const std::int64_t lines = before_.lines;
    const std::int64_t samples = before_.samples;
    const double correlation = correlation_of_firings(pairs, samples);
    const bool silent = std::all_of(pairs.begin(), pairs.end(), [](std::int16_t sample) { return sample == 0; });
    if (!silent && !(correlation <= least_opposition)) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "--harmonic needs two firings of opposite polarity, whose echoes correlate by about -1; found %.2f",
                      correlation);
        throw BadInput(before_.source.string() + ": " + text);
    }

    // Whole blocks of 8 per line, and a silent pair behind the last one, which the summing kernels read.
    const std::int64_t padded = (samples + pair_block - 1) / pair_block * pair_block;
    std::vector<std::int16_t> firings(static_cast<std::size_t>(2 * (lines + 1) * padded));
    for (std::int64_t firing = 0; firing < 2 * lines; ++firing)
        std::copy_n(pairs.data() + firing * samples, samples, firings.data() + firing * padded);

    // Lines that a kernel makes of one pair, and every how many of them is wanted.
    const bool sum = options_.pulse_inversion == PulseInversion::sum;
    const int made = !sum ? 1 : options_.interpolate == 4 ? 4 : 2;
    const int step = sum ? made / options_.interpolate : 1;
    std::vector<std::int16_t> combined(static_cast<std::size_t>(made * lines * padded));
    std::vector<std::int16_t> mask(combined.size());
    const auto width = static_cast<int>(padded);
    if (sum)
        (made == 4 ? CUtils_SSE::InterpRFHarm4 : CUtils_SSE::InterpRFHarm2)(combined.data(), firings.data(), mask.data(),
                                                                            static_cast<int>(2 * lines), width);
    else
        CUtils_SSE::BlendTwoRF2D(firings.data(), combined.data(), mask.data(), static_cast<int>(lines), width,
                                 options_.ramp_start, options_.ramp_end, options_.percent);

    RfFrame result;
    const std::int64_t count = sum ? after_.lines : lines;
    result.samples.resize(static_cast<std::size_t>(count * samples));
    for (std::int64_t line = 0; line < count; ++line)
        std::copy_n(combined.data() + line * step * padded, samples, result.samples.data() + line * samples);
    // A line in between, whoever makes it, suffers from both neighbours.
    result.clipped.resize(static_cast<std::size_t>(after_.lines * samples));
    for (std::int64_t line = 0; line < after_.lines; ++line) {
        const std::int64_t pair = line / options_.interpolate;
        const std::int64_t next = pair + (line % options_.interpolate != 0 ? 1 : 0);
        const std::int16_t* const a = mask.data() + pair * made * padded;
        const std::int16_t* const b = mask.data() + next * made * padded;
        std::transform(a, a + samples, b, result.clipped.data() + line * samples,
                       [](std::int16_t one, std::int16_t other) { return static_cast<std::int16_t>(one | other); });
    }
    return result;
}

std::vector<std::int16_t> RfStages::upsampled(const std::vector<std::int16_t>& lines) const
{
    const std::int64_t samples = before_.samples;
    const std::int64_t length = upsampling_lead + std::max(samples, upsampling_lead);
    std::vector<std::int16_t> from(static_cast<std::size_t>(length));
    std::vector<std::int16_t> to(static_cast<std::size_t>(2 * length));
    std::vector<std::int16_t> result(2 * lines.size());
    const auto upsample = options_.upsampling == Upsampling::fast ? CUtils_SSE::Upsample2Fast : CUtils_SSE::Upsample2;
    for (std::int64_t first = 0; first < static_cast<std::int64_t>(lines.size()); first += samples) {
        std::copy_n(lines.data() + first, samples, from.data() + upsampling_lead);
        upsample(to.data(), from.data(), static_cast<int>(length));
        std::copy_n(to.data() + 2 * upsampling_lead, 2 * samples, result.data() + 2 * first);
    }
    return result;
}

std::vector<std::int16_t> RfStages::interpolated(const std::vector<std::int16_t>& lines) const
{
    const std::int64_t samples = after_.samples;
    const int factor = options_.interpolate;
    std::vector<std::int16_t> result(static_cast<std::size_t>(factor) * lines.size());
    const auto interpolate = factor == 2 ? CUtils_SSE::Interpolate2 : CUtils_SSE::Interpolate4;
    interpolate(result.data(), lines.data(), static_cast<int>(before_.lines), static_cast<int>(samples));
    if (factor == 4) // which copies only the first half of each line
        for (std::int64_t line = 0; line < before_.lines; ++line)
            std::copy_n(lines.data() + line * samples, samples, result.data() + factor * line * samples);
    result.resize(static_cast<std::size_t>(after_.lines * samples)); // without those behind the last source line
    return result;
}

double correlation_of_firings(const std::vector<std::int16_t>& pairs, std::int64_t samples)
{
    // In integers, which compilers add faster than doubles whose order they must keep.
    std::int64_t products = 0;
    std::int64_t first_power = 0;
    std::int64_t second_power = 0;
    const auto length = static_cast<std::ptrdiff_t>(samples);
    for (auto line = pairs.begin(); line != pairs.end(); line += 2 * length)
        for (std::ptrdiff_t i = 0; i < length; ++i) {
            const std::int32_t first = line[i];
            const std::int32_t second = line[length + i];
            products += first * second;
            first_power += first * first;
            second_power += second * second;
        }
    const double power = std::sqrt(static_cast<double>(first_power) * static_cast<double>(second_power));
    return power > 0 ? static_cast<double>(products) / power : 0;
}

} // namespace echo2image
