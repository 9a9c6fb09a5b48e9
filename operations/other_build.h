/** @file
 *  The functions of another build of the library than the one this program is linked with: a wider one, say.
 */
#ifndef UTILS_SSE_OPERATIONS_OTHER_BUILD_H
#define UTILS_SSE_OPERATIONS_OTHER_BUILD_H

#include "operations.h"

#include <string>
#include <vector>

namespace operations {

/** Loads the library at this path. Its functions in the order of all(); empty, with the reason on standard error, if it cannot
 *  be loaded or lacks one of them. */
std::vector<AnyFunction> functions_of_build(const std::string& path);

/** Whether this machine runs a build for x86-64-v3 or x86-64-v4 ("v3", "v4"). */
bool machine_runs(const std::string& level);

} // namespace operations

#endif
