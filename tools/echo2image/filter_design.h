// The detector's low-pass: its taps, and which filter and decimation suit a recording.
#pragma once

#include "bmode.h"

#include <vector>

namespace echo2image {

// Windowed sinc (Hamming), symmetric; the response is -6 dB at `cutoff` (cycles per sample) and `gain` at zero.
std::vector<float> design_low_pass(int taps, double cutoff, double gain);

// The options with every zero and `automatic` replaced by a choice. Throws BadInput when the recording lacks what the
// choice needs, when the pass band would let the mixing image through, or when no detector of the wanted kind has the wanted
// taps and decimation.
DetectorOptions choose_detector(const Description& description, const DetectorOptions& options);

} // namespace echo2image
