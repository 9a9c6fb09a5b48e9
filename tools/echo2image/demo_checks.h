// Measures what the demo made of the synthetic scanner's echoes and holds it against the phantom's truth.
#pragma once

#include "bmode.h"
#include "synthetic.h"

#include <string>
#include <vector>

namespace echo2image {

struct Check
{
    std::string quantity;
    std::string unit;
    double truth = 0;     // minus infinity: as low as can be
    double measured = 0;  // NaN: nothing there to measure
    double tolerance = 0; // largest distance from truth; when truth is minus infinity, the largest value that will do
    bool ok = false;
};

// Wires: position of the peak. Cysts: power inside against power of the speckle stretch. Speckle: mean over standard
// deviation of the envelope, and lateral size.
std::vector<Check> check_envelope(const EnvelopeFrame& envelope, const SyntheticFrame& frame);

// The same targets as grey values, where the converter says they are: finds faults of compression and scan conversion.
std::vector<Check> check_picture(const GreyImage& image, const ScanConverter& converter, double dynamic_range,
                                 const SyntheticFrame& frame);

bool all_ok(const std::vector<Check>& checks);

// One line per check: quantity, truth, measured, tolerance, ok or WRONG.
std::string table_of(const std::vector<Check>& checks);

} // namespace echo2image
