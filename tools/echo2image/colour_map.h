// Colour maps of 256 entries. Maps for signed values have fastest away from the probe at entry 0, rest between 127 and 128,
// fastest towards the probe at 255; maps for amounts rise from entry 0 to 255.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace echo2image {

struct Colour
{
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
};

using ColourMap = std::array<Colour, 256>;

enum class VelocityMap
{
    red_yellow, // red to yellow towards the probe, blue to cyan away
    red_blue,   // red and blue that end in black at rest
    variance,   // red and blue; the spread adds green
    diverging,  // orange and blue in perceptually equal steps, dark at rest
    grey,       // black away, white towards
};

VelocityMap velocity_map_of(const std::string& name); // throws BadInput
const char* to_string(VelocityMap map);
std::string names_of_velocity_maps(); // for help and messages: "red-yellow, red-blue, ..."

ColourMap colours_of(VelocityMap map);
ColourMap power_colours();  // one hue: black, orange, pale
ColourMap spread_colours(); // dark to bright green

// What the map `variance` adds for spread: green, from 0 for none to 255 for `full` and more.
std::uint8_t green_of_spread(double spread, double full);

// Entry of a signed map for a phase within the range that baseline * pi lies in the middle of; rest stays at the middle of
// the map, and each side has its 128 entries for as far as it reaches.
int entry_of_phase(float phase, double baseline);

} // namespace echo2image
