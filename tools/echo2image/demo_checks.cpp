#include "demo_checks.h"

#include "portable_math.h"
#include "speckle_field.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace echo2image {

namespace {

constexpr double mm = 1e-3;
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

// Half the side of the square in which a wire is looked for; neighbours are 2 mm away.
constexpr double search_reach = 0.7 * mm;
// A peak that stands less above the tissue's mean power is speckle, not a wire.
constexpr double wire_prominence_db = 15;
// Rim of a cyst that beam and pulse smear.
constexpr double cyst_rim = 0.8 * mm;
// Statistical tolerances allow this many standard deviations. The detector's low-pass makes speckle cells longer than the
// pulse alone, so these are about five of what is seen.
constexpr double sigmas = 5.5;

std::string name_of(const Cyst& cyst)
{
    const char* kind = std::isinf(cyst.contrast_db) ? "fluid" : cyst.contrast_db < 0 ? "hypoechoic" : "hyperechoic";
    char text[64];
    std::snprintf(text, sizeof text, "%s cyst, %.0f mm", kind, 2 * cyst.radius / mm);
    return text;
}

// How many independent speckle cells an area holds: the correlation of intensity is a Gaussian bell in both directions,
// and its integral is the area of one cell.
double independent_cells(double area, const SpeckleSize& size)
{
    return area / (size.lateral * size.axial * 1.1331); // pi / (4 ln 2)
}

double inner_area(const Cyst& cyst)
{
    const double radius = cyst.radius - cyst_rim;
    return portable::pi * radius * radius;
}

bool inside(const Cyst& cyst, double lateral, double depth)
{
    const double x = lateral - cyst.lateral;
    const double z = depth - cyst.depth;
    const double radius = cyst.radius - cyst_rim;
    return x * x + z * z < radius * radius;
}

// Whole numbers within `reach` of `middle`, kept inside 0 .. count - 1 with a distance of `border`.
struct Range
{
    std::int64_t first;
    std::int64_t last;
    Range(double middle, double reach, std::int64_t count, std::int64_t border)
        : first(std::max(border, static_cast<std::int64_t>(std::ceil(middle - reach)))),
          last(std::min(count - 1 - border, static_cast<std::int64_t>(std::floor(middle + reach))))
    {}
};

// Place of the peak of a bell through three neighbouring values, as a distance from the middle one.
double bell_peak(double before, double middle, double after)
{
    if (before <= 0 || middle <= 0 || after <= 0)
        return 0;
    const double a = portable::log(before);
    const double b = portable::log(middle);
    const double c = portable::log(after);
    const double curvature = a - 2 * b + c;
    return curvature < 0 ? std::clamp(0.5 * (a - c) / curvature, -0.5, 0.5) : 0;
}

// Where the echo around a wire's true place is strongest; NaN when nothing there stands out of the tissue.
Wire find_wire(const Field& field, const Wire& truth, double tissue_power)
{
    const Range lines(field.line_at(truth.lateral), search_reach / (field.lateral(1) - field.lateral(0)), field.lines(), 1);
    const Range samples(field.sample_at(truth.depth), search_reach / (field.depth(1) - field.depth(0)), field.samples(), 1);
    double peak = 0;
    std::int64_t line = 0;
    std::int64_t sample = 0;
    for (std::int64_t l = lines.first; l <= lines.last; ++l)
        for (std::int64_t s = samples.first; s <= samples.last; ++s)
            if (field.at(l, s) > peak) {
                peak = field.at(l, s);
                line = l;
                sample = s;
            }
    if (!(peak * peak > tissue_power * portable::pow10(wire_prominence_db / 10)))
        return {not_a_number, not_a_number};
    const double between_lines = bell_peak(field.at(line - 1, sample), peak, field.at(line + 1, sample));
    const double between_samples = bell_peak(field.at(line, sample - 1), peak, field.at(line, sample + 1));
    return {field.lateral(static_cast<double>(line) + between_lines),
            field.depth(static_cast<double>(sample) + between_samples)};
}

// Pixels inside a cyst.
Statistics grey_inside(const GreyImage& image, const ScanConverter& converter, const Cyst& cyst)
{
    double column = 0;
    double row = 0;
    converter.pixel_of(cyst.lateral, cyst.depth, column, row);
    const double reach = cyst.radius / image.pixel_size;
    const Range columns(column, reach, image.width, 0);
    const Range rows(row, reach, image.height, 0);
    Statistics grey;
    for (std::int64_t r = rows.first; r <= rows.last; ++r)
        for (std::int64_t c = columns.first; c <= columns.last; ++c)
            if (inside(cyst, cyst.lateral + (static_cast<double>(c) - column) * image.pixel_size,
                       cyst.depth + (static_cast<double>(r) - row) * image.pixel_size))
                grey.add(image.pixels[static_cast<std::size_t>(r * image.width + c)]);
    return grey;
}

// Distance in metres between a wire's true place and the middle of the brightest pixels around it; NaN when nothing there
// stands out.
double distance_in_picture(const GreyImage& image, const ScanConverter& converter, double dynamic_range, const Wire& wire)
{
    double column = 0;
    double row = 0;
    converter.pixel_of(wire.lateral, wire.depth, column, row);
    const Range columns(column, search_reach / image.pixel_size, image.width, 0);
    const Range rows(row, search_reach / image.pixel_size, image.height, 0);
    const auto grey = [&](std::int64_t r, std::int64_t c) {
        return image.pixels[static_cast<std::size_t>(r * image.width + c)];
    };
    int brightest = 0;
    Statistics around;
    for (std::int64_t r = rows.first; r <= rows.last; ++r)
        for (std::int64_t c = columns.first; c <= columns.last; ++c) {
            brightest = std::max<int>(brightest, grey(r, c));
            around.add(grey(r, c));
        }
    if (!((brightest - around.mean()) * dynamic_range / 255 > wire_prominence_db))
        return not_a_number;
    Statistics right;
    Statistics down;
    for (std::int64_t r = rows.first; r <= rows.last; ++r)
        for (std::int64_t c = columns.first; c <= columns.last; ++c)
            if (grey(r, c) + 6 >= brightest) {
                right.add(static_cast<double>(c) - column);
                down.add(static_cast<double>(r) - row);
            }
    return image.pixel_size * std::sqrt(right.mean() * right.mean() + down.mean() * down.mean());
}

} // namespace

std::vector<Check> check_envelope(const EnvelopeFrame& envelope, const SyntheticFrame& frame)
{
    const Field field(envelope, frame.description.geometry);
    const Statistics speckle = speckle_of(field, frame.truth);
    const double width = static_cast<double>(field.lines()) * frame.description.geometry.line_pitch;
    const double cells = independent_cells(width * (frame.truth.speckle_bottom - frame.truth.speckle_top), frame.speckle_size);
    std::vector<Check> checks;

    // Depth: two samples of the recording. Lateral: a quarter of a line. Speckle under the wire moves its peak.
    const double depth_tolerance = 2 * frame.description.sample_spacing / mm;
    const double lateral_tolerance = 0.25 * frame.description.geometry.line_pitch / mm;
    int number = 0;
    for (const Wire& wire : frame.truth.wires) {
        const std::string name = "wire " + std::to_string(++number);
        const Wire found = find_wire(field, wire, speckle.power());
        checks.push_back(within(name + ", depth", "mm", wire.depth / mm, found.depth / mm, depth_tolerance));
        checks.push_back(within(name + ", lateral", "mm", wire.lateral / mm, found.lateral / mm, lateral_tolerance));
    }

    for (const Cyst& cyst : frame.truth.cysts) {
        Statistics echoes;
        for (std::int64_t line = 0; line < field.lines(); ++line)
            for (std::int64_t sample = 0; sample < field.samples(); ++sample)
                if (inside(cyst, field.lateral(static_cast<double>(line)), field.depth(static_cast<double>(sample))))
                    echoes.add(field.at(line, sample));
        const double contrast = decibels_of_power(echoes.power() / speckle.power());
        const std::string name = name_of(cyst);
        if (std::isinf(cyst.contrast_db)) {
            checks.push_back(at_most(name, "dB", contrast, -35));
        } else {
            // Speckle power has the standard deviation of its mean, so a mean over n cells has 1 / sqrt(n) of it.
            const double spread = std::sqrt(1 / independent_cells(inner_area(cyst), frame.speckle_size) + 1 / cells);
            checks.push_back(within(name, "dB", cyst.contrast_db, contrast, sigmas * 10 / portable::log(10.0) * spread));
        }
    }

    // Fully developed speckle has a Rayleigh distribution: sqrt(pi / (4 - pi)). Over n independent cells the quotient
    // spreads by 1.36 / sqrt(n).
    checks.push_back(within("speckle, mean / deviation", "", std::sqrt(portable::pi / (4 - portable::pi)),
                            speckle.mean() / speckle.deviation(), sigmas * 1.36 / std::sqrt(cells)));
    checks.push_back(within("speckle, lateral size", "mm", frame.speckle_size.lateral / mm,
                            lateral_speckle_size(field, frame.truth, speckle.power()) / mm,
                            0.1 * frame.speckle_size.lateral / mm));
    return checks;
}

std::vector<Check> check_picture(const GreyImage& image, const ScanConverter& converter, double dynamic_range,
                                 const SyntheticFrame& frame)
{
    std::vector<Check> checks;
    double farthest = 0;
    for (const Wire& wire : frame.truth.wires) {
        const double distance = distance_in_picture(image, converter, dynamic_range, wire);
        farthest = std::isnan(distance) || std::isnan(farthest) ? not_a_number : std::max(farthest, distance);
    }
    checks.push_back(within("picture: farthest wire", "mm", 0, farthest / mm, 0.15));

    double left = 0;
    double top = 0;
    double bottom = 0;
    converter.pixel_of(0, frame.truth.speckle_top, left, top);
    converter.pixel_of(0, frame.truth.speckle_bottom, left, bottom);
    const Range rows((top + bottom) / 2, (bottom - top) / 2, image.height, 0);
    Statistics tissue;
    for (std::int64_t r = rows.first; r <= rows.last; ++r)
        for (int c = image.width / 8; c < image.width - image.width / 8; ++c)
            tissue.add(image.pixels[static_cast<std::size_t>(r * image.width + c)]);

    for (const Cyst& cyst : frame.truth.cysts) {
        const double contrast = (grey_inside(image, converter, cyst).mean() - tissue.mean()) * dynamic_range / 255;
        const std::string name = "picture: " + name_of(cyst);
        if (std::isinf(cyst.contrast_db)) {
            checks.push_back(at_most(name, "dB", contrast, -20));
        } else {
            // The decibels of fully developed speckle have a standard deviation of 5.57.
            const double spread = 5.57 / std::sqrt(independent_cells(inner_area(cyst), frame.speckle_size));
            checks.push_back(within(name, "dB", cyst.contrast_db, contrast, sigmas * spread));
        }
    }
    return checks;
}

} // namespace echo2image
