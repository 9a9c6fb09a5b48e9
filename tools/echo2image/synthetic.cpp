#include "synthetic.h"

#include "portable_math.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <random>
#include <string>

namespace echo2image {

namespace {

constexpr double mm = 1e-3;

// Width at half height of a Gaussian with standard deviation 1.
constexpr double half_height_width = 2.35482004503094938202;

struct Scatterer
{
    double lateral; // metres
    double depth;   // metres
    double amplitude;
};

// A linear array with dynamic focusing on receive and one transmit focus. Echoes are Gaussian pulses under a Gaussian
// two-way beam; the gain follows depth, so that tissue is equally bright everywhere.
struct Scanner
{
    double sound_speed = 1540;        // m/s
    double sampling_frequency = 40e6; // Hz
    double center_frequency = 5e6;    // Hz
    double bandwidth = 3e6;           // Hz, two-sided, -6 dB
    int lines = 192;
    int samples = 2080;
    double line_pitch = 0.2 * mm;
    double focus = 20 * mm;
    double focal_beam_sigma = 0.17 * mm; // standard deviation of the beam's amplitude profile at the focus
    double depth_of_focus = 25 * mm;     // distance from the focus at which the beam is wider by sqrt(2)
    double noise = 4;                    // standard deviation of the electronic noise in steps of the converter

    double sample_spacing() const { return sound_speed / (2 * sampling_frequency); }
    double first_line() const { return -0.5 * (lines - 1) * line_pitch; }
    double depth() const { return samples * sample_spacing(); }
    // Standard deviation of the pulse's envelope in samples.
    double pulse_sigma() const
    {
        const double spectrum_sigma = bandwidth / 2 / std::sqrt(2 * portable::log(2.0));
        return sampling_frequency / (2 * portable::pi * spectrum_sigma);
    }
    double beam_sigma(double at_depth) const
    {
        const double defocus = (at_depth - focus) / depth_of_focus;
        return focal_beam_sigma * std::sqrt(1 + defocus * defocus);
    }
};

// Random numbers of one purpose. Purposes have streams of their own: more of one leaves the others as they are.
class RandomStream
{
public:
    enum Purpose : std::uint32_t
    {
        layout = 1,
        tissue,
        noise,
    };
    RandomStream(std::uint32_t seed, Purpose purpose)
    {
        std::seed_seq sequence{seed, static_cast<std::uint32_t>(purpose)};
        generator_.seed(sequence);
    }
    // Evenly distributed in (low, high). The standard fixes the generator's output but not that of its distributions.
    double uniform(double low, double high) { return low + (high - low) * ((next() + 0.5) * 0x1p-32); }
    // Nearly Gaussian with mean 0 and standard deviation 1: the sum of four bytes.
    double bell()
    {
        const std::uint32_t bits = next();
        const std::uint32_t sum = (bits & 255) + (bits >> 8 & 255) + (bits >> 16 & 255) + (bits >> 24);
        return (sum - 510.0) * (1 / 147.80054126);
    }

private:
    std::uint32_t next() { return static_cast<std::uint32_t>(generator_()); }
    std::mt19937 generator_;
};

// Every seed moves the targets a little, so that they meet lines and samples in ever new ways.
Phantom lay_out(std::uint32_t seed)
{
    RandomStream random(seed, RandomStream::layout);
    const auto about = [&](double value, double spread) { return random.uniform(value - spread, value + spread) * mm; };

    Phantom phantom;
    for (const double depth : {4.0, 8.0, 12.0, 16.0, 20.0, 24.0}) {
        const double lateral = about(-15.0, 0.1);
        phantom.wires.push_back({lateral, about(depth, 0.1)});
    }
    for (const double lateral : {-15.0, -7.0, -1.0, 4.0, 8.0, 11.0, 13.0}) {
        const double x = about(lateral, 0.1);
        phantom.wires.push_back({x, about(36.0, 0.1)});
    }
    const auto add_row_of_cysts = [&](double depth, double radius, std::initializer_list<double> contrasts) {
        double lateral = -7.0;
        for (const double contrast : contrasts) {
            const double x = about(lateral, 0.2);
            phantom.cysts.push_back({x, about(depth, 0.2), radius * mm, contrast});
            lateral += 10.0;
        }
    };
    constexpr double fluid = -std::numeric_limits<double>::infinity();
    add_row_of_cysts(10.0, 3.5, {fluid, -9.0, 9.0});
    add_row_of_cysts(20.5, 2.5, {6.0, fluid, -6.0});
    phantom.speckle_top = 26 * mm;
    phantom.speckle_bottom = 34 * mm;
    return phantom;
}

// Tissue: scatterers of random place and sign, far more than 10 per resolution cell, also a little outside of what the
// scanner sees. Wires: single strong scatterers. Amplitudes are those of echoes in steps of the converter.
std::vector<Scatterer> scatterers_of(const Phantom& phantom, const Scanner& scanner, std::uint32_t seed)
{
    constexpr double density = 150 / (mm * mm);
    constexpr double tissue_amplitude = 200; // equal strength and random sign: developed soonest
    constexpr double wire_amplitude = 24000;

    const double half_width = 0.5 * scanner.lines * scanner.line_pitch + 1 * mm;
    const double bottom = scanner.depth() + 1 * mm;
    std::vector<double> gains;
    for (const Cyst& cyst : phantom.cysts)
        gains.push_back(std::isinf(cyst.contrast_db) ? 0.0 : portable::pow10(cyst.contrast_db / 20));

    RandomStream random(seed, RandomStream::tissue);
    std::vector<Scatterer> scatterers;
    for (auto count = static_cast<int>(density * 2 * half_width * bottom); count > 0; --count) {
        Scatterer scatterer;
        scatterer.lateral = random.uniform(-half_width, half_width);
        scatterer.depth = random.uniform(0, bottom);
        scatterer.amplitude = random.uniform(-1, 1) < 0 ? -tissue_amplitude : tissue_amplitude;
        for (std::size_t i = 0; i < gains.size(); ++i) {
            const Cyst& cyst = phantom.cysts[i];
            const double x = scatterer.lateral - cyst.lateral;
            const double z = scatterer.depth - cyst.depth;
            if (x * x + z * z < cyst.radius * cyst.radius)
                scatterer.amplitude *= gains[i];
        }
        if (scatterer.amplitude != 0)
            scatterers.push_back(scatterer);
    }
    for (const Wire& wire : phantom.wires)
        scatterers.push_back({wire.lateral, wire.depth, wire_amplitude});
    return scatterers;
}

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

// The transmitted pulse as the receiver sees it, tabulated for arrival times between two samples.
class PulseTable
{
public:
    explicit PulseTable(const Scanner& scanner)
        : half_length_(static_cast<int>(std::floor(BellTable::reach * scanner.pulse_sigma())))
    {
        const double radians = 2 * portable::pi * scanner.center_frequency / scanner.sampling_frequency;
        for (int fraction = 0; fraction < fractions; ++fraction)
            for (int i = -half_length_; i <= half_length_; ++i) {
                const double t = i - static_cast<double>(fraction) / fractions;
                const double x = t / scanner.pulse_sigma();
                values_.push_back(portable::exp(-0.5 * x * x) * portable::cos(radians * t));
            }
    }
    // Adds amplitude times the pulse whose middle arrives at `time`, in samples, to a line.
    void add(std::vector<double>& lines, int line, int samples, double time, double amplitude) const
    {
        const auto ticks = static_cast<int>(std::floor(time * fractions + 0.5));
        const int middle = ticks / fractions; // times are not negative
        const int first = std::max(0, middle - half_length_);
        const int last = std::min(samples - 1, middle + half_length_);
        const int pulse_start = (ticks % fractions) * (2 * half_length_ + 1) + half_length_ - middle;
        for (int i = first; i <= last; ++i)
            lines[static_cast<std::size_t>(line * samples + i)] +=
                amplitude * values_[static_cast<std::size_t>(pulse_start + i)];
    }

private:
    static constexpr int fractions = 64;
    int half_length_;
    std::vector<double> values_;
};

// What the array makes of scatterers: [line][sample], noise-free.
std::vector<double> receive(const Scanner& scanner, const std::vector<Scatterer>& scatterers)
{
    const BellTable beam;
    const PulseTable pulse(scanner);
    std::vector<double> lines(static_cast<std::size_t>(scanner.lines) * static_cast<std::size_t>(scanner.samples));
    for (const Scatterer& scatterer : scatterers) {
        const double sigma = scanner.beam_sigma(scatterer.depth);
        const double amplitude = scatterer.amplitude * std::sqrt(scanner.focal_beam_sigma / sigma);
        const double line_of_scatterer = (scatterer.lateral - scanner.first_line()) / scanner.line_pitch;
        const double reach = BellTable::reach * sigma / scanner.line_pitch;
        const int first = std::max(0, static_cast<int>(std::floor(line_of_scatterer - reach)) + 1);
        const int last = std::min(scanner.lines - 1, static_cast<int>(std::floor(line_of_scatterer + reach)));
        const double time = scatterer.depth / scanner.sample_spacing();
        for (int line = first; line <= last; ++line) {
            const double off_axis = (line - line_of_scatterer) * scanner.line_pitch / sigma;
            pulse.add(lines, line, scanner.samples, time, amplitude * beam(off_axis));
        }
    }
    return lines;
}

// Noise and the converter: nearest step, saturating.
std::vector<std::int16_t> digitise(const Scanner& scanner, const std::vector<double>& lines, std::uint32_t seed)
{
    RandomStream random(seed, RandomStream::noise);
    std::vector<std::int16_t> rf;
    rf.reserve(lines.size());
    for (const double echo : lines) {
        const double step = std::floor(echo + scanner.noise * random.bell() + 0.5);
        rf.push_back(static_cast<std::int16_t>(std::clamp(step, -32768.0, 32767.0)));
    }
    return rf;
}

Description describe_scan(const Scanner& scanner, std::uint32_t seed)
{
    Description description;
    description.source = "synthetic, seed " + std::to_string(seed);
    description.data_file = description.source;
    description.format = "synthetic";
    description.content = Content::rf;
    description.type = ElementType::int16;
    description.axes = {"line", "sample"};
    description.shape = {scanner.lines, scanner.samples};
    description.lines = scanner.lines;
    description.samples = scanner.samples;
    description.sampling_frequency = scanner.sampling_frequency;
    description.center_frequency = scanner.center_frequency;
    description.bandwidth = scanner.bandwidth;
    description.sound_speed = scanner.sound_speed;
    description.sample_spacing = scanner.sample_spacing();
    description.geometry.kind = Geometry::Kind::linear;
    description.geometry.first_line = scanner.first_line();
    description.geometry.line_pitch = scanner.line_pitch;
    description.title = "built-in phantom: wires and cysts in speckle";
    return description;
}

} // namespace

SyntheticFrame synthesise(std::uint32_t seed)
{
    const Scanner scanner;
    SyntheticFrame frame;
    frame.description = describe_scan(scanner, seed);
    frame.truth = lay_out(seed);
    frame.rf = digitise(scanner, receive(scanner, scatterers_of(frame.truth, scanner, seed)), seed);
    // The correlation of intensity is as wide as the amplitude profile itself.
    const double middle = (frame.truth.speckle_top + frame.truth.speckle_bottom) / 2;
    frame.speckle_size.lateral = half_height_width * scanner.beam_sigma(middle);
    frame.speckle_size.axial = half_height_width * scanner.pulse_sigma() * scanner.sample_spacing();
    return frame;
}

} // namespace echo2image
