#include "speckle_field.h"

#include "portable_math.h"

namespace echo2image {

double decibels_of_power(double ratio)
{
    return 10 / portable::log(10.0) * portable::log(ratio);
}

Statistics speckle_of(const Field& field, const Phantom& truth)
{
    Statistics speckle;
    for (std::int64_t line = 0; line < field.lines(); ++line)
        for (std::int64_t sample = 0; sample < field.samples(); ++sample) {
            const double depth = field.depth(static_cast<double>(sample));
            if (depth >= truth.speckle_top && depth <= truth.speckle_bottom)
                speckle.add(field.at(line, sample));
        }
    return speckle;
}

double lateral_speckle_size(const Field& field, const Phantom& truth, double mean_power)
{
    double neighbours = 0;
    double same = 0;
    for (std::int64_t line = 0; line + 1 < field.lines(); ++line)
        for (std::int64_t sample = 0; sample < field.samples(); ++sample) {
            const double depth = field.depth(static_cast<double>(sample));
            if (depth < truth.speckle_top || depth > truth.speckle_bottom)
                continue;
            const double here = field.at(line, sample) * field.at(line, sample) - mean_power;
            const double there = field.at(line + 1, sample) * field.at(line + 1, sample) - mean_power;
            neighbours += here * there;
            same += 0.5 * (here * here + there * there);
        }
    const double correlation = neighbours / same;
    if (!(correlation > 0 && correlation < 1))
        return std::numeric_limits<double>::quiet_NaN();
    const double pitch = field.lateral(1) - field.lateral(0);
    return 2 * pitch * std::sqrt(portable::log(2.0) / -portable::log(correlation));
}

} // namespace echo2image
