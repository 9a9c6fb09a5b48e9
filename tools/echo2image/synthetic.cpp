#include "synthetic.h"

#include "portable_math.h"
#include "synthetic_scanner.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <string>

namespace echo2image {

namespace {

constexpr double mm = 1e-3;

// Width at half height of a Gaussian with standard deviation 1.
constexpr double half_height_width = 2.35482004503094938202;

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

// What follows from scanner and seed alone.
SyntheticFrame prepare(const Scanner& scanner, std::uint32_t seed, const std::string& title)
{
    SyntheticFrame frame;
    frame.description = describe_scan(scanner, seed, title);
    frame.truth = lay_out(seed);
    // The correlation of intensity is as wide as the amplitude profile itself.
    const double middle = (frame.truth.speckle_top + frame.truth.speckle_bottom) / 2;
    frame.speckle_size.lateral = half_height_width * scanner.beam_sigma(middle);
    frame.speckle_size.axial = half_height_width * scanner.pulse_sigma() * scanner.sample_spacing();
    return frame;
}

// What tissue adds in proportion to the square of the pulse. The square of a Gaussian bell is narrower by sqrt(2), in time
// as well as across the beam; the rest of it lies at frequencies that no probe hears.
Scanner second_harmonic(Scanner scanner)
{
    scanner.center_frequency *= 2;
    scanner.bandwidth *= std::sqrt(2.0);
    scanner.focal_beam_sigma /= std::sqrt(2.0);
    return scanner;
}

} // namespace

SyntheticFrame synthesise(std::uint32_t seed)
{
    const Scanner scanner;
    SyntheticFrame frame = prepare(scanner, seed, "built-in phantom: wires and cysts in speckle");
    frame.rf = digitise(scanner, receive(scanner, scatterers_of(frame.truth, scanner, seed)), seed, RandomStream::noise);
    return frame;
}

PulseInversionFrame synthesise_pairs(std::uint32_t seed)
{
    constexpr double harmonic_level = 0.15; // of the fundamental, from the focus on; builds up on the way there
    constexpr double second_firing = -0.98; // transmitters are never quite symmetrical
    constexpr double sheet_amplitude = 80000;
    Scanner scanner;
    scanner.bandwidth = 2e6; // narrow, so that fundamental and harmonic stay apart
    const Scanner harmonic = second_harmonic(scanner);

    PulseInversionFrame pairs;
    pairs.frame = prepare(harmonic, seed, "built-in phantom: wires and cysts in speckle, pulse inversion");
    Description& description = pairs.frame.description;
    description = describe_scan(scanner, seed, description.title);
    description.axes = {"line", "firing", "sample"};
    description.shape = {scanner.lines, 2, scanner.samples};
    description.firings = 2;

    std::vector<Scatterer> scatterers = scatterers_of(pairs.frame.truth, scanner, seed);
    std::vector<double> linear = receive(scanner, scatterers);
    for (Scatterer& scatterer : scatterers)
        scatterer.amplitude *= harmonic_level * std::min(1.0, scatterer.depth / scanner.focus);
    const std::vector<double> quadratic = receive(harmonic, scatterers);
    pairs.sheet_depth = 1.5 * mm;
    add_sheet(linear, scanner, pairs.sheet_depth, sheet_amplitude);

    std::vector<double> second(linear.size());
    for (std::size_t i = 0; i < linear.size(); ++i) {
        second[i] = second_firing * linear[i] + second_firing * second_firing * quadratic[i];
        linear[i] += quadratic[i];
    }
    const std::vector<std::int16_t> firings[] = {digitise(scanner, linear, seed, RandomStream::noise),
                                                 digitise(scanner, second, seed, RandomStream::noise_of_second_firing)};
    for (int line = 0; line < scanner.lines; ++line)
        for (const std::vector<std::int16_t>& firing : firings)
            pairs.frame.rf.insert(pairs.frame.rf.end(), firing.begin() + line * scanner.samples,
                                  firing.begin() + (line + 1) * scanner.samples);

    pairs.fundamental_left = 1 + second_firing;
    pairs.harmonic_gain = 1 + second_firing * second_firing;
    // The echo of the sheet is a bell, too.
    pairs.clipped_reach = scanner.pulse_sigma() * scanner.sample_spacing() *
                          std::sqrt(2 * portable::log(-second_firing * sheet_amplitude / 32767));
    return pairs;
}

} // namespace echo2image
