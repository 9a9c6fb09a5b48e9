#include "block_search_trial.h"
#include "trial.h"

#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace operations {
extern void (*const plain_reference_functions[])();
}

std::vector<std::function<Failure(Random&)>> trials_of_all()
{
    std::vector<std::function<Failure(Random&)>> trials;
    for (const operations::Operation& operation : operations::all()) {
        if (operation.own_cases.empty()) {
            const auto trial = std::make_shared<Trial>(operation, operations::plain_reference_functions[trials.size()]);
            trials.emplace_back([trial](Random& random) { return trial->any(random); });
        } else if (operation.name == "RoughCorrelation" || operation.name == "FineCorrelation") {
            const auto trial = std::make_shared<BlockSearchTrial>(operation.name == "FineCorrelation");
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
