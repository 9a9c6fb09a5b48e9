#include "block_search_trial.h"
#include "trial.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace operations {
extern void (*const plain_reference_functions[])();
}

std::vector<std::function<Failure(Random&)>> trials_of_all(const operations::AnyFunction* expected)
{
    const auto function = [=](const char* name) {
        const std::vector<operations::Operation>& all = operations::all();
        const auto found = std::find_if(all.begin(), all.end(), [=](const auto& operation) { return operation.name == name; });
        return expected[found - all.begin()];
    };
    Searches searches = plain_searches;
    if (expected != nullptr) {
        searches.RoughCorrelation = reinterpret_cast<decltype(searches.RoughCorrelation)>(function("RoughCorrelation"));
        searches.FineCorrelation = reinterpret_cast<decltype(searches.FineCorrelation)>(function("FineCorrelation"));
    } else {
        expected = operations::plain_reference_functions;
    }

    std::vector<std::function<Failure(Random&)>> trials;
    for (const operations::Operation& operation : operations::all()) {
        if (operation.own_cases.empty()) {
            const auto trial = std::make_shared<Trial>(operation, expected[trials.size()]);
            trials.emplace_back([trial](Random& random) { return trial->any(random); });
        } else if (operation.name == "RoughCorrelation" || operation.name == "FineCorrelation") {
            const bool fine = operation.name == "FineCorrelation";
            const auto trial = std::make_shared<BlockSearchTrial>(fine, kTestedSearches, searches);
            trials.emplace_back([trial](Random& random) { return trial->any(random, false); });
        } else {
            throw std::logic_error(operation.title() + ": no trials for its own cases");
        }
    }
    return trials;
}

unsigned seed_of_tests()
{
    static const char* const text = std::getenv("UTILS_SSE_SEED");
    static const auto value = text ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : 1u;
    return value;
}
