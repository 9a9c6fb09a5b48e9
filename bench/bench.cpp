// Times every operation of the table at short lengths and in L1, L2 and memory: the library, the plain loops of each
// compiler, and the library with prefetch the other way round. Results are compared before anything is timed.
#include "limits.h"
#include "operations.h"
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

using operations::Argument;
using operations::Counts;
using operations::Element;
using operations::Operation;
using operations::Role;
using operations::Value;

struct Size
{
    std::string name;
    long long length;  // elements; 0: as many as fit
    std::size_t bytes; // of all arrays together
};

// Half of what the usual caches hold (32 KB, 512 KB), and far more than any of them: the memory size stays beyond the share
// of a last-level cache that one core of a server can claim.
constexpr std::size_t kKiB = 1024;
const Size kSizes[] = {{"1", 1, 0},     {"7", 7, 0},          {"23", 23, 0},         {"64", 64, 0},
                       {"128", 128, 0}, {"L1", 0, 16 * kKiB}, {"L2", 0, 256 * kKiB}, {"memory", 0, 512 * kKiB* kKiB}};

// A function that works with few lengths is timed with all of them.
std::vector<Size> sizes_for(const Operation& op)
{
    std::vector<Size> sizes;
    for (const long long length : op.length().swept)
        sizes.push_back({std::to_string(length), length, 0});
    return sizes.empty() ? std::vector<Size>(std::begin(kSizes), std::end(kSizes)) : sizes;
}

// One block of memory for all runs, filled once: numbers that are ordinary as floats, as samples and as bytes. Outputs go
// to a second one, so that no loop reads another's results (integers read as floats would be slow denormals).
struct Memory
{
    std::unique_ptr<unsigned char, void (*)(void*)> block{nullptr, std::free};
    std::size_t size = 0;

    void reserve(std::size_t bytes)
    {
        if (bytes <= size)
            return;
        size = bytes;
        block.reset(static_cast<unsigned char*>(std::aligned_alloc(4096, (bytes + 4095) / 4096 * 4096)));
        if (!block) {
            std::fprintf(stderr, "utils_sse_bench: no memory for %zu bytes\n", bytes);
            std::exit(1);
        }
        fill(block.get(), size);
    }

    static void fill(unsigned char* p, std::size_t bytes, double largest = 30000)
    {
        unsigned state = 1;
        for (std::size_t i = 0; i < bytes; i += sizeof(float)) {
            state = state * 1664525u + 1013904223u;
            const float value = (static_cast<float>(state >> 8) / 8388608.0f - 1.0f) * static_cast<float>(largest);
            std::memcpy(p + i, &value, std::min(sizeof value, bytes - i));
        }
    }
};

Memory input_memory;
Memory output_memory;

// Arrays start 16-byte aligned, each a few lines further from a page's start than the one before, as separate allocations
// would; equal distances from page starts make loads wait for stores that merely look like conflicts.
constexpr std::size_t kStagger = 5 * 64;
constexpr std::size_t kFront = 64; // readable in front of the first array

Counts counts_for(const Operation& op, long long length, bool short_call)
{
    Counts counts = op.typical_counts(length);
    if (short_call && counts.lines > 2)
        counts.lines = 2; // the fewest with which every operation on lines does something
    op.place_relative_counts(counts, std::vector<long long>(op.arguments.size(), 0));
    return counts;
}

// Of the arrays that grow with the length (a table of bytes does not).
std::size_t bytes_of(const Operation& op, const Counts& counts)
{
    std::size_t bytes = 0;
    for (const Argument& argument : op.arguments)
        if (argument.is_list())
            bytes += argument.extent(counts) * argument.listed_bytes(counts);
        else if (argument.is_array() && argument.bytes(counts) != argument.bytes(Counts()))
            bytes += argument.bytes(counts);
    return bytes;
}

// Nothing where what the operation allows does not come near the size.
std::optional<Counts> fitting_counts(const Operation& op, const Size& size)
{
    if (size.length > 0)
        return counts_for(op, size.length, true);
    const long long most = op.length().most > 0 ? op.length().most : (1ll << 29) - 1;
    if (bytes_of(op, counts_for(op, 1, false)) > size.bytes || bytes_of(op, counts_for(op, most, false)) < size.bytes / 2)
        return std::nullopt;
    long long low = 1;
    long long high = most + 1;
    while (high - low > 1) {
        const long long middle = (low + high) / 2;
        (bytes_of(op, counts_for(op, middle, false)) <= size.bytes ? low : high) = middle;
    }
    const long long whole = low > 256 ? low / 64 * 64 : low;
    return counts_for(op, whole, false);
}

// Values for a call: arrays laid out in the two memories, counts and scalars as usual.
struct Placement
{
    std::vector<Value> values;
    std::vector<std::vector<const void*>> lists; // of pointers
};

Placement place(const Operation& op, const Counts& counts)
{
    std::size_t needed = 0;
    for (const Argument& argument : op.arguments)
        if (argument.is_list())
            needed += argument.extent(counts) * (argument.listed_bytes(counts) + kStagger + 64);
        else if (argument.is_array())
            needed += kFront + argument.bytes(counts) + kStagger + 64;
    input_memory.reserve(needed);
    output_memory.reserve(needed);

    Placement placement;
    std::vector<Value>& values = placement.values;
    std::size_t in = kFront;
    std::size_t out = kFront;
    const auto distance = [](std::size_t bytes) { return (bytes + 15) / 16 * 16 + kStagger; };
    for (const Argument& argument : op.arguments) {
        if (argument.is_list()) {
            std::vector<const void*> list;
            for (std::size_t i = 0; i < argument.extent(counts); ++i, in += distance(argument.listed_bytes(counts)))
                list.push_back(input_memory.block.get() + in);
            values.emplace_back(static_cast<const void*>(list.data()));
            placement.lists.push_back(std::move(list));
        } else if (argument.is_array()) {
            const bool own_values = argument.role == Role::in && argument.typical > 0;
            const bool with_outputs = argument.is_written() || own_values;
            std::size_t& offset = with_outputs ? out : in;
            unsigned char* p = (with_outputs ? output_memory : input_memory).block.get() + offset;
            if (argument.role == Role::inout)
                Memory::fill(p, argument.bytes(counts));
            if (own_values)
                Memory::fill(p, argument.bytes(counts), argument.typical);
            values.emplace_back(static_cast<void*>(p));
            offset += distance(argument.bytes(counts));
        } else if (argument.member != nullptr) {
            values.emplace_back(static_cast<int>(counts.*argument.member));
        } else if (argument.element == Element::float32) {
            values.emplace_back(static_cast<float>(argument.typical));
        } else if (argument.element == Element::int32) {
            values.emplace_back(static_cast<int>(argument.typical));
        } else {
            values.emplace_back(static_cast<unsigned char>(argument.typical));
        }
    }
    return placement;
}

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
