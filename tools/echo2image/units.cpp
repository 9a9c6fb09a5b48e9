#include "units.h"

#include "input_file.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace echo2image {

namespace {

struct Unit
{
    Quantity quantity;
    std::string_view name;
    double factor;      // to SI
    bool shown = false; // with_unit() uses it; within a quantity these stand in order of size
};

constexpr double degree = 3.14159265358979323846 / 180;

constexpr std::array<Unit, 18> units{{
    {Quantity::frequency, "Hz", 1, true},
    {Quantity::frequency, "kHz", 1e3, true},
    {Quantity::frequency, "MHz", 1e6, true},
    {Quantity::frequency, "GHz", 1e9, true},
    {Quantity::length, "um", 1e-6},
    {Quantity::length, "\u00b5m", 1e-6}, // micro sign
    {Quantity::length, "\u03bcm", 1e-6}, // Greek mu
    {Quantity::length, "mm", 1e-3, true},
    {Quantity::length, "cm", 1e-2},
    {Quantity::length, "m", 1},
    {Quantity::speed, "m/s", 1, true},
    {Quantity::speed, "mm/s", 1e-3},
    {Quantity::speed, "cm/s", 1e-2},
    {Quantity::speed, "km/s", 1e3},
    {Quantity::angle, "rad", 1},
    {Quantity::angle, "mrad", 1e-3},
    {Quantity::angle, "deg", degree, true},
    {Quantity::level, "dB", 1, true},
}};

std::string_view trimmed(std::string_view text)
{
    constexpr const char* blanks = " \t";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace

std::optional<double> parse_quantity(std::string_view text, Quantity quantity)
{
    text = trimmed(text);
    if (!text.empty() && text.front() == '+' && text.substr(1, 1) != "-")
        text.remove_prefix(1);
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || !std::isfinite(value))
        return std::nullopt;
    const std::string_view name = trimmed(text.substr(static_cast<std::size_t>(end - text.data())));
    if (name.empty())
        return value;
    for (const Unit& unit : units)
        if (unit.quantity == quantity && unit.name == name)
            // Dividing by 1000 or 1e6 is exact where multiplying with 0.001 is not.
            return unit.factor < 1 && quantity != Quantity::angle ? value / std::round(1 / unit.factor) : value * unit.factor;
    return std::nullopt;
}

double quantity_of(const std::string& name, std::string_view text, Quantity quantity, double least, double greatest)
{
    const std::optional<double> value = parse_quantity(text, quantity);
    if (!value)
        throw BadInput(name + ": expected " + example_of(quantity) + ", found " + in_quotes(text));
    if (!(*value >= least && *value <= greatest))
        throw BadInput(name + ": expected " + with_unit(least, quantity) + " to " + with_unit(greatest, quantity) + ", found " +
                       in_quotes(text));
    return *value;
}

std::string with_unit(double value, Quantity quantity)
{
    const Unit* chosen = nullptr;
    for (const Unit& unit : units)
        if (unit.quantity == quantity && unit.shown && (!chosen || std::fabs(value) >= unit.factor))
            chosen = &unit;
    char number[32];
    std::snprintf(number, sizeof number, "%.6g", chosen ? value / chosen->factor : value);
    return chosen ? number + (' ' + std::string(chosen->name)) : number;
}

const char* example_of(Quantity quantity)
{
    switch (quantity) {
    case Quantity::number:
        return "a number";
    case Quantity::frequency:
        return "a frequency such as 20 MHz";
    case Quantity::length:
        return "a length such as 0.3 mm";
    case Quantity::speed:
        return "a speed such as 1540 m/s";
    case Quantity::angle:
        return "an angle such as 15 deg";
    case Quantity::level:
        return "a level such as 60 dB";
    }
    return "a number";
}

} // namespace echo2image
