// The whole way from a frame of a recording to its grey picture.
#pragma once

#include "bmode.h"
#include "rf_stages.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace echo2image {

// The same echoes in a medium of another sound speed, 0 for that of the description. They keep their times, so that depths
// along the line change; where the probe holds its lines does not. Throws BadInput.
Description at_sound_speed(Description description, double sound_speed);

// Everything besides the samples that decides the pixels. In a request zero means "choose"; in a recipe everything that
// applies to the recording has its value.
struct ChainParameters
{
    double sound_speed = 0;                          // m/s; 0, also in a recipe: the recording's own
    double center_frequency = 0;                     // Hz; RF only
    int taps = 0;                                    // RF only
    int decimation = 0;                              // RF and I/Q
    DetectorKind detector = DetectorKind::automatic; // RF only
    double bandwidth = 0;                            // Hz; RF only
    float reference = 0;                             // envelope that becomes white; RF and I/Q
    double dynamic_range = 0;                        // dB; RF and I/Q
    RfOptions rf;                                    // RF only
    bool smooth = false;                             // lines; not pictures
    int width = 0;                                   // pixels, without the margin of the scale
    bool scale = false;
};

// The chain for one recording: RF stages, detector, compression and scan conversion with their parameters.
class Chain
{
public:
    Chain(const Description& description, const ChainParameters& wanted); // throws BadInput

    const ChainParameters& parameters() const { return parameters_; } // every choice made, but the reference
    bool has_envelope() const { return detector_.has_value(); }
    const EnvelopeDetector& detector() const { return *detector_; } // only with has_envelope()
    std::int64_t lines() const { return lines_; } // of an envelope; more than the recording's when lines are interpolated
    const ScanConverter& converter() const { return *converter_; }
    void set_reference(float reference) { parameters_.reference = reference; }

    // Whether frames must hold all firings, [line][firing][sample], and not the first one alone.
    bool needs_firings() const { return parameters_.rf.pulse_inversion != PulseInversion::none; }
    // Of a frame of RF or I/Q; only with has_envelope().
    EnvelopeFrame envelope(const std::vector<std::int16_t>& frame, StageTimes* times = nullptr) const;

    // Compression and scan conversion, and the scale when the parameters ask for one. An envelope needs a reference.
    GreyImage picture(const EnvelopeFrame& envelope, StageTimes* times = nullptr) const;
    GreyImage picture(const std::vector<std::uint8_t>& grey_lines, StageTimes* times = nullptr) const;

private:
    void prepare_grey_values(const Description& description, const ChainParameters& wanted);
    void prepare_echoes(const Description& description, const ChainParameters& wanted);
    std::vector<std::uint8_t> clipped_envelope(const std::vector<std::int16_t>& clipped) const;

    ChainParameters parameters_;
    std::int64_t lines_ = 0;
    std::optional<RfStages> stages_; // when there is something to do
    std::optional<EnvelopeDetector> detector_;
    std::optional<ScanConverter> converter_;
};

float largest(const EnvelopeFrame& envelope);

} // namespace echo2image
