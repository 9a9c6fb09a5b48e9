// Who offers the functions of the table: the library, its wider builds, and the plain loops by each compiler.
#include "tasks.h"
#if defined(UTILS_SSE_BUILD_V3)
#include "other_build.h"
#endif

#include <cstdio>

namespace operations {
#define UTILS_SSE_PLAIN(maker) extern void (*const plain_##maker##_functions[])();
#include "plain_makers.inc"
#undef UTILS_SSE_PLAIN
} // namespace operations

namespace bench {

operations::AnyFunction Maker::find(const std::string& title) const
{
    const std::vector<operations::Operation>& all = operations::all();
    for (std::size_t i = 0; i < all.size(); ++i)
        if (all[i].title() == title)
            return functions ? functions[i] : all[i].function;
    std::fprintf(stderr, "no operation '%s' in the table\n", title.c_str());
    std::exit(1);
}

const std::vector<Maker>& makers()
{
    static const std::vector<Maker> everybody = [] {
        std::vector<Maker> all = {
            {"utils_sse", nullptr, false},
#define UTILS_SSE_PLAIN(maker)                                                                                                 \
    {#maker, operations::plain_##maker##_functions, std::string(#maker).find("native") != std::string::npos},
#include "plain_makers.inc"
#undef UTILS_SSE_PLAIN
        };
#if defined(UTILS_SSE_BUILD_V3)
        static std::vector<std::vector<operations::AnyFunction>> builds;
        builds.reserve(2); // makers point into it
        const auto add = [&](const char* level, const char* path) {
            if (!operations::machine_runs(level))
                return;
            builds.push_back(operations::functions_of_build(path));
            if (!builds.back().empty())
                all.push_back({level, builds.back().data(), true});
        };
        add("v3", UTILS_SSE_BUILD_V3);
        add("v4", UTILS_SSE_BUILD_V4);
#endif
        return all;
    }();
    return everybody;
}

} // namespace bench
