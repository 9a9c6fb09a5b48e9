// Bytes choose an operation, its counts, what shares memory, where arrays lie and what they hold; the library must do what
// the plain loop does. Build with sanitizers: what the kernels do may not be undefined either.
#include "trial.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const auto trials = trials_of_all();
    Random random(data, size);
    if (const Failure failure = trials[below(random, trials.size())](random)) {
        std::fprintf(stderr, "%s\n", failure->c_str());
        std::abort();
    }
    return 0;
}
