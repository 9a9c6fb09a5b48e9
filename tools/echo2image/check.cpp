#include "check.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace echo2image {

namespace {

std::string formatted(const char* format, double value)
{
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

} // namespace

Check within(std::string quantity, std::string unit, double truth, double measured, double tolerance)
{
    return {std::move(quantity), std::move(unit), truth, measured, tolerance, std::fabs(measured - truth) <= tolerance};
}

Check at_most(std::string quantity, std::string unit, double measured, double limit)
{
    return {std::move(quantity), std::move(unit), -std::numeric_limits<double>::infinity(), measured, limit, measured <= limit};
}

bool all_ok(const std::vector<Check>& checks)
{
    return std::all_of(checks.begin(), checks.end(), [](const Check& check) { return check.ok; });
}

std::string table_of(const std::vector<Check>& checks)
{
    char line[160];
    std::snprintf(line, sizeof line, "%-32s %10s %10s %12s  %-6s\n", "", "truth", "measured", "tolerance", "unit");
    std::string table = line;
    for (const Check& check : checks) {
        const bool limit = std::isinf(check.truth);
        const std::string truth = limit ? "-inf" : formatted("%.3f", check.truth);
        const std::string measured = std::isnan(check.measured) ? "none" : formatted("%.3f", check.measured);
        const std::string tolerance = formatted(limit ? "at most %.0f" : "+- %.3f", check.tolerance);
        std::snprintf(line, sizeof line, "%-32s %10s %10s %12s  %-6s  %s\n", check.quantity.c_str(), truth.c_str(),
                      measured.c_str(), tolerance.c_str(), check.unit.c_str(), check.ok ? "ok" : "WRONG");
        table += line;
    }
    return table;
}

} // namespace echo2image
