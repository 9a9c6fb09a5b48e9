#include "block_search.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

using operations::AnyFunction;
using operations::Operation;
using operations::Value;

constexpr int kHalf = 16;
constexpr int kWidth = 32;
constexpr int kStride = 512;
constexpr int kRows = 400;
constexpr std::size_t kBlock = (2 * kHalf + 1) * kWidth;
constexpr int kMostCandidates = 225;

// An image of noise, the reference cut out of its middle, and candidates on a grid of 15 x 15 around it, two pixels apart.
struct Search
{
    bool fine;
    int count;
    std::vector<unsigned char> image = std::vector<unsigned char>(std::size_t{kStride} * kRows);
    unsigned short row_in[kMostCandidates + 1] = {};
    unsigned short column_in[kMostCandidates + 1] = {};
    unsigned short row_out[kMostCandidates + 1] = {};
    unsigned short column_out[kMostCandidates + 1] = {};
    unsigned char best[kMostCandidates + 1] = {};
    int slots = 0;
    alignas(16) unsigned char work[kBlock] = {};
    alignas(16) unsigned char reference[kBlock] = {};
    alignas(16) int scratch[4] = {};

    Search(bool fine_, int count_) : fine(fine_), count(count_)
    {
        unsigned state = 1;
        for (unsigned char& pixel : image) {
            state = state * 1664525u + 1013904223u;
            pixel = static_cast<unsigned char>(state >> 24);
        }
        for (int r = 0; r < 2 * kHalf + 1; ++r)
            std::copy_n(image.data() + (180 + r) * kStride + 240, kWidth, reference + r * kWidth);
        for (int k = 0; k <= kMostCandidates; ++k) {
            row_in[k] = static_cast<unsigned short>(165 + 2 * (k / 15));
            column_in[k] = static_cast<unsigned short>(226 + 2 * (k % 15));
        }
    }

    void run(const Operation& op, AnyFunction function)
    {
        std::fill(best, best + kMostCandidates + 1, static_cast<unsigned char>(0));
        std::vector<Value> values{Value(image.data()), Value(row_in),  Value(column_in), Value(row_out),   Value(column_out),
                                  Value(count),        Value(&slots),  Value(work),      Value(reference), Value(best),
                                  Value(kHalf),        Value(kStride), Value(kRows),     Value(scratch),   Value(kWidth),
                                  Value(75.0f),        Value(127.5f),  Value(100)};
        if (fine)
            values.push_back(Value(0));
        op.call(function, values);
    }

    std::vector<unsigned char> outcome() const
    {
        std::vector<unsigned char> bytes(best, best + kMostCandidates + 1);
        bytes.push_back(static_cast<unsigned char>(slots));
        for (int k = 0; k <= kMostCandidates; ++k)
            for (const int value : {row_out[k] & 255, row_out[k] >> 8, column_out[k] & 255, column_out[k] >> 8})
                bytes.push_back(static_cast<unsigned char>(value));
        bytes.insert(bytes.end(), work, work + kBlock);
        return bytes;
    }
};

void time_search(benchmark::State& state, const Operation& op, AnyFunction function, bool fine, int count)
{
    const auto search = std::make_unique<Search>(fine, count);
    for (auto _ : state) {
        search->run(op, function);
        benchmark::ClobberMemory();
    }
    const double scored = count * (fine ? 121.0 : 1.0);
    state.counters["elements"] = scored;
    state.counters["candidates/s"] = benchmark::Counter(scored, benchmark::Counter::kIsIterationInvariantRate);
}

} // namespace

bool add_block_search(const Operation& op, const std::string& implementation, AnyFunction function)
{
    const bool fine = op.name == "FineCorrelation";
    bool agree = true;
    for (const int count : {1, fine ? 4 : kMostCandidates}) {
        const auto ours = std::make_unique<Search>(fine, count);
        const auto theirs = std::make_unique<Search>(fine, count);
        ours->run(op, op.function);
        theirs->run(op, function);
        if (ours->outcome() != theirs->outcome()) {
            std::fprintf(stderr, "utils_sse_bench: %s by %s differs from the library\n", op.name.c_str(),
                         implementation.c_str());
            agree = false;
        }
        const std::string size = std::to_string(count) + (fine ? " x 121" : "");
        benchmark::RegisterBenchmark((op.name + "/" + size + " blocks of 33 x 32/" + implementation).c_str(), time_search, op,
                                     function, fine, count);
    }
    return agree;
}
