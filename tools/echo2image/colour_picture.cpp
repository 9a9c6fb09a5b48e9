#include "colour_picture.h"

#include "phase.h"
#include "portable_math.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace echo2image {

namespace {

constexpr double decibel = 2.30258509299404568402 / 10; // of power, in natural logarithms

double spread_of(double r0, double real, double imaginary)
{
    return r0 > 0 ? std::max(0.0, 1 - std::sqrt(real * real + imaginary * imaginary) / r0) : 0;
}

std::size_t entry_of_amount(double amount, double least, double greatest)
{
    const double fraction = greatest > least ? (amount - least) / (greatest - least) : 1;
    return static_cast<std::size_t>(std::clamp(std::floor(fraction * 256), 0.0, 255.0));
}

// Colours of pixels and of the bar alike.
class Palette
{
public:
    Palette(const Priority& priority, const ColourStyle& style)
        : priority_(priority), style_(style), colours_(style.quantity == FlowQuantity::velocity ? colours_of(style.map)
                                                       : style.quantity == FlowQuantity::power  ? power_colours()
                                                                                                : spread_colours())
    {}
    bool shows_spread() const { return style_.quantity == FlowQuantity::velocity && style_.map == VelocityMap::variance; }
    Colour of_velocity(float phase, double spread) const
    {
        Colour colour = colours_[static_cast<std::size_t>(entry_of_phase(phase, style_.baseline))];
        if (shows_spread())
            colour.green = green_of_spread(spread, priority_.greatest_spread);
        return colour;
    }
    Colour of_power(double decibels) const
    {
        return colours_[entry_of_amount(decibels, priority_.least_power, style_.greatest_power)];
    }
    Colour of_spread(double spread) const { return colours_[entry_of_amount(spread, 0, priority_.greatest_spread)]; }

private:
    Priority priority_;
    ColourStyle style_;
    ColourMap colours_;
};

} // namespace

FlowImage scan_convert(const FlowMaps& maps, const ScanConverter& converter, StageTimes* times)
{
    const StageTimer timer(times, "scan conversion", maps.lines);
    FlowImage image;
    image.firings = maps.firings;
    image.r0 = converter.convert(maps.r0);
    image.real = converter.convert(maps.real);
    image.imaginary = converter.convert(maps.imaginary);
    return image;
}

std::vector<std::uint8_t> coloured_pixels(const GreyImage& grey, const FlowImage& flow, const Priority& priority)
{
    // The conditions without logarithm and angle.
    const double least_r0 = flow.firings * (portable::exp(decibel * priority.least_power) - 1);
    const double coherent = 1 - priority.greatest_spread;
    const double slow = portable::cos(priority.tissue_phase);
    std::vector<std::uint8_t> coloured(grey.pixels.size());
    for (std::size_t i = 0; i < coloured.size(); ++i) {
        const double r0 = flow.r0[i];
        const double real = flow.real[i];
        const double imaginary = flow.imaginary[i];
        const double r1 = std::sqrt(real * real + imaginary * imaginary);
        const bool tissue = grey.pixels[i] >= priority.tissue_grey && real > slow * r1;
        coloured[i] = r0 > 0 && r0 >= least_r0 && r1 >= coherent * r0 && !tissue ? 255 : 0;
    }
    return coloured;
}

ColourImage paint(const GreyImage& grey, const FlowImage& flow, const Priority& priority, const ColourStyle& style,
                  StageTimes* times)
{
    const StageTimer timer(times, "colours", 0);
    const std::vector<std::uint8_t> coloured = coloured_pixels(grey, flow, priority);
    const Palette palette(priority, style);
    std::vector<float> phases;
    if (style.quantity == FlowQuantity::velocity) {
        phases = fast_phases(flow.real, flow.imaginary);
        shift_baseline(phases, style.baseline);
    }
    ColourImage image{grey.width, grey.height, grey.pixel_size, grey.pixels, grey.pixels, grey.pixels};
    for (std::size_t i = 0; i < coloured.size(); ++i) {
        if (coloured[i] == 0)
            continue;
        const double r0 = flow.r0[i];
        Colour colour;
        switch (style.quantity) {
        case FlowQuantity::velocity:
            colour =
                palette.of_velocity(phases[i], palette.shows_spread() ? spread_of(r0, flow.real[i], flow.imaginary[i]) : 0);
            break;
        case FlowQuantity::power:
            colour = palette.of_power(portable::log(r0 / flow.firings + 1) / decibel);
            break;
        case FlowQuantity::spread:
            colour = palette.of_spread(spread_of(r0, flow.real[i], flow.imaginary[i]));
            break;
        }
        image.red[i] = colour.red;
        image.green[i] = colour.green;
        image.blue[i] = colour.blue;
    }
    return image;
}

std::vector<Colour> bar_colours(const Priority& priority, const ColourStyle& style, int width, int height)
{
    const Palette palette(priority, style);
    std::vector<Colour> colours;
    for (int row = 0; row < height; ++row) {
        const double up = 1 - (row + 0.5) / height;
        for (int column = 0; column < width; ++column) {
            const double spread = priority.greatest_spread * column / std::max(1, width - 1); // of the map that shows it
            switch (style.quantity) {
            case FlowQuantity::velocity:
                colours.push_back(
                    palette.of_velocity(static_cast<float>((style.baseline - 1 + 2 * up) * portable::pi), spread));
                break;
            case FlowQuantity::power:
                colours.push_back(palette.of_power(priority.least_power + up * (style.greatest_power - priority.least_power)));
                break;
            case FlowQuantity::spread:
                colours.push_back(palette.of_spread(up * priority.greatest_spread));
                break;
            }
        }
    }
    return colours;
}

ColourImage with_scale(const ColourImage& image, const ScanConverter& converter)
{
    const auto scaled = [&](const std::vector<std::uint8_t>& plane) {
        GreyImage grey;
        grey.width = image.width;
        grey.height = image.height;
        grey.pixel_size = image.pixel_size;
        grey.pixels = plane;
        return with_scale(grey, converter);
    };
    GreyImage red = scaled(image.red);
    return {
        red.width, red.height, image.pixel_size, std::move(red.pixels), scaled(image.green).pixels, scaled(image.blue).pixels};
}

} // namespace echo2image
