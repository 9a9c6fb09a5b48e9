// The kernels in L1 for bench/counted.py, which compares their times with what counting their instructions allows.
//   utils_sse_counted --once CASE   calls the kernel of a case a single time, for a program that counts instructions
//   utils_sse_counted [options]     times all cases; options are those of Google Benchmark
#include "placement.h"
#include "utils_sse.h"

#include <benchmark/benchmark.h>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

#include <cmath>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace placement;

struct Case
{
    std::string name;
    double elements;
    std::function<void()> run;
    std::function<void()> prepare = [] {}; // before the first run: the cases share memory
};

template <class T>
std::vector<T> noise(std::size_t size, double middle, double swing)
{
    std::vector<T> values(size);
    unsigned state = 1;
    for (T& value : values) {
        state = state * 1664525u + 1013904223u;
        value = static_cast<T>(middle + swing * (static_cast<double>(state >> 8) / 8388608.0 - 1.0));
    }
    return values;
}

// Arrays that a kernel demands at multiples of 16 bytes.
struct alignas(64) Ensemble
{
    float i[12], q[12];
};

// Outputs of a call; of one that makes a single number, inputs.
double elements_of(const Operation& op, const Counts& counts)
{
    std::size_t read = 1, written = 1;
    for (const Argument& argument : op.arguments)
        if (argument.is_array())
            (argument.is_written() ? written : read) =
                std::max(argument.is_written() ? written : read, argument.extent(counts));
    return static_cast<double>(written > 2 ? written : read);
}

// A call with a few numbers: 64 of them a run.
bool is_tiny(const Operation& op)
{
    return op.takes_ensemble || op.name == "ATan2Bound" || op.name == "FFTmagnitude";
}

void add_general(std::vector<Case>& cases)
{
    for (const Operation& op : operations::all()) {
        if (!op.own_cases.empty() || is_tiny(op))
            continue;
        for (const Size& size : sizes_for(op)) {
            const std::optional<Counts> counts = fitting_counts(op, size);
            if (!counts || size.name != "L1")
                continue;
            const auto placed = std::make_shared<Placement>();
            cases.push_back({op.title(), elements_of(op, *counts),
                             [&op, placed] { benchmark::DoNotOptimize(op.call(op.function, placed->values)); },
                             [&op, placed, counts = *counts] { *placed = place(op, counts); }});
        }
    }
}

// A call handles one pixel; 64 pixels a run.
void add_ensembles(std::vector<Case>& cases)
{
    constexpr std::size_t pixels = 64;
    for (const int n : {8, 10, 12}) {
        std::vector<Ensemble> in(pixels);
        for (std::size_t p = 0; p < pixels; ++p)
            for (int k = 0; k < 12; ++k) {
                const double phase = 0.1 * static_cast<double>(p) + 0.4 * k;
                in[p].i[k] = static_cast<float>(1000 * std::cos(phase) + 10 * k);
                in[p].q[k] = static_cast<float>(1000 * std::sin(phase));
            }
        const std::string firings = ", " + std::to_string(n) + " firings";
        cases.push_back({"AutoCorrelateSSE" + firings, pixels, [=]() mutable {
                             float out[4];
                             for (Ensemble& e : in) {
                                 CUtils_SSE::AutoCorrelateSSE(n, e.i, e.q, out, out + 1, out + 2, out + 3);
                                 benchmark::DoNotOptimize(out);
                             }
                         }});
        cases.push_back({"IIRPerformMatrix" + firings, pixels, [=, matrix = noise<float>(12 * 12, 0, 1)]() mutable {
                             Ensemble out;
                             for (Ensemble& e : in) {
                                 CUtils_SSE::IIRPerformMatrix(n, e.i, e.q, out.i, out.q, matrix.data());
                                 benchmark::DoNotOptimize(out);
                             }
                         }});
        cases.push_back({"MixingClutter" + firings, pixels, [=]() mutable {
                             for (Ensemble& e : in)
                                 CUtils_SSE::MixingClutter(n, e.i, e.q, 0.3f);
                             benchmark::DoNotOptimize(in.data());
                         }});
    }
}

void add_short_calls(std::vector<Case>& cases)
{
    constexpr std::size_t calls = 64;
    cases.push_back({"ATan2Bound", 4 * calls,
                     [x = noise<float>(4 * calls, 0, 1), y = noise<float>(4 * calls, 0.1, 1), out = Ensemble()]() mutable {
                         for (std::size_t k = 0; k < 4 * calls; k += 4) {
                             CUtils_SSE::ATan2Bound(4, &y[k], &x[k], 1.0f, out.i, out.q);
                             benchmark::DoNotOptimize(out);
                         }
                     }});
    for (const int n : {16, 32, 64, 256, 1024}) {
        const auto size = static_cast<std::size_t>(n);
        cases.push_back({"FFTmagnitude, " + std::to_string(n), static_cast<double>(size * 4),
                         [=, out = noise<float>(size, 0, 1), in = noise<float>(size, 0, 1000),
                          table = noise<float>(2 * size, 0, 1)]() mutable {
                             for (int k = 0; k < 4; ++k)
                                 benchmark::DoNotOptimize(CUtils_SSE::FFTmagnitude(out.data(), in.data(), table.data(), n));
                         }});
    }
}

// Of long rows, as pictures have them; the general cases have short ones.
template <class T, class Filter>
void add_picture(std::vector<Case>& cases, const char* name, const Filter& filter)
{
    constexpr int width = 256, height = 16;
    cases.push_back({std::string(name) + ", 256 wide", double{width} * height,
                     [src = noise<T>(width * height, 127, 100), dst = std::vector<T>(width * height), filter]() mutable {
                         filter(dst.data(), src.data(), width, width, height);
                         benchmark::DoNotOptimize(dst.data());
                     }});
}

void add_pictures(std::vector<Case>& cases)
{
    using Bytes = void (*)(unsigned char*, const unsigned char*, int, int, int);
    using Floats = void (*)(float*, const float*, int, int, int);
    add_picture<unsigned char>(cases, "MedianFilter2DWin3 (bytes)", Bytes(CUtils_SSE::MedianFilter2DWin3));
    add_picture<short>(cases, "MedianFilter2DWin3Short", CUtils_SSE::MedianFilter2DWin3Short);
    add_picture<float>(cases, "MedianFilter2DWin3 (floats)", Floats(CUtils_SSE::MedianFilter2DWin3));
    add_picture<unsigned char>(cases, "MedianFilter2DWin5 (bytes)", Bytes(CUtils_SSE::MedianFilter2DWin5));
    add_picture<short>(cases, "MedianFilter2DWin5Short", CUtils_SSE::MedianFilter2DWin5Short);
    add_picture<float>(cases, "MedianFilter2DWin5 (floats)", Floats(CUtils_SSE::MedianFilter2DWin5));
}

// The buffers' rows lie 1024 and 512 bytes apart: of 32 and of 64 rows, and a line between the buffers, all stay in L1.
void add_transposition(std::vector<Case>& cases)
{
    struct alignas(64) Line
    {
        unsigned char byte[64];
    };
    constexpr int width = 64, height = 32;
    cases.push_back({"TransposeImage, 64 x 32", double{width} * height,
                     [image = noise<unsigned char>(width * height, 127, 100), staging = std::vector<Line>(height * 1024 / 64),
                      result = std::vector<Line>(1 + width * 512 / 64)]() mutable {
                         CUtils_SSE::TransposeImage(image.data(), width, height, staging[0].byte, result[1].byte);
                         benchmark::DoNotOptimize(result.data());
                     }});
}

// A block of 33 x 32 pixels and 121 candidates (or one) in an image of 64 x 64.
void add_searches(std::vector<Case>& cases)
{
    constexpr int side = 64, half = 16, width = 32, height = 2 * half + 1, row = 24, column = 16;
    struct Search
    {
        std::vector<unsigned char> image = noise<unsigned char>(side * side, 127, 100);
        std::vector<unsigned char> reference = std::vector<unsigned char>(height * width), work = reference, best = {0, 0, 0};
        std::vector<unsigned short> rows, columns, found_rows = {0, 0, 0}, found_columns = {0, 0, 0};
        std::vector<int> scratch = std::vector<int>(4), slots = std::vector<int>(1);
        float mean = 0, deviation = 0;
    } s;
    double sum = 0, squares = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const unsigned char pixel = s.image[static_cast<std::size_t>((row - half + y) * side + column + x)];
            s.reference[static_cast<std::size_t>(y * width + x)] = pixel;
            sum += pixel;
            squares += pixel * pixel;
        }
    constexpr double count = height * width;
    s.mean = static_cast<float>(sum / count);
    s.deviation = 1.01f * static_cast<float>(std::sqrt(squares / count - sum / count * sum / count));
    Search fine = s;
    fine.rows = {0, row - half + 2};
    fine.columns = {0, column + 2};
    cases.push_back({"FineCorrelation", 121, [s = fine]() mutable {
                         s.best[1] = 0;
                         CUtils_SSE::FineCorrelation(s.image.data(), s.rows.data(), s.columns.data(), s.found_rows.data(),
                                                     s.found_columns.data(), 1, s.slots.data(), s.work.data(),
                                                     s.reference.data(), s.best.data(), half, side, side, s.scratch.data(),
                                                     width, s.deviation, s.mean, 100, 0);
                     }});
    for (const int candidates : {121, 1}) {
        Search rough = s;
        for (int k = 0; k < candidates; ++k) {
            rough.rows.push_back(static_cast<unsigned short>(row - half + k / 11));
            rough.columns.push_back(static_cast<unsigned short>(column + k % 11));
        }
        cases.push_back({"RoughCorrelation, " + std::to_string(candidates) + (candidates > 1 ? " candidates" : " candidate"),
                         static_cast<double>(candidates), [s = rough, candidates]() mutable {
                             s.best[1] = 0;
                             CUtils_SSE::RoughCorrelation(s.image.data(), s.rows.data(), s.columns.data(), s.found_rows.data(),
                                                          s.found_columns.data(), candidates, s.slots.data(), s.work.data(),
                                                          s.reference.data(), s.best.data(), half, side, side, s.scratch.data(),
                                                          width, s.deviation, s.mean, 100);
                         }});
    }
}

#if defined(__GNUC__) || defined(__clang__)
// Chains in which every instruction waits for the one before: additions of integer registers, which take a cycle each (those of
// constants may take none), tell the clock; additions of floats their latency.
constexpr int kChain = 256 * 64;
#define UTILS_SSE_64(x) ".rept 64\n\t" x "\n\t.endr"
void add_chains(std::vector<Case>& cases)
{
    cases.push_back({"(clock)", kChain, [] {
                         long sum = 0;
                         for (int k = 0; k < kChain; k += 64)
                             __asm__ volatile(UTILS_SSE_64("add %1, %0") : "+r"(sum) : "r"(1L));
                     }});
    cases.push_back({"(float addition)", kChain, [] {
                         float sum = 0;
                         for (int k = 0; k < kChain; k += 64)
                             __asm__ volatile(UTILS_SSE_64("addps %1, %0") : "+x"(sum) : "x"(1.0f));
                     }});
}
#undef UTILS_SSE_64
#endif

// Whether the upper halves of registers hold anything, as functions must not leave them: SSE code that follows would be slow.
bool upper_halves_in_use()
{
#if (defined(__GNUC__) || defined(__clang__)) && (defined(__x86_64__) || defined(__i386__))
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d) || (c & bit_OSXSAVE) == 0 || !__get_cpuid_count(13, 1, &a, &b, &c, &d) || (a & 4) == 0)
        return false; // the processor does not tell
    __asm__ volatile("xgetbv" : "=a"(a), "=d"(d) : "c"(1));
    return (a & 0x44) != 0; // of 256 and of 512 bits
#else
    return false;
#endif
}

void time_case(benchmark::State& state, Case& which)
{
    which.prepare();
    for (auto _ : state) {
        which.run();
        benchmark::ClobberMemory();
    }
    state.counters["elements"] = which.elements;
    which.run();
    if (upper_halves_in_use())
        state.SkipWithError("leaves the upper halves of registers in use");
}

} // namespace

// By this name the counting program starts and stops.
extern "C" __attribute__((noinline)) void utils_sse_counted_call(const std::function<void()>& run)
{
    run();
}

int main(int argc, char** argv)
{
    std::vector<Case> cases;
    add_general(cases);
    add_pictures(cases);
    add_transposition(cases);
    add_ensembles(cases);
    add_short_calls(cases);
    add_searches(cases);
    if (argc == 3 && std::string(argv[1]) == "--once") {
        for (const Case& c : cases)
            if (c.name == argv[2]) {
                c.prepare();
                utils_sse_counted_call(c.run);
                std::printf("%.0f\n", c.elements);
                return 0;
            }
        std::fprintf(stderr, "utils_sse_counted: no case is called '%s'\n", argv[2]);
        return 2;
    }
    add_chains(cases);
    for (Case& c : cases)
        benchmark::RegisterBenchmark((c.name + "/L1").c_str(), [&c](benchmark::State& state) { time_case(state, c); });
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
