// A frame of RF lines: 192 lines of 3,120 samples, mixed and detected with 32 taps at decimation 4 and 8, and with more
// lines put between them.
#include "tasks.h"

#include "utils_sse.h"

#include <cmath>
#include <complex>

#if UTILS_SSE_BENCH_LIQUID
#include <liquid/liquid.h>
#endif

namespace bench {
namespace {

constexpr int kLines = 192;
constexpr int kSamples = 3120;
constexpr int kTaps = 32;

int outputs(int decimation)
{
    return (kSamples - kTaps - 4) / decimation + 1;
}

struct Frame
{
    Array<short> rf{kLines * kSamples};
    Array<short> cosine{kSamples}, sine{kSamples};
    double taps[kTaps] = {};

    Frame()
    {
        Noise noise;
        for (short& sample : rf)
            sample = static_cast<short>(20000 * noise());
        for (int i = 0; i < kSamples; ++i) {
            cosine[static_cast<std::size_t>(i)] = static_cast<short>(std::lround(32767 * std::cos(0.785 * i)));
            sine[static_cast<std::size_t>(i)] = static_cast<short>(std::lround(-32767 * std::sin(0.785 * i)));
        }
        double sum = 0;
        for (int k = 0; k < kTaps; ++k)
            sum += taps[k] = 0.54 - 0.46 * std::cos(2 * 3.14159265358979 * (k + 0.5) / kTaps);
        for (double& tap : taps)
            tap = std::floor(32768 * tap / sum);
    }

    // As the detectors want them: every four taps twice at decimation 4.
    Array<short> table(int decimation) const
    {
        Array<short> table(2 * kTaps);
        for (int k = 0; k < kTaps; ++k) {
            const auto at = static_cast<std::size_t>(decimation == 4 ? k / 4 * 8 + k % 4 : k);
            table[at] = static_cast<short>(taps[k]);
            if (decimation == 4)
                table[at + 4] = table[at];
        }
        return table;
    }
};

struct Detection
{
    Frame frame;
    int decimation;
    Array<short> i{kLines * kSamples + 8}, q{kLines * kSamples + 8};
    Array<float> envelope{static_cast<std::size_t>(kLines * outputs(decimation))};
    Array<short> table = frame.table(decimation);
};

Contender detect(const Maker& maker, int decimation, const std::shared_ptr<Detection>& on)
{
    const char* const title = decimation == 4 ? "EnvelopDetectGenSSED4F8" : "EnvelopDetectGenSSED8F4";
    const auto mix = maker.function("DemodulateNew", &CUtils_SSE::DemodulateNew);
    const auto detector = maker.function(title, &CUtils_SSE::EnvelopDetectGenSSED4F8);
    return {maker.name,
            [=] {
                mix(on->frame.rf.data(), on->i.data(), on->q.data(), on->frame.cosine.data(), on->frame.sine.data(), kLines,
                    kSamples);
                detector(on->i.data(), on->q.data(), on->envelope.data(), on->table.data(), kLines, kSamples,
                         outputs(decimation), outputs(decimation), kTaps, decimation);
            },
            [=] { return on->envelope.numbers(); }};
}

#if UTILS_SSE_BENCH_LIQUID
// The same mixing and filtering in floats, the way its users would write it.
Contender detect_with_liquid(int decimation)
{
    struct State : Detection
    {
        firdecim_crcf filter = nullptr;
        std::vector<std::complex<float>> mixed, filtered;

        explicit State(int m) : Detection{Frame(), m}
        {
            float taps[kTaps];
            for (int k = 0; k < kTaps; ++k)
                taps[k] = static_cast<float>(frame.taps[k] / 32768);
            filter = firdecim_crcf_create(static_cast<unsigned>(m), taps, kTaps);
            mixed.resize(static_cast<std::size_t>(kSamples + 8));
            filtered.resize(static_cast<std::size_t>(kSamples / m + 2));
        }
        ~State() { firdecim_crcf_destroy(filter); }
        State(const State&) = delete;
        State& operator=(const State&) = delete;
    };
    const auto on = std::make_shared<State>(decimation);
    return {"liquid-dsp",
            [=] {
                const int count = outputs(decimation);
                const int delay = kTaps / decimation; // outputs of windows that begin before the line
                for (int l = 0; l < kLines; ++l) {
                    const short* const rf = on->frame.rf.data() + l * kSamples;
                    // One zero in front makes its windows begin where ours do.
                    for (std::size_t n = 0; n < kSamples; ++n)
                        on->mixed[n + 1] = std::complex<float>(static_cast<float>(rf[n] * on->frame.cosine[n]),
                                                               static_cast<float>(rf[n] * on->frame.sine[n])) *
                                           (1.0f / 32768);
                    firdecim_crcf_reset(on->filter);
                    firdecim_crcf_execute_block(on->filter, on->mixed.data(), static_cast<unsigned>(count + delay),
                                                on->filtered.data());
                    for (int j = 0; j < count; ++j)
                        on->envelope[static_cast<std::size_t>(l * count + j)] =
                            std::sqrt(std::norm(on->filtered[static_cast<std::size_t>(j + delay)]));
                }
            },
            [=] { return on->envelope.numbers(); }};
}
#endif

// Lines put between lines. `more`: output lines for each input line.
template <class T, class Interpolation>
void add_interpolation(std::vector<Task>& tasks, const std::string& name, const char* title, Interpolation, int lines, int n,
                       int more)
{
    Task task{name, "line", static_cast<double>(lines), 0, {}};
    const std::size_t source = static_cast<std::size_t>(lines) * static_cast<std::size_t>(n);
    const Array<T> src(source);
    Noise noise;
    for (T& x : src)
        x = static_cast<T>(std::lround(100 + 100 * noise()));
    for (const Maker& maker : makers()) {
        const auto function = maker.function(title, Interpolation());
        const Array<T> dst = results_of_all<T>(source * static_cast<std::size_t>(more));
        task.contenders.push_back(
            {maker.name, [=] { function(dst.data(), src.data(), lines, n); }, [=] { return dst.numbers(); }});
    }
    task.contenders.push_back(copy_of(source * static_cast<std::size_t>(1 + more) * sizeof(T)));
    tasks.push_back(task);
}

} // namespace

void add_rf_tasks(std::vector<Task>& tasks)
{
    for (const int decimation : {4, 8}) {
        // Q15 taps and shifts against floats: half a unit of 20000 here and there.
        Task task{
            "RF to envelope, 192 x 3,120 samples, 32 taps, decimation " + std::to_string(decimation), "line", kLines, 3e-4, {}};
        const auto on = std::make_shared<Detection>(Detection{Frame(), decimation});
        for (const Maker& maker : makers())
            task.contenders.push_back(detect(maker, decimation, on));
#if UTILS_SSE_BENCH_LIQUID
        task.contenders.push_back(detect_with_liquid(decimation));
#endif
        tasks.push_back(task);
    }
    using Rf = void (*)(short*, const short*, int, int);
    using Pixels = void (*)(unsigned char*, const unsigned char*, int, int);
    for (const int lines : {kLines, 32 * kLines}) {
        const std::string frame = lines == kLines ? ", 192 x 3,120" : ", 6,144 x 3,120, in memory";
        add_interpolation<short>(tasks, "RF lines times two" + frame, "Interpolate2", Rf(), lines, kSamples, 2);
        add_interpolation<short>(tasks, "RF lines times four" + frame, "Interpolate4", Rf(), lines, kSamples, 4);
        add_interpolation<unsigned char>(tasks, "8-bit lines times two" + frame, "Interpolate2_8bit", Pixels(), lines, kSamples,
                                         2);
        add_interpolation<unsigned char>(tasks, "8-bit lines times four" + frame, "Interpolate4_8bit", Pixels(), lines,
                                         kSamples, 4);
    }
}

} // namespace bench
