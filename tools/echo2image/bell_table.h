// The bell of which synthetic pulses and beams are made.
#pragma once

#include "portable_math.h"

#include <cmath>
#include <vector>

namespace echo2image {

// Half a Gaussian bell of height 1 as a table, up to 4 standard deviations (-69 dB).
class BellTable
{
public:
    static constexpr double reach = 4.0;
    BellTable()
    {
        for (int i = 0; i <= steps; ++i) {
            const double x = reach * i / steps;
            values_.push_back(portable::exp(-0.5 * x * x));
        }
    }
    // |x| <= reach
    double operator()(double x) const { return values_[static_cast<std::size_t>(std::fabs(x) * (steps / reach) + 0.5)]; }

private:
    static constexpr int steps = 4096;
    std::vector<double> values_;
};

} // namespace echo2image
