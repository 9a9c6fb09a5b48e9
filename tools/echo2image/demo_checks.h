// Measures what the demo made of the synthetic scanner's echoes and holds it against the phantom's truth.
#pragma once

#include "bmode.h"
#include "check.h"
#include "motion_picture.h"
#include "synthetic.h"
#include "synthetic_motion.h"

#include <vector>

namespace echo2image {

// Wires: position of the peak. Cysts: power inside against power of the speckle stretch. Speckle: mean over standard
// deviation of the envelope, and lateral size.
std::vector<Check> check_envelope(const EnvelopeFrame& envelope, const SyntheticFrame& frame);

// Pulse inversion: what it leaves of the fundamental and makes of the second harmonic in the speckle stretch; lateral size of
// the speckle in `envelope`, the harmonic one; where echoes are marked as clipped.
std::vector<Check> check_harmonic(const EnvelopeFrame& envelope, const PulseInversionFrame& pairs);

// Blocks against the motion in their middles: lengths of the errors in pixels of the pictures tracked, and how many blocks
// were tracked.
std::vector<Check> check_motion(const MotionPicture& picture, const MotionOptions& options, const MotionPair& pair);

// The same targets as grey values, where the converter says they are: finds faults of compression and scan conversion.
std::vector<Check> check_picture(const GreyImage& image, const ScanConverter& converter, double dynamic_range,
                                 const SyntheticFrame& frame);

} // namespace echo2image
