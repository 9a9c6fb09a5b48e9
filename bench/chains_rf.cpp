// RF frames to grey pixels: mixing, low-pass and envelope, logarithmic compression, 3x3 median, packed pixels.
#include "chains.h"

#include "utils_sse.h"

#include <algorithm>
#include <cmath>

#if UTILS_SSE_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace bench {
namespace {

constexpr int kTaps = 32;
constexpr int kDecimation = 4;
constexpr int kBlock = 16;           // lines
constexpr double kCarrier = 0.785;   // radians per sample
constexpr double kReference = 8000;  // envelope that is white
constexpr double kDynamicRange = 60; // dB
constexpr int kFullScale = 32767;
constexpr unsigned char kFill = 255;
constexpr double kDecibels = 8.685889638065035; // 20 / ln 10

struct RfFrame
{
    int lines;
    int samples;
    int count = (samples - kTaps) / kDecimation + 1; // envelope values of a line
    int pitch = (count + 15) / 16 * 16;
    Array<short> rf{static_cast<std::size_t>(lines * samples)};
    Array<short> cosine{static_cast<std::size_t>(samples)}, sine{static_cast<std::size_t>(samples)};
    Array<float> taps{kTaps};

    RfFrame(int l, int n) : lines(l), samples(n)
    {
        // Speckle: noise of a narrow band on the carrier, fading by 30 dB along the line.
        Noise noise;
        const auto length = static_cast<std::size_t>(n);
        std::vector<double> part[2];
        for (int line = 0; line < l; ++line) {
            for (std::vector<double>& values : part) {
                values.resize(length + 64);
                for (double& value : values)
                    value = noise();
                for (int pass = 0; pass < 3; ++pass) // three moving sums of 16
                    for (std::size_t i = 0; i + 16 < values.size(); ++i) {
                        double sum = 0;
                        for (std::size_t k = 0; k < 16; ++k)
                            sum += values[i + k];
                        values[i] = sum / 4;
                    }
            }
            for (std::size_t i = 0; i < length; ++i) {
                const double angle = kCarrier * static_cast<double>(i);
                const double gain = 8000 * std::pow(10, -1.5 * static_cast<double>(i) / n);
                const double value = gain * (part[0][i] * std::cos(angle) - part[1][i] * std::sin(angle)) + 20 * noise();
                rf[static_cast<std::size_t>(line) * length + i] =
                    static_cast<short>(std::lround(std::clamp(value, -32000.0, 32000.0)));
            }
        }
        for (std::size_t i = 0; i < length; ++i) {
            cosine[i] = static_cast<short>(std::lround(32767 * std::cos(kCarrier * static_cast<double>(i))));
            sine[i] = static_cast<short>(std::lround(-32767 * std::sin(kCarrier * static_cast<double>(i))));
        }
        double sum = 0;
        for (int k = 0; k < kTaps; ++k)
            sum += 0.54 - 0.46 * std::cos(2 * 3.14159265358979 * (k + 0.5) / kTaps);
        for (int k = 0; k < kTaps; ++k)
            taps[static_cast<std::size_t>(k)] = static_cast<float>(
                std::floor(32768 * (0.54 - 0.46 * std::cos(2 * 3.14159265358979 * (k + 0.5) / kTaps)) / sum));
    }
    std::size_t pixels() const { return static_cast<std::size_t>(lines * pitch); }

    // Without the border, which the medians treat each in their own way, and without what pads the lines.
    std::vector<unsigned char> interior(const Array<unsigned char>& packed) const
    {
        std::vector<unsigned char> all;
        for (int line = 1; line < lines - 1; ++line)
            all.insert(all.end(), packed.data() + 4 * (line * pitch + 1), packed.data() + 4 * (line * pitch + count - 1));
        return all;
    }
};

// Lines around a piece that its median reads.
struct Surroundings
{
    int first;
    int end;
    Surroundings(const Piece& piece, int lines) : first(std::max(0, piece.first - 1)), end(std::min(lines, piece.end + 1)) {}
};

Array<unsigned char> compression_table()
{
    const Array<unsigned char> table(65536);
    for (int index = 1; index <= kFullScale; ++index) {
        const double grey = 255 * (1 + kDecibels * std::log(double{1} * index / kFullScale) / kDynamicRange);
        table[static_cast<std::size_t>(index)] = static_cast<unsigned char>(std::floor(std::clamp(grey, 0.0, 255.0) + 0.5));
    }
    table[32768] = 255;
    return table;
}

Candidate grey_by(const Maker& maker, const RfFrame& frame)
{
    // Of a block of lines.
    struct Scratch
    {
        Array<short> i, q;
        Array<float> envelope;
        Array<unsigned char> filtered; // of all lines

        explicit Scratch(const RfFrame& f)
            : i(static_cast<std::size_t>(kBlock * f.samples + 8)), q(i.size()),
              envelope(static_cast<std::size_t>(kBlock * f.pitch)), filtered(f.pixels())
        {}
    };
    struct State
    {
        RfFrame frame;
        Array<short> taps{2 * kTaps};
        Array<unsigned char> table = compression_table();
        Array<unsigned char> grey, packed;
        Scratch scratch[2];

        explicit State(const RfFrame& f) : frame(f), grey(f.pixels()), packed(4 * f.pixels()), scratch{Scratch(f), Scratch(f)}
        {
            for (std::size_t k = 0; k < kTaps; ++k) // every four taps twice, as the detector wants them
                taps[k / 4 * 8 + k % 4] = taps[k / 4 * 8 + k % 4 + 4] = static_cast<short>(f.taps[k]);
        }
    };
    using TableFunction = void (*)(unsigned char*, const float*, const unsigned char*, int);
    using MedianFunction = void (*)(unsigned char*, const unsigned char*, int, int, int);
    const auto mix = maker.function("DemodulateNew", &CUtils_SSE::DemodulateNew);
    const auto detect = maker.function("EnvelopDetectGenSSED4F8", &CUtils_SSE::EnvelopDetectGenSSED4F8);
    const auto scale = maker.function("FScaleArray", &CUtils_SSE::FScaleArray);
    const auto look_up = maker.function("FloatToByte (table)", TableFunction());
    const auto median = maker.function("MedianFilter2DWin3 (bytes)", MedianFunction());
    const auto pack = maker.function("BWToColour", &CUtils_SSE::BWToColour);

    const auto on = std::make_shared<State>(frame);
    Candidate candidate;
    candidate.name = maker.name;
    candidate.block = kBlock;
    candidate.stages = {
        {"mixing",
         [=](const Piece& p) {
             const Scratch& s = on->scratch[p.part];
             const int n = on->frame.samples;
             mix(on->frame.rf.data() + p.first * n, s.i.data(), s.q.data(), on->frame.cosine.data(), on->frame.sine.data(),
                 p.end - p.first, n);
         }},
        {"envelope",
         [=](const Piece& p) {
             const Scratch& s = on->scratch[p.part];
             const RfFrame& f = on->frame;
             detect(s.i.data(), s.q.data(), s.envelope.data(), on->taps.data(), p.end - p.first, f.samples, f.pitch, f.count,
                    kTaps, kDecimation);
         }},
        {"compression",
         [=](const Piece& p) {
             const Scratch& s = on->scratch[p.part];
             const int pitch = on->frame.pitch;
             const int n = (p.end - p.first) * pitch;
             scale(s.envelope.data(), s.envelope.data(), static_cast<float>(kFullScale / kReference), n);
             look_up(on->grey.data() + p.first * pitch, s.envelope.data(), on->table.data(), n);
         }},
        {"median 3x3",
         [=](const Piece& p) {
             const RfFrame& f = on->frame;
             const Surroundings around(p, f.lines);
             median(on->scratch[p.part].filtered.data() + around.first * f.pitch, on->grey.data() + around.first * f.pitch,
                    f.pitch, f.count, around.end - around.first);
         },
         true},
        {"pixels",
         [=](const Piece& p) {
             const int pitch = on->frame.pitch;
             pack(on->packed.data() + 4 * p.first * pitch, on->scratch[p.part].filtered.data() + p.first * pitch,
                  (p.end - p.first) * pitch, kFill);
         }},
    };
    candidate.picture = [=] { return on->frame.interior(on->packed); };
    return candidate;
}

#if UTILS_SSE_BENCH_OPENCV
// In floats. The low-pass computes only every fourth output: a line is four interleaved ones, each filtered with its eight
// taps. Blocks of lines, as above.
Candidate grey_by_opencv(const RfFrame& frame)
{
    struct Scratch
    {
        cv::Mat samples, phases[4], product, part, mixed[2], envelope, logarithm;
        cv::Mat filtered;
    };
    struct State
    {
        RfFrame frame;
        cv::Mat carriers[2][4]; // cosine and sine, one row for each line of a block
        cv::Mat taps[4];
        Array<unsigned char> grey, packed;
        Scratch scratch[2];

        explicit State(const RfFrame& f) : frame(f), grey(f.pixels()), packed(4 * f.pixels())
        {
            for (int phase = 0; phase < 4; ++phase) {
                for (int wave = 0; wave < 2; ++wave) {
                    cv::Mat row(1, f.samples / 4, CV_32F);
                    for (int i = 0; i < row.cols; ++i)
                        row.at<float>(i) =
                            static_cast<float>((wave == 0 ? f.cosine : f.sine)[static_cast<std::size_t>(4 * i + phase)]) /
                            32768;
                    carriers[wave][phase] = cv::repeat(row, kBlock, 1);
                }
                taps[phase].create(1, kTaps / 4, CV_32F);
                for (int k = 0; k < kTaps / 4; ++k)
                    taps[phase].at<float>(k) = f.taps[static_cast<std::size_t>(4 * k + phase)] / 32768;
            }
            for (Scratch& part : scratch)
                part.filtered.create(f.lines, f.pitch, CV_8U);
        }
        cv::Mat lines_of(const Array<unsigned char>& values, int first, int end) const
        {
            return {end - first, frame.count, CV_8U, values.data() + first * frame.pitch,
                    static_cast<std::size_t>(frame.pitch)};
        }
    };
    const auto on = std::make_shared<State>(frame);
    Candidate candidate;
    candidate.name = "OpenCV";
    candidate.block = kBlock;
    candidate.levels = 3; // no rounding to 15 bits on the way
    candidate.share_beyond = 0.001;
    candidate.stages = {
        {"mixing and envelope",
         [=](const Piece& p) {
             Scratch& s = on->scratch[p.part];
             const RfFrame& f = on->frame;
             const int rows = p.end - p.first;
             cv::Mat(rows, f.samples, CV_16S, f.rf.data() + p.first * f.samples).convertTo(s.samples, CV_32F);
             cv::split(s.samples.reshape(4), s.phases);
             for (int wave = 0; wave < 2; ++wave)
                 for (int phase = 0; phase < 4; ++phase) {
                     cv::multiply(s.phases[phase], on->carriers[wave][phase].rowRange(0, rows), s.product);
                     cv::filter2D(s.product, phase == 0 ? s.mixed[wave] : s.part, CV_32F, on->taps[phase], cv::Point(0, 0), 0,
                                  cv::BORDER_CONSTANT);
                     if (phase > 0)
                         cv::add(s.mixed[wave], s.part, s.mixed[wave]);
                 }
             cv::magnitude(s.mixed[0].colRange(0, f.count), s.mixed[1].colRange(0, f.count), s.envelope);
         }},
        {"compression",
         [=](const Piece& p) {
             Scratch& s = on->scratch[p.part];
             cv::log(s.envelope, s.logarithm);
             cv::Mat grey = on->lines_of(on->grey, p.first, p.end);
             const double scale = 255 * kDecibels / kDynamicRange;
             s.logarithm.convertTo(grey, CV_8U, scale, 255 - scale * std::log(kReference));
         }},
        {"median 3x3",
         [=](const Piece& p) {
             const Surroundings around(p, on->frame.lines);
             cv::Mat to = on->scratch[p.part].filtered.rowRange(around.first, around.end).colRange(0, on->frame.count);
             cv::medianBlur(on->lines_of(on->grey, around.first, around.end), to, 3);
         },
         true},
        {"pixels",
         [=](const Piece& p) {
             const int pitch = on->frame.pitch;
             cv::Mat to(p.end - p.first, pitch, CV_8UC4, on->packed.data() + 4 * p.first * pitch);
             cv::cvtColor(on->scratch[p.part].filtered.rowRange(p.first, p.end), to, cv::COLOR_GRAY2BGRA);
         }},
    };
    candidate.picture = [=] { return on->frame.interior(on->packed); };
    return candidate;
}
#endif

} // namespace

void add_rf_chains(std::vector<Chain>& chains)
{
    const struct
    {
        const char* name;
        const char* short_name;
        int lines;
        int samples;
    } frames[] = {{"RF to grey, 256 x 1,552", "rf256", 256, 1552}, {"RF to grey, 192 x 3,120", "rf192", 192, 3120}};
    for (const auto& size : frames) {
        const RfFrame frame(size.lines, size.samples);
        Chain chain{size.name, size.lines, static_cast<double>(size.lines) * size.samples, {}, size.short_name, {}};
        for (const Maker& maker : makers())
            chain.candidates.push_back(grey_by(maker, frame));
#if UTILS_SSE_BENCH_OPENCV
        chain.candidates.push_back(grey_by_opencv(frame));
#endif
        chain.write_inputs = [frame](const std::string& prefix) {
            write_npy(prefix + "rf.npy", "<i2", {frame.lines, frame.samples}, frame.rf);
            write_npy(prefix + "taps.npy", "<f4", {kTaps}, frame.taps);
            const double numbers[] = {kCarrier, kReference, kDynamicRange};
            write_npy(prefix + "numbers.npy", "<f8", {3}, numbers, sizeof numbers);
        };
        chains.push_back(chain);
    }
}

} // namespace bench
