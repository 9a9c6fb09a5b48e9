#include "synthetic_motion.h"

#include "portable_math.h"
#include "synthetic_scanner.h"

#include <algorithm>

namespace echo2image {

namespace {

constexpr double mm = 1e-3;

// Nothing but speckle, also a little outside of what the scanner sees: tissue moves in.
std::vector<Scatterer> speckle(const Scanner& scanner, std::uint32_t seed)
{
    constexpr double density = 100 / (mm * mm);
    constexpr double amplitude = 200;
    constexpr double rim = 2 * mm;
    const double half_width = 0.5 * scanner.lines * scanner.line_pitch + rim;
    const double height = scanner.depth() + 2 * rim;
    RandomStream random(seed, RandomStream::tissue);
    std::vector<Scatterer> scatterers;
    for (auto count = static_cast<int>(density * 2 * half_width * height); count > 0; --count) {
        const double lateral = random.uniform(-half_width, half_width);
        const double depth = random.uniform(-rim, height - rim);
        scatterers.push_back({lateral, depth, random.uniform(-1, 1) < 0 ? -amplitude : amplitude});
    }
    return scatterers;
}

// What lies above the probe's surface is not heard.
std::vector<std::int16_t> frame_of(const Scanner& scanner, std::vector<Scatterer> scatterers, std::uint32_t seed,
                                   RandomStream::Purpose noise)
{
    scatterers.erase(std::remove_if(scatterers.begin(), scatterers.end(), [](const Scatterer& s) { return s.depth < 0; }),
                     scatterers.end());
    return digitise(scanner, receive(scanner, scatterers), seed, noise);
}

} // namespace

void MotionField::displacement(double lateral, double depth, double& to_right, double& down) const
{
    const double across = lateral_stretch * (lateral - center_lateral);
    const double along = axial_stretch * (depth - center_depth);
    const double cosine = portable::cos(angle);
    const double sine = portable::sin(angle);
    // With depth downwards, clockwise takes what lies to the right down and what lies below to the left.
    to_right = center_lateral + cosine * across - sine * along - lateral;
    down = center_depth + sine * across + cosine * along - depth;
}

MotionPair synthesise_motion(std::uint32_t seed)
{
    Scanner scanner;
    scanner.lines = 128;
    scanner.samples = 1400;

    MotionPair pair;
    pair.description = describe_scan(scanner, seed, "built-in phantom: speckle, turned and compressed");
    RandomStream random(seed, RandomStream::layout);
    pair.truth.center_lateral = random.uniform(-1, 1) * mm;
    pair.truth.center_depth = random.uniform(13, 15) * mm;
    pair.truth.angle = 0.03;
    pair.truth.axial_stretch = 0.99;
    pair.truth.lateral_stretch = 1.005;

    std::vector<Scatterer> scatterers = speckle(scanner, seed);
    pair.frames[0] = frame_of(scanner, scatterers, seed, RandomStream::noise);
    for (Scatterer& scatterer : scatterers) {
        double right = 0;
        double down = 0;
        pair.truth.displacement(scatterer.lateral, scatterer.depth, right, down);
        scatterer.lateral += right;
        scatterer.depth += down;
    }
    pair.frames[1] = frame_of(scanner, scatterers, seed, RandomStream::noise_of_second_frame);
    return pair;
}

} // namespace echo2image
