#include "filter_design.h"

#include "bad_input.h"
#include "fixed_detector.h"
#include "portable_math.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

namespace echo2image {

namespace {

constexpr int most_taps = 8191;

// The low-pass is wider than the echoes' band, so that it costs them little of their resolution.
constexpr double margin = 1.5;
// Of a recording that does not state its bandwidth: what suits a usual probe, relative to its center frequency.
constexpr double usual_relative_bandwidth = 0.6;

// With 4 taps per period of the bandwidth the low-pass rolls off like a bell: no ringing behind bright echoes.
constexpr double taps_per_period = 4;

// Envelope samples per period of the bandwidth: at most 0.5 dB of a peak are lost between two of them.
constexpr double samples_per_period = 4;

// The bell's skirts end at one bandwidth from the center; the image must lie beyond, together with half its own width.
constexpr double image_distance = 1.5;

// What a fixed detector must keep to. Shorter filters are wider than asked for, by up to a quarter at this length.
constexpr double fewest_taps_per_period = 1.8;
// At most 0.6 dB of an echo of the stated bandwidth is lost between two envelope samples. With fewer samples than these
// speckle looks coarse: its dark spots fall between them.
constexpr double fewest_samples_per_period = 2;
constexpr double image_rejection = 0.01; // of what the low-pass passes

std::string megahertz(double hertz)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.6g MHz", hertz * 1e-6);
    return text;
}

bool positive(double value)
{
    return std::isfinite(value) && value > 0;
}

// The largest response to the mixing image, which is as wide as the echoes; relative to the response at zero.
double response_to_image(const std::vector<float>& taps, double image, double bandwidth)
{
    constexpr int steps = 16;
    const int half = (static_cast<int>(taps.size()) - 1) / 2;
    double largest = 0;
    for (int i = 0; i <= steps; ++i) {
        const double frequency = image + bandwidth / margin * (static_cast<double>(i) / steps - 0.5);
        double sum = 0;
        for (int k = -half; k <= half; ++k)
            sum += double{taps[static_cast<std::size_t>(k + half)]} * portable::cos(2 * portable::pi * frequency * k);
        largest = std::max(largest, std::fabs(sum));
    }
    return largest;
}

// Whether a fixed detector does justice to a band; bandwidth and image in cycles per sample.
bool fits(const FixedDetector& detector, double bandwidth, double image, bool any_decimation)
{
    return (detector.taps - 1) * bandwidth >= fewest_taps_per_period &&
           (any_decimation || detector.decimation * bandwidth * fewest_samples_per_period <= 1) &&
           response_to_image(design_low_pass(detector.taps - 1, 0.5 * bandwidth, 1.0), image, bandwidth) <= image_rejection;
}

// The least work that does justice to the recording, among the fixed detectors that have what the options ask for. What the
// options ask for is not questioned.
const FixedDetector* choose_fixed(const DetectorOptions& options, double bandwidth, double image)
{
    for (const FixedDetector& detector : fixed_detectors()) {
        const bool wanted = (options.taps == 0 || options.taps == detector.taps) &&
                            (options.decimation == 0 || options.decimation == detector.decimation);
        if (wanted && (options.taps != 0 || fits(detector, bandwidth, image, options.decimation != 0)))
            return &detector;
    }
    return nullptr;
}

void choose_taps(DetectorOptions& options, const Description& description, double image)
{
    const double period = description.sampling_frequency / options.bandwidth; // in samples
    const bool fixed_length = options.taps != 0 && options.taps % 2 == 0;
    if (options.kind != DetectorKind::general && (fixed_length || options.taps == 0)) {
        if (const FixedDetector* fixed = choose_fixed(options, 1 / period, image)) {
            options.kind = DetectorKind::fixed;
            options.taps = fixed->taps;
            options.decimation = fixed->decimation;
            return;
        }
    }
    if (options.kind == DetectorKind::fixed)
        throw BadInput(description.source.string() + ": no fixed-point detector fits a bandwidth of " +
                       megahertz(options.bandwidth) + " at a sampling rate of " + megahertz(description.sampling_frequency));
    options.kind = DetectorKind::general;
    if (options.taps == 0)
        options.taps = std::min(most_taps, 2 * static_cast<int>(std::ceil(taps_per_period * period / 2)) + 1);
    else if (options.taps < 1 || options.taps > most_taps || options.taps % 2 == 0)
        throw BadInput("--taps must be an odd number from 1 to " + std::to_string(most_taps) +
                       ", or 12, 16 or 32 for a fixed-point detector of decimation 4 (32: or 8), found " +
                       std::to_string(options.taps));

    if (options.decimation == 0)
        options.decimation = std::clamp(static_cast<int>(std::floor(period / samples_per_period)), 1,
                                        static_cast<int>(std::min<std::int64_t>(description.samples, 1000)));
}

} // namespace

std::vector<float> design_low_pass(int taps, double cutoff, double gain)
{
    const int half = (taps - 1) / 2;
    std::vector<double> response(static_cast<std::size_t>(taps));
    double sum = 0;
    for (int k = 0; k < taps; ++k) {
        const double t = k - half;
        const double sinc = k == half ? 2 * cutoff : portable::sin(2 * portable::pi * cutoff * t) / (portable::pi * t);
        const double window = taps == 1 ? 1 : 0.54 + 0.46 * portable::cos(portable::pi * t / half);
        response[static_cast<std::size_t>(k)] = sinc * window;
        sum += sinc * window;
    }
    std::vector<float> rounded(response.size());
    std::transform(response.begin(), response.end(), rounded.begin(),
                   [&](double value) { return static_cast<float>(value * gain / sum); });
    return rounded;
}

DetectorOptions choose_detector(const Description& description, const DetectorOptions& options)
{
    const std::string where = description.source.string() + ": ";
    const double fs = description.sampling_frequency;
    const double fc = description.center_frequency;
    if (!positive(fs))
        throw BadInput(where + "sampling_frequency is missing; RF needs one to be demodulated");
    if (!positive(fc))
        throw BadInput(where + "center_frequency is missing; the description or --center-frequency must give it");
    if (fc > 16 * fs)
        throw BadInput(where + "center frequency " + megahertz(fc) + " does not fit a sampling rate of " + megahertz(fs));

    // Mixing shifts the echoes to zero and their negative half to twice the center frequency, folded by the sampling.
    const double turns = 2 * fc / fs;
    const double image = std::fabs(turns - std::floor(turns + 0.5)) * fs;
    const double widest = image / image_distance;

    DetectorOptions chosen = options;
    if (options.bandwidth == 0) {
        const double wanted = positive(description.bandwidth) ? margin * description.bandwidth : usual_relative_bandwidth * fc;
        chosen.bandwidth = std::min(wanted, widest);
        if (chosen.bandwidth < fs / 1000)
            throw BadInput(where + "center frequency " + megahertz(fc) + " cannot be demodulated at a sampling rate of " +
                           megahertz(fs) + ": its mixing image falls onto the echoes");
    } else if (!positive(options.bandwidth) || options.bandwidth > widest || options.bandwidth < fs / 1000) {
        throw BadInput(where + "bandwidth must lie between " + megahertz(fs / 1000) + " and " + megahertz(widest) +
                       " (sampling rate " + megahertz(fs) + ", center frequency " + megahertz(fc) + "), found " +
                       megahertz(options.bandwidth));
    }

    choose_taps(chosen, description, image / fs);
    return chosen;
}

} // namespace echo2image
