#include "synthetic_scanner.h"

#include "bell_table.h"
#include "portable_math.h"

#include <algorithm>
#include <cmath>

namespace echo2image {

namespace {

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

} // namespace

double Scanner::pulse_sigma() const
{
    const double spectrum_sigma = bandwidth / 2 / std::sqrt(2 * portable::log(2.0));
    return sampling_frequency / (2 * portable::pi * spectrum_sigma);
}

double Scanner::beam_sigma(double at_depth) const
{
    const double defocus = (at_depth - focus) / depth_of_focus;
    return focal_beam_sigma * std::sqrt(1 + defocus * defocus);
}

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

void add_sheet(std::vector<double>& lines, const Scanner& scanner, double depth, double amplitude)
{
    const PulseTable pulse(scanner);
    for (int line = 0; line < scanner.lines; ++line)
        pulse.add(lines, line, scanner.samples, depth / scanner.sample_spacing(), amplitude);
}

std::vector<std::int16_t> digitise(const Scanner& scanner, const std::vector<double>& lines, std::uint32_t seed,
                                   RandomStream::Purpose noise)
{
    RandomStream random(seed, noise);
    std::vector<std::int16_t> rf;
    rf.reserve(lines.size());
    for (const double echo : lines) {
        const double step = std::floor(echo + scanner.noise * random.bell() + 0.5);
        rf.push_back(static_cast<std::int16_t>(std::clamp(step, -32768.0, 32767.0)));
    }
    return rf;
}

Description describe_scan(const Scanner& scanner, std::uint32_t seed, const std::string& title)
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
    description.title = title;
    return description;
}

} // namespace echo2image
