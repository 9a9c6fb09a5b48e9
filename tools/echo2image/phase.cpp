#include "phase.h"

#include "portable_math.h"

#include <utils_sse.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace echo2image {

namespace {

constexpr float pi = static_cast<float>(portable::pi);
constexpr float turn = static_cast<float>(2 * portable::pi);
constexpr std::size_t group = 4; // what ATan2Bound takes

// From the first quadrant into the one where R1 lies.
float unfolded(float angle, float real, float imaginary)
{
    if (real == 0 && imaginary == 0)
        return 0;
    const float upper = real < 0 ? pi - angle : angle;
    return imaginary < 0 ? -upper : upper;
}

} // namespace

float exact_phase(float real, float imaginary)
{
    if (real == 0 && imaginary == 0)
        return 0;
    return static_cast<float>(portable::atan2(double{imaginary}, double{real}));
}

std::vector<float> exact_phases(const std::vector<float>& real, const std::vector<float>& imaginary)
{
    std::vector<float> phases(real.size());
    std::transform(real.begin(), real.end(), imaginary.begin(), phases.begin(), exact_phase);
    return phases;
}

std::vector<float> fast_phases(const std::vector<float>& real, const std::vector<float>& imaginary)
{
    std::vector<float> phases(real.size());
    for (std::size_t i = 0; i < real.size(); i += group) {
        const std::size_t count = std::min(group, real.size() - i);
        float x[group] = {};
        float y[group] = {};
        float angles[group];
        float negated[group];
        for (std::size_t k = 0; k < count; ++k) {
            x[k] = std::fabs(real[i + k]);
            y[k] = std::fabs(imaginary[i + k]);
        }
        CUtils_SSE::ATan2Bound(static_cast<int>(group), y, x, 1.0F, angles, negated);
        for (std::size_t k = 0; k < count; ++k)
            phases[i + k] = unfolded(angles[k], real[i + k], imaginary[i + k]);
    }
    return phases;
}

void shift_baseline(std::vector<float>& phases, double baseline)
{
    if (baseline == 0)
        return;
    const auto least = static_cast<float>((baseline - 1) * portable::pi);
    const auto end = static_cast<float>((baseline + 1) * portable::pi);
    for (float& phase : phases)
        phase = phase < least ? phase + turn : phase >= end ? phase - turn : phase;
}

} // namespace echo2image
