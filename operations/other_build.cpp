#include "other_build.h"

#include <cstdio>
#include <cstring>
#include <dlfcn.h>

namespace operations {

std::vector<AnyFunction> functions_of_build(const std::string& path)
{
    // Its functions call each other, not their namesakes of the library that is there already.
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return {};
    }
    std::vector<AnyFunction> functions;
    for (const Operation& operation : all()) {
        Dl_info own{};
        void* address = nullptr;
        std::memcpy(&address, &operation.function, sizeof address);
        void* const other = dladdr(address, &own) != 0 && own.dli_sname != nullptr ? dlsym(library, own.dli_sname) : nullptr;
        if (other == nullptr || other == address) {
            std::fprintf(stderr, "%s: %s is missing\n", path.c_str(), operation.title().c_str());
            return {};
        }
        AnyFunction function = nullptr;
        std::memcpy(&function, &other, sizeof function);
        functions.push_back(function);
    }
    return functions;
}

bool machine_runs(const std::string& level)
{
    __builtin_cpu_init();
    const bool v3 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2");
    if (level == "v3")
        return v3;
    return level == "v4" && v3 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
}

} // namespace operations
