// The angle of R1 = sum of conj(z[k]) z[k+1]: radians that the echo turns by per firing, positive towards the probe.
#pragma once

#include <vector>

namespace echo2image {

// To the last bit of a float, over the full circle, (-pi, pi]. 0 where R1 is 0.
float exact_phase(float real, float imaginary);
std::vector<float> exact_phases(const std::vector<float>& real, const std::vector<float>& imaginary);

// The same by ATan2Bound, four at a time, up to 0.0102 radians off. ATan2Bound is right for real and imaginary parts that
// are not negative, so it gets their magnitudes and the quadrant is put back afterwards.
std::vector<float> fast_phases(const std::vector<float>& real, const std::vector<float>& imaginary);

// Adds a turn to the phases that lie below (baseline - 1) pi and takes one from those from (baseline + 1) pi on, so that the
// range shown, one turn wide, lies around baseline * pi. -1 <= baseline <= 1.
void shift_baseline(std::vector<float>& phases, double baseline);

} // namespace echo2image
