// How far two envelopes of the same echoes lie apart.
#pragma once

#include "bmode.h"

#include <cstdint>

namespace echo2image {

// Distances in dB wherever `expected` reaches the floor; frames may be added one after the other.
class EnvelopeDifference
{
public:
    explicit EnvelopeDifference(double floor) : floor_(floor) {}
    // Both have the same lines and samples. Throws std::logic_error when they do not.
    void add(const EnvelopeFrame& found, const EnvelopeFrame& expected);

    std::int64_t count() const { return count_; }   // of values compared
    double rms() const;                             // dB; 0 when nothing was compared
    double largest() const { return largest_; }     // dB
    std::int64_t silent() const { return silent_; } // values, not among those compared, where one is 0 and the other not

private:
    double floor_;
    std::int64_t count_ = 0;
    std::int64_t silent_ = 0;
    double squares_ = 0;
    double largest_ = 0;
};

} // namespace echo2image
