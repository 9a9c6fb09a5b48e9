#include "colour_map.h"

#include "input_file.h"
#include "portable_math.h"

#include <algorithm>
#include <cmath>

namespace echo2image {

namespace {

constexpr int half = 128;

struct Name
{
    VelocityMap map;
    const char* name;
};
constexpr Name names[] = {{VelocityMap::red_yellow, "red-yellow"},
                          {VelocityMap::red_blue, "red-blue"},
                          {VelocityMap::variance, "variance"},
                          {VelocityMap::diverging, "diverging"},
                          {VelocityMap::grey, "grey"}};

std::uint8_t level(double fraction)
{
    return static_cast<std::uint8_t>(std::floor(std::clamp(fraction, 0.0, 1.0) * 255 + 0.5));
}

// sRGB of a CIELAB colour (white D65) given as lightness, chroma and hue in degrees.
Colour from_lab(double lightness, double chroma, double hue)
{
    const double angle = hue * portable::pi / 180;
    const double y = (lightness + 16) / 116;
    const double x = y + chroma * portable::cos(angle) / 500;
    const double z = y - chroma * portable::sin(angle) / 200;
    const auto cubed = [](double t) {
        constexpr double knee = 6.0 / 29;
        return t > knee ? t * t * t : 3 * knee * knee * (t - 4.0 / 29);
    };
    const double x_linear = 0.95047 * cubed(x);
    const double y_linear = cubed(y);
    const double z_linear = 1.08883 * cubed(z);
    const auto display = [](double linear) {
        const double v = std::max(linear, 0.0);
        return level(v <= 0.0031308 ? 12.92 * v : 1.055 * portable::exp(portable::log(v) / 2.4) - 0.055);
    };
    return {display(3.2406 * x_linear - 1.5372 * y_linear - 0.4986 * z_linear),
            display(-0.9689 * x_linear + 1.8758 * y_linear + 0.0415 * z_linear),
            display(0.0557 * x_linear - 0.2040 * y_linear + 1.0570 * z_linear)};
}

// Colour of a signed map; `speed` from nearly 0 to 1.
Colour colour_of(VelocityMap map, bool towards, double speed)
{
    switch (map) {
    case VelocityMap::red_yellow: {
        const std::uint8_t bright = level(0.35 + 1.3 * speed);
        const std::uint8_t green = level((speed - 0.25) / 0.75);
        return towards ? Colour{bright, green, 0} : Colour{0, green, bright};
    }
    case VelocityMap::red_blue:
        return towards ? Colour{level(speed), 0, 0} : Colour{0, 0, level(speed)};
    case VelocityMap::variance: {
        const std::uint8_t bright = level(0.35 + 0.65 * speed);
        return towards ? Colour{bright, 0, 0} : Colour{0, 0, bright};
    }
    case VelocityMap::diverging:
        // As far as both hues stay within what a display can show.
        return from_lab(10 + 55 * speed, 52 * speed, towards ? 45 : 270);
    case VelocityMap::grey: {
        const std::uint8_t grey = level(0.5 + (towards ? 0.5 : -0.5) * speed);
        return {grey, grey, grey};
    }
    }
    return {};
}

} // namespace

VelocityMap velocity_map_of(const std::string& name)
{
    for (const Name& known : names)
        if (name == known.name)
            return known.map;
    throw BadInput("--map: expected " + names_of_velocity_maps() + ", found " + in_quotes(name));
}

const char* to_string(VelocityMap map)
{
    for (const Name& known : names)
        if (map == known.map)
            return known.name;
    return "";
}

std::string names_of_velocity_maps()
{
    std::string text;
    for (const Name& known : names) {
        if (!text.empty())
            text += &known == std::end(names) - 1 ? " or " : ", ";
        text += known.name;
    }
    return text;
}

ColourMap colours_of(VelocityMap map)
{
    ColourMap colours;
    for (int entry = 0; entry < 2 * half; ++entry) {
        const bool towards = entry >= half;
        const int step = towards ? entry - half : half - 1 - entry;
        colours[static_cast<std::size_t>(entry)] = colour_of(map, towards, static_cast<double>(step) / (half - 1));
    }
    return colours;
}

ColourMap power_colours()
{
    ColourMap colours;
    for (std::size_t entry = 0; entry < colours.size(); ++entry) {
        const double amount = static_cast<double>(entry) / 255;
        const double value = std::min(1.0, amount / 0.7);
        const double pale = std::max(0.0, (amount - 0.7) / 0.3) * 0.7; // white mixed in: the hue stays
        colours[entry] = {level(value), level(value * 0.5 + (1 - value * 0.5) * pale), level(pale)};
    }
    return colours;
}

ColourMap spread_colours()
{
    ColourMap colours;
    for (std::size_t entry = 0; entry < colours.size(); ++entry)
        colours[entry] = {0, level(0.15 + 0.85 * static_cast<double>(entry) / 255), 0};
    return colours;
}

std::uint8_t green_of_spread(double spread, double full)
{
    return level(spread / full);
}

int entry_of_phase(float phase, double baseline)
{
    const double speed = phase / portable::pi;
    const int towards = phase >= 0 ? 1 : 0;
    const double reach = towards != 0 ? 1 + baseline : 1 - baseline;
    const int step = reach > 0 ? std::clamp(static_cast<int>(std::floor(std::fabs(speed) / reach * half)), 0, half - 1) : 0;
    return towards != 0 ? half + step : half - 1 - step;
}

} // namespace echo2image
