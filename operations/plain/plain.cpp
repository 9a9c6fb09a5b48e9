// The functions of the plain loops in the order of the table, as PLAIN_LIBRARY_functions[]. Compiled once for each use,
// with its own PLAIN_LIBRARY (see utils_sse_add_plain_loops() in ../CMakeLists.txt), so it must not emit anything that
// another copy could emit under the same name: no inline functions or templates from outside.
#include "plain.h"

#include "utils_sse.h"

#define PLAIN_JOINED(name) name##_functions
#define PLAIN_FUNCTIONS_OF(name) PLAIN_JOINED(name)

namespace operations {

extern void (*const PLAIN_FUNCTIONS_OF(PLAIN_LIBRARY)[])();

void (*const PLAIN_FUNCTIONS_OF(PLAIN_LIBRARY)[])() = {
#define OPERATION(name, overload, result, parameters, ...)                                                                     \
    reinterpret_cast<void (*)()>(static_cast<result(UTILS_SSE_CALL*) parameters>(&PLAIN_LIBRARY::name)),
#include "../table.inc"
};

} // namespace operations
