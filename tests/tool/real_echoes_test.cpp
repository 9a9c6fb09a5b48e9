// The B-mode chain on recordings of real echoes. The figures were computed from the same samples by other means: analytic
// signal and zero-phase band-pass in double precision.
#include "bmode.h"
#include "real_data.h"
#include "recipe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

using namespace echo2image;

namespace {

constexpr double pi = 3.14159265358979323846;

// A recording's envelope with sums over regions.
struct Measured
{
    Recording recording;
    EnvelopeFrame envelope;

    Measured(const char* name, std::int64_t frame, const DetectorOptions& options)
        : recording(Recording::open(real_data::example(name), real_data::folder())),
          envelope(EnvelopeDetector(recording.description(), options).detect(recording.read_frame_i16(frame)))
    {}
    double at(std::int64_t line, std::int64_t sample) const
    {
        return envelope.values[static_cast<std::size_t>(line * envelope.samples + sample)];
    }
    std::int64_t peak(std::int64_t line, std::int64_t first, std::int64_t end) const
    {
        const auto begin = envelope.values.begin() + line * envelope.samples;
        return std::max_element(begin + first, begin + end) - begin;
    }
    double mean(std::int64_t line, std::int64_t last_line, std::int64_t first, std::int64_t last, bool power) const
    {
        double sum = 0;
        for (std::int64_t l = line; l <= last_line; ++l)
            for (std::int64_t s = first; s <= last; ++s)
                sum += power ? at(l, s) * at(l, s) : at(l, s);
        return sum / static_cast<double>((last_line - line + 1) * (last - first + 1));
    }
};

TEST(RealEchoes, OfTheRotatingDisk)
{
    SKIP_WITHOUT_REAL_DATA();
    struct Frame
    {
        std::int64_t number;
        double ring_db;
        double water_db;
        double rms;
        double speckle; // mean over standard deviation
    };
    for (const Frame& expected :
         {Frame{0, 19.1, 36.9, 8221, 1.76}, {7, 18.7, 37.2, 8256, 1.79}, {15, 19.2, 37.7, 8296, 1.80}}) {
        for (const DetectorOptions& options : {DetectorOptions{0, 1, 4e6}, {32, 4, 4e6}}) {
            SCOPED_TRACE("frame " + std::to_string(expected.number) + ", decimation " + std::to_string(options.decimation));
            const Measured disk("disk_rf", expected.number, options);
            double disk_power = 0;
            double disk_sum = 0;
            double disk_count = 0;
            double ring_power = 0;
            double ring_count = 0;
            double water_power = 0;
            double water_count = 0;
            for (std::int64_t l = 0; l < 128; ++l)
                for (std::int64_t s = 0; s < disk.envelope.samples; ++s) {
                    const double x = (static_cast<double>(l) - 63.5) * 0.298;
                    const double z = 10 + static_cast<double>(s * options.decimation) * 0.037;
                    const double radius = std::hypot(x + 0.77, z - 22.5);
                    const double value = disk.at(l, s);
                    if (radius < 9) {
                        disk_power += value * value;
                        disk_sum += value;
                        ++disk_count;
                    }
                    if (radius > 11.5 && radius < 13 && std::fabs(x) < 12) {
                        ring_power += value * value;
                        ++ring_count;
                    }
                    if (z < 11.5 && std::fabs(x) < 5) {
                        water_power += value * value;
                        ++water_count;
                    }
                }
            const double power = disk_power / disk_count;
            const double mean = disk_sum / disk_count;
            EXPECT_NEAR(10 * std::log10(power / (ring_power / ring_count)), expected.ring_db, 0.7);
            EXPECT_NEAR(10 * std::log10(power / (water_power / water_count)), expected.water_db, 2);
            EXPECT_NEAR(std::sqrt(power), expected.rms, 0.05 * expected.rms);
            EXPECT_NEAR(mean / std::sqrt(power - mean * mean), expected.speckle, 0.03);
        }
    }
}

TEST(RealEchoes, OfAHandInWater)
{
    SKIP_WITHOUT_REAL_DATA();
    const DetectorOptions band = {63, 1, 3e6}; // 2 to 5 MHz, steep
    {
        const Measured reflector("hand_rf", 0, band);
        const std::pair<std::int64_t, std::int64_t> arc[] = {{28, 816}, {32, 783}, {36, 769}, {40, 762},
                                                             {44, 762}, {48, 775}, {52, 795}};
        for (const auto& [line, sample] : arc)
            EXPECT_NEAR(static_cast<double>(reflector.peak(line, 0, 1689)), static_cast<double>(sample), 4) << "line " << line;
        for (const auto& [line, value] : {std::pair{30, 305.0}, {40, 386.0}, {50, 335.0}})
            EXPECT_NEAR(reflector.at(line, reflector.peak(line, 0, 1689)), value, 0.1 * value) << "line " << line;
        EXPECT_NEAR(reflector.mean(17, 63, 0, 1688, false), 4.34, 0.05 * 4.34);
        EXPECT_EQ(reflector.mean(1, 15, 0, 1688, false), 0) << "lines that were never recorded";
    }
    {
        // Sampled twice as often, a fixed-point detector fits.
        const Recording recording = Recording::open(real_data::example("hand_rf"), real_data::folder());
        ChainParameters wanted;
        wanted.rf.upsampling = Upsampling::full;
        wanted.rf.interpolate = 4;
        const Chain chain(recording.description(), wanted);
        EXPECT_EQ(chain.detector().kind(), DetectorKind::fixed);
        const EnvelopeFrame envelope = chain.envelope(recording.read_frame_i16(0));
        ASSERT_EQ(envelope.lines, 4 * 63 + 1);
        for (const auto& [line, sample] : {std::pair{28, 816}, {36, 769}, {44, 762}, {52, 795}}) {
            const auto begin = envelope.values.begin() + 4 * line * envelope.samples;
            const auto peak = std::max_element(begin, begin + envelope.samples) - begin;
            EXPECT_NEAR(static_cast<double>(peak * chain.detector().decimation()) / 2, sample, 4) << "line " << line;
        }
    }
    {
        const Measured fingers("hand_rf", 8, band);
        struct Echo
        {
            std::int64_t line;
            std::int64_t sample;
            double value;
        };
        for (const Echo& echo : {Echo{22, 597, 68},
                                 {24, 554, 70},
                                 {26, 565, 84},
                                 {28, 630, 55},
                                 {38, 579, 66},
                                 {40, 548, 123},
                                 {42, 560, 90},
                                 {44, 609, 42}}) {
            const std::int64_t sample = fingers.peak(echo.line, 300, 900);
            EXPECT_NEAR(static_cast<double>(sample), static_cast<double>(echo.sample), 4) << "line " << echo.line;
            EXPECT_NEAR(fingers.at(echo.line, sample), echo.value, 0.1 * echo.value) << "line " << echo.line;
        }
        for (const std::int64_t line : {32, 33, 34})
            EXPECT_LT(fingers.at(line, fingers.peak(line, 300, 640)), 4) << "water at line " << line;
        EXPECT_NEAR(fingers.mean(17, 63, 0, 1688, false), 5.29, 0.05 * 5.29);
    }
    {
        const Measured hand("hand_rf", 22, band);
        for (const auto& [line, sample] : {std::pair{20, 596}, {30, 719}, {40, 916}, {50, 960}}) {
            std::int64_t first = 0;
            while (first < 1689 && hand.at(line, first) <= 33)
                ++first;
            EXPECT_NEAR(static_cast<double>(first), sample, 5) << "line " << line;
        }
        const double tissue = hand.mean(25, 44, 700, 1099, false);
        const double water = hand.mean(25, 44, 100, 299, false);
        EXPECT_NEAR(20 * std::log10(tissue / water), 22.3, 1);
        EXPECT_NEAR(tissue, 16.20, 0.05 * 16.20);
        EXPECT_NEAR(hand.mean(17, 63, 0, 1688, false), 8.29, 0.05 * 8.29);
    }
    EXPECT_NEAR(Measured("hand_rf", 11, band).mean(17, 63, 0, 1688, false), 2.95, 0.05 * 2.95);
}

TEST(RealEchoes, OfTheProstatePhantom)
{
    SKIP_WITHOUT_REAL_DATA();
    const Measured phantom("prostate_iq", 0, {});
    const auto power = [&](std::int64_t line, std::int64_t last_line, std::int64_t first, std::int64_t last) {
        return 10 * std::log10(phantom.mean(line, last_line, first, last, true));
    };
    EXPECT_NEAR(power(60, 109, 350, 599), 47.78, 0.01) << "halo";
    EXPECT_NEAR(power(120, 229, 550, 899), 76.01, 0.01) << "gland";
    EXPECT_NEAR(power(140, 219, 280, 419), 64.62, 0.01) << "upper gland";
    EXPECT_NEAR(power(100, 249, 20, 99), 59.10, 0.01) << "near field";
    EXPECT_NEAR(power(168, 183, 780, 879), 71.61, 0.01) << "duct";
    EXPECT_NEAR(power(100, 249, 1200, 1499), 67.59, 0.01) << "below";

    // The picture against the one that came with the recording: 0.15 mm per pixel, apex above its middle.
    const Recording reference =
        Recording::open(real_data::folder() / "prostate_phantom_iq/curved_reference_image.mha", {}, Need::layout);
    const std::vector<std::uint8_t> other = reference.read_frame_u8(0);
    ASSERT_EQ(other.size(), std::size_t{600 * 400});
    Chain chain(phantom.recording.description(), {});
    chain.set_reference(largest(phantom.envelope));
    const GreyImage image = chain.picture(phantom.envelope);
    double count = 0;
    double sums[5] = {};
    for (int row = 0; row < 400; ++row)
        for (int column = 0; column < 600; ++column) {
            const double lateral = (column - 299.5) * 0.15e-3;
            const double down = (row + 13.7) * 0.15e-3;
            const double radius = std::hypot(lateral, down);
            if (std::fabs(std::atan2(lateral, down)) > 69 * pi / 180 || radius < 10.2e-3 || radius > 59.5e-3)
                continue;
            double x = 0;
            double y = 0;
            chain.converter().pixel_of(lateral, down - 10e-3, x, y);
            const double a = image.pixels[static_cast<std::size_t>(std::lround(y) * image.width + std::lround(x))];
            const double b = other[static_cast<std::size_t>(600 * row + column)];
            const double terms[] = {a, b, a * a, b * b, a * b};
            for (int i = 0; i < 5; ++i)
                sums[i] += terms[i];
            ++count;
        }
    const double covariance = sums[4] / count - sums[0] / count * sums[1] / count;
    const double variances =
        (sums[2] / count - sums[0] / count * sums[0] / count) * (sums[3] / count - sums[1] / count * sums[1] / count);
    EXPECT_GT(covariance / std::sqrt(variances), 0.88);
}

TEST(RealEchoes, OfACarotidArtery)
{
    SKIP_WITHOUT_REAL_DATA();
    const Recording artery = Recording::open(real_data::example("carotid_bmode"), real_data::folder());
    const Description& d = artery.description();
    const Chain chain(d, {});
    const GreyImage image = chain.picture(artery.read_frame_u8(0));
    struct Walls
    {
        std::int64_t line;
        std::int64_t upper;
        std::int64_t lower;
    };
    for (const Walls& walls : {Walls{20, 87, 236}, {100, 117, 266}, {150, 135, 277}, {200, 144, 289}, {280, 158, 297}}) {
        const double lateral = d.geometry.first_line + static_cast<double>(walls.line) * d.geometry.line_pitch;
        const auto row_of = [&](std::int64_t sample, int& column) {
            double x = 0;
            double y = 0;
            chain.converter().pixel_of(lateral, d.geometry.start_depth + static_cast<double>(sample) * d.sample_spacing, x, y);
            column = static_cast<int>(std::lround(x));
            return static_cast<int>(std::lround(y));
        };
        const auto brightest = [&](std::int64_t first, std::int64_t last) {
            int column = 0;
            const int end = row_of(last, column);
            int best = row_of(first, column);
            for (int row = best; row <= end; ++row)
                if (image.pixels[static_cast<std::size_t>(row * image.width + column)] >
                    image.pixels[static_cast<std::size_t>(best * image.width + column)])
                    best = row;
            return best;
        };
        int column = 0;
        EXPECT_NEAR(brightest(60, 199), row_of(walls.upper, column), 2) << "upper wall, line " << walls.line;
        EXPECT_NEAR(brightest(200, 329), row_of(walls.lower, column), 2) << "lower wall, line " << walls.line;
    }
}

} // namespace
