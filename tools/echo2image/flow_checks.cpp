#include "flow_checks.h"

#include "phase.h"
#include "portable_math.h"

#include <cmath>
#include <cstdio>
#include <limits>

namespace echo2image {

namespace {

constexpr double cm = 1e-2;
constexpr int points = 9; // from -0.8 to 0.8 radii
constexpr double step = 0.2;

// The beam smears the profile, and next to the walls the filter takes slow blood with the tissue.
double profile_tolerance(double radius)
{
    return std::fabs(radius) > 0.7 ? 2.5 : 1.0; // cm/s
}

std::string formatted(const char* format, double value)
{
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

Check share(std::string quantity, double count, double of, bool all)
{
    const double percent = of > 0 ? 100 * count / of : std::numeric_limits<double>::quiet_NaN();
    return within(std::move(quantity), "%", all ? 100 : 0, percent, all ? 5 : 0.5);
}

} // namespace

std::vector<ProfilePoint> profile_of(const ColourChain& chain, const FlowMaps& maps, const SyntheticFlow& flow)
{
    std::vector<ProfilePoint> profile;
    for (int point = 0; point < points; ++point) {
        const double radius = step * (point - points / 2);
        double real = 0;
        double imaginary = 0;
        double weighted_truth = 0;
        double weight = 0;
        for (std::size_t pixel = 0; pixel < flow.radius.size(); ++pixel) {
            if (std::fabs(double{flow.radius[pixel]} - radius) > step / 2)
                continue;
            real += double{maps.real[pixel]};
            imaginary += double{maps.imaginary[pixel]};
            weighted_truth += double{maps.r0[pixel]} * flow.velocity[pixel];
            weight += double{maps.r0[pixel]};
        }
        const double speed = portable::atan2(imaginary, real) / portable::pi * chain.nyquist_speed();
        profile.push_back({radius, weighted_truth / weight / cm, speed / cm});
    }
    return profile;
}

std::string table_of(const std::vector<ProfilePoint>& profile)
{
    char line[128];
    std::snprintf(line, sizeof line, "%-14s %12s %12s %12s\n", "radius", "truth cm/s", "found cm/s", "error cm/s");
    std::string table = line;
    for (const ProfilePoint& point : profile) {
        std::snprintf(line, sizeof line, "%+-14.1f %12.2f %12.2f %12.2f\n", point.radius, point.truth, point.measured,
                      point.measured - point.truth);
        table += line;
    }
    return table;
}

std::vector<Check> check_flow(const ColourChain& chain, const FlowMaps& maps, const ColourImage& picture,
                              const SyntheticFlow& flow)
{
    std::vector<Check> checks;
    for (const ProfilePoint& point : profile_of(chain, maps, flow))
        checks.push_back(within(formatted("flow at %+.1f radii", point.radius), "cm/s", point.truth, point.measured,
                                profile_tolerance(point.radius)));

    const std::vector<float> velocities = chain.velocities(maps);
    double squares = 0;
    double count = 0;
    for (std::size_t pixel = 0; pixel < velocities.size(); ++pixel) {
        if (std::fabs(flow.radius[pixel]) > 0.7F)
            continue;
        const double error = (double{velocities[pixel]} - double{flow.velocity[pixel]}) / cm;
        squares += error * error;
        ++count;
    }
    checks.push_back(within("flow, rms error of a pixel", "cm/s", 0, std::sqrt(squares / count), 2));

    const std::vector<float> radius = chain.converter().convert(flow.radius);
    const int width = chain.converter().width();
    const int margin = chain.parameters().scale ? scale_margin : 0;
    double lumen = 0;
    double lumen_red = 0;
    double tissue = 0;
    double tissue_coloured = 0;
    for (std::size_t pixel = 0; pixel < radius.size(); ++pixel) {
        const std::size_t row = pixel / static_cast<std::size_t>(width);
        const std::size_t column = pixel % static_cast<std::size_t>(width) + static_cast<std::size_t>(margin);
        const std::size_t at = row * static_cast<std::size_t>(picture.width) + column;
        const bool grey = picture.red[at] == picture.green[at] && picture.red[at] == picture.blue[at];
        if (std::fabs(radius[pixel]) < 0.8F) {
            ++lumen;
            lumen_red += !grey && picture.red[at] > picture.blue[at] ? 1 : 0;
        } else if (std::fabs(radius[pixel]) > 1.2F) {
            ++tissue;
            tissue_coloured += grey ? 0 : 1;
        }
    }
    checks.push_back(share("picture: lumen in red", lumen_red, lumen, true));
    checks.push_back(share("picture: tissue in colour", tissue_coloured, tissue, false));
    return checks;
}

} // namespace echo2image
