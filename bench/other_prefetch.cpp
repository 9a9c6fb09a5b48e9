// Addresses of the functions of the library's second copy (see CMakeLists.txt), in the order of the table.
#include "utils_sse.h"

namespace operations {

extern void (*const other_prefetch_functions[])();

void (*const other_prefetch_functions[])() = {
#define OPERATION(name, overload, result, parameters, ...)                                                                     \
    reinterpret_cast<void (*)()>(static_cast<result(UTILS_SSE_CALL*) parameters>(&CUtils_SSE::name)),
#include "table.inc"
};

} // namespace operations
