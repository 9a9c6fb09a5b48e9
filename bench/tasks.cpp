// Times whole pieces of work beside plain loops and other libraries. Results are compared before anything is timed.
#include "tasks.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace bench {

Contender copy_of(std::size_t bytes)
{
    const Array<unsigned char> from(bytes / 2);
    const Array<unsigned char> to(bytes / 2);
    return {"(copy)",
            [=] {
                for (std::size_t i = 0; i + 16 <= from.size(); i += 16) {
                    std::memcpy(to.data() + i, from.data() + i, 16);
                    benchmark::ClobberMemory(); // or it becomes one call that bypasses the caches
                }
            },
            nullptr};
}

namespace {

// The largest difference of two results, relative to the largest number of the first; infinite if they do not compare.
double difference(const std::vector<double>& a, const std::vector<double>& b)
{
    if (a.size() != b.size())
        return HUGE_VAL;
    double largest = 0;
    double most = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        largest = std::max(largest, std::fabs(a[i]));
        const double off = std::fabs(a[i] - b[i]);
        most = std::isnan(off) ? HUGE_VAL : std::max(most, off);
    }
    return most == 0 ? 0 : most / largest;
}

void run(benchmark::State& state, const Contender& contender, const Task& task, double off)
{
    for (auto _ : state) {
        contender.work();
        benchmark::ClobberMemory();
    }
    state.counters["units"] = task.units;
    state.counters["difference"] = off;
    state.SetLabel(task.unit);
}

} // namespace
} // namespace bench

int main(int argc, char** argv)
{
    std::vector<bench::Task> tasks;
    bench::add_rf_tasks(tasks);
    bench::add_image_tasks(tasks);
    bench::add_doppler_tasks(tasks);
    bench::add_motion_tasks(tasks);

    bool all_agree = true;
    for (const bench::Task& task : tasks) {
        task.contenders.front().work();
        const std::vector<double> expected = task.contenders.front().result();
        for (const bench::Contender& contender : task.contenders) {
            const bool is_library = &contender == &task.contenders.front(); // done once; some work in place
            if (!is_library)
                contender.work();
            const double off = contender.result && !is_library ? bench::difference(expected, contender.result()) : 0;
            if (off > task.tolerance) {
                std::fprintf(stderr, "utils_sse_tasks: '%s' by %s is off by %g of the largest value, at most %g was expected\n",
                             task.name.c_str(), contender.name.c_str(), off, task.tolerance);
                all_agree = false;
            }
            benchmark::RegisterBenchmark((task.name + "/" + contender.name).c_str(), bench::run, contender, task, off)
                ->Unit(benchmark::kMicrosecond);
        }
    }
    if (!all_agree)
        return 1;

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
