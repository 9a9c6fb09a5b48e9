// Flow in recordings of real echoes. The figures were computed from the same samples in double precision.
#include "colour_chain.h"
#include "colour_recipe.h"
#include "phase.h"
#include "real_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <string>

using namespace echo2image;

namespace {

// A recording's maps with sums over regions.
struct Measured
{
    Recording recording;
    FlowMaps maps;
    std::vector<float> phases;

    Measured(const char* name, int firings, const char* filter, int across = 1, int along = 1)
        : recording(Recording::open(real_data::example(name), real_data::folder())),
          maps(FlowEstimator({clutter_filter_of(filter), false, across, along}, firings)
                   .estimate(read_ensembles(recording, 0, firings))),
          phases(exact_phases(maps.real, maps.imaginary))
    {}
    std::size_t at(std::int64_t line, std::int64_t sample) const
    {
        return static_cast<std::size_t>(line * maps.samples + sample);
    }

    struct Region
    {
        double summed_phase;
        double mean_phase;
        double phase_deviation;
        double spread;
        double power;
        double least_phase;
    };
    Region region(std::int64_t line, std::int64_t last_line, std::int64_t sample, std::int64_t last_sample) const
    {
        std::complex<double> r1;
        double phase = 0;
        double phase_squares = 0;
        Region mean{};
        mean.least_phase = std::numeric_limits<double>::infinity();
        for (std::int64_t l = line; l <= last_line; ++l)
            for (std::int64_t s = sample; s <= last_sample; ++s) {
                const std::size_t pixel = at(l, s);
                r1 += std::complex<double>(maps.real[pixel], maps.imaginary[pixel]);
                phase += phases[pixel];
                phase_squares += double{phases[pixel]} * phases[pixel];
                mean.spread += maps.spread[pixel];
                mean.power += maps.power[pixel];
                mean.least_phase = std::min(mean.least_phase, double{phases[pixel]});
            }
        const double count = static_cast<double>((last_line - line + 1) * (last_sample - sample + 1));
        mean.summed_phase = std::arg(r1);
        mean.mean_phase = phase / count;
        mean.phase_deviation = std::sqrt(phase_squares / count - mean.mean_phase * mean.mean_phase);
        mean.spread /= count;
        mean.power /= count;
        return mean;
    }
};

struct Pixel
{
    std::int64_t line;
    std::int64_t sample;
    double phase;
    double spread;
    double power;
    double real;
    double imaginary;
    double r0;
};

void expect_pixel(const Measured& measured, const Pixel& expected, double relative)
{
    SCOPED_TRACE("line " + std::to_string(expected.line) + ", sample " + std::to_string(expected.sample));
    const std::size_t pixel = measured.at(expected.line, expected.sample);
    EXPECT_NEAR(measured.maps.real[pixel], expected.real, relative * expected.r0);
    EXPECT_NEAR(measured.maps.imaginary[pixel], expected.imaginary, relative * expected.r0);
    EXPECT_NEAR(measured.maps.r0[pixel], expected.r0, relative * expected.r0);
    EXPECT_NEAR(measured.phases[pixel], expected.phase, 6e-5);
    EXPECT_NEAR(measured.maps.spread[pixel], expected.spread, 6e-5);
    EXPECT_NEAR(measured.maps.power[pixel], expected.power, 6e-5);
}

TEST(RealFlow, InACarotidArtery)
{
    SKIP_WITHOUT_REAL_DATA();
    constexpr double any = std::numeric_limits<double>::quiet_NaN();
    struct Row
    {
        const char* filter;
        int firings;
        double summed, mean, deviation, spread, power; // lumen
        double near_power, far_power, far_summed;      // tissue
    };
    for (const Row& row : {Row{"none", 12, 0.111, 0.319, 0.366, 0.180, 25.78, 45.20, 54.48, 0.0107},
                           {"none", 10, 0.118, 0.321, 0.366, 0.197, 25.84, 45.20, 54.48, 0.0107},
                           {"none", 8, 0.110, 0.313, 0.372, 0.221, 25.72, 45.20, 54.48, 0.0108},
                           {"mean", 12, 1.288, 1.301, 0.161, 0.144, 17.52, 5.81, 25.56, 0.012},
                           {"mean", 10, 1.293, 1.304, 0.176, 0.169, 17.40, 5.21, 24.04, 0.011},
                           {"mean", 8, 1.291, 1.301, 0.199, 0.191, 17.17, 4.57, 22.19, 0.011},
                           {"poly:1", 12, 1.302, 1.319, 0.166, 0.144, 17.30, 2.46, 4.09, any},
                           {"poly:1", 10, 1.306, 1.325, 0.183, 0.166, 17.14, 2.34, 3.65, any},
                           {"poly:1", 8, 1.324, 1.360, 0.220, 0.214, 16.71, 2.20, 3.14, any}}) {
        SCOPED_TRACE(row.filter + (", firings " + std::to_string(row.firings)));
        const Measured flow("carotid_iq", row.firings, row.filter);
        const Measured::Region lumen = flow.region(20, 80, 100, 130);
        const Measured::Region far = flow.region(20, 80, 200, 220);
        EXPECT_NEAR(lumen.summed_phase, row.summed, 6e-4);
        EXPECT_NEAR(lumen.mean_phase, row.mean, 6e-4);
        EXPECT_NEAR(lumen.phase_deviation, row.deviation, 6e-4);
        EXPECT_NEAR(lumen.spread, row.spread, 6e-4);
        EXPECT_NEAR(lumen.power, row.power, 6e-3);
        EXPECT_NEAR(flow.region(20, 80, 5, 25).power, row.near_power, 6e-3);
        EXPECT_NEAR(far.power, row.far_power, 6e-3);
        if (!std::isnan(row.far_summed)) {
            EXPECT_NEAR(far.summed_phase, row.far_summed, 6e-4);
        }
        if (row.filter == std::string("mean")) {
            EXPECT_GT(lumen.least_phase, 0.755);
        }
    }
    const Measured flow("carotid_iq", 12, "mean");
    for (const Pixel& pixel : {Pixel{10, 90, 1.4352, 0.2648, 11.4591, 15.4931, 113.5833, 155.9167},
                               {30, 110, 1.1785, 0.1692, 16.9891, 186.7431, 451.3333, 587.9167},
                               {52, 120, 1.3121, 0.1373, 22.2780, 444.8819, 1680.9167, 2015.5833},
                               {80, 130, 1.1616, 0.1412, 17.7850, 242.1319, 558.2500, 708.5833},
                               {95, 140, 1.2615, 0.1561, 16.1205, 123.0972, 385.1667, 479.1667}})
        expect_pixel(flow, pixel, 1e-6);
}

TEST(RealFlow, HasTheShapeOfTheArtery)
{
    SKIP_WITHOUT_REAL_DATA();
    // Where the power, smoothed, stays within 10 dB of the lumen's median.
    const Measured area("carotid_iq", 12, "poly:1", 5, 7);
    std::vector<float> lumen;
    for (std::int64_t line = 20; line <= 80; ++line)
        for (std::int64_t sample = 100; sample <= 130; ++sample)
            lumen.push_back(area.maps.power[area.at(line, sample)]);
    std::nth_element(lumen.begin(), lumen.begin() + static_cast<std::ptrdiff_t>(lumen.size() / 2), lumen.end());
    const float least = lumen[lumen.size() / 2] - 10;
    struct Walls
    {
        std::int64_t line;
        int first;
        int last;
    };
    for (const Walls& walls : {Walls{5, 49, 170}, {25, 57, 171}, {52, 76, 179}, {75, 84, 183}, {98, 88, 194}}) {
        std::int64_t first = 120;
        std::int64_t last = 120;
        while (area.maps.power[area.at(walls.line, first - 1)] >= least)
            --first;
        while (area.maps.power[area.at(walls.line, last + 1)] >= least)
            ++last;
        EXPECT_NEAR(static_cast<double>(first), walls.first, 5) << "line " << walls.line;
        EXPECT_NEAR(static_cast<double>(last), walls.last, 5) << "line " << walls.line;
    }
    // Fast in the middle, slow at the walls.
    const Measured profile("carotid_iq", 12, "poly:1", 5, 9);
    std::int64_t sample = 80;
    for (const double phase : {0.93, 1.08, 1.43, 1.36, 1.36, 1.31, 1.23, 1.01, 0.96, 0.66, 0.65}) {
        EXPECT_NEAR(profile.phases[profile.at(52, sample)], phase, 0.006) << "sample " << sample;
        sample += 10;
    }

    // The picture: the lumen red, the tissue left alone.
    ColourParameters wanted;
    wanted.flow.average_lines = 3;
    wanted.flow.average_samples = 5;
    ColourChain chain(area.recording.description(), wanted);
    EXPECT_NEAR(chain.nyquist_speed(), 0.385, 1e-9);
    const FlowMaps maps = chain.flow(read_ensembles(area.recording, 0, 12));
    chain.choose(maps);
    const ColourImage image = chain.picture(maps, FlowQuantity::velocity);
    const Description& d = area.recording.description();
    const auto red_share = [&](std::int64_t first, std::int64_t last, bool red) {
        double count = 0;
        double hits = 0;
        for (std::int64_t line = 20; line <= 80; ++line)
            for (std::int64_t s = first; s <= last; ++s) {
                const double depth = d.geometry.start_depth + static_cast<double>(s) * d.sample_spacing;
                const double lateral = d.geometry.first_line + static_cast<double>(line) * d.geometry.line_pitch;
                double x = 0;
                double y = 0;
                chain.converter().pixel_of(lateral + depth * std::sin(d.geometry.steering),
                                           depth * std::cos(d.geometry.steering), x, y);
                const auto pixel = static_cast<std::size_t>(std::lround(y) * image.width + std::lround(x));
                const bool coloured = image.red[pixel] != image.green[pixel] || image.red[pixel] != image.blue[pixel];
                hits += red ? image.red[pixel] > 80 && image.blue[pixel] == 0 && coloured : coloured;
                ++count;
            }
        return hits / count;
    };
    EXPECT_GT(red_share(100, 130, true), 0.97);
    EXPECT_EQ(red_share(5, 25, false), 0);
    EXPECT_LT(red_share(240, 340, false), 0.01);
}

TEST(RealFlow, OfTheRotatingDisk)
{
    SKIP_WITHOUT_REAL_DATA();
    struct Row
    {
        int firings;
        double phases[6]; // of the beams below
        double slope, spread, power, outside;
    };
    const std::int64_t beams[] = {32, 46, 60, 61, 74, 88};
    for (const Row& row : {Row{8, {2.252, 1.155, 0.067, 0.020, -1.044, -2.059}, -0.2586, 0.198, 76.69, 57.24},
                           {10, {2.242, 1.145, 0.075, 0.014, -1.048, -2.037}, -0.2588, 0.172, 76.83, 57.33},
                           {12, {2.236, 1.149, 0.062, 0.011, -1.044, -2.055}, -0.2590, 0.154, 76.94, 57.39},
                           {16, {2.217, 1.151, 0.082, -0.008, -1.051, -2.060}, -0.2585, 0.129, 77.18, 57.47}}) {
        SCOPED_TRACE("firings " + std::to_string(row.firings));
        const Measured disk("disk_iq", row.firings, "none");
        for (int i = 0; i < 6; ++i)
            EXPECT_NEAR(disk.region(beams[i], beams[i], 104, 122).summed_phase, row.phases[i], 6e-4) << "beam " << beams[i];

        double sums[5] = {}; // weight, x, phase, x x, x phase
        double spread = 0, power = 0, count = 0, outside = 0, count_outside = 0;
        for (std::int64_t line = 0; line < disk.maps.lines; ++line)
            for (std::int64_t sample = 0; sample < disk.maps.samples; ++sample) {
                const double x = (static_cast<double>(line) - 63.5) * 0.298;
                const double z = 10 + static_cast<double>(sample) * 0.111;
                const std::size_t pixel = disk.at(line, sample);
                if (std::hypot(x + 0.766, z - 22.54) > 9.5) {
                    outside += disk.maps.power[pixel];
                    ++count_outside;
                    continue;
                }
                const double phase = disk.phases[pixel];
                const double weight = std::hypot(disk.maps.real[pixel], disk.maps.imaginary[pixel]);
                const double terms[] = {1, x, phase, x * x, x * phase};
                for (int i = 0; i < 5; ++i)
                    sums[i] += weight * terms[i];
                spread += disk.maps.spread[pixel];
                power += disk.maps.power[pixel];
                ++count;
            }
        const double slope = (sums[0] * sums[4] - sums[1] * sums[2]) / (sums[0] * sums[3] - sums[1] * sums[1]);
        EXPECT_NEAR(slope, row.slope, 6e-5);
        EXPECT_NEAR(spread / count, row.spread, 6e-4);
        EXPECT_NEAR(power / count, row.power, 6e-3);
        EXPECT_NEAR(outside / count_outside, row.outside, 0.05);
    }
    const Measured disk("disk_iq", 12, "none");
    for (const Pixel& pixel : {Pixel{40, 110, 1.76335, 0.13448, 76.4251, -87264172, 447570108, 526851215},
                               {61, 100, 0.06068, 0.08392, 76.6269, 504670029, 30661366, 551919145},
                               {80, 120, -1.58838, 0.54044, 69.2530, -816562, -46425832, 101037937}})
        expect_pixel(disk, pixel, 1e-6);
}

} // namespace
