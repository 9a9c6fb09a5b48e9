// Times whole chains from echoes to pixels: frames per second on one core and on two threads, and what each stage takes.
// Pictures are compared before anything is timed.
//   utils_sse_chains --out RESULT.json [--repetitions N] [--seconds S] [--only TEXT] [--inputs FOLDER]
#include "chains.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <random>
#include <thread>

#if UTILS_SSE_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#endif

namespace bench {

void write_npy(const std::string& file, const char* type, const std::vector<int>& shape, const void* values, std::size_t bytes)
{
    std::string header = "{'descr': '" + std::string(type) + "', 'fortran_order': False, 'shape': (";
    for (const int n : shape)
        header += std::to_string(n) + ",";
    header += "), }";
    header.resize((header.size() + 10 + 1 + 63) / 64 * 64 - 10 - 1, ' ');
    header += '\n';
    std::ofstream out(file, std::ios::binary);
    const unsigned char magic[] = {0x93,
                                   'N',
                                   'U',
                                   'M',
                                   'P',
                                   'Y',
                                   1,
                                   0,
                                   static_cast<unsigned char>(header.size() & 255),
                                   static_cast<unsigned char>(header.size() >> 8)};
    out.write(reinterpret_cast<const char*>(magic), sizeof magic);
    out.write(header.data(), static_cast<std::streamsize>(header.size()));
    out.write(static_cast<const char*>(values), static_cast<std::streamsize>(bytes));
    if (!out) {
        std::fprintf(stderr, "%s: cannot be written\n", file.c_str());
        std::exit(1);
    }
}

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Threads of a host that waits for its frames: they spin.
class Barrier
{
public:
    explicit Barrier(int threads) : threads_(threads) {}
    void wait()
    {
        if (threads_ == 1)
            return;
        const int turn = turn_.load();
        if (waiting_.fetch_add(1) + 1 == threads_) {
            waiting_.store(0);
            turn_.store(turn + 1);
            return;
        }
        for (int spins = 0; turn_.load() == turn; ++spins)
            if (spins > 10000)
                std::this_thread::yield();
    }

private:
    int threads_;
    std::atomic<int> waiting_{0};
    std::atomic<int> turn_{0};
};

// The frames [first, end) of one of `parts` threads; `times`, one for each stage, may be null.
void run_part(const Chain& chain, const Candidate& candidate, int part, int parts, int first_frame, int end_frame,
              Barrier& barrier, double* times)
{
    const int first = chain.lines * part / parts;
    const int end = chain.lines * (part + 1) / parts;
    const auto timed = [&](std::size_t stage, const Piece& piece) {
        if (times == nullptr)
            return candidate.stages[stage].work(piece);
        const Clock::time_point start = Clock::now();
        candidate.stages[stage].work(piece);
        times[stage] += seconds_since(start);
    };
    for (int frame = first_frame; frame < end_frame; ++frame) {
        for (std::size_t stage = 0; stage < candidate.stages.size();) {
            if (candidate.stages[stage].reads_neighbours) {
                barrier.wait();
                timed(stage++, {part, first, end, frame});
                continue;
            }
            std::size_t behind = stage + 1;
            while (behind < candidate.stages.size() && !candidate.stages[behind].reads_neighbours)
                ++behind;
            for (int line = first; line < end; line += candidate.block)
                for (std::size_t s = stage; s < behind; ++s)
                    timed(s, {part, line, std::min(end, line + candidate.block), frame});
            stage = behind;
        }
        barrier.wait();
    }
}

struct Timing
{
    std::vector<double> one_core, two_threads; // seconds per frame, of each repetition
    std::vector<double> stages;                // seconds per frame on one core
    double differing = 0;                      // share of the bytes that are not the library's
    int frames = 0;                            // in a repetition
    int next = 0;                              // frame
};

// Seconds per frame: on one core of processor time, which other programs do not disturb; on two threads of wall clock.
double run(const Chain& chain, const Candidate& candidate, Timing& timing, int frames, int threads, double* times = nullptr)
{
    Barrier barrier(threads);
    const int first = timing.next;
    timing.next += frames;
    if (threads == 1) {
        const std::clock_t processor = std::clock();
        run_part(chain, candidate, 0, 1, first, timing.next, barrier, times);
        return static_cast<double>(std::clock() - processor) / CLOCKS_PER_SEC / frames;
    }
    const Clock::time_point start = Clock::now();
    std::vector<std::thread> all;
    for (int part = 0; part < threads; ++part)
        all.emplace_back([&, part] { run_part(chain, candidate, part, threads, first, timing.next, barrier, nullptr); });
    for (std::thread& thread : all)
        thread.join();
    return seconds_since(start) / frames;
}

constexpr int kComparedFrames = 9; // with which a cine has left its start behind

std::vector<unsigned char> picture_of(const Chain& chain, const Candidate& candidate, int threads)
{
    if (candidate.reset)
        candidate.reset();
    Timing unused;
    run(chain, candidate, unused, kComparedFrames, threads);
    return candidate.picture();
}

// Whether the picture counts as the library's; `differing`: the share of bytes that differ at all.
bool agrees(const Candidate& candidate, const std::vector<unsigned char>& expected, const std::vector<unsigned char>& found,
            double& differing)
{
    if (expected.size() != found.size())
        return false;
    std::size_t off = 0;
    std::size_t beyond = 0;
    for (std::size_t i = 0; i < found.size(); ++i) {
        const int difference = std::abs(int{expected[i]} - int{found[i]});
        off += difference > 0 ? 1 : 0;
        beyond += difference > candidate.levels ? 1 : 0;
    }
    differing = static_cast<double>(off) / static_cast<double>(found.size());
    return static_cast<double>(beyond) <= candidate.share_beyond * static_cast<double>(found.size());
}

bool compare(const Chain& chain, std::vector<Timing>& timings)
{
    bool all_agree = true;
    const std::vector<unsigned char> expected = picture_of(chain, chain.candidates.front(), 1);
    // A chain that lost its picture would agree with everybody who lost it, too.
    if (std::count(expected.begin(), expected.end(), expected.front()) >
        static_cast<std::ptrdiff_t>(expected.size() * 9 / 10)) {
        std::fprintf(stderr, "utils_sse_chains: '%s': the picture is empty\n", chain.name.c_str());
        all_agree = false;
    }
    for (std::size_t i = 0; i < chain.candidates.size(); ++i) {
        const Candidate& candidate = chain.candidates[i];
        const std::vector<unsigned char> alone = picture_of(chain, candidate, 1);
        if (!agrees(candidate, expected, alone, timings[i].differing)) {
            std::fprintf(
                stderr,
                "utils_sse_chains: '%s' by %s: %.2f %% of the bytes are off; at most %.2f %% by more than %d levels was "
                "expected\n",
                chain.name.c_str(), candidate.name.c_str(), 100 * timings[i].differing, 100 * candidate.share_beyond,
                candidate.levels);
            all_agree = false;
        }
        if (picture_of(chain, candidate, 2) != alone) {
            std::fprintf(stderr, "utils_sse_chains: '%s' by %s: two threads make another picture than one\n",
                         chain.name.c_str(), candidate.name.c_str());
            all_agree = false;
        }
    }
    return all_agree;
}

void measure(const Chain& chain, std::vector<Timing>& timings, int repetitions, double seconds)
{
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < chain.candidates.size(); ++i) {
        order.push_back(i);
        const double once = run(chain, chain.candidates[i], timings[i], 2, 1);
        timings[i].frames = std::max(2, static_cast<int>(seconds / std::max(once, 1e-6)));
        timings[i].stages.assign(chain.candidates[i].stages.size(), 0);
    }
    std::mt19937 generator(1);
    for (int repetition = 0; repetition < repetitions; ++repetition) {
        std::shuffle(order.begin(), order.end(), generator);
        for (const std::size_t i : order) {
            Timing& timing = timings[i];
            const Candidate& candidate = chain.candidates[i];
            timing.one_core.push_back(run(chain, candidate, timing, timing.frames, 1, timing.stages.data()));
            timing.two_threads.push_back(run(chain, candidate, timing, timing.frames, 2));
        }
    }
    for (Timing& timing : timings)
        for (double& stage : timing.stages)
            stage /= double{1} * repetitions * timing.frames;
}

std::string list_of(const std::vector<double>& numbers)
{
    std::string list;
    char text[32];
    for (const double number : numbers) {
        std::snprintf(text, sizeof text, "%s%.9g", list.empty() ? "" : ", ", number);
        list += text;
    }
    return "[" + list + "]";
}

std::string json_of(const Chain& chain, const std::vector<Timing>& timings)
{
    std::string json;
    for (std::size_t i = 0; i < timings.size(); ++i) {
        std::string names;
        for (const Stage& stage : chain.candidates[i].stages)
            names += (names.empty() ? "\"" : ", \"") + stage.name + "\"";
        char text[256];
        std::snprintf(text, sizeof text, "\"samples\": %.0f, \"differing\": %.6g, \"levels\": %d, \"share_beyond\": %g",
                      chain.samples, timings[i].differing, chain.candidates[i].levels, chain.candidates[i].share_beyond);
        json += (i == 0 ? "" : ",\n");
        json += "    {\"chain\": \"" + chain.name + "\", \"candidate\": \"" + chain.candidates[i].name + "\", " + text +
                ",\n     \"stages\": [" + names + "], \"seconds_of_stages\": " + list_of(timings[i].stages) +
                ",\n     \"one_core\": " + list_of(timings[i].one_core) +
                ", \"two_threads\": " + list_of(timings[i].two_threads) + "}";
    }
    return json;
}

void print(const Chain& chain, std::vector<Timing> timings)
{
    std::printf("%s\n", chain.name.c_str());
    for (std::size_t i = 0; i < timings.size(); ++i) {
        const auto median = [](std::vector<double>& values) {
            std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
            return values[values.size() / 2];
        };
        std::printf("  %-14s %9.1f frames per s, on two threads %9.1f;", chain.candidates[i].name.c_str(),
                    1 / median(timings[i].one_core), 1 / median(timings[i].two_threads));
        double sum = 0;
        for (const double stage : timings[i].stages)
            sum += stage;
        for (std::size_t s = 0; s < timings[i].stages.size(); ++s)
            std::printf(" %s %.0f %%", chain.candidates[i].stages[s].name.c_str(), 100 * timings[i].stages[s] / sum);
        std::printf("\n");
    }
    std::fflush(stdout);
}

} // namespace
} // namespace bench

int main(int argc, char** argv)
{
    std::map<std::string, std::string> options = {
        {"--out", ""}, {"--repetitions", "7"}, {"--seconds", "0.1"}, {"--only", ""}, {"--inputs", ""}};
    for (int i = 1; i < argc; i += 2) {
        if (options.count(argv[i]) == 0 || i + 1 == argc) {
            std::fprintf(stderr, "usage: utils_sse_chains [--out RESULT.json] [--repetitions N] [--seconds S] [--only TEXT] "
                                 "[--inputs FOLDER]\n");
            return 2;
        }
        options[argv[i]] = argv[i + 1];
    }
    const int repetitions = std::atoi(options["--repetitions"].c_str());
    const double seconds = std::atof(options["--seconds"].c_str());
    if (repetitions < 1 || !(seconds > 0)) {
        std::fprintf(stderr, "utils_sse_chains: --repetitions and --seconds must be above 0\n");
        return 2;
    }

    std::string version;
#if UTILS_SSE_BENCH_OPENCV
    cv::setNumThreads(1); // the host divides the work
    version = cv::getVersionString();
#endif
    std::vector<bench::Chain> chains;
    bench::add_rf_chains(chains);
    bench::add_colour_chains(chains);
    bench::add_cine_chains(chains);

    std::string json;
    bool all_agree = true;
    for (const bench::Chain& chain : chains) {
        if (chain.name.find(options["--only"]) == std::string::npos)
            continue;
        std::vector<bench::Timing> timings(chain.candidates.size());
        if (!bench::compare(chain, timings)) {
            all_agree = false;
            continue;
        }
        if (!options["--inputs"].empty()) {
            const std::string prefix = options["--inputs"] + "/" + chain.short_name + "-";
            const std::vector<unsigned char> picture = bench::picture_of(chain, chain.candidates.front(), 1);
            chain.write_inputs(prefix);
            bench::write_npy(prefix + "picture.npy", "|u1", {static_cast<int>(picture.size())}, picture.data(), picture.size());
        }
        if (all_agree) {
            bench::measure(chain, timings, repetitions, seconds);
            bench::print(chain, timings);
            json += (json.empty() ? "" : ",\n") + bench::json_of(chain, timings);
        }
    }
    if (!all_agree)
        return 1;
    if (!options["--out"].empty()) {
        std::ofstream out(options["--out"]);
        out << "{\"opencv\": \"" << version << "\",\n \"chains\": [\n" << json << "\n ]}\n";
        if (!out) {
            std::fprintf(stderr, "%s: cannot be written\n", options["--out"].c_str());
            return 1;
        }
    }
    return 0;
}
