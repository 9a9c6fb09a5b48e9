// Numbers with units, on the command line and in descriptions: "20 MHz", "20MHz", "0.298 mm", "80 deg". A bare number is SI.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace echo2image {

enum class Quantity
{
    number,    // no unit
    frequency, // Hz, kHz, MHz, GHz
    length,    // m, cm, mm, um
    speed,     // m/s, cm/s, mm/s, km/s
    angle,     // rad, mrad, deg
    level,     // dB
};

// The value in SI units; nothing when the text is not one finite number with at most a unit of this quantity. Blanks around
// the number and the unit do not matter.
std::optional<double> parse_quantity(std::string_view text, Quantity quantity);

// For options: as above, but throws BadInput ("--depth: expected a length such as 0.3 mm, found ...") when there is no value
// or when it lies outside least..greatest.
double quantity_of(const std::string& name, std::string_view text, Quantity quantity, double least, double greatest);

// The value with the unit that suits its size and up to six digits: "20 MHz", "0.298 mm", "-40 deg".
std::string with_unit(double value, Quantity quantity);

// For messages: "a frequency such as 20 MHz".
const char* example_of(Quantity quantity);

} // namespace echo2image
