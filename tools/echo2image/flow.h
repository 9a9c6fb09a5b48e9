// From I/Q ensembles to the flow behind them: clutter filter and autocorrelation per pixel.
#pragma once

#include "bmode.h"
#include "clutter_filter.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace echo2image {

// Repeated firings of every line and depth: [line][sample][firing][I, Q].
struct EnsembleFrame
{
    std::int64_t lines = 0;
    std::int64_t samples = 0; // per line
    int firings = 0;
    std::vector<std::int16_t> iq;
};

struct FlowOptions
{
    ClutterFilter filter;
    bool mix = false;      // turn every ensemble so that its surroundings' clutter stands still for the filter
    int average_lines = 1; // neighbourhood over which autocorrelations are averaged; both odd
    int average_samples = 1;
};

// What the autocorrelation R1 = sum of conj(z[k]) z[k+1] and the power R0 = sum of |z[k]|^2 say of each pixel; all arrays
// are [line][sample].
struct FlowMaps
{
    std::int64_t lines = 0;
    std::int64_t samples = 0;
    int firings = 0;
    std::vector<float> tissue;    // R0 before the filter
    std::vector<float> r0;        // after the filter, as the following ones
    std::vector<float> real;      // of R1
    std::vector<float> imaginary; // of R1
    std::vector<float> spread;    // 1 - |R1| / R0, 0 for silence
    std::vector<float> power;     // 10 log10(R0 / firings + 1)
};

constexpr int fewest_firings = 3;
constexpr int most_firings = 256;
constexpr int most_averaged = 99; // lines or samples

// An estimator for ensembles of one length: designs the filter once, then turns frames into maps.
class FlowEstimator
{
public:
    FlowEstimator(const FlowOptions& options, int firings); // throws BadInput
    FlowMaps estimate(const EnsembleFrame& frame, StageTimes* times = nullptr) const;
    const std::vector<double>& matrix() const { return matrix_; } // [row][column], firings x firings

private:
    std::vector<float> clutter_phases(const EnsembleFrame& frame) const;
    void filter_and_correlate(const EnsembleFrame& frame, const std::vector<float>& clutter, FlowMaps& maps) const;
    void average(FlowMaps& maps) const;

    FlowOptions options_;
    int firings_;
    int filtered_firings_; // what IIRPerformMatrix gets
    std::vector<double> matrix_;
    std::shared_ptr<float> kernel_matrix_; // filtered_firings_ x filtered_firings_
};

// Largest power in dB of pixels that turn by at least `least_phase` radians per firing and spread no more than
// `greatest_spread`; of all pixels where there are none.
double largest_power(const FlowMaps& maps, double least_phase, double greatest_spread);

// Every value of [line][sample] becomes the mean of a neighbourhood of odd size, cut at the edges.
void box_mean(std::vector<float>& values, std::int64_t lines, std::int64_t samples, int across, int along);

} // namespace echo2image
