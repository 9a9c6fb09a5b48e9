#include "synthetic_flow.h"

#include "portable_math.h"
#include "synthetic_scanner.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>

namespace echo2image {

namespace {

constexpr double mm = 1e-3;

// A linear array in its colour mode: pulses of 4 periods under a Gaussian two-way beam of constant width.
struct FlowScanner
{
    double sound_speed = 1540;                // m/s
    double sampling_frequency = 10e6;         // Hz, of I/Q
    double center_frequency = 5e6;            // Hz, also of the mixer
    double pulse_repetition_frequency = 4000; // Hz
    double bandwidth = 2.5e6;                 // Hz, two-sided, -6 dB
    int lines = 96;
    int samples = 325;
    double line_pitch = 0.25 * mm;
    double start_depth = 5 * mm;
    double beam_sigma = 0.25 * mm; // standard deviation of the beam's amplitude profile

    double sample_spacing() const { return sound_speed / (2 * sampling_frequency); }
    double first_line() const { return -0.5 * (lines - 1) * line_pitch; }
    // Standard deviation of the pulse's envelope in samples.
    double pulse_sigma() const
    {
        const double spectrum_sigma = bandwidth / 2 / std::sqrt(2 * portable::log(2.0));
        return sampling_frequency / (2 * portable::pi * spectrum_sigma);
    }
};

// The vessel's own coordinates: along its axis, to the lower right, and across it, downwards.
class VesselFrame
{
public:
    explicit VesselFrame(const Vessel& vessel)
        : vessel_(vessel), cosine_(portable::cos(vessel.slope)), sine_(portable::sin(vessel.slope))
    {}
    double along(double lateral, double depth) const { return lateral * cosine_ + (depth - vessel_.depth) * sine_; }
    double across(double lateral, double depth) const { return (depth - vessel_.depth) * cosine_ - lateral * sine_; }
    double lateral(double along, double across) const { return along * cosine_ - across * sine_; }
    double depth(double along, double across) const { return vessel_.depth + along * sine_ + across * cosine_; }

    // m/s along the axis, towards the upper left.
    double flow(double across) const
    {
        const double r = across / vessel_.radius;
        return std::fabs(r) < 1 ? vessel_.peak_speed * (1 - r * r) : 0;
    }
    // m/s across the axis, downwards: the walls' push fades with the distance from them.
    double push(double across) const
    {
        constexpr double fading = 4 * mm;
        const double beyond = std::fabs(across) - vessel_.radius;
        return beyond < 0 ? 0 : std::copysign(vessel_.wall_speed * portable::exp(-beyond / fading), across);
    }
    // m/s along the scan line, towards the probe.
    double towards_probe(double across) const { return flow(across) * sine_ - push(across) * cosine_; }

private:
    Vessel vessel_;
    double cosine_;
    double sine_;
};

struct MovingScatterer
{
    double along;     // metres, in the vessel's coordinates, at firing 0
    double across;    // metres
    double amplitude; // steps of the converter
};

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

// Echoes of one firing: I and Q, [line][sample], noise-free.
class Receiver
{
public:
    explicit Receiver(const FlowScanner& scanner)
        : scanner_(scanner), i_(static_cast<std::size_t>(scanner.lines) * static_cast<std::size_t>(scanner.samples)),
          q_(i_.size())
    {}
    void clear()
    {
        std::fill(i_.begin(), i_.end(), 0.0);
        std::fill(q_.begin(), q_.end(), 0.0);
    }
    void add(double lateral, double depth, double amplitude)
    {
        const double line_of_it = (lateral - scanner_.first_line()) / scanner_.line_pitch;
        const double line_sigma = scanner_.beam_sigma / scanner_.line_pitch;
        const double sample_of_it = (depth - scanner_.start_depth) / scanner_.sample_spacing();
        const double sample_sigma = scanner_.pulse_sigma();
        const auto [first_line, end_line] = touched(line_of_it, line_sigma, scanner_.lines);
        const auto [first_sample, end_sample] = touched(sample_of_it, sample_sigma, scanner_.samples);
        if (first_line >= end_line || first_sample >= end_sample)
            return;
        // Mixed with exp(-j 2 pi fc t), an echo from twice the depth turns back as it comes later.
        const double turns = scanner_.center_frequency * 2 * depth / scanner_.sound_speed;
        const double angle = -2 * portable::pi * (turns - std::floor(turns));
        const double re = amplitude * portable::cos(angle);
        const double im = amplitude * portable::sin(angle);
        pulse_.clear();
        for (int sample = first_sample; sample < end_sample; ++sample)
            pulse_.push_back(bell_((sample - sample_of_it) / sample_sigma));
        for (int line = first_line; line < end_line; ++line) {
            const double beam = bell_((line - line_of_it) / line_sigma);
            const std::size_t start = static_cast<std::size_t>(line * scanner_.samples + first_sample);
            for (std::size_t k = 0; k < pulse_.size(); ++k) {
                i_[start + k] += re * beam * pulse_[k];
                q_[start + k] += im * beam * pulse_[k];
            }
        }
    }
    const std::vector<double>& i() const { return i_; }
    const std::vector<double>& q() const { return q_; }

private:
    // Indices nearer than the bell's reach.
    static std::pair<int, int> touched(double middle, double sigma, int count)
    {
        const double reach = BellTable::reach * sigma;
        return {static_cast<int>(std::clamp(std::floor(middle - reach) + 1, 0.0, double(count))),
                static_cast<int>(std::clamp(std::ceil(middle + reach), 0.0, double(count)))};
    }

    const FlowScanner& scanner_;
    BellTable bell_;
    std::vector<double> i_;
    std::vector<double> q_;
    std::vector<double> pulse_;
};

// Scatterers fill a rectangle along the vessel. Blood leaves it at one end and comes in at the other, both out of sight.
struct Box
{
    double along_from, along_to;
    double across_from, across_to;

    Box(const FlowScanner& scanner, const VesselFrame& frame)
    {
        constexpr double margin = 2 * mm;
        const double left = scanner.first_line();
        const double top = scanner.start_depth;
        const double bottom = top + (scanner.samples - 1) * scanner.sample_spacing();
        along_from = across_from = 1;
        along_to = across_to = -1;
        for (const double lateral : {left, -left})
            for (const double depth : {top, bottom}) {
                along_from = std::min(along_from, frame.along(lateral, depth) - margin);
                along_to = std::max(along_to, frame.along(lateral, depth) + margin);
                across_from = std::min(across_from, frame.across(lateral, depth) - margin);
                across_to = std::max(across_to, frame.across(lateral, depth) + margin);
            }
    }
    double length() const { return along_to - along_from; }
};

// Both about 10 to a resolution cell; equal strength and random sign.
std::vector<MovingScatterer> scatter(std::uint32_t seed, RandomStream::Purpose purpose, const Box& box, double radius,
                                     double amplitude)
{
    constexpr double density = 60 / (mm * mm);
    const bool blood = purpose == RandomStream::blood;
    const double from = blood ? -radius : box.across_from;
    const double to = blood ? radius : box.across_to;
    RandomStream random(seed, purpose);
    std::vector<MovingScatterer> scatterers;
    for (auto count = static_cast<int>(density * box.length() * (to - from)); count > 0; --count) {
        MovingScatterer scatterer;
        scatterer.along = random.uniform(box.along_from, box.along_to);
        scatterer.across = random.uniform(from, to);
        scatterer.amplitude = random.uniform(-1, 1) < 0 ? -amplitude : amplitude;
        if (blood || std::fabs(scatterer.across) > radius)
            scatterers.push_back(scatterer);
    }
    return scatterers;
}

Description describe_flow(const FlowScanner& scanner, std::uint32_t seed, int firings)
{
    Description description;
    description.source = "synthetic flow, seed " + std::to_string(seed);
    description.data_file = description.source;
    description.format = "synthetic";
    description.content = Content::iq;
    description.type = ElementType::int16;
    description.axes = {"line", "sample", "firing", "component"};
    description.shape = {scanner.lines, scanner.samples, firings, 2};
    description.lines = scanner.lines;
    description.samples = scanner.samples;
    description.firings = firings;
    description.sampling_frequency = scanner.sampling_frequency;
    description.center_frequency = scanner.center_frequency;
    description.demodulation_frequency = scanner.center_frequency;
    description.pulse_repetition_frequency = scanner.pulse_repetition_frequency;
    description.bandwidth = scanner.bandwidth;
    description.sound_speed = scanner.sound_speed;
    description.sample_spacing = scanner.sample_spacing();
    description.geometry.kind = Geometry::Kind::linear;
    description.geometry.first_line = scanner.first_line();
    description.geometry.line_pitch = scanner.line_pitch;
    description.geometry.start_depth = scanner.start_depth;
    description.title = "built-in vessel with parabolic flow";
    return description;
}

// Noise and the converter: nearest step, saturating.
std::int16_t digitise(double value)
{
    return static_cast<std::int16_t>(std::clamp(std::floor(value + 0.5), -32768.0, 32767.0));
}

} // namespace

SyntheticFlow synthesise_flow(std::uint32_t seed, int firings, const FlowScene& scene)
{
    const FlowScanner scanner;
    const VesselFrame vessel(scene.vessel);
    const Box box(scanner, vessel);
    constexpr double blood_amplitude = 12; // steps of the converter
    const std::vector<MovingScatterer> blood = scatter(seed, RandomStream::blood, box, scene.vessel.radius, blood_amplitude);
    const std::vector<MovingScatterer> tissue = scatter(seed, RandomStream::tissue_around_flow, box, scene.vessel.radius,
                                                        blood_amplitude * portable::pow10(scene.tissue_level / 20));
    SyntheticFlow flow;
    flow.scene = scene;
    flow.description = describe_flow(scanner, seed, firings);
    flow.frame.lines = scanner.lines;
    flow.frame.samples = scanner.samples;
    flow.frame.firings = firings;
    const std::size_t pixels = static_cast<std::size_t>(scanner.lines) * static_cast<std::size_t>(scanner.samples);
    flow.frame.iq.resize(pixels * static_cast<std::size_t>(firings) * 2);

    Receiver receiver(scanner);
    RandomStream noise(seed, RandomStream::noise_of_flow);
    for (int firing = 0; firing < firings; ++firing) {
        const double time = firing / scanner.pulse_repetition_frequency;
        receiver.clear();
        for (const MovingScatterer& s : tissue) {
            const double across = s.across + time * vessel.push(s.across);
            receiver.add(vessel.lateral(s.along, across), vessel.depth(s.along, across), s.amplitude);
        }
        for (const MovingScatterer& s : blood) {
            const double moved = s.along - time * vessel.flow(s.across) - box.along_from;
            const double along = box.along_from + moved - box.length() * std::floor(moved / box.length());
            receiver.add(vessel.lateral(along, s.across), vessel.depth(along, s.across), s.amplitude);
        }
        for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
            std::int16_t* to =
                flow.frame.iq.data() + (pixel * static_cast<std::size_t>(firings) + static_cast<std::size_t>(firing)) * 2;
            to[0] = digitise(receiver.i()[pixel] + scene.noise * noise.bell());
            to[1] = digitise(receiver.q()[pixel] + scene.noise * noise.bell());
        }
    }

    for (int line = 0; line < scanner.lines; ++line)
        for (int sample = 0; sample < scanner.samples; ++sample) {
            const double across = vessel.across(scanner.first_line() + line * scanner.line_pitch,
                                                scanner.start_depth + sample * scanner.sample_spacing());
            flow.velocity.push_back(static_cast<float>(vessel.towards_probe(across)));
            flow.radius.push_back(static_cast<float>(across / scene.vessel.radius));
        }
    return flow;
}

} // namespace echo2image
