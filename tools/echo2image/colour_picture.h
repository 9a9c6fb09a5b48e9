// Flow over a grey picture: which pixels are coloured, how, and the bar that says what the colours mean.
#pragma once

#include "bmode.h"
#include "colour_map.h"
#include "flow.h"

#include <cstdint>
#include <string>
#include <vector>

namespace echo2image {

// Planes, [row][column].
struct ColourImage
{
    int width = 0;
    int height = 0;
    double pixel_size = 0; // metres per pixel, both ways; 0 when unknown
    std::vector<std::uint8_t> red;
    std::vector<std::uint8_t> green;
    std::vector<std::uint8_t> blue;
};

// Power and autocorrelation of the flow on the picture's pixels, [row][column]; interpolated between those of the four
// samples around, so that phases never are.
struct FlowImage
{
    int firings = 0;
    std::vector<float> r0;
    std::vector<float> real;
    std::vector<float> imaginary;
};

FlowImage scan_convert(const FlowMaps& maps, const ScanConverter& converter, StageTimes* times = nullptr);

// Who has a pixel, colour or grey.
struct Priority
{
    double least_power = 0;     // dB; weaker flow is noise
    double greatest_spread = 1; // wider flow is noise
    double tissue_phase = 0;    // radians per firing: what turns less ..
    int tissue_grey = 0;        // .. and is at least as bright is tissue
};

// [row][column]: 255 for colour, 0 for grey.
std::vector<std::uint8_t> coloured_pixels(const GreyImage& grey, const FlowImage& flow, const Priority& priority);

enum class FlowQuantity
{
    velocity,
    power,
    spread,
};

struct ColourStyle
{
    FlowQuantity quantity = FlowQuantity::velocity;
    VelocityMap map = VelocityMap::red_yellow; // velocity
    double baseline = 0;                       // velocity: middle of the range shown, in units of the Nyquist velocity
    double greatest_power = 0;                 // power: dB of the brightest colour; the darkest is least_power of the priority
};

ColourImage paint(const GreyImage& grey, const FlowImage& flow, const Priority& priority, const ColourStyle& style,
                  StageTimes* times = nullptr);

// The bar's colours, [row][column].
std::vector<Colour> bar_colours(const Priority& priority, const ColourStyle& style, int width, int height);

// Adds a margin at the right with the colours; `top` and `bottom` are the texts at its ends.
struct BarTexts
{
    std::string top;
    std::string bottom;
    std::string unit;
};
ColourImage with_bar(const ColourImage& image, const Priority& priority, const ColourStyle& style, const BarTexts& texts);

// The millimetre scale of grey pictures.
ColourImage with_scale(const ColourImage& image, const ScanConverter& converter);

} // namespace echo2image
