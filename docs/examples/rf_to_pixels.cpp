// One line of echoes on its way to pixels: mix with the carrier, low-pass, decimate, take the magnitude, compress to grey,
// pack for a display. Three reflectors are recorded, each 20 dB weaker than the one above it; the program says where it
// sees them and fails when they are not where they were put.
//
//     g++ -std=c++17 rf_to_pixels.cpp $(pkg-config --cflags --libs utils_sse) && ./a.out
#include <utils_sse.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

constexpr double pi = 3.14159265358979323846;
constexpr double sampling_frequency = 40e6;                    // Hz
constexpr double center_frequency = 5e6;                       // Hz
constexpr double millimetres_per_sample = 1540e3 / (2 * 40e6); // the echo's way is twice the depth
constexpr int samples = 2048;                                  // of RF; whole blocks of 8, or DemodulateNew zeroes the rest
constexpr int taps = 32;                                       // EnvelopDetectGenSSED4F8: 32 taps, every 4th output
constexpr int decimation = 4;                                  //
constexpr int overread = 4;                                    // samples it may read behind the last window
constexpr int outputs = (samples - taps - overread) / decimation + 1; // windows that lie within the line
constexpr double dynamic_range = 60;                                  // dB from white down to black

struct Reflector
{
    double depth; // mm
    double level; // dB below the strongest
};
constexpr Reflector reflectors[] = {{9.0, 0}, {19.5, -20}, {30.0, -40}};

// Carriers and tap tables lie at multiples of 16 bytes.
using AlignedSamples = std::unique_ptr<short, void (*)(void*)>;
AlignedSamples aligned_samples(unsigned int count)
{
    return {static_cast<short*>(CUtils_SSE::aligned_malloc(count * sizeof(short), 16)), CUtils_SSE::aligned_free};
}

short rounded(double value)
{
    return static_cast<short>(std::lround(value));
}

// What a converter would hand over: a 5 MHz burst per reflector.
std::vector<short> record()
{
    std::vector<short> rf(samples);
    for (int i = 0; i < samples; ++i) {
        double echo = 0;
        for (const Reflector& reflector : reflectors) {
            const double t = i - reflector.depth / millimetres_per_sample;
            echo += 30000 * std::pow(10, reflector.level / 20) * std::exp(-t * t / 400) *
                    std::cos(2 * pi * center_frequency / sampling_frequency * t);
        }
        rf[static_cast<std::size_t>(i)] = rounded(echo);
    }
    return rf;
}

// A low-pass of 3 MHz: windowed sinc, 31 taps and a zero. The taps sum to 65536 in Q15, 2.0, because mixing halves the
// amplitude; none is negative, so no sum of products leaves 32 bits. Decimation 4 wants every four taps twice.
AlignedSamples tap_table()
{
    std::vector<double> h(taps);
    double sum = 0;
    for (int k = 0; k < taps - 1; ++k) {
        const double t = k - 15;
        const double sinc = k == 15 ? 1 : std::sin(pi * 0.075 * t) / (pi * 0.075 * t);
        sum += h[static_cast<std::size_t>(k)] = sinc * (0.54 + 0.46 * std::cos(pi * t / 15));
    }
    AlignedSamples table = aligned_samples(2 * taps);
    for (int k = 0; k < taps; ++k) {
        short* const group = table.get() + k / 4 * 8;
        group[k % 4] = group[k % 4 + 4] = rounded(std::floor(65536 * h[static_cast<std::size_t>(k)] / sum));
    }
    return table;
}

// FloatToByte's curve: entry 30000 is white, and black lies 60 dB below.
std::vector<unsigned char> logarithmic_curve()
{
    std::vector<unsigned char> curve(65536);
    for (int i = 1; i < 32768; ++i) {
        const double grey = 255 * (1 + 20 * std::log10(i / 30000.0) / dynamic_range);
        curve[static_cast<std::size_t>(i)] = static_cast<unsigned char>(std::lround(std::clamp(grey, 0.0, 255.0)));
    }
    return curve;
}

} // namespace

int main()
{
    const std::vector<short> rf = record();

    const AlignedSamples cosine = aligned_samples(samples);
    const AlignedSamples minus_sine = aligned_samples(samples);
    for (int i = 0; i < samples; ++i) {
        const double phase = 2 * pi * center_frequency / sampling_frequency * i;
        cosine.get()[i] = rounded(32767 * std::cos(phase));
        minus_sine.get()[i] = rounded(-32767 * std::sin(phase));
    }
    std::vector<short> in_phase(samples);
    std::vector<short> quadrature(samples);
    CUtils_SSE::DemodulateNew(rf.data(), in_phase.data(), quadrature.data(), cosine.get(), minus_sine.get(), 1, samples);

    const AlignedSamples table = tap_table();
    std::vector<float> envelope(outputs);
    CUtils_SSE::EnvelopDetectGenSSED4F8(in_phase.data(), quadrature.data(), envelope.data(), table.get(), 1, samples, outputs,
                                        outputs, taps, decimation);

    // Whole blocks of 16: FloatToByte rounds there and truncates behind them.
    envelope.resize((outputs + 15) / 16 * 16);
    std::vector<unsigned char> grey(envelope.size());
    CUtils_SSE::FloatToByte(grey.data(), envelope.data(), logarithmic_curve().data(), static_cast<int>(grey.size()));

    std::vector<std::uint32_t> pixels(grey.size()); // blue, green, red, fill: what displays take
    CUtils_SSE::BWToColour(reinterpret_cast<unsigned char*>(pixels.data()), grey.data(), static_cast<int>(grey.size()), 255);

    // Every reflector shows as the brightest pixel around its place. Output j belongs to the middle of its window.
    const auto sample_of = [](std::ptrdiff_t output) { return static_cast<double>(output * decimation + 15); };
    bool right = true;
    for (const Reflector& reflector : reflectors) {
        const auto expected = static_cast<std::ptrdiff_t>((reflector.depth / millimetres_per_sample - 15) / decimation);
        const auto brightest = std::max_element(pixels.begin() + expected - 30, pixels.begin() + expected + 30,
                                                [](auto a, auto b) { return (a & 255) < (b & 255); });
        const double depth = sample_of(brightest - pixels.begin()) * millimetres_per_sample;
        const double level = dynamic_range * ((*brightest & 255) / 255.0 - 1);
        std::printf("pixel %08x: %5.1f dB at %5.2f mm; recorded: %5.1f dB at %5.2f mm\n", static_cast<unsigned int>(*brightest),
                    level, depth, reflector.level, reflector.depth);
        right = right && std::fabs(depth - reflector.depth) < 0.1 && std::fabs(level - reflector.level) < 1;
    }
    return right ? 0 : 1;
}
