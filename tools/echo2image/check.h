// Measurements held against their truth, and the table that a demo prints of them.
#pragma once

#include <string>
#include <vector>

namespace echo2image {

struct Check
{
    std::string quantity;
    std::string unit;
    double truth = 0;     // minus infinity: as low as can be
    double measured = 0;  // NaN: nothing there to measure
    double tolerance = 0; // largest distance from truth; when truth is minus infinity, the largest value that will do
    bool ok = false;
};

Check within(std::string quantity, std::string unit, double truth, double measured, double tolerance);
Check at_most(std::string quantity, std::string unit, double measured, double limit);

bool all_ok(const std::vector<Check>& checks);

// One line per check: quantity, truth, measured, tolerance, ok or WRONG.
std::string table_of(const std::vector<Check>& checks);

} // namespace echo2image
