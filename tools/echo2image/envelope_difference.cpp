#include "envelope_difference.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace echo2image {

void EnvelopeDifference::add(const EnvelopeFrame& found, const EnvelopeFrame& expected)
{
    if (found.lines != expected.lines || found.samples != expected.samples)
        throw std::logic_error("envelopes of different size");
    for (std::size_t i = 0; i < expected.values.size(); ++i) {
        const double level = expected.values[i];
        if (!(level >= floor_))
            continue;
        if (!(found.values[i] > 0 && level > 0)) {
            silent_ += double{found.values[i]} != level;
            continue;
        }
        const double distance = std::fabs(20 * std::log10(double{found.values[i]} / level));
        largest_ = std::max(largest_, distance);
        squares_ += distance * distance;
        ++count_;
    }
}

double EnvelopeDifference::rms() const
{
    return count_ > 0 ? std::sqrt(squares_ / static_cast<double>(count_)) : 0;
}

} // namespace echo2image
