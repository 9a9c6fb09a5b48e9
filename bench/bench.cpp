// Times every operation of the table at short lengths and in L1, L2 and memory: the library, the plain loops of each
// compiler, and the library with prefetch the other way round. Results are compared before anything is timed.
#include "limits.h"
#include "operations.h"
#include "placement.h"
#if defined(UTILS_SSE_BUILD_V3)
#include "other_build.h"
#endif

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace operations {
extern void (*const other_prefetch_functions[])();
#define UTILS_SSE_PLAIN(maker) extern void (*const plain_##maker##_functions[])();
#include "plain_makers.inc"
#undef UTILS_SSE_PLAIN
} // namespace operations

namespace {

using namespace placement;

// All bytes written by one call, and the result.
std::vector<unsigned char> outcome(const Operation& op, operations::AnyFunction function, const Counts& counts)
{
    const Placement placement = place(op, counts);
    const std::vector<Value>& values = placement.values;
    const Value result = op.call(function, values);
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i < values.size(); ++i)
        if (op.arguments[i].is_written()) {
            const unsigned char* p = values[i].as<unsigned char*>();
            bytes.insert(bytes.end(), p, p + op.arguments[i].bytes(counts));
        }
    const auto* p = reinterpret_cast<const unsigned char*>(&result); // zero behind a short result, and where there is none
    bytes.insert(bytes.end(), p, p + sizeof result);
    return bytes;
}

struct Candidate
{
    std::string name;
    operations::AnyFunction const* functions; // null: the library's own
};

void run(benchmark::State& state, const Operation& op, operations::AnyFunction function, const Counts& counts)
{
    const Placement placement = place(op, counts);
    for (auto _ : state) {
        benchmark::DoNotOptimize(op.call(function, placement.values));
        benchmark::ClobberMemory();
    }
    const auto length = static_cast<double>(counts.*op.length().member * std::max(1LL, counts.lines));
    state.counters["elements"] = length;
    state.counters["bytes"] = static_cast<double>(bytes_of(op, counts));
    state.counters["writes"] = std::any_of(op.arguments.begin(), op.arguments.end(), [&](const Argument& argument) {
        return argument.is_written() && argument.bytes(counts) > 64;
    });
}

bool agrees(const Operation& op, const Candidate& candidate, operations::AnyFunction function, const Size& size,
            const Counts& counts)
{
    if (function == op.function || size.bytes > 1024 * kKiB)
        return true; // the big size runs the code that L2 ran
    if (outcome(op, function, counts) == outcome(op, op.function, counts))
        return true;
    std::fprintf(stderr, "utils_sse_bench: %s by %s differs from the library at size %s\n", op.title().c_str(),
                 candidate.name.c_str(), size.name.c_str());
    return false;
}

// Whether a call at this size takes at most a second and a half, judging by a call that fits L2. What takes longer for the
// bytes of the big size is bound by computation and would teach nothing about memory.
bool takes_not_too_long(const Operation& op, operations::AnyFunction function, const Size& size)
{
    const Size fitting_l2 = {"", 0, 256 * kKiB};
    const std::optional<Counts> counts = size.bytes > fitting_l2.bytes ? fitting_counts(op, fitting_l2) : std::nullopt;
    if (!counts)
        return true;
    const Placement placement = place(op, *counts);
    const auto started = std::chrono::steady_clock::now();
    op.call(function, placement.values);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - started;
    return taken.count() * static_cast<double>(size.bytes) / static_cast<double>(fitting_l2.bytes) <= 1.5;
}

void run_limit(benchmark::State& state, const limits::Loop& loop, std::size_t bytes)
{
    input_memory.reserve(bytes + 64);
    output_memory.reserve(bytes + 64);
    const std::size_t each = bytes / static_cast<std::size_t>(loop.arrays) / 512 * 512;
    for (auto _ : state) {
        loop.run(output_memory.block.get(), input_memory.block.get(), each);
        benchmark::ClobberMemory();
    }
    state.counters["bytes"] = static_cast<double>(each) * loop.arrays;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<Candidate> candidates = {
        {"utils_sse", nullptr},
#define UTILS_SSE_PLAIN(maker) {#maker, operations::plain_##maker##_functions},
#include "plain_makers.inc"
#undef UTILS_SSE_PLAIN
#if UTILS_SSE_PREFETCH
        {"without_prefetch", operations::other_prefetch_functions}
#else
        {"with_prefetch", operations::other_prefetch_functions}
#endif
    };
#if defined(UTILS_SSE_BUILD_V3)
    std::vector<operations::AnyFunction> v3, v4;
    const auto add_build = [&](const char* level, const char* path, std::vector<operations::AnyFunction>& functions) {
        if (operations::machine_runs(level) && !(functions = operations::functions_of_build(path)).empty())
            candidates.push_back({level, functions.data()});
    };
    add_build("v3", UTILS_SSE_BUILD_V3, v3);
    add_build("v4", UTILS_SSE_BUILD_V4, v4);
#endif

    bool all_agree = true;
    const std::vector<Operation>& all = operations::all();
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (!all[i].own_cases.empty() || all[i].takes_ensemble)
            continue; // utils_sse_tasks times it
        for (const Size& size : sizes_for(all[i])) {
            const std::optional<Counts> fitting = fitting_counts(all[i], size);
            if (!fitting)
                continue;
            const Counts& counts = *fitting;
            for (const Candidate& candidate : candidates) {
                const Operation& op = all[i];
                const operations::AnyFunction function = candidate.functions ? candidate.functions[i] : op.function;
                all_agree &= agrees(op, candidate, function, size, counts);
                if (!takes_not_too_long(op, function, size))
                    continue;
                benchmark::RegisterBenchmark((op.title() + "/" + size.name + "/" + candidate.name).c_str(), run, op, function,
                                             counts);
            }
        }
    }
    if (!all_agree)
        return 1;
    for (const limits::Loop& loop : limits::all())
        for (const Size& size : kSizes)
            if (size.bytes > 0)
                benchmark::RegisterBenchmark(("(" + loop.name + ")/" + size.name + "/" + loop.width).c_str(), run_limit, loop,
                                             size.bytes);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
