// An envelope with places, and the statistics of its speckle.
#pragma once

#include "bmode.h"
#include "synthetic.h"

#include <cmath>
#include <cstdint>
#include <limits>

namespace echo2image {

double decibels_of_power(double ratio);

// Mean, standard deviation and mean square.
class Statistics
{
public:
    void add(double value)
    {
        count_ += 1;
        sum_ += value;
        squares_ += value * value;
    }
    double count() const { return count_; }
    double mean() const { return count_ > 0 ? sum_ / count_ : std::numeric_limits<double>::quiet_NaN(); }
    double power() const { return count_ > 0 ? squares_ / count_ : std::numeric_limits<double>::quiet_NaN(); }
    double deviation() const { return std::sqrt(power() - mean() * mean()); }

private:
    double count_ = 0;
    double sum_ = 0;
    double squares_ = 0;
};

// An envelope with the places of its samples.
class Field
{
public:
    Field(const EnvelopeFrame& envelope, const Geometry& geometry)
        : envelope_(envelope), first_line_(geometry.first_line), pitch_(geometry.line_pitch),
          top_(geometry.start_depth + envelope.first_sample_offset), spacing_(envelope.sample_spacing)
    {}
    std::int64_t lines() const { return envelope_.lines; }
    std::int64_t samples() const { return envelope_.samples; }
    double lateral(double line) const { return first_line_ + line * pitch_; }
    double depth(double sample) const { return top_ + sample * spacing_; }
    double line_at(double lateral) const { return (lateral - first_line_) / pitch_; }
    double sample_at(double depth) const { return (depth - top_) / spacing_; }
    double at(std::int64_t line, std::int64_t sample) const
    {
        return envelope_.values[static_cast<std::size_t>(line * envelope_.samples + sample)];
    }

private:
    const EnvelopeFrame& envelope_;
    double first_line_;
    double pitch_;
    double top_;
    double spacing_;
};

// All of the stretch of plain speckle.
Statistics speckle_of(const Field& field, const Phantom& truth);

// Lateral width at half height of the correlation of intensity, from the correlation of neighbouring lines.
double lateral_speckle_size(const Field& field, const Phantom& truth, double mean_power);

} // namespace echo2image
