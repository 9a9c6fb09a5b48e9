#include "ensembles.h"

#include "utils_sse.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace {

using operations::AnyFunction;

constexpr std::size_t kPixels = 100000;
constexpr std::size_t kFirings[] = {8, 10, 12};

using Floats = std::unique_ptr<float, void (*)(void*)>;

Floats floats(std::size_t count)
{
    Floats block(static_cast<float*>(std::aligned_alloc(64, (count * sizeof(float) + 63) / 64 * 64)), std::free);
    if (!block) {
        std::fprintf(stderr, "utils_sse_bench: no memory for %zu floats\n", count);
        std::exit(1);
    }
    return block;
}

// The frame: the ensembles of all pixels one behind the other, each at a multiple of 16 bytes, and what is made of them.
struct Frame
{
    std::size_t firings;
    std::size_t step = (firings + 3) / 4 * 4;
    Floats I = floats(kPixels * step), Q = floats(kPixels * step);
    Floats filteredI = floats(kPixels * step), filteredQ = floats(kPixels * step);
    Floats matrix = floats(firings * firings);
    Floats results = floats(4 * kPixels);

    explicit Frame(std::size_t n) : firings(n)
    {
        unsigned state = 1;
        const auto fill = [&](float* p, std::size_t count, float scale) {
            for (std::size_t i = 0; i < count; ++i) {
                state = state * 1664525u + 1013904223u;
                p[i] = (static_cast<float>(state >> 8) / 8388608.0f - 1.0f) * scale;
            }
        };
        fill(I.get(), kPixels * step, 3000.0f);
        fill(Q.get(), kPixels * step, 3000.0f);
        fill(matrix.get(), n * n, 1.0f);
        fill(filteredI.get(), kPixels * step, 0.0f);
        fill(filteredQ.get(), kPixels * step, 0.0f);
        fill(results.get(), 4 * kPixels, 0.0f);
    }
};

void autocorrelate(AnyFunction any, Frame& frame)
{
    const auto function = reinterpret_cast<decltype(&CUtils_SSE::AutoCorrelateSSE)>(any);
    float* out = frame.results.get();
    for (std::size_t p = 0; p < kPixels; ++p)
        function(static_cast<int>(frame.firings), frame.I.get() + p * frame.step, frame.Q.get() + p * frame.step, out + p,
                 out + kPixels + p, out + 2 * kPixels + p, out + 3 * kPixels + p);
}

void filter(AnyFunction any, Frame& frame)
{
    const auto function = reinterpret_cast<decltype(&CUtils_SSE::IIRPerformMatrix)>(any);
    for (std::size_t p = 0; p < kPixels; ++p)
        function(static_cast<int>(frame.firings), frame.I.get() + p * frame.step, frame.Q.get() + p * frame.step,
                 frame.filteredI.get() + p * frame.step, frame.filteredQ.get() + p * frame.step, frame.matrix.get());
}

void mix(AnyFunction any, Frame& frame)
{
    const auto function = reinterpret_cast<decltype(&CUtils_SSE::MixingClutter)>(any);
    for (std::size_t p = 0; p < kPixels; ++p)
        function(static_cast<int>(frame.firings), frame.I.get() + p * frame.step, frame.Q.get() + p * frame.step,
                 static_cast<float>(p % 64) * 0.1f - 3.2f);
}

struct Case
{
    const char* operation;
    void (*run)(AnyFunction, Frame&);
};
constexpr Case kCases[] = {{"AutoCorrelateSSE", autocorrelate}, {"IIRPerformMatrix", filter}, {"MixingClutter", mix}};

bool same(const Floats& a, const Floats& b, std::size_t count)
{
    return std::memcmp(a.get(), b.get(), count * sizeof(float)) == 0;
}

bool agrees(const Case& which, AnyFunction function, AnyFunction library, std::size_t n)
{
    Frame found(n);
    Frame expected(n);
    which.run(function, found);
    which.run(library, expected);
    const std::size_t samples = kPixels * found.step;
    return same(found.I, expected.I, samples) && same(found.Q, expected.Q, samples) &&
           same(found.filteredI, expected.filteredI, samples) && same(found.filteredQ, expected.filteredQ, samples) &&
           same(found.results, expected.results, 4 * kPixels);
}

} // namespace

bool register_ensembles(const std::string& candidate, const AnyFunction* functions)
{
    bool all_agree = true;
    const std::vector<operations::Operation>& all = operations::all();
    for (std::size_t i = 0; i < all.size(); ++i)
        for (const Case& which : kCases) {
            if (all[i].name != which.operation)
                continue;
            const AnyFunction function = functions ? functions[i] : all[i].function;
            for (const std::size_t n : kFirings) {
                const std::string name = all[i].name + "/N=" + std::to_string(n) + "/" + candidate;
                if (!agrees(which, function, all[i].function, n)) {
                    std::fprintf(stderr, "utils_sse_bench: %s differs from the library\n", name.c_str());
                    all_agree = false;
                }
                benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
                    Frame frame(n);
                    for (auto _ : state) {
                        which.run(function, frame);
                        benchmark::ClobberMemory();
                    }
                    state.counters["elements"] = kPixels;
                });
            }
        }
    return all_agree;
}
