// The filters of the command line, which may be given in any order and more than once.
#pragma once

#include "frame_filters.h"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace echo2image {

void add_filter_options(CLI::App& app);

// After parsing, in the order of the command line. `recording` is filled in when it is empty and stood behind a filter
// whose value may be left out. Throws BadInput.
std::vector<FilterStep> chosen_filters(const CLI::App& app, std::string& recording);

} // namespace echo2image
