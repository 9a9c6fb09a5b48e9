// soak [--calls N] [--threads N] [--seed N] [--only CALL] [--against LIBRARY]: random calls of all operations in turn, each
// next to its plain loop or to another build of the library, by several threads on data of their own. The number of a call and
// the seed decide everything about it.
#include "trial.h"
#if defined(__linux__)
#include "other_build.h"
#endif

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

struct Options
{
    unsigned long calls = 1'000'000;
    unsigned long threads = 2;
    unsigned long seed = 1;
    unsigned long only = std::numeric_limits<unsigned long>::max();
    std::string against; // a library; empty: the plain loops
};

[[noreturn]] void usage()
{
    std::fputs("usage: soak [--calls N] [--threads N] [--seed N] [--only CALL] [--against LIBRARY]\n", stderr);
    std::exit(2);
}

Options options_of(int count, char** words)
{
    Options options;
    for (int i = 1; i < count; i += 2) {
        const std::string name = words[i];
        if (name == "--against" && i + 1 < count) {
            options.against = words[i + 1];
            continue;
        }
        unsigned long* const option = name == "--calls"     ? &options.calls
                                      : name == "--threads" ? &options.threads
                                      : name == "--seed"    ? &options.seed
                                      : name == "--only"    ? &options.only
                                                            : nullptr;
        if (option == nullptr || i + 1 == count)
            usage();
        char* end = nullptr;
        *option = std::strtoul(words[i + 1], &end, 10);
        if (end == words[i + 1] || *end != '\0')
            usage();
    }
    if (options.threads < 1 || options.threads > 256)
        usage();
    return options;
}

class Soak
{
public:
    Soak(const Options& options, const operations::AnyFunction* expected)
        : options_(options), expected_(expected), counts_(operations::all().size())
    {}

    bool run()
    {
        std::vector<std::thread> threads;
        for (unsigned long i = 0; i < options_.threads; ++i)
            threads.emplace_back([this, i] { work(i); });
        for (std::thread& thread : threads)
            thread.join();
        return !failed_;
    }

    unsigned long least() const { return *std::min_element(counts_.begin(), counts_.end()); }

private:
    // Rounds over all operations are dealt out to the threads, which start at different operations.
    void work(unsigned long thread)
    {
        const auto trials = trials_of_all(expected_);
        const unsigned long operations = trials.size();
        std::vector<unsigned long> counts(operations);
        for (unsigned long first = thread * operations; first < options_.calls; first += options_.threads * operations)
            for (unsigned long i = 0; i < operations && !failed_; ++i) {
                const unsigned long call = first + (i + 13 * thread) % operations;
                if (call >= options_.calls || (options_.only < options_.calls && call != options_.only))
                    continue;
                Random random(static_cast<std::uint32_t>(options_.seed * 0x9e3779b9u + call));
                if (const Failure failure = trials[call % operations](random))
                    report(call, *failure);
                ++counts[call % operations];
                show(1 + made_.fetch_add(1, std::memory_order_relaxed));
            }
        const std::lock_guard<std::mutex> lock(mutex_);
        for (unsigned long i = 0; i < operations; ++i)
            counts_[i] += counts[i];
    }

    void report(unsigned long call, const std::string& failure)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!failed_.exchange(true))
            std::fprintf(stderr, "%s%s\n  to repeat: soak --seed %lu --calls %lu --only %lu\n", is_terminal_ ? "\n" : "",
                         failure.c_str(), options_.seed, options_.calls, call);
    }

    void show(unsigned long made) const
    {
        if (is_terminal_ && made % 5000 == 0)
            std::fprintf(stderr, "\r%lu of %lu calls", made, options_.calls);
    }

    Options options_;
    const operations::AnyFunction* expected_;
    const bool is_terminal_ = isatty(STDERR_FILENO) != 0;
    std::atomic<unsigned long> made_{0};
    std::atomic<bool> failed_{false};
    std::mutex mutex_;
    std::vector<unsigned long> counts_; // for each operation
};

} // namespace

int main(int count, char** words)
{
    const Options options = options_of(count, words);
    std::printf("soak: seed %lu, %lu calls, %lu threads\n", options.seed, options.calls, options.threads);
    std::fflush(stdout);
    const auto start = std::chrono::steady_clock::now();
    std::vector<operations::AnyFunction> others;
    if (!options.against.empty()) {
#if defined(__linux__)
        others = operations::functions_of_build(options.against);
#endif
        if (others.empty())
            return 2;
    }
    Soak soak(options, others.empty() ? nullptr : others.data());
    if (!soak.run())
        return 1;
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    std::printf("%ssoak: every call as %s, each of %zu operations at least %lu times, in %.1f s\n",
                isatty(STDERR_FILENO) != 0 ? "\n" : "", others.empty() ? "its plain loop" : options.against.c_str(),
                operations::all().size(), soak.least(), seconds.count());
    return 0;
}
