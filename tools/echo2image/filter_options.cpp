#include "filter_options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>

namespace echo2image {

void add_filter_options(CLI::App& app)
{
    for (const FilterTraits& filter : all_filters()) {
        const std::string name = std::string("--") + filter.name;
        CLI::Option* option = nullptr;
        if (filter.values == nullptr)
            option = app.add_flag(name, filter.help);
        else
            option = app.add_option(name, filter.help)
                         ->type_name(filter.usual != 0 ? '[' + std::string(filter.values) + ']' : filter.values)
                         ->expected(filter.usual != 0 ? 0 : 1, 1);
        option->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)->group("Filters over the frames, in the order given");
    }
}

std::vector<FilterStep> chosen_filters(const CLI::App& app, std::string& recording)
{
    const auto& filters = all_filters();
    std::vector<FilterStep> steps;
    std::map<const CLI::Option*, std::size_t> seen;
    for (const CLI::Option* option : app.parse_order()) {
        const std::string name = option->get_single_name();
        const auto filter = std::find_if(filters.begin(), filters.end(), [&](const FilterTraits& f) { return f.name == name; });
        if (filter == filters.end())
            continue;
        std::string value = option->results().at(seen[option]++);
        if (filter->values == nullptr && value == "true") // what a flag without a value reads
            value.clear();
        const bool number = value.find_first_not_of("-0123456789") == std::string::npos;
        if (filter->usual != 0 && !number && recording.empty())
            value.swap(recording);
        steps.push_back(filter_of(name, value));
    }
    return steps;
}

} // namespace echo2image
