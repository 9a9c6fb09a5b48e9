// The B-mode chain on made-up echoes: envelopes, grey values, geometry of pictures.
#include "bad_input.h"
#include "bmode.h"
#include "chain.h"
#include "envelope_difference.h"
#include "filter_design.h"
#include "rf_stages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <tuple>

using namespace echo2image;

namespace {

constexpr double pi = 3.14159265358979323846;

Description rf_description(std::int64_t lines, std::int64_t samples)
{
    Description d;
    d.source = "made up";
    d.content = Content::rf;
    d.lines = lines;
    d.samples = samples;
    d.sampling_frequency = 40e6;
    d.center_frequency = 5e6;
    d.bandwidth = 3e6;
    d.sample_spacing = 1540 / (2 * 40e6);
    d.geometry.line_pitch = 0.3e-3;
    return d;
}

// A tone at the center frequency under a bell around sample `middle`.
void add_burst(std::vector<std::int16_t>& line, double amplitude, double middle, double sigma)
{
    for (std::size_t i = 0; i < line.size(); ++i) {
        const double t = static_cast<double>(i) - middle;
        const double echo = amplitude * std::exp(-t * t / (2 * sigma * sigma)) * std::cos(2 * pi * t / 8 + 0.7);
        line[i] = static_cast<std::int16_t>(line[i] + std::lround(echo));
    }
}

TEST(Envelope, FindsBurstsWhereTheyAre)
{
    struct Case
    {
        double amplitude;
        double offset;
        DetectorOptions options;
    };
    const Case cases[] = {{20000, 0, {}},
                          {20000, 0, {31, 1, 2e6}},
                          {300, 55.02, {0, 3, 0}},
                          {12, -2.6, {41, 2, 0}},
                          {32767, 0, {0, 7, 4e6}},
                          {30000, -2000, {63, 0, 2e6}},
                          {32767, 0, {12, 4, 0}},
                          {300, 55.02, {16, 0, 0}},
                          {12, -2.6, {32, 8, 2e6}},
                          {30000, 0, {32, 4, 6e6}},
                          {20000, 0, {0, 0, 0, DetectorKind::general}}};
    for (const Case& c : cases) {
        SCOPED_TRACE("amplitude " + std::to_string(c.amplitude));
        Description d = rf_description(2, 1003);
        d.offset = c.offset;
        const auto silence = static_cast<std::int16_t>(std::lround(c.offset));
        std::vector<std::int16_t> line(1003, silence);
        const double middle = 611.3;
        add_burst(line, c.amplitude, middle, 40); // narrow enough in frequency for every filter above
        std::vector<std::int16_t> frame(1003, silence);
        frame.insert(frame.end(), line.begin(), line.end());

        const EnvelopeDetector detector(d, c.options);
        const EnvelopeFrame envelope = detector.detect(frame);
        ASSERT_EQ(envelope.samples, (1003 + detector.decimation() - 1) / detector.decimation());
        EXPECT_DOUBLE_EQ(envelope.sample_spacing, d.sample_spacing * detector.decimation());
        EXPECT_EQ(envelope.first_sample_offset, 0);
        double sum = 0;
        double moment = 0;
        double largest = 0;
        for (std::int64_t s = 0; s < envelope.samples; ++s) {
            ASSERT_EQ(envelope.values[static_cast<std::size_t>(s)], 0.0F) << "the silent line, sample " << s;
            const double value = envelope.values[static_cast<std::size_t>(envelope.samples + s)];
            largest = std::max(largest, value);
            sum += value;
            moment += value * static_cast<double>(s * detector.decimation());
        }
        EXPECT_NEAR(largest, c.amplitude, 0.02 * c.amplitude + 0.3);
        EXPECT_NEAR(moment / sum, middle, 0.5);
    }
}

TEST(Envelope, KeepsWeakEchoes)
{
    // A tone of a few counts: its samples are whole numbers, and the first harmonic of their period is the truth. Rounding
    // behind the mixer, without raising the echoes before, would be wrong by half a count.
    for (const int amplitude : {1, 2, 4, 9}) {
        Description d = rf_description(1, 800);
        std::vector<std::int16_t> frame(800);
        double cosine = 0;
        double sine = 0;
        for (std::size_t i = 0; i < frame.size(); ++i) {
            frame[i] = static_cast<std::int16_t>(std::lround(amplitude * std::cos(2 * pi * static_cast<double>(i) / 8)));
            cosine += frame[i] * std::cos(2 * pi * static_cast<double>(i) / 8) / 400;
            sine += frame[i] * std::sin(2 * pi * static_cast<double>(i) / 8) / 400;
        }
        const EnvelopeFrame envelope = EnvelopeDetector(d, {}).detect(frame);
        const double truth = std::hypot(cosine, sine);
        for (std::size_t s = envelope.values.size() / 4; s < envelope.values.size() * 3 / 4; ++s)
            ASSERT_NEAR(envelope.values[s], truth, 0.01 * truth) << "amplitude " << amplitude << ", sample " << s;
    }
}

// What a recording and its user ask for, and the detector that they get.
TEST(Envelope, ChoosesADetectorThatSuits)
{
    using Kind = DetectorKind;
    struct Case
    {
        const char* what;
        double sampling_frequency;
        double center_frequency;
        double bandwidth; // of the echoes
        DetectorOptions options;
        Kind kind;
        int taps;
        int decimation;
    };
    const Case cases[] = {
        {"oversampled", 40e6, 5e6, 3e6, {}, Kind::fixed, 32, 4},
        {"four times", 20e6, 5e6, 1e6, {}, Kind::fixed, 32, 4},
        {"wide", 40e6, 8e6, 3.25e6, {}, Kind::fixed, 16, 4},
        {"narrow enough for every eighth", 40e6, 5e6, 1.6e6, {}, Kind::fixed, 32, 8},
        {"too wide for every fourth", 15.625e6, 3.5e6, 2.55e6, {}, Kind::general, 19, 1},
        {"too narrow for 32 taps", 40e6, 5e6, 1e6, {}, Kind::general, 109, 6},
        {"image too near for 16 taps", 40e6, 16.25e6, 3.25e6, {}, Kind::fixed, 32, 4},
        {"wanted", 40e6, 5e6, 3e6, {0, 0, 0, Kind::general}, Kind::general, 37, 2},
        {"odd", 40e6, 5e6, 3e6, {31, 0, 0}, Kind::general, 31, 2},
        {"no such decimation", 40e6, 5e6, 3e6, {0, 3, 0}, Kind::general, 37, 3},
        {"by its length", 15.625e6, 3.5e6, 2.55e6, {12, 0, 0}, Kind::fixed, 12, 4},
        {"by its decimation", 15.625e6, 3.5e6, 2.55e6, {0, 4, 0}, Kind::fixed, 12, 4},
        {"by both", 40e6, 5e6, 3e6, {32, 8, 0}, Kind::fixed, 32, 8},
    };
    for (const Case& c : cases) {
        Description d = rf_description(1, 500);
        d.sampling_frequency = c.sampling_frequency;
        d.center_frequency = c.center_frequency;
        d.bandwidth = c.bandwidth;
        const EnvelopeDetector detector(d, c.options);
        EXPECT_EQ(detector.kind(), c.kind) << c.what;
        EXPECT_EQ(detector.taps(), c.taps) << c.what;
        EXPECT_EQ(detector.decimation(), c.decimation) << c.what;
    }
}

TEST(Envelope, OfFixedDetectorsIsThatOfTheGeneralOne)
{
    std::mt19937 generator(11);
    std::vector<std::int16_t> frame(40 * 900);
    for (std::size_t i = 0; i < frame.size(); ++i) // from the full range down to a hundredth
        frame[i] = static_cast<std::int16_t>((static_cast<int>(generator() % 65535) - 32767) / static_cast<int>(1 + i / 360));
    const Description d = rf_description(40, 900);
    for (const FixedDetector& detector : fixed_detectors())
        for (const double bandwidth : {1.5e6, 4.5e6, 6e6}) {
            SCOPED_TRACE(detector.name);
            const DetectorOptions fixed = {detector.taps, detector.decimation, bandwidth};
            const DetectorOptions general = {detector.taps - 1, detector.decimation, bandwidth};
            const EnvelopeFrame expected = EnvelopeDetector(d, general).detect(frame);
            EnvelopeDifference difference(30); // 60 dB below full scale
            difference.add(EnvelopeDetector(d, fixed).detect(frame), expected);
            EXPECT_GT(difference.count(), expected.lines * expected.samples * 9 / 10);
            EXPECT_LT(difference.rms(), 0.06);
            EXPECT_LT(difference.largest(), 0.5);
            EXPECT_EQ(difference.silent(), 0);
        }

    EnvelopeFrame loud;
    loud.lines = 1;
    loud.samples = 3;
    loud.values = {2, 10, 0.1F};
    EnvelopeFrame quiet = loud;
    quiet.values = {1, 10, 0.01F};
    EnvelopeDifference difference(0.5); // the third is below
    difference.add(loud, quiet);
    difference.add(quiet, loud);
    EXPECT_EQ(difference.count(), 4);
    EXPECT_NEAR(difference.largest(), 6.0206, 1e-4);
    EXPECT_NEAR(difference.rms(), 6.0206 / std::sqrt(2), 1e-4);
    loud.values = {0, 10, 0};
    difference.add(loud, quiet);
    EXPECT_EQ(difference.count(), 5);
    EXPECT_EQ(difference.silent(), 1);
    EXPECT_LT(difference.largest(), 7);
}

TEST(Envelope, TapTablesKeepSumsWithin32Bits)
{
    for (const FixedDetector& detector : fixed_detectors())
        for (const double cutoff : {0.001, 0.06, 0.2, 0.45}) {
            SCOPED_TRACE(detector.name + std::string(", cutoff ") + std::to_string(cutoff));
            const std::vector<float> response = design_low_pass(detector.taps - 1, cutoff, 2);
            const TapTable table = tap_table(detector, response);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(table.taps.get()) % 16, 0u);
            std::int64_t magnitudes = 0;
            int largest = 0;
            for (int k = 0; k < detector.taps; ++k) {
                const int place = detector.decimation == 4 ? k / 4 * 8 + k % 4 : k;
                const int tap = table.taps.get()[place];
                magnitudes += std::abs(tap);
                largest = std::max(largest, tap);
                if (detector.decimation == 4) {
                    EXPECT_EQ(table.taps.get()[place + 4], tap) << k;
                }
                const double wanted = k < detector.taps - 1 ? response[static_cast<std::size_t>(k)] : 0;
                EXPECT_NEAR(tap, wanted / 2 * table.gain * 32768, 4) << k;
            }
            EXPECT_LT(magnitudes * 32767, std::int64_t{1} << 31);
            EXPECT_TRUE(magnitudes > 65500 || largest == 32767) << magnitudes << ": room left unused";
        }
}

TEST(Envelope, TreatsEveryLineAlikeAndToItsEnds)
{
    // Enough lines for several blocks of work; the first and the last samples of every line sound.
    const std::int64_t lines = 150;
    const std::int64_t samples = 1201;
    std::vector<std::int16_t> line(static_cast<std::size_t>(samples));
    add_burst(line, 9000, 0, 30);
    add_burst(line, 5000, 1200, 30);
    std::vector<std::int16_t> frame;
    for (std::int64_t l = 0; l < lines; ++l)
        frame.insert(frame.end(), line.begin(), line.end());
    for (const DetectorOptions& options : {DetectorOptions{0, 5, 0}, {16, 4, 0}, {32, 8, 0}}) {
        const EnvelopeFrame envelope = EnvelopeDetector(rf_description(lines, samples), options).detect(frame);
        const auto count = static_cast<std::ptrdiff_t>(envelope.samples);
        ASSERT_EQ(count, 1 + 1200 / options.decimation);
        for (std::int64_t l = 1; l < lines; ++l)
            ASSERT_TRUE(std::equal(envelope.values.begin(), envelope.values.begin() + count,
                                   envelope.values.begin() + static_cast<std::ptrdiff_t>(l) * count))
                << "line " << l;
        // Half the filter lies beyond the line's end.
        EXPECT_GT(envelope.values[0], 0.4 * 9000);
        EXPECT_GT(envelope.values[static_cast<std::size_t>(count - 1)], 0.4 * 5000);
        EXPECT_LT(envelope.values[static_cast<std::size_t>(count / 2)], 1.0F);
    }
}

TEST(Envelope, KeepsTheLastSamples)
{
    // One tap passes everything: the magnitude of the mixed sample, doubled. No length of line loses its end.
    for (std::int64_t samples = 1; samples <= 20; ++samples) {
        const std::vector<std::int16_t> frame(static_cast<std::size_t>(3 * samples), 1000);
        const EnvelopeFrame envelope = EnvelopeDetector(rf_description(3, samples), {1, 1, 0}).detect(frame);
        for (const float value : envelope.values)
            ASSERT_NEAR(value, 2000, 0.5) << samples << " samples";
    }
}

TEST(Envelope, OfQuadratureSamplesIsTheirMagnitude)
{
    Description d = rf_description(37, 1001);
    d.content = Content::iq;
    d.sampling_frequency = 0;
    d.center_frequency = 0;
    std::mt19937 generator(3);
    std::vector<std::int16_t> frame(37 * 1001 * 2);
    for (std::int16_t& value : frame)
        value = static_cast<std::int16_t>(static_cast<int>(generator() % 65536) - 32768);
    for (const int decimation : {1, 3}) {
        const EnvelopeFrame envelope = EnvelopeDetector(d, {0, decimation, 0}).detect(frame);
        ASSERT_EQ(envelope.samples, (1001 + decimation - 1) / decimation);
        for (std::int64_t l = 0; l < 37; ++l)
            for (std::int64_t s = 0; s < envelope.samples; ++s) {
                const std::size_t pair = static_cast<std::size_t>(2 * (l * 1001 + s * decimation));
                const double truth = std::hypot(static_cast<double>(frame[pair]), static_cast<double>(frame[pair + 1]));
                ASSERT_NEAR(envelope.values[static_cast<std::size_t>(l * envelope.samples + s)], truth, 1e-6 * truth);
            }
    }
}

TEST(Envelope, FilterPassesItsBandOnly)
{
    const std::vector<float> taps = design_low_pass(41, 0.05, 2);
    const auto response = [&](double frequency) { // cycles per sample; the taps are symmetric
        double sum = 0;
        for (int k = 0; k < 41; ++k)
            sum += taps[static_cast<std::size_t>(k)] * std::cos(2 * pi * frequency * (k - 20));
        return sum;
    };
    EXPECT_TRUE(std::equal(taps.begin(), taps.end(), taps.rbegin()));
    EXPECT_NEAR(response(0), 2, 1e-6);
    EXPECT_NEAR(response(0.05), 1, 0.01);
    for (double frequency = 0.1; frequency <= 0.5; frequency += 0.003)
        EXPECT_LT(std::fabs(response(frequency)), 2 * 0.0035) << frequency;
}

template <class Action>
std::string complaint(const Action& action)
{
    try {
        action();
    } catch (const BadInput& error) {
        return error.what();
    }
    return "no complaint";
}

TEST(Envelope, TurnsDownWhatItCannotDo)
{
    struct Case
    {
        std::function<void(Description&)> spoil;
        DetectorOptions options;
        const char* complaint;
    };
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const auto nothing = [](Description&) {};
    const Case cases[] = {
        {[](Description& d) { d.sampling_frequency = 0; }, {}, "sampling_frequency"},
        {[](Description& d) { d.center_frequency = 0; }, {}, "--center-frequency"},
        {[](Description& d) { d.center_frequency = nan; }, {}, "--center-frequency"},
        {[](Description& d) { d.center_frequency = 20e6; }, {}, "mixing image"}, // half the sampling rate
        {[](Description& d) { d.offset = 1e6; }, {}, "offset"},
        {[](Description& d) { d.content = Content::bmode; }, {}, "grey"},
        {[](Description& d) { d.content = Content::iq; }, {15, 0, 0}, "--taps"},
        {[](Description& d) { d.samples = 0; }, {}, "samples"},
        {nothing, {4, 0, 0}, "odd"},
        {nothing, {-3, 0, 0}, "odd"},
        {nothing, {12, 8, 0}, "decimation 4"},
        {nothing, {32, 0, 0, DetectorKind::general}, "odd"},
        {nothing, {31, 0, 0, DetectorKind::fixed}, "no fixed-point"},
        {nothing, {0, 101, 0}, "--decimation"},
        {nothing, {0, -1, 0}, "--decimation"},
        {nothing, {0, 0, 8e6}, "bandwidth"},
        {nothing, {0, 0, nan}, "bandwidth"},
        {nothing, {0, 0, -1}, "bandwidth"},
    };
    for (const Case& c : cases) {
        Description d = rf_description(2, 100);
        c.spoil(d);
        const std::string text = complaint([&] { EnvelopeDetector(d, c.options); });
        EXPECT_NE(text.find(c.complaint), std::string::npos) << text << "; expected: " << c.complaint;
        EXPECT_EQ(text.find('\n'), std::string::npos);
    }
    const EnvelopeDetector detector(rf_description(2, 100), {});
    EXPECT_NE(complaint([&] { detector.detect(std::vector<std::int16_t>(199)); }).find("200"), std::string::npos);
}

TEST(RfStages, UpsampleWithoutMovingOrClippingEchoes)
{
    for (const Upsampling upsampling : {Upsampling::full, Upsampling::fast})
        for (const auto& [amplitude, offset] : {std::pair{32767.0, 0.0}, {32000.0, 700.0}, {12.0, -2.6}, {1.0, 0.0}}) {
            SCOPED_TRACE("amplitude " + std::to_string(amplitude));
            Description d = rf_description(3, 603);
            d.offset = offset;
            std::vector<std::int16_t> frame(3 * 603, static_cast<std::int16_t>(std::lround(offset)));
            for (std::size_t i = 0; i < frame.size(); ++i) { // bursts at the line's start, middle and end
                const double t = static_cast<double>(i % 603) - 301.0 * static_cast<double>(i / 603);
                const double echo = amplitude * std::exp(-t * t / 1250) * std::cos(2 * pi * t / 8 + 0.7);
                frame[i] = static_cast<std::int16_t>(std::clamp<long>(frame[i] + std::lround(echo), -32768, 32767));
            }
            RfOptions options;
            options.upsampling = upsampling;
            const RfStages stages(d, options);
            const Description& after = stages.description();
            EXPECT_EQ(after.lines, 3);
            EXPECT_EQ(after.samples, 2 * 603);
            EXPECT_EQ(after.sampling_frequency, 80e6);
            EXPECT_EQ(after.sample_spacing * 2, d.sample_spacing);
            EXPECT_EQ(after.offset, 0);
            const RfFrame made = stages.process(frame);
            ASSERT_EQ(made.samples.size(), 2 * frame.size());
            for (std::size_t line = 0; line < 3; ++line)
                for (std::size_t i = 10; i + 10 < 1206; ++i) {
                    const double t = 0.5 * static_cast<double>(i) - 301.0 * static_cast<double>(line);
                    const double echo = amplitude * std::exp(-t * t / 1250) * std::cos(2 * pi * t / 8 + 0.7);
                    ASSERT_NEAR(made.samples[line * 1206 + i] * made.unit, echo, 0.03 * amplitude + 1) << line << ", " << i;
                }
        }
}

// The formulas of the upsamplers hold for lines of any length and in every place: nothing comes from in front of the line,
// and nothing from its neighbours.
TEST(RfStages, UpsampleShortLinesLikeLongOnes)
{
    const std::vector<int> full = {-13, 61, -170, 634, 634, -170, 61, -13};
    const std::vector<int> fast = {-1, 9, 9, -1};
    std::mt19937 generator(3);
    for (const int samples : {1, 4, 5, 8, 9, 11, 15, 16, 17, 40})
        for (const auto& [upsampling, taps, shift] : {std::tuple{Upsampling::full, full, 10}, {Upsampling::fast, fast, 4}}) {
            SCOPED_TRACE(std::to_string(samples) + " samples, " + std::to_string(taps.size()) + " taps");
            std::vector<std::int16_t> frame(3 * static_cast<std::size_t>(samples));
            for (std::int16_t& sample : frame)
                sample = static_cast<std::int16_t>(static_cast<int>(generator() % 18000) - 9000);
            frame[0] = 9000; // the gain is 2, and then nothing is rounded before the kernels
            RfOptions options;
            options.upsampling = upsampling;
            const RfFrame made = RfStages(rf_description(3, samples), options).process(frame);
            const int reach = static_cast<int>(taps.size()) / 2;
            for (int line = 0; line < 3; ++line)
                for (int i = 0; i < samples; ++i) {
                    int sum = 0;
                    for (int k = 0; k < 2 * reach; ++k) {
                        const int at = i + k - reach + 1;
                        if (at >= 0 && at < samples)
                            sum += taps[static_cast<std::size_t>(k)] * 2 * frame[static_cast<std::size_t>(line * samples + at)];
                    }
                    const auto place = static_cast<std::size_t>(2 * (line * samples + i));
                    ASSERT_EQ(made.samples[place], 2 * frame[place / 2]) << line << ", " << i;
                    ASSERT_EQ(made.samples[place + 1], sum >> shift) << line << ", " << i;
                }
        }
}

TEST(RfStages, LeaveHeadroomAndUnits)
{
    std::vector<std::int16_t> rails(64);
    for (std::size_t i = 0; i < rails.size(); ++i) // the worst that the taps can meet, in the body and at the ends
        rails[i] = static_cast<std::int16_t>(i / 2 % 2 == 0 ? 32767 : -32768);
    std::vector<std::int16_t> tone(400);
    for (std::size_t i = 0; i < tone.size(); ++i)
        tone[i] = static_cast<std::int16_t>(std::lround(3000 * std::cos(2 * pi * static_cast<double>(i) / 8)));
    for (const Upsampling upsampling : {Upsampling::full, Upsampling::fast}) {
        ChainParameters wanted;
        wanted.rf.upsampling = upsampling;
        const RfFrame made = RfStages(rf_description(1, 64), wanted.rf).process(rails);
        for (std::size_t i = 5; i < 58; i += 2) { // between two alike: an overshoot of their sign
            const double between = made.samples[2 * i + 1 - 2] * double{made.unit};
            EXPECT_GT(between * rails[i], 0) << i;
            EXPECT_GT(std::fabs(between), 36000) << i;
        }
        const EnvelopeFrame envelope = Chain(rf_description(1, 400), wanted).envelope(tone);
        EXPECT_NEAR(envelope.values[envelope.values.size() / 2], 3000, 60);
    }
}

TEST(RfStages, InterpolateLinesWhereTheyBelong)
{
    // Each line is a ramp of its own; whole lines, no blank ones, and a place for each.
    const int amplitudes[] = {1600, -800, 4000, 400};
    for (const std::int64_t samples : {5, 16, 97})
        for (const int factor : {2, 4}) {
            SCOPED_TRACE(std::to_string(samples) + " samples, factor " + std::to_string(factor));
            Description d = rf_description(4, samples);
            d.geometry.first_line = -1e-3;
            d.geometry.angle_step = 0.02;
            d.offset = 16;
            std::vector<std::int16_t> frame;
            for (const int amplitude : amplitudes)
                for (int i = 0; i < samples; ++i)
                    frame.push_back(static_cast<std::int16_t>(16 + amplitude + 16 * i));
            RfOptions options;
            options.interpolate = factor;
            const RfStages stages(d, options);
            const Description& after = stages.description();
            ASSERT_EQ(after.lines, 3 * factor + 1);
            EXPECT_EQ(after.geometry.first_line, d.geometry.first_line);
            EXPECT_DOUBLE_EQ(after.geometry.line_pitch * factor, d.geometry.line_pitch);
            EXPECT_DOUBLE_EQ(after.geometry.angle_step * factor, d.geometry.angle_step);
            const RfFrame made = stages.process(frame);
            ASSERT_EQ(static_cast<std::int64_t>(made.samples.size()), after.lines * samples);
            for (int line = 0; line <= 3 * factor; ++line)
                for (int i = 0; i < samples; ++i) {
                    const double a = amplitudes[line / factor];
                    const double b = amplitudes[std::min(3, line / factor + 1)];
                    const double expected = a + (b - a) * (line % factor) / factor + 16 * i;
                    ASSERT_EQ(made.samples[static_cast<std::size_t>(line * samples + i)] * made.unit, expected)
                        << line << ", " << i;
                }
        }
}

// Three pairs of lines whose sums are 40, 80 and 120 plus the column; sample 1 of the middle pair is clipped by both firings,
// the last one by one of them alone.
struct Pairs
{
    Description description;
    std::vector<std::int16_t> samples;

    explicit Pairs(int count) : description(rf_description(3, count))
    {
        description.firings = 2;
        for (int line = 0; line < 3; ++line)
            for (const int sign : {1, -1})
                for (int i = 0; i < count; ++i)
                    samples.push_back(static_cast<std::int16_t>(sign * 1000 + 20 * (line + 1) + (sign > 0 ? i : 0)));
        const auto at = [&](int firing, int sample) -> std::int16_t& {
            return samples[static_cast<std::size_t>((2 + firing) * count + sample)];
        };
        at(0, 1) = 32767;
        at(1, 1) = -32768;
        at(0, count - 1) = 32767;
    }
};

TEST(RfStages, SumPairs)
{
    for (const int count : {5, 8, 19})
        for (const int factor : {1, 2, 4}) {
            SCOPED_TRACE(std::to_string(count) + " samples, factor " + std::to_string(factor));
            const Pairs pairs(count);
            RfOptions options;
            options.pulse_inversion = PulseInversion::sum;
            options.interpolate = factor;
            const RfStages stages(pairs.description, options);
            EXPECT_EQ(stages.description().center_frequency, 2 * pairs.description.center_frequency);
            EXPECT_DOUBLE_EQ(stages.description().geometry.line_pitch * factor, pairs.description.geometry.line_pitch);
            const RfFrame made = stages.process(pairs.samples);
            ASSERT_EQ(made.samples.size(), static_cast<std::size_t>((2 * factor + 1) * count));
            ASSERT_EQ(made.clipped.size(), made.samples.size());
            EXPECT_EQ(made.unit, 1);
            for (int line = 0; line <= 2 * factor; ++line)
                for (int i = 0; i < count; ++i) {
                    const auto place = static_cast<std::size_t>(line * count + i);
                    const bool beside_middle = line > 0 && line < 2 * factor;
                    ASSERT_EQ(made.clipped[place] != 0, i == 1 && beside_middle) << line << ", " << i;
                    if (i != 1 && i != count - 1) {
                        ASSERT_EQ(made.samples[place], 40 + 40 * line / factor + i) << line << ", " << i;
                    }
                }
        }
}

TEST(RfStages, BlendPairs)
{
    const int count = 51; // not a multiple of 8
    const Pairs pairs(count);
    RfOptions options;
    options.pulse_inversion = PulseInversion::blend;
    options.ramp_start = 16;
    options.ramp_end = 32;
    for (const int percent : {100, 40}) {
        options.percent = percent;
        const RfStages stages(pairs.description, options);
        EXPECT_EQ(stages.description().center_frequency, 1.5 * pairs.description.center_frequency);
        const RfFrame made = stages.process(pairs.samples);
        ASSERT_EQ(made.samples.size(), static_cast<std::size_t>(3 * count));
        for (int i = 0; i + 1 < count; ++i) { // the first pair: 1020 + i and -980
            const double part = i < 16 ? 1 : i < 32 ? 1 - (i - 16) / 16.0 * percent / 100 : 1 - percent / 100.0;
            ASSERT_NEAR(made.samples[static_cast<std::size_t>(i)], 1020 + i - 980 * part, 0.51) << i;
        }
        EXPECT_NE(made.clipped[count + 1], 0);
        EXPECT_EQ(std::count(made.clipped.begin(), made.clipped.end(), 0), 3 * count - 1);
    }
    options.ramp_start = options.ramp_end = -1;
    const RfOptions chosen = RfStages(pairs.description, options).options();
    EXPECT_EQ(chosen.ramp_start, 17);
    EXPECT_EQ(chosen.ramp_end, 34);
}

TEST(RfStages, TurnDownWhatTheyCannotDo)
{
    const auto refusal = [](const Description& d, const RfOptions& options) {
        return complaint([&] { RfStages(d, options); });
    };
    Description d = rf_description(4, 15);
    RfOptions options;
    options.interpolate = 3;
    EXPECT_NE(refusal(d, options).find("2 or 4"), std::string::npos);
    options.interpolate = 2;
    EXPECT_NE(complaint([&] { RfStages(d, options).process({1, 2, 3}); }).find("60"), std::string::npos);
    d.offset = 1e9;
    EXPECT_NE(refusal(d, options).find("offset"), std::string::npos);
    d = rf_description(1 << 20, 1 << 10);
    EXPECT_NE(refusal(d, options).find("2147483647"), std::string::npos);
    d.content = Content::iq;
    EXPECT_NE(refusal(d, options).find("need RF"), std::string::npos);

    Pairs pairs(20);
    options = {};
    options.pulse_inversion = PulseInversion::sum;
    EXPECT_NE(refusal(rf_description(4, 15), options).find("found 1 firing"), std::string::npos);
    d = pairs.description;
    d.offset = 3;
    EXPECT_NE(refusal(d, options).find("offset"), std::string::npos);
    const RfStages sum(pairs.description, options);
    EXPECT_EQ(complaint([&] { sum.process(std::vector<std::int16_t>(pairs.samples.size())); }), "no complaint")
        << "silence has no sign";
    for (std::size_t i = 0; i < pairs.samples.size(); ++i) // firings alike, as those of an ensemble
        pairs.samples[i] = static_cast<std::int16_t>(500 + i % 20);
    EXPECT_NE(complaint([&] { sum.process(pairs.samples); }).find("found 1.00"), std::string::npos);
    options.pulse_inversion = PulseInversion::blend;
    options.ramp_start = 8;
    options.ramp_end = 21;
    EXPECT_NE(refusal(pairs.description, options).find("8 to 21 of 20"), std::string::npos);
    options.ramp_end = 16;
    options.percent = 101;
    EXPECT_NE(refusal(pairs.description, options).find("--percent"), std::string::npos);
    d = pairs.description;
    d.samples = 32761;
    EXPECT_NE(refusal(d, options).find("32760"), std::string::npos);
}

TEST(Chain, MarksClippedEchoesAndRespectsTheSoundSpeed)
{
    Description d = rf_description(9, 400);
    d.firings = 2;
    std::vector<std::int16_t> pairs;
    for (int line = 0; line < 9; ++line)
        for (const int sign : {1, -1})
            for (int i = 0; i < 400; ++i) { // only line 4 is clipped, at samples 196 to 204
                const double echo = (line == 4 ? 60000 : 20000) * std::exp(-(i - 200.0) * (i - 200.0) / 50);
                pairs.push_back(static_cast<std::int16_t>(std::clamp(sign * echo, -32768.0, 32767.0)));
            }
    for (const Upsampling upsampling : {Upsampling::none, Upsampling::full})
        for (const int factor : {1, 2}) {
            ChainParameters wanted;
            wanted.rf.pulse_inversion = PulseInversion::sum;
            wanted.rf.upsampling = upsampling;
            wanted.rf.interpolate = factor;
            wanted.bandwidth = 4e6;
            wanted.scale = true;
            Chain chain(d, wanted);
            EXPECT_TRUE(chain.needs_firings());
            const EnvelopeFrame envelope = chain.envelope(pairs);
            ASSERT_EQ(envelope.clipped.size(), envelope.values.size());
            const double step = envelope.sample_spacing / d.sample_spacing; // samples of the recording
            for (std::int64_t line = 0; line < envelope.lines; ++line)
                for (std::int64_t j = 0; j < envelope.samples; ++j) {
                    const double distance = std::fabs(static_cast<double>(j) * step - 200);
                    const bool touched = std::abs(line - 4 * factor) < factor;
                    const bool marked = envelope.clipped[static_cast<std::size_t>(line * envelope.samples + j)] != 0;
                    if (!touched || distance > 5 + step) {
                        ASSERT_FALSE(marked) << line << ", " << j;
                    } else if (distance < 4) {
                        ASSERT_TRUE(marked) << line << ", " << j;
                    }
                }
            chain.set_reference(30000);
            const GreyImage image = chain.picture(envelope);
            ASSERT_EQ(image.marks.size(), image.pixels.size());
            double column = 0;
            double row = 0;
            chain.converter().pixel_of(d.geometry.first_line + 4 * d.geometry.line_pitch, 200 * d.sample_spacing, column, row);
            const int margin = image.width - chain.converter().width();
            const auto mark = image.marks[static_cast<std::size_t>(std::lround(row)) * static_cast<std::size_t>(image.width) +
                                          static_cast<std::size_t>(margin + std::lround(column))];
            EXPECT_NE(mark, 0);
            EXPECT_LT(std::count(image.marks.begin(), image.marks.end(), 255),
                      static_cast<std::ptrdiff_t>(image.marks.size() / 20));
        }

    d = rf_description(9, 400);
    d.geometry.start_depth = 5e-3;
    ChainParameters faster;
    faster.sound_speed = 1.1 * d.sound_speed;
    const Chain stated(d, {});
    const Chain other(d, faster);
    EXPECT_DOUBLE_EQ(other.detector().sample_spacing(), 1.1 * stated.detector().sample_spacing());
    double column = 0;
    double row = 0;
    other.converter().pixel_of(0, 1.1 * (5e-3 - 0.5 * d.sample_spacing * other.parameters().decimation), column, row);
    EXPECT_NEAR(row, -0.5, 1e-6) << "the picture starts half a sample above the first one";
    EXPECT_EQ(other.parameters().taps, stated.parameters().taps);
}

TEST(Smoothing, FollowsItsKernelInEveryColumn)
{
    // A white line between dark ones, and a dark line between white ones, of any length.
    for (const std::int64_t samples : {1, 16, 35}) {
        const std::uint8_t lines[] = {9, 0, 0, 0, 255, 0, 0, 0, 255, 255, 0, 255, 255, 255, 255, 200};
        const std::uint8_t expected[] = {9, 0, 0, 47, 175, 47, 0, 39, 223, 215, 79, 207, 255, 255, 255, 200};
        std::vector<std::uint8_t> grey;
        std::vector<std::uint8_t> smoothed;
        for (std::size_t line = 0; line < std::size(lines); ++line) {
            grey.insert(grey.end(), static_cast<std::size_t>(samples), lines[line]);
            smoothed.insert(smoothed.end(), static_cast<std::size_t>(samples), expected[line]);
        }
        EXPECT_EQ(smooth(grey, static_cast<std::int64_t>(std::size(lines))), smoothed) << samples;
        EXPECT_EQ(smooth(grey, 1), grey);
    }
}

// FNV-1a
class Digest
{
public:
    void add(const std::vector<std::uint8_t>& bytes)
    {
        for (const std::uint8_t byte : bytes)
            value_ = (value_ ^ byte) * 0x100000001b3;
    }
    std::uint64_t value() const { return value_; }

private:
    std::uint64_t value_ = 0xcbf29ce484222325;
};

TEST(Compression, GivesTheSameGreyOnEveryMachine)
{
    Description d = rf_description(50, 700);
    d.center_frequency = 4.7e6;
    std::mt19937 generator(5);
    std::vector<std::int16_t> frame(50 * 700);
    for (std::int16_t& sample : frame)
        sample = static_cast<std::int16_t>(static_cast<int>(generator() % 4001) - 2000);
    Digest digest;
    for (const DetectorOptions& options : {DetectorOptions{0, 0, 0, DetectorKind::general}, {21, 1, 0}, {0, 5, 2.2e6}})
        digest.add(compress(EnvelopeDetector(d, options).detect(frame), 1234.5F, 57.3));
    EXPECT_EQ(digest.value(), 0x990d59c3f6bf6f49u);
    Digest fixed;
    for (const DetectorOptions& options : {DetectorOptions{}, {12, 4, 6e6}, {16, 4, 0}, {32, 8, 2e6}})
        fixed.add(compress(EnvelopeDetector(d, options).detect(frame), 1234.5F, 57.3));
    EXPECT_EQ(fixed.value(), 0xb71422c32b881970u);
}

TEST(Compression, FollowsTheCurve)
{
    struct Case
    {
        float envelope; // the reference is 1000
        double dynamic_range;
        int grey;
    };
    const Case cases[] = {{1000, 60, 255}, {500, 60, 229}, {100, 60, 170}, {31.6228F, 60, 127}, {10, 60, 85},
                          {1.1F, 60, 3},   {0.98F, 60, 0}, {0, 60, 0},     {2000, 60, 255},     {3e38F, 60, 255},
                          {100, 40, 128},  {10, 40, 0},    {500, 10, 101}, {1, 90, 85},         {0.06F, 90, 16}};
    // Every place in a line, so that no length of line meets another rounding.
    for (const Case& c : cases)
        for (std::int64_t samples = 1; samples <= 35; ++samples) {
            EnvelopeFrame envelope;
            envelope.lines = 3;
            envelope.samples = samples;
            envelope.values.assign(static_cast<std::size_t>(3 * samples), c.envelope);
            const std::vector<std::uint8_t> grey = compress(envelope, 1000, c.dynamic_range);
            ASSERT_EQ(grey.size(), envelope.values.size());
            for (const std::uint8_t value : grey)
                ASSERT_EQ(int{value}, c.grey) << c.envelope << " at " << c.dynamic_range << " dB, " << samples << " samples";
        }
    const EnvelopeFrame empty;
    for (const float reference : {0.0F, -1.0F, std::numeric_limits<float>::infinity(), std::nanf("")})
        EXPECT_THROW(compress(empty, reference, 60), BadInput);
    for (const double range : {0.0, 0.99, 91.0, std::nan("")})
        EXPECT_THROW(compress(empty, 1, range), BadInput);
}

struct View
{
    const char* name;
    Geometry geometry;
    std::int64_t lines;
    std::int64_t samples;
    double spacing;
    double offset;
    double area; // of the field of view, in square metres
};

Geometry parallel(double first, double pitch, double start, double steering)
{
    Geometry g;
    g.kind = steering != 0 ? Geometry::Kind::steered : Geometry::Kind::linear;
    g.first_line = first;
    g.line_pitch = pitch;
    g.start_depth = start;
    g.steering = steering;
    return g;
}

Geometry fan(Geometry::Kind kind, double first, double step, double radius)
{
    Geometry g;
    g.kind = kind;
    g.first_angle = first;
    g.angle_step = step;
    g.apex_radius = radius;
    return g;
}

// All of the geometries, some mirrored, some lopsided.
std::vector<View> views()
{
    using Kind = Geometry::Kind;
    const double degree = pi / 180;
    const auto ring = [](double angle, double near, double far) { return 0.5 * angle * (far * far - near * near); };
    return {
        {"linear", parallel(-15e-3, 0.3e-3, 10e-3, 0), 101, 401, 0.1e-3, 0.2e-3, 101 * 0.3e-3 * 401 * 0.1e-3},
        {"linear, right to left", parallel(12e-3, -0.25e-3, 0, 0), 80, 300, 0.1e-3, 0, 80 * 0.25e-3 * 300 * 0.1e-3},
        {"steered", parallel(-10e-3, 0.3e-3, 5e-3, 15 * degree), 64, 500, 0.05e-3, 0,
         64 * 0.3e-3 * 500 * 0.05e-3 * std::cos(15 * degree)},
        {"steered to the left", parallel(-10e-3, 0.3e-3, 5e-3, -20 * degree), 64, 500, 0.05e-3, 0,
         64 * 0.3e-3 * 500 * 0.05e-3 * std::cos(20 * degree)},
        {"sector", fan(Kind::sector, -45 * degree, degree, 0), 91, 600, 0.2e-3, 0, ring(91 * degree, 0, 599.5 * 0.2e-3)},
        {"sector, lopsided", fan(Kind::sector, -10 * degree, degree, 20e-3), 131, 300, 0.2e-3, 0.4e-3,
         ring(131 * degree, 20.3e-3, 20.3e-3 + 300 * 0.2e-3)},
        {"curved", fan(Kind::curved, -30 * degree, 0.5 * degree, 40e-3), 121, 500, 0.2e-3, 0,
         ring(60.5 * degree, 39.9e-3, 39.9e-3 + 500 * 0.2e-3)},
        {"curved, right to left", fan(Kind::curved, 60 * degree, -degree, 10e-3), 121, 400, 0.1e-3, 0,
         ring(121 * degree, 9.95e-3, 9.95e-3 + 400 * 0.1e-3)},
    };
}

// Where a sample lies: lateral position and depth, straight from the meaning of the geometry.
std::pair<double, double> place_of(const View& view, double line, double sample)
{
    const Geometry& g = view.geometry;
    const double along = view.offset + sample * view.spacing;
    if (g.kind == Geometry::Kind::linear || g.kind == Geometry::Kind::steered) {
        const double range = g.start_depth + along;
        return {g.first_line + line * g.line_pitch + range * std::sin(g.steering), range * std::cos(g.steering)};
    }
    const double angle = g.first_angle + line * g.angle_step;
    const double radius = g.apex_radius + along;
    return {radius * std::sin(angle), radius * std::cos(angle) - (g.kind == Geometry::Kind::curved ? g.apex_radius : 0)};
}

TEST(ScanConversion, PutsSamplesWhereTheyBelong)
{
    for (const View& view : views()) {
        SCOPED_TRACE(view.name);
        const ScanConverter converter(view.geometry, view.lines, view.samples, view.spacing, view.offset, 700);
        for (const std::int64_t line : {view.lines / 5, view.lines / 2, view.lines - 2})
            for (const std::int64_t sample : {view.samples / 3, view.samples - 3}) {
                std::vector<std::uint8_t> lines(static_cast<std::size_t>(view.lines * view.samples), 0);
                lines[static_cast<std::size_t>(line * view.samples + sample)] = 255;
                const GreyImage image = converter.convert(lines);
                const auto [lateral, depth] = place_of(view, static_cast<double>(line), static_cast<double>(sample));
                double column = 0;
                double row = 0;
                converter.pixel_of(lateral, depth, column, row);
                double sum = 0;
                double right = 0;
                double down = 0;
                for (int y = 0; y < image.height; ++y)
                    for (int x = 0; x < image.width; ++x) {
                        const double grey = image.pixels[static_cast<std::size_t>(y * image.width + x)];
                        sum += grey;
                        right += grey * x;
                        down += grey * y;
                    }
                ASSERT_GT(sum, 0) << line << ", " << sample;
                EXPECT_NEAR(right / sum, column, 0.6) << line << ", " << sample;
                EXPECT_NEAR(down / sum, row, 0.6) << line << ", " << sample;
            }
    }
}

TEST(ScanConversion, FillsItsFieldOfViewAndNothingElse)
{
    for (const View& view : views())
        for (const int width : {0, 300, 1500}) {
            SCOPED_TRACE(view.name + std::string(", width ") + std::to_string(width));
            const ScanConverter converter(view.geometry, view.lines, view.samples, view.spacing, view.offset, width);
            const GreyImage image =
                converter.convert(std::vector<std::uint8_t>(static_cast<std::size_t>(view.lines * view.samples), 255));
            EXPECT_TRUE(width == 0 || image.width == width) << image.width;
            const auto white = std::count(image.pixels.begin(), image.pixels.end(), 255);
            const auto black = std::count(image.pixels.begin(), image.pixels.end(), 0);
            EXPECT_EQ(white + black, static_cast<std::ptrdiff_t>(image.pixels.size()));
            EXPECT_NEAR(static_cast<double>(white) * image.pixel_size * image.pixel_size, view.area, 0.01 * view.area);
            // No empty row or column at any edge.
            const auto grey = [&](int x, int y) { return image.pixels[static_cast<std::size_t>(y * image.width + x)]; };
            int edges[4] = {0, 0, 0, 0};
            for (int x = 0; x < image.width; ++x) {
                edges[0] += grey(x, 1);
                edges[1] += grey(x, image.height - 2);
            }
            for (int y = 0; y < image.height; ++y) {
                edges[2] += grey(1, y);
                edges[3] += grey(image.width - 2, y);
            }
            EXPECT_GT(*std::min_element(edges, edges + 4), 0);
        }
}

TEST(ScanConversion, InterpolatesExactly)
{
    // Grey values that rise by 1 per line and by 2 per sample; pixels in the middle of a quarter of four samples.
    const std::int64_t lines = 16;
    const std::int64_t samples = 16;
    std::vector<std::uint8_t> ramp;
    for (int l = 0; l < lines; ++l)
        for (int s = 0; s < samples; ++s)
            ramp.push_back(static_cast<std::uint8_t>(10 + l + 2 * s));
    const ScanConverter converter(parallel(0, 1e-3, 0, 0), lines, samples, 1e-3, 0, 64);
    const GreyImage image = converter.convert(ramp);
    ASSERT_EQ(image.width, 64);
    ASSERT_EQ(image.height, 64);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) {
            const double line = std::clamp((x + 0.5) / 4 - 0.5, 0.0, 15.0);
            const double sample = std::clamp((y + 0.5) / 4 - 0.5, 0.0, 15.0);
            ASSERT_EQ(image.pixels[static_cast<std::size_t>(64 * y + x)], std::floor(10 + line + 2 * sample + 0.5))
                << x << ", " << y;
        }
}

TEST(ScanConversion, AveragesSamplesThatSharePixels)
{
    // Pixels of 5 samples by one line; every fifth sample, from the third, is the middle of a pixel.
    const std::int64_t lines = 20;
    const std::int64_t samples = 200;
    std::vector<std::uint8_t> noise(static_cast<std::size_t>(lines * samples));
    std::mt19937 generator(9);
    for (std::uint8_t& value : noise)
        value = static_cast<std::uint8_t>(generator());
    const ScanConverter converter(parallel(0, 0.5e-3, 0, 0), lines, samples, 0.1e-3, 0, 20);
    const GreyImage image = converter.convert(noise);
    ASSERT_EQ(image.height, 40);
    for (int line = 0; line < lines; ++line)
        for (int row = 0; row < 40; ++row) {
            int sum = 0;
            for (int s = 5 * row; s < 5 * row + 5; ++s)
                sum += noise[static_cast<std::size_t>(line * samples + s)];
            ASSERT_EQ(image.pixels[static_cast<std::size_t>(row * 20 + line)], (sum + 2) / 5) << line << ", " << row;
        }
}

TEST(ScanConversion, LeavesPicturesAsTheyAre)
{
    Geometry g;
    g.kind = Geometry::Kind::picture;
    const std::int64_t columns = 57;
    const std::int64_t rows = 33;
    std::vector<std::uint8_t> picture(static_cast<std::size_t>(columns * rows));
    std::mt19937 generator(1);
    for (std::uint8_t& pixel : picture)
        pixel = static_cast<std::uint8_t>(generator());
    for (const double spacing : {0.0, 0.1e-3}) {
        g.column_spacing = g.row_spacing = spacing;
        const GreyImage image = ScanConverter(g, columns, rows, 0, 0, 0).convert(picture);
        EXPECT_EQ(image.width, columns);
        EXPECT_EQ(image.height, rows);
        EXPECT_EQ(image.pixels, picture);
        EXPECT_DOUBLE_EQ(image.pixel_size, spacing);
    }
    g.row_spacing = 0.3e-3;
    const GreyImage tall = ScanConverter(g, columns, rows, 0, 0, 0).convert(picture);
    EXPECT_EQ(tall.width, columns);
    ASSERT_EQ(tall.height, 3 * rows);
    for (int row = 0; row < rows; ++row) // the middle of three rows is the row itself
        EXPECT_TRUE(std::equal(picture.begin() + row * columns, picture.begin() + (row + 1) * columns,
                               tall.pixels.begin() + (3 * row + 1) * columns));
}

TEST(ScanConversion, GivesTheSamePixelsOnEveryMachine)
{
    Digest digest;
    for (const View& view : views()) {
        std::vector<std::uint8_t> lines(static_cast<std::size_t>(view.lines * view.samples));
        std::mt19937 generator(1);
        for (std::uint8_t& value : lines)
            value = static_cast<std::uint8_t>(generator());
        const ScanConverter converter(view.geometry, view.lines, view.samples, view.spacing, view.offset, 0);
        digest.add(with_scale(converter.convert(lines), converter).pixels);
    }
    EXPECT_EQ(digest.value(), 0x38198f1bbec73adfu);
}

TEST(ScanConversion, DrawsMillimetres)
{
    const ScanConverter converter(parallel(-19.05e-3, 0.1e-3, 0, 0), 382, 500, 0.1e-3, 0, 382);
    const GreyImage plain = converter.convert(std::vector<std::uint8_t>(382 * 500, 77));
    const GreyImage image = with_scale(plain, converter);
    const int margin = image.width - plain.width;
    ASSERT_EQ(image.height - plain.height, margin);
    std::vector<int> ticks;
    std::vector<int> long_ticks;
    for (int row = 0; row < plain.height; ++row) {
        int ink = 0;
        for (int column = 0; column < margin; ++column)
            ink += image.pixels[static_cast<std::size_t>(row * image.width + column)] != 0;
        if (ink > 0)
            ticks.push_back(row);
        if (ink > 5)
            long_ticks.push_back(row);
        EXPECT_TRUE(std::equal(plain.pixels.begin() + row * 382, plain.pixels.begin() + (row + 1) * 382,
                               image.pixels.begin() + row * image.width + margin));
    }
    EXPECT_EQ(ticks, (std::vector<int>{0, 50, 100, 150, 200, 250, 300, 350, 400, 450}));
    EXPECT_EQ(long_ticks, (std::vector<int>{0, 100, 200, 300, 400}));
}

TEST(ScanConversion, TurnsDownImpossibleGeometry)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const auto make = [](const Geometry& g, std::int64_t lines, std::int64_t samples, double spacing, int width) {
        return complaint([&] { ScanConverter(g, lines, samples, spacing, 0, width); });
    };
    const Geometry linear = parallel(0, 1e-3, 0, 0);
    const auto sector = [](double first, double step, double radius) {
        return fan(Geometry::Kind::sector, first, step, radius);
    };
    const std::pair<std::string, const char*> cases[] = {
        {make(linear, 0, 10, 1e-3, 0), "lines"},
        {make(linear, 10, 70000, 1e-3, 0), "--decimation"},
        {make(linear, 10, 10, 0, 0), "sample_spacing"},
        {make(linear, 10, 10, nan, 0), "sample_spacing"},
        {make(linear, 10, 10, 1e-3, 20000), "width"},
        {make(linear, 10, 10, 1e-3, -5), "width"},
        {make(linear, 1, 60000, 1e-3, 16384), "at most"},
        {make(parallel(0, 0, 0, 0), 10, 10, 1e-3, 0), "line_pitch"},
        {make(parallel(nan, 1e-3, 0, 0), 10, 10, 1e-3, 0), "first_line"},
        {make(parallel(0, 1e-3, 0, 1.6), 10, 10, 1e-3, 0), "steering"},
        {make(sector(-0.5, 0, 0), 10, 10, 1e-3, 0), "angle_step"},
        {make(sector(-4, 0.01, 0), 10, 10, 1e-3, 0), "180"},
        {make(sector(-1, 0.01, -1), 10, 10, 1e-3, 0), "apex_radius"},
        {make(sector(nan, 0.01, 1), 10, 10, 1e-3, 0), "180"},
    };
    for (const auto& [found, expected] : cases)
        EXPECT_NE(found.find(expected), std::string::npos) << found << "; expected: " << expected;
    EXPECT_THROW(ScanConverter(linear, 10, 10, 1e-3, 0, 0).convert(std::vector<std::uint8_t>(99)), BadInput);
}

} // namespace
