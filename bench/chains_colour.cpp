// I/Q ensembles to colour pixels: clutter filter, autocorrelation, phase, colour table; with mixing the clutter is brought to
// rest before the filter, by the mean phase of its surroundings.
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

constexpr double kPi = 3.14159265358979323846;
constexpr float kFloatPi = static_cast<float>(kPi);
constexpr int kAcross = 5;                                     // lines of surroundings whose clutter is mixed together
constexpr int kAlong = 9;                                      // samples
constexpr float kFastestClutter = static_cast<float>(kPi / 8); // what turns faster is not mixed
constexpr float kLeastPower = 30;                              // dB; what is weaker stays black
constexpr float kSteps = static_cast<float>(127 / kPi);        // of the colour table, per radian
constexpr unsigned char kFill = 255;

struct Ensembles
{
    int lines;
    int samples;
    int firings; // a multiple of 4, so that every ensemble starts at a multiple of 16 bytes
    int pitch = (samples + 15) / 16 * 16;
    Array<short> i{size()}, q{size()};
    Array<float> matrix{static_cast<std::size_t>(firings * firings)};

    Ensembles(int l, int s, int n) : lines(l), samples(s), firings(n)
    {
        // Slow tissue everywhere, 26 dB weaker blood in half of it, noise.
        Noise noise;
        std::size_t at = 0;
        for (int line = 0; line < l; ++line)
            for (int sample = 0; sample < s; ++sample) {
                const double tissue = 0.06 * std::sin(0.02 * line + 0.01 * sample);
                const double depth = 4 * (static_cast<double>(sample) / s - 0.5); // -2 .. 2, the vessel is -1 .. 1
                const bool vessel = std::fabs(depth) < 1;
                const double blood = 2.6 * (1 - depth * depth) * std::cos(0.03 * line);
                const double start[] = {kPi * noise(), kPi * noise()};
                for (int k = 0; k < n; ++k, ++at) {
                    const double angle[] = {start[0] + tissue * k, start[1] + blood * k};
                    const double weak = vessel ? 100 : 0;
                    i[at] =
                        static_cast<short>(std::lround(2000 * std::cos(angle[0]) + weak * std::cos(angle[1]) + 12 * noise()));
                    q[at] =
                        static_cast<short>(std::lround(2000 * std::sin(angle[0]) + weak * std::sin(angle[1]) + 12 * noise()));
                }
            }
        // Regression: what is left of an ensemble without its mean and its slope.
        double squares = 0;
        const auto centred = [n](int k) { return k - (n - 1) / 2.0; };
        for (int k = 0; k < n; ++k)
            squares += centred(k) * centred(k);
        for (int r = 0; r < n; ++r)
            for (int c = 0; c < n; ++c)
                matrix[static_cast<std::size_t>(r * n + c)] =
                    static_cast<float>((r == c ? 1 : 0) - 1.0 / n - centred(r) * centred(c) / squares);
    }
    std::size_t pixels() const { return static_cast<std::size_t>(lines * samples); }
    std::size_t size() const { return pixels() * static_cast<std::size_t>(firings); }
};

// Colours of phases -127 .. 127: towards the probe red to yellow, away blue to cyan.
struct Colours
{
    Array<unsigned char> red{65536}, green{65536}, blue{65536}; // as FloatToByte takes them: -1 is the last entry

    Colours()
    {
        for (int step = 1; step <= 127; ++step) {
            const double amount = step / 127.0;
            const auto bright = static_cast<unsigned char>(80 + 175 * amount);
            const auto second = static_cast<unsigned char>(220 * amount * amount);
            const auto towards = static_cast<std::size_t>(step);
            const std::size_t away = 65536 - towards;
            red[towards] = bright;
            blue[away] = bright;
            green[towards] = green[away] = second;
        }
    }
};

// Over the full circle, from the first quadrant's.
float unfolded(float angle, float real, float imaginary)
{
    const float upper = real < 0 ? kFloatPi - angle : angle;
    return imaginary < 0 ? -upper : upper;
}

struct Kernels
{
    using Table = void (*)(unsigned char*, const float*, const unsigned char*, int);
    decltype(&CUtils_SSE::ShortToFloat) to_float;
    decltype(&CUtils_SSE::MixingClutter) mix;
    decltype(&CUtils_SSE::IIRPerformMatrix) filter;
    decltype(&CUtils_SSE::AutoCorrelateSSE) correlate;
    decltype(&CUtils_SSE::ATan2Bound) phase;
    decltype(&CUtils_SSE::FScaleArray) scale;
    Table look_up;
    decltype(&CUtils_SSE::RGBToColour) pack;

    explicit Kernels(const Maker& maker)
        : to_float(maker.function("ShortToFloat", &CUtils_SSE::ShortToFloat)),
          mix(maker.function("MixingClutter", &CUtils_SSE::MixingClutter)),
          filter(maker.function("IIRPerformMatrix", &CUtils_SSE::IIRPerformMatrix)),
          correlate(maker.function("AutoCorrelateSSE", &CUtils_SSE::AutoCorrelateSSE)),
          phase(maker.function("ATan2Bound", &CUtils_SSE::ATan2Bound)),
          scale(maker.function("FScaleArray", &CUtils_SSE::FScaleArray)),
          look_up(maker.function("FloatToByte (table)", Table())), pack(maker.function("RGBToColour", &CUtils_SSE::RGBToColour))
    {}
};

// What one thread needs for a line.
struct Line
{
    Array<float> i, q, filtered_i, filtered_q;
    Array<float> spread, power, real, imaginary, phases;
    Array<unsigned char> red, green, blue;

    explicit Line(const Ensembles& in)
        : i(in.size() / static_cast<std::size_t>(in.lines)), q(i.size()), filtered_i(i.size()), filtered_q(i.size()),
          spread(static_cast<std::size_t>(in.pitch)), power(spread.size()), real(spread.size()), imaginary(spread.size()),
          phases(spread.size()), red(spread.size()), green(spread.size()), blue(spread.size())
    {}
};

struct State
{
    Ensembles in;
    Kernels kernels;
    Colours colours;
    Array<float> ones, real, imaginary, clutter; // of all lines: the surroundings' autocorrelation and phase
    Array<unsigned char> packed;
    Line line[2];

    State(const Ensembles& ensembles, const Maker& maker)
        : in(ensembles), kernels(maker), ones(in.size() / static_cast<std::size_t>(in.lines)),
          real(static_cast<std::size_t>(in.lines * in.pitch)), imaginary(real.size()), clutter(real.size()),
          packed(4 * real.size()), line{Line(in), Line(in)}
    {
        std::fill(ones.begin(), ones.end(), 1.0F);
    }

    void load(const Piece& p) const
    {
        const int n = in.samples * in.firings;
        kernels.to_float(line[p.part].i.data(), in.i.data() + p.first * n, ones.data(), n);
        kernels.to_float(line[p.part].q.data(), in.q.data() + p.first * n, ones.data(), n);
    }

    void correlate(const Line& l, const Array<float>& i, const Array<float>& q, float* re, float* im) const
    {
        const int n = in.firings;
        if (n == 8 || n == 12) {
            for (int s = 0; s < in.samples; ++s)
                kernels.correlate(n, i.data() + s * n, q.data() + s * n, l.spread.data() + s, l.power.data() + s, re + s,
                                  im + s);
            return;
        }
        for (int s = 0; s < in.samples; ++s) { // every result four times
            float results[3][4];
            kernels.correlate(n, i.data() + s * n, q.data() + s * n, nullptr, results[0], results[1], results[2]);
            l.power[static_cast<std::size_t>(s)] = results[0][0];
            re[s] = results[1][0];
            im[s] = results[2][0];
        }
    }

    void find_phases(float* phases, const float* re, const float* im) const
    {
        for (int s = 0; s < in.pitch; s += 4) {
            float x[4];
            float y[4];
            float negated[4];
            for (int k = 0; k < 4; ++k) {
                x[k] = std::fabs(re[s + k]);
                y[k] = std::fabs(im[s + k]);
            }
            kernels.phase(4, y, x, 1.0F, phases + s, negated);
            for (int k = 0; k < 4; ++k)
                phases[s + k] = unfolded(phases[s + k], re[s + k], im[s + k]);
        }
    }

    // The sum over the surroundings has the phase of their mean.
    void sum_surroundings(const Array<float>& values, int l, float* sums) const
    {
        std::vector<float> across(static_cast<std::size_t>(in.samples + kAlong - 1));
        float* const middle = across.data() + kAlong / 2;
        for (int other = std::max(0, l - kAcross / 2); other <= std::min(in.lines - 1, l + kAcross / 2); ++other)
            for (int s = 0; s < in.samples; ++s)
                middle[s] += values.data()[other * in.pitch + s];
        for (int s = 0; s < in.samples; ++s) {
            float sum = 0;
            for (int k = 0; k < kAlong; ++k)
                sum += across[static_cast<std::size_t>(s + k)];
            sums[s] = sum;
        }
    }

    void find_clutter(const Piece& p) const
    {
        const Line& l = line[p.part];
        for (int number = p.first; number < p.end; ++number) {
            sum_surroundings(real, number, l.real.data());
            sum_surroundings(imaginary, number, l.imaginary.data());
            float* const phases = clutter.data() + number * in.pitch;
            find_phases(phases, l.real.data(), l.imaginary.data());
            for (int s = 0; s < in.samples; ++s)
                phases[s] = std::fabs(phases[s]) > kFastestClutter ? 0 : phases[s];
        }
    }

    void filter(const Piece& p, bool mixed) const
    {
        const Line& l = line[p.part];
        const int n = in.firings;
        for (int s = 0; s < in.samples; ++s) {
            const float phase = mixed ? clutter.data()[p.first * in.pitch + s] : 0;
            float* const to_i = l.filtered_i.data() + s * n;
            float* const to_q = l.filtered_q.data() + s * n;
            if (phase != 0)
                kernels.mix(n, l.i.data() + s * n, l.q.data() + s * n, -phase);
            kernels.filter(n, l.i.data() + s * n, l.q.data() + s * n, to_i, to_q, in.matrix.data());
            if (phase != 0)
                kernels.mix(n, to_i, to_q, phase);
        }
    }

    void paint(const Piece& p) const
    {
        const Line& l = line[p.part];
        const auto pitch = static_cast<std::size_t>(in.pitch);
        find_phases(l.phases.data(), l.real.data(), l.imaginary.data());
        for (std::size_t s = 0; s < pitch; ++s)
            l.phases[s] = l.power[s] >= kLeastPower ? l.phases[s] : 0;
        kernels.scale(l.phases.data(), l.phases.data(), kSteps, in.pitch);
        kernels.look_up(l.red.data(), l.phases.data(), colours.red.data(), in.pitch);
        kernels.look_up(l.green.data(), l.phases.data(), colours.green.data(), in.pitch);
        kernels.look_up(l.blue.data(), l.phases.data(), colours.blue.data(), in.pitch);
        kernels.pack(packed.data() + 4 * p.first * in.pitch, l.red.data(), l.green.data(), l.blue.data(), in.pitch, kFill);
    }
};

std::vector<unsigned char> picture(const Array<unsigned char>& packed, const Ensembles& in)
{
    std::vector<unsigned char> all;
    for (int line = 0; line < in.lines; ++line)
        all.insert(all.end(), packed.data() + 4 * line * in.pitch, packed.data() + 4 * (line * in.pitch + in.samples));
    return all;
}

Candidate colour_by(const Maker& maker, const Ensembles& in, bool mixed)
{
    const auto on = std::make_shared<State>(in, maker);
    Candidate candidate;
    candidate.name = maker.name;
    if (mixed) {
        candidate.stages.push_back({"clutter autocorrelation", [=](const Piece& p) {
                                        on->load(p);
                                        const int at = p.first * on->in.pitch;
                                        on->correlate(on->line[p.part], on->line[p.part].i, on->line[p.part].q,
                                                      on->real.data() + at, on->imaginary.data() + at);
                                    }});
        candidate.stages.push_back({"clutter phase", [=](const Piece& p) { on->find_clutter(p); }, true});
    }
    candidate.stages.push_back({"floats", [=](const Piece& p) { on->load(p); }});
    candidate.stages.push_back({mixed ? "mixing and filter" : "clutter filter", [=](const Piece& p) { on->filter(p, mixed); }});
    candidate.stages.push_back({"autocorrelation", [=](const Piece& p) {
                                    const Line& l = on->line[p.part];
                                    on->correlate(l, l.filtered_i, l.filtered_q, l.real.data(), l.imaginary.data());
                                }});
    candidate.stages.push_back({"phase to pixels", [=](const Piece& p) { on->paint(p); }});
    candidate.picture = [=] { return picture(on->packed, on->in); };
    return candidate;
}

#if UTILS_SSE_BENCH_OPENCV
// Matrices multiply ensembles as they lie, which OpenCV does fastest; then they are transposed: a row for each firing, so
// that sums over firings are sums of rows.
struct OpenCv
{
    struct Scratch
    {
        cv::Mat i, q, filtered_i, filtered_q, rows_i, rows_q, product[2], real, imaginary, power, phase, steps, strong;
        cv::Mat wide, angle, cosine, sine, turned_i, turned_q;
        std::vector<cv::Mat> channels;
    };
    Ensembles in;
    Array<unsigned char> packed;
    cv::Mat matrix, colours, numbers;
    cv::Mat all_real, all_imaginary, clutter;
    Scratch scratch[2];

    explicit OpenCv(const Ensembles& ensembles)
        : in(ensembles), packed(4 * static_cast<std::size_t>(in.lines * in.pitch)),
          matrix(in.firings, in.firings, CV_32F, in.matrix.data()), colours(1, 256, CV_8UC4), numbers(1, in.firings, CV_32F),
          all_real(in.lines, in.samples, CV_32F), all_imaginary(in.lines, in.samples, CV_32F),
          clutter(in.lines, in.samples, CV_32F)
    {
        const Colours table;
        for (int step = 0; step < 256; ++step) { // 0 .. 254 is the full circle; 255 stays black
            const auto index = static_cast<std::size_t>(step <= 127 ? step : (65536 + step - 254) % 65536);
            colours.at<cv::Vec4b>(step) = step == 255
                                              ? cv::Vec4b(0, 0, 0, kFill)
                                              : cv::Vec4b(table.blue[index], table.green[index], table.red[index], kFill);
        }
        for (int k = 0; k < in.firings; ++k)
            numbers.at<float>(k) = static_cast<float>(k);
    }

    void load(const Piece& p)
    {
        Scratch& s = scratch[p.part];
        const int pixels = (p.end - p.first) * in.samples;
        const int at = p.first * in.samples * in.firings;
        cv::Mat(pixels, in.firings, CV_16S, in.i.data() + at).convertTo(s.i, CV_32F);
        cv::Mat(pixels, in.firings, CV_16S, in.q.data() + at).convertTo(s.q, CV_32F);
    }

    static void correlate(Scratch& s, const cv::Mat& ensembles_i, const cv::Mat& ensembles_q, cv::Mat& real, cv::Mat& imaginary)
    {
        cv::Mat& i = s.rows_i;
        cv::Mat& q = s.rows_q;
        cv::transpose(ensembles_i, i);
        cv::transpose(ensembles_q, q);
        const int n = i.rows;
        cv::multiply(i.rowRange(0, n - 1), i.rowRange(1, n), s.product[0]);
        cv::multiply(q.rowRange(0, n - 1), q.rowRange(1, n), s.product[1]);
        cv::add(s.product[0], s.product[1], s.product[0]);
        cv::reduce(s.product[0], real, 0, cv::REDUCE_SUM);
        cv::multiply(i.rowRange(0, n - 1), q.rowRange(1, n), s.product[0]);
        cv::multiply(q.rowRange(0, n - 1), i.rowRange(1, n), s.product[1]);
        cv::subtract(s.product[0], s.product[1], s.product[0]);
        cv::reduce(s.product[0], imaginary, 0, cv::REDUCE_SUM);
    }

    void correlate_clutter(const Piece& p)
    {
        Scratch& s = scratch[p.part];
        correlate(s, s.i, s.q, s.real, s.imaginary);
        s.real.reshape(1, p.end - p.first).copyTo(all_real.rowRange(p.first, p.end));
        s.imaginary.reshape(1, p.end - p.first).copyTo(all_imaginary.rowRange(p.first, p.end));
    }

    void find_clutter(const Piece& p)
    {
        Scratch& s = scratch[p.part];
        // Of a part of an image boxFilter sees the lines around it, too.
        const cv::Size box(kAlong, kAcross);
        cv::boxFilter(all_real.rowRange(p.first, p.end), s.real, CV_32F, box, cv::Point(-1, -1), false, cv::BORDER_CONSTANT);
        cv::boxFilter(all_imaginary.rowRange(p.first, p.end), s.imaginary, CV_32F, box, cv::Point(-1, -1), false,
                      cv::BORDER_CONSTANT);
        cv::Mat phases = clutter.rowRange(p.first, p.end);
        cv::phase(s.real, s.imaginary, phases);
        cv::subtract(phases, 2 * kPi, phases, phases > kPi);
        phases.setTo(0, cv::abs(phases) > kFastestClutter);
    }

    // By -clutter (there) or clutter (back).
    static void turn(Scratch& s, cv::Mat& i, cv::Mat& q, bool back)
    {
        cv::multiply(s.cosine, i, s.turned_i);
        cv::multiply(s.sine, q, s.product[0]);
        cv::multiply(s.cosine, q, s.turned_q);
        cv::multiply(s.sine, i, s.product[1]);
        if (back) {
            cv::subtract(s.turned_i, s.product[0], i);
            cv::add(s.turned_q, s.product[1], q);
        } else {
            cv::add(s.turned_i, s.product[0], i);
            cv::subtract(s.turned_q, s.product[1], q);
        }
    }

    void filter(const Piece& p, bool mixed)
    {
        Scratch& s = scratch[p.part];
        if (mixed) {
            cv::gemm(clutter.rowRange(p.first, p.end).reshape(1, (p.end - p.first) * in.samples), numbers, 1, cv::noArray(), 0,
                     s.angle);
            cv::polarToCart(cv::noArray(), s.angle, s.cosine, s.sine);
            turn(s, s.i, s.q, false);
        }
        cv::gemm(s.i, matrix, 1, cv::noArray(), 0, s.filtered_i); // the matrix is symmetric
        cv::gemm(s.q, matrix, 1, cv::noArray(), 0, s.filtered_q);
        if (mixed)
            turn(s, s.filtered_i, s.filtered_q, true);
    }

    void correlate_flow(const Piece& p)
    {
        Scratch& s = scratch[p.part];
        correlate(s, s.filtered_i, s.filtered_q, s.real, s.imaginary);
        cv::multiply(s.rows_i, s.rows_i, s.product[0]);
        cv::multiply(s.rows_q, s.rows_q, s.product[1]);
        cv::add(s.product[0], s.product[1], s.product[0]);
        cv::reduce(s.product[0], s.power, 0, cv::REDUCE_SUM);
    }

    void paint(const Piece& p)
    {
        Scratch& s = scratch[p.part];
        const int lines = p.end - p.first;
        cv::phase(s.real, s.imaginary, s.phase);
        s.phase.convertTo(s.steps, CV_8U, double{kSteps});
        // The power's threshold without the logarithm.
        cv::compare(s.power, in.firings * (std::pow(10, kLeastPower / 10) - 1), s.strong, cv::CMP_LT);
        s.steps.setTo(255, s.strong);
        s.channels.assign(4, s.steps.reshape(1, lines));
        cv::merge(s.channels, s.wide);
        cv::Mat to(lines, in.samples, CV_8UC4, packed.data() + 4 * p.first * in.pitch, 4 * static_cast<std::size_t>(in.pitch));
        cv::LUT(s.wide, colours, to);
    }
};

Candidate colour_by_opencv(const Ensembles& in, bool mixed)
{
    const auto on = std::make_shared<OpenCv>(in);
    Candidate candidate;
    candidate.name = "OpenCV";
    candidate.levels = 4; // one step of the colour table
    candidate.share_beyond = mixed ? 0.03 : 0.01;
    if (mixed) {
        candidate.stages.push_back({"clutter autocorrelation", [=](const Piece& p) {
                                        on->load(p);
                                        on->correlate_clutter(p);
                                    }});
        candidate.stages.push_back({"clutter phase", [=](const Piece& p) { on->find_clutter(p); }, true});
    }
    candidate.stages.push_back({"floats", [=](const Piece& p) { on->load(p); }});
    candidate.stages.push_back({mixed ? "mixing and filter" : "clutter filter", [=](const Piece& p) { on->filter(p, mixed); }});
    candidate.stages.push_back({"autocorrelation", [=](const Piece& p) { on->correlate_flow(p); }});
    candidate.stages.push_back({"phase to pixels", [=](const Piece& p) { on->paint(p); }});
    candidate.picture = [=] { return picture(on->packed, on->in); };
    return candidate;
}
#endif

} // namespace

void add_colour_chains(std::vector<Chain>& chains)
{
    const struct
    {
        const char* name;
        const char* short_name;
        int lines;
        int samples;
        int firings;
        bool mixed;
    } frames[] = {{"Colour, 100,000 ensembles of 12", "colour100k", 250, 400, 12, false},
                  {"Colour, 200 x 800, ensembles of 12", "colour200", 200, 800, 12, false},
                  {"Colour, 200 x 800, ensembles of 12, clutter mixed to rest", "mixed200", 200, 800, 12, true},
                  {"Colour, 88 x 510, ensembles of 16", "colour88", 88, 510, 16, false}};
    for (const auto& size : frames) {
        const Ensembles in(size.lines, size.samples, size.firings);
        Chain chain{size.name, size.lines, static_cast<double>(in.pixels()), {}, size.short_name, {}};
        for (const Maker& maker : makers())
            chain.candidates.push_back(colour_by(maker, in, size.mixed));
#if UTILS_SSE_BENCH_OPENCV
        chain.candidates.push_back(colour_by_opencv(in, size.mixed));
#endif
        const bool mixed = size.mixed;
        chain.write_inputs = [in, mixed](const std::string& prefix) {
            write_npy(prefix + "i.npy", "<i2", {in.lines, in.samples, in.firings}, in.i);
            write_npy(prefix + "q.npy", "<i2", {in.lines, in.samples, in.firings}, in.q);
            write_npy(prefix + "matrix.npy", "<f4", {in.firings, in.firings}, in.matrix);
            const Colours colours;
            write_npy(prefix + "red.npy", "|u1", {65536}, colours.red);
            write_npy(prefix + "green.npy", "|u1", {65536}, colours.green);
            write_npy(prefix + "blue.npy", "|u1", {65536}, colours.blue);
            const double numbers[] = {double{kLeastPower}, double{kSteps}, mixed ? 1.0 : 0.0, double{kFastestClutter}};
            write_npy(prefix + "numbers.npy", "<f8", {4}, numbers, sizeof numbers);
        };
        chains.push_back(chain);
    }
}

} // namespace bench
