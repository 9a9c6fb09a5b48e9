// What can be done to the RF lines of a frame before they are demodulated.
#pragma once

#include "recording.h"
#include "stage_times.h"

#include <cstdint>
#include <string>
#include <vector>

namespace echo2image {

// Twice the sampling rate along the line.
enum class Upsampling
{
    none,
    full, // Upsample2: eight taps
    fast, // Upsample2Fast: four
};

// How the two firings of a beam with opposite polarity (pulse inversion) become one line. What follows the pulse linearly
// cancels in their sum; what tissue adds in proportion to its square, the second harmonic, remains.
enum class PulseInversion
{
    none,
    sum,   // InterpRFHarm2, InterpRFHarm4
    blend, // BlendTwoRF2D: summed near the probe, with less and less of the second firing across a ramp
};

struct RfOptions
{
    Upsampling upsampling = Upsampling::none;
    int interpolate = 1; // 1, 2 or 4 times as many lines
    PulseInversion pulse_inversion = PulseInversion::none;
    // Of blending. Both ends negative: from a third of the line to two thirds. The kernel rounds them down to blocks of 8.
    int ramp_start = -1; // first sample
    int ramp_end = -1;   // first sample behind
    int percent = 100;   // how much of the second firing is taken away behind the ramp
};

struct RfFrame
{
    std::vector<std::int16_t> samples; // [line][sample]; silence is 0
    float unit = 1;                    // of the samples, in steps of the recording; a power of two
    // [line][sample of the recording]: not 0 where both firings were at full scale; empty without pulse inversion.
    std::vector<std::int16_t> clipped;
};

// Line interpolation is linear between neighbouring lines: it suits lines that lie so close that their echoes are in phase.
class RfStages
{
public:
    RfStages(const Description& description, const RfOptions& options); // throws BadInput
    // Of the frames that come out: lines, samples, sampling rate, geometry, and where the echoes that matter lie.
    const Description& description() const { return after_; }
    const RfOptions& options() const { return options_; } // every choice made
    bool idle() const;                                    // nothing to do
    // `frame` is [line][sample], for pulse inversion [line][firing][sample]. Throws BadInput when the two firings are not
    // of opposite polarity.
    RfFrame process(const std::vector<std::int16_t>& frame, StageTimes* times = nullptr) const;

private:
    void prepare_pulse_inversion(const std::string& where);
    void prepare_blending(const std::string& where);
    RfFrame combined(const std::vector<std::int16_t>& pairs) const;
    std::vector<std::int16_t> upsampled(const std::vector<std::int16_t>& lines) const;
    std::vector<std::int16_t> interpolated(const std::vector<std::int16_t>& lines) const;

    Description before_;
    Description after_;
    RfOptions options_;
};

// How alike two firings are, -1 to 1: the correlation of all samples of the first with those of the second. `pairs` is
// [line][firing][sample]; 0 when either is silent.
double correlation_of_firings(const std::vector<std::int16_t>& pairs, std::int64_t samples);

} // namespace echo2image
