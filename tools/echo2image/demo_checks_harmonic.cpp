#include "demo_checks.h"
#include "portable_math.h"
#include "rf_stages.h"
#include "speckle_field.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace echo2image {

namespace {

constexpr double mm = 1e-3;
constexpr double narrow_band = 1e6; // Hz; fundamental and harmonic are measured apart

// Power of the speckle stretch around a frequency.
double speckle_power(const std::vector<std::int16_t>& lines, Description description, double frequency, const Phantom& truth)
{
    description.center_frequency = frequency;
    const EnvelopeFrame envelope = EnvelopeDetector(description, {0, 0, narrow_band}).detect(lines);
    return speckle_of(Field(envelope, description.geometry), truth).power();
}

std::vector<std::int16_t> first_firings(const SyntheticFrame& pairs)
{
    const auto samples = static_cast<std::ptrdiff_t>(pairs.description.samples);
    std::vector<std::int16_t> first;
    const auto lines = static_cast<std::ptrdiff_t>(pairs.description.lines);
    for (std::ptrdiff_t line = 0; line < lines; ++line)
        first.insert(first.end(), pairs.rf.begin() + 2 * line * samples, pairs.rf.begin() + (2 * line + 1) * samples);
    return first;
}

void check_marks(const EnvelopeFrame& envelope, const PulseInversionFrame& pairs, std::vector<Check>& checks)
{
    const Field field(envelope, pairs.frame.description.geometry);
    constexpr double none = std::numeric_limits<double>::infinity();
    double first = none;
    double last = -none;
    std::int64_t marked_lines = 0;
    for (std::int64_t line = 0; line < envelope.lines; ++line) {
        bool marked = false;
        for (std::int64_t sample = 0; sample < envelope.samples; ++sample)
            if (!envelope.clipped.empty() &&
                envelope.clipped[static_cast<std::size_t>(line * envelope.samples + sample)] != 0) {
                first = std::min(first, field.depth(static_cast<double>(sample)));
                last = std::max(last, field.depth(static_cast<double>(sample)));
                marked = true;
            }
        marked_lines += marked ? 1 : 0;
    }
    // Within the bell only the peaks of the carrier are clipped, a quarter of the wavelength apart at most from its edge, and
    // a mark stands for a step of the envelope.
    const Description& description = pairs.frame.description;
    const double tolerance = 0.25 * description.sound_speed / description.center_frequency + 0.5 * envelope.sample_spacing;
    checks.push_back(within("clipped: lines", "", static_cast<double>(envelope.lines), static_cast<double>(marked_lines), 0));
    checks.push_back(
        within("clipped: first mark", "mm", (pairs.sheet_depth - pairs.clipped_reach) / mm, first / mm, tolerance / mm));
    checks.push_back(
        within("clipped: last mark", "mm", (pairs.sheet_depth + pairs.clipped_reach) / mm, last / mm, tolerance / mm));
}

} // namespace

std::vector<Check> check_harmonic(const EnvelopeFrame& envelope, const PulseInversionFrame& pairs)
{
    const SyntheticFrame& frame = pairs.frame;
    RfOptions options;
    options.pulse_inversion = PulseInversion::sum;
    const RfStages sum(frame.description, options);
    const std::vector<std::int16_t> both = sum.process(frame.rf).samples;
    const std::vector<std::int16_t> first = first_firings(frame);
    const auto gain = [&](double frequency) {
        return decibels_of_power(speckle_power(both, sum.description(), frequency, frame.truth) /
                                 speckle_power(first, sum.description(), frequency, frame.truth));
    };
    const auto decibels = [](double amplitude) { return decibels_of_power(amplitude * amplitude); };
    const double fundamental = frame.description.center_frequency;
    std::vector<Check> checks;
    // The noise of two firings adds 0.1 to 0.2 dB to what is left of the fundamental.
    checks.push_back(within("sum: fundamental", "dB", decibels(pairs.fundamental_left), gain(fundamental), 0.3));
    checks.push_back(within("sum: second harmonic", "dB", decibels(pairs.harmonic_gain), gain(2 * fundamental), 0.1));

    const Field field(envelope, frame.description.geometry);
    const double truth = frame.speckle_size.lateral;
    checks.push_back(within("harmonic speckle, lateral", "mm", truth / mm,
                            lateral_speckle_size(field, frame.truth, speckle_of(field, frame.truth).power()) / mm,
                            0.1 * truth / mm));
    check_marks(envelope, pairs, checks);
    return checks;
}

} // namespace echo2image
