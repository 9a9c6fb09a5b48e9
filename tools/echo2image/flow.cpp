#include "flow.h"

#include "bad_input.h"
#include "phase.h"
#include "portable_math.h"

#include <utils_sse.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <string>

namespace echo2image {

namespace {

// Surroundings whose clutter is mixed to rest together: enough that tissue prevails over the blood in between.
constexpr int clutter_lines = 5;
constexpr int clutter_samples = 9;
// What turns faster is no clutter and is not mixed.
constexpr float fastest_clutter = static_cast<float>(portable::pi / 8);

// The kernels' shortcut for 10 firings filters with every second row only; the general one needs no 16-byte boundary.
constexpr int paired_firings = 10;
constexpr int embedding_firings = 12;

std::shared_ptr<float> aligned_floats(int count)
{
    void* memory = CUtils_SSE::aligned_malloc(static_cast<unsigned int>(count) * sizeof(float), 16);
    if (memory == nullptr)
        throw std::bad_alloc();
    auto* values = static_cast<float*>(memory);
    std::fill_n(values, count, 0.0F);
    return {values, CUtils_SSE::aligned_free};
}

// One ensemble as the kernels take it: I and Q apart, on 16-byte boundaries, zeros behind the firings up to 12.
class Ensemble
{
public:
    explicit Ensemble(int firings)
        : room_(std::max(embedding_firings, (firings + 3) / 4 * 4)), firings_(firings), memory_(aligned_floats(2 * room_))
    {}
    float* i() { return memory_.get(); }
    float* q() { return memory_.get() + room_; }
    void load(const std::int16_t* iq)
    {
        for (int k = 0; k < firings_; ++k) {
            i()[k] = iq[2 * k];
            q()[k] = iq[2 * k + 1];
        }
    }
    float power() { return CUtils_SSE::FDotProduct(i(), i(), firings_) + CUtils_SSE::FDotProduct(q(), q(), firings_); }

private:
    int room_;
    int firings_;
    std::shared_ptr<float> memory_;
};

struct Correlation
{
    // The kernel's scalar lengths write every result four times.
    float spread[4];
    float power[4];
    float real[4];
    float imaginary[4];

    void of(Ensemble& ensemble, int firings)
    {
        CUtils_SSE::AutoCorrelateSSE(firings, ensemble.i(), ensemble.q(), spread, power, real, imaginary);
    }
};

bool unrolled(int firings)
{
    return firings == 8 || firings == 10 || firings == 12;
}

float spread_of(float r0, float real, float imaginary)
{
    return r0 == 0 ? 0 : static_cast<float>(1 - std::sqrt(double{real} * real + double{imaginary} * imaginary) / double{r0});
}

float power_of(float r0, int firings)
{
    return static_cast<float>(10 / portable::log(10.0) * portable::log(double{r0} / firings + 1));
}

} // namespace

FlowEstimator::FlowEstimator(const FlowOptions& options, int firings)
    : options_(options), firings_(firings), filtered_firings_(firings == paired_firings ? embedding_firings : firings)
{
    if (firings < fewest_firings || firings > most_firings)
        throw BadInput("flow takes ensembles of " + std::to_string(fewest_firings) + " to " + std::to_string(most_firings) +
                       " firings, found " + std::to_string(firings));
    for (const int size : {options.average_lines, options.average_samples})
        if (size < 1 || size > most_averaged || size % 2 == 0)
            throw BadInput("--average: expected odd numbers of lines and samples, 1 to " + std::to_string(most_averaged) +
                           ", found " + std::to_string(options.average_lines) + "x" + std::to_string(options.average_samples));
    matrix_ = design(options.filter, firings);
    // In a 12 x 12 matrix, ten firings with two zeros behind them get their full 10 x 10 product in one call.
    kernel_matrix_ = aligned_floats(filtered_firings_ * filtered_firings_);
    for (int row = 0; row < firings; ++row)
        for (int column = 0; column < firings; ++column)
            kernel_matrix_.get()[row * filtered_firings_ + column] =
                static_cast<float>(matrix_[static_cast<std::size_t>(row * firings + column)]);
}

// Per pixel the mean phase of what surrounds it before the filter.
std::vector<float> FlowEstimator::clutter_phases(const EnsembleFrame& frame) const
{
    Ensemble ensemble(firings_);
    Correlation correlation;
    const std::size_t pixels = static_cast<std::size_t>(frame.lines * frame.samples);
    std::vector<float> real(pixels);
    std::vector<float> imaginary(pixels);
    const std::int16_t* iq = frame.iq.data();
    for (std::size_t pixel = 0; pixel < pixels; ++pixel, iq += 2 * firings_) {
        ensemble.load(iq);
        correlation.of(ensemble, firings_);
        real[pixel] = correlation.real[0];
        imaginary[pixel] = correlation.imaginary[0];
    }
    box_mean(real, frame.lines, frame.samples, clutter_lines, clutter_samples);
    box_mean(imaginary, frame.lines, frame.samples, clutter_lines, clutter_samples);
    std::vector<float> phases = exact_phases(real, imaginary);
    for (float& phase : phases)
        if (std::fabs(phase) > fastest_clutter)
            phase = 0;
    return phases;
}

void FlowEstimator::filter_and_correlate(const EnsembleFrame& frame, const std::vector<float>& clutter, FlowMaps& maps) const
{
    Ensemble raw(firings_);
    Ensemble filtered(firings_);
    Correlation correlation;
    const bool filters = options_.filter.kind != ClutterFilter::Kind::none;
    const std::int16_t* iq = frame.iq.data();
    for (std::size_t pixel = 0; pixel < maps.r0.size(); ++pixel, iq += 2 * firings_) {
        raw.load(iq);
        maps.tissue[pixel] = raw.power();
        if (filters) {
            const float phase = clutter.empty() ? 0 : clutter[pixel];
            if (phase != 0)
                CUtils_SSE::MixingClutter(firings_, raw.i(), raw.q(), -phase);
            CUtils_SSE::IIRPerformMatrix(filtered_firings_, raw.i(), raw.q(), filtered.i(), filtered.q(), kernel_matrix_.get());
            if (phase != 0)
                CUtils_SSE::MixingClutter(firings_, filtered.i(), filtered.q(), phase);
        }
        Ensemble& ensemble = filters ? filtered : raw;
        correlation.of(ensemble, firings_);
        maps.r0[pixel] = ensemble.power();
        maps.real[pixel] = correlation.real[0];
        maps.imaginary[pixel] = correlation.imaginary[0];
        maps.power[pixel] = correlation.power[0];
        // Of other lengths the kernel leaves the last firing out of the denominator; here all spreads mean the same.
        maps.spread[pixel] = unrolled(firings_) ? correlation.spread[0]
                                                : spread_of(maps.r0[pixel], correlation.real[0], correlation.imaginary[0]);
    }
}

void FlowEstimator::average(FlowMaps& maps) const
{
    for (std::vector<float>* values : {&maps.r0, &maps.real, &maps.imaginary})
        box_mean(*values, maps.lines, maps.samples, options_.average_lines, options_.average_samples);
    for (std::size_t pixel = 0; pixel < maps.r0.size(); ++pixel) {
        maps.spread[pixel] = spread_of(maps.r0[pixel], maps.real[pixel], maps.imaginary[pixel]);
        maps.power[pixel] = power_of(maps.r0[pixel], maps.firings);
    }
}

FlowMaps FlowEstimator::estimate(const EnsembleFrame& frame, StageTimes* times) const
{
    const std::size_t pixels = static_cast<std::size_t>(frame.lines * frame.samples);
    if (frame.firings != firings_ || frame.iq.size() != 2 * pixels * static_cast<std::size_t>(firings_))
        throw BadInput("flow: ensembles of " + std::to_string(firings_) + " firings expected, found " +
                       std::to_string(frame.firings));
    FlowMaps maps;
    maps.lines = frame.lines;
    maps.samples = frame.samples;
    maps.firings = firings_;
    for (std::vector<float>* values : {&maps.tissue, &maps.r0, &maps.real, &maps.imaginary, &maps.spread, &maps.power})
        values->resize(pixels);
    std::vector<float> clutter;
    if (options_.mix) {
        const StageTimer timer(times, "clutter phase", frame.lines);
        clutter = clutter_phases(frame);
    }
    {
        const StageTimer timer(times, "flow", frame.lines);
        filter_and_correlate(frame, clutter, maps);
    }
    if (options_.average_lines > 1 || options_.average_samples > 1) {
        const StageTimer timer(times, "average", frame.lines);
        average(maps);
    }
    return maps;
}

double largest_power(const FlowMaps& maps, double least_phase, double greatest_spread)
{
    const double slow = portable::cos(least_phase);
    float of_flow = -1;
    float of_all = 0;
    for (std::size_t pixel = 0; pixel < maps.power.size(); ++pixel) {
        const double real = maps.real[pixel];
        const double imaginary = maps.imaginary[pixel];
        of_all = std::max(of_all, maps.power[pixel]);
        if (real <= slow * std::sqrt(real * real + imaginary * imaginary) && maps.spread[pixel] <= greatest_spread)
            of_flow = std::max(of_flow, maps.power[pixel]);
    }
    return double{of_flow > 0 ? of_flow : of_all};
}

void box_mean(std::vector<float>& values, std::int64_t lines, std::int64_t samples, int across, int along)
{
    const auto mean_of = [](const auto& value, std::int64_t at, std::int64_t count, std::int64_t reach) {
        const std::int64_t first = std::max<std::int64_t>(0, at - reach);
        const std::int64_t last = std::min(count - 1, at + reach);
        double sum = 0;
        for (std::int64_t i = first; i <= last; ++i)
            sum += double{value(i)};
        return static_cast<float>(sum / static_cast<double>(last - first + 1));
    };
    std::vector<float> along_lines(values.size());
    for (std::int64_t line = 0; line < lines; ++line) {
        const float* from = values.data() + line * samples;
        for (std::int64_t sample = 0; sample < samples; ++sample)
            along_lines[static_cast<std::size_t>(line * samples + sample)] =
                mean_of([&](std::int64_t i) { return from[i]; }, sample, samples, along / 2);
    }
    for (std::int64_t line = 0; line < lines; ++line)
        for (std::int64_t sample = 0; sample < samples; ++sample)
            values[static_cast<std::size_t>(line * samples + sample)] =
                mean_of([&](std::int64_t i) { return along_lines[static_cast<std::size_t>(i * samples + sample)]; }, line,
                        lines, across / 2);
}

} // namespace echo2image
