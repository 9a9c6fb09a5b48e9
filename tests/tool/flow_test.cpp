// Clutter filters, the flow estimator, and the built-in vessel.
#include "bad_input.h"
#include "flow_checks.h"
#include "phase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <random>
#include <set>
#include <string>

using namespace echo2image;
using Complex = std::complex<double>;

namespace {

constexpr double pi = 3.14159265358979323846;

std::vector<double> filtered(const std::vector<double>& matrix, const std::vector<double>& in)
{
    std::vector<double> out(in.size());
    for (std::size_t row = 0; row < in.size(); ++row)
        for (std::size_t column = 0; column < in.size(); ++column)
            out[row] += matrix[row * in.size() + column] * in[column];
    return out;
}

double largest_of(const std::vector<double>& values)
{
    double largest = 0;
    for (const double value : values)
        largest = std::max(largest, std::fabs(value));
    return largest;
}

TEST(ClutterFilters, TakeOutWhatTheyPromiseAndNoMore)
{
    for (const int firings : {8, 10, 12, 16, 33}) {
        SCOPED_TRACE("firings " + std::to_string(firings));
        const auto shape = [&](const std::function<double(int)>& of) {
            std::vector<double> values;
            for (int k = 0; k < firings; ++k)
                values.push_back(of(k));
            return values;
        };
        const auto power = [&](int degree) { return shape([=](int k) { return std::pow(k / 3.0 - 1, degree); }); };
        const auto cosine = [&](int term) { return shape([=](int k) { return std::cos(pi * term * (k + 0.5) / firings); }); };
        const auto left = [&](const char* filter, const std::vector<double>& in) {
            return largest_of(filtered(design(clutter_filter_of(filter), firings), in)) / largest_of(in);
        };
        EXPECT_EQ(left("none", power(1)), 1);
        EXPECT_LT(left("mean", power(0)), 1e-15);
        EXPECT_GT(left("mean", power(1)), 0.4);
        for (int degree = 0; degree <= 5; ++degree)
            EXPECT_LT(left("poly:5", power(degree)), 1e-13) << degree;
        EXPECT_GT(left("poly:5", power(6)), 1e-4);
        for (int term = 0; term < 4; ++term)
            EXPECT_LT(left("dct:4", cosine(term)), 1e-14) << term;
        EXPECT_NEAR(left("dct:4", cosine(4)), 1, 1e-14);
        EXPECT_LT(left("iir:0.1", power(0)), 1e-14) << "from the first firing on";
        EXPECT_GT(left("iir:0.1", power(1)), 0.02);
        // A projection changes nothing the second time.
        for (const char* filter : {"mean", "poly:2", "dct:3"}) {
            const std::vector<double> matrix = design(clutter_filter_of(filter), firings);
            std::vector<double> once = filtered(matrix, power(7));
            const std::vector<double> twice = filtered(matrix, once);
            for (std::size_t k = 0; k < once.size(); ++k)
                once[k] -= twice[k];
            EXPECT_LT(largest_of(once), 1e-12 * largest_of(twice)) << filter;
        }
    }
    // High orders stay exact: 39 of 40 dimensions are gone, the last is left.
    const std::vector<double> high = design(clutter_filter_of("poly:38"), 40);
    double trace = 0;
    double squares = 0;
    for (std::size_t row = 0; row < 40; ++row)
        trace += high[41 * row];
    for (const double weight : high)
        squares += weight * weight;
    EXPECT_NEAR(trace, 1, 1e-12);
    EXPECT_NEAR(squares, 1, 1e-12);
    // Once its start is over, the recursive filter is the Butterworth filter of its name.
    constexpr int many = 200;
    const std::vector<double> matrix = design(clutter_filter_of("iir:0.07"), many);
    const std::vector<double> last_row(matrix.end() - many, matrix.end());
    for (const double frequency : {0.01, 0.035, 0.07, 0.14, 0.3, 0.5}) {
        Complex response;
        for (std::size_t k = 1; k < many; ++k)
            response += last_row[k] * std::polar(1.0, 2 * pi * frequency * static_cast<double>(k));
        const double steep = std::pow(std::tan(pi * 0.07) / std::tan(pi * frequency), 4);
        EXPECT_NEAR(std::norm(response), 1 / (1 + steep), 1e-9) << frequency;
    }
    // The mean's response by hand: two firings keep half the difference.
    const std::vector<double> pair = design(clutter_filter_of("mean"), 2);
    for (const double phase : {0.0, 0.5, pi})
        EXPECT_NEAR(power_response(pair, 2, phase), (1 - std::cos(phase)) / 2, 1e-15);
}

TEST(ClutterFilters, AreNamed)
{
    for (const char* name : {"none", "mean", "poly:0", "poly:63", "iir:0.05", "iir:1e-05", "dct:1"})
        EXPECT_EQ(to_string(clutter_filter_of(name)), name);
    for (const char* wrong : {"", "Mean", "mean:1", "none:", "poly", "poly:", "poly:-1", "poly:64", "poly:1.5", "poly:1 ",
                              "dct:0", "iir", "iir:0", "iir:0.5", "iir:nan", "iir:-0.1", "fir:3"})
        EXPECT_THROW(clutter_filter_of(wrong), BadInput) << wrong;
    EXPECT_THROW(design(clutter_filter_of("poly:7"), 8), BadInput);
    EXPECT_THROW(design(clutter_filter_of("dct:8"), 8), BadInput);
    EXPECT_NO_THROW(design(clutter_filter_of("dct:7"), 8));
}

TEST(Phase, CoversTheCircle)
{
    std::vector<float> real;
    std::vector<float> imaginary;
    std::vector<double> truth;
    for (int i = 0; i <= 2000; ++i) {
        const double angle = pi * (i - 1000) / 1000;
        const double radius = std::pow(10.0, i % 7 - 2);
        real.push_back(static_cast<float>(radius * std::cos(angle)));
        imaginary.push_back(static_cast<float>(radius * std::sin(angle)));
        truth.push_back(std::atan2(double{imaginary.back()}, double{real.back()}));
    }
    const std::vector<float> exact = exact_phases(real, imaginary);
    const std::vector<float> fast = fast_phases(real, imaginary);
    double worst = 0;
    for (std::size_t i = 0; i < truth.size(); ++i) {
        ASSERT_NEAR(exact[i], truth[i], 3e-7) << i;
        worst = std::max(worst, std::fabs(fast[i] - truth[i]));
    }
    EXPECT_LT(worst, 0.0102);
    EXPECT_GT(worst, 0.009) << "no longer the kernel's polynomial?";

    const std::vector<float> zeros = {0, 0, -0.0F, 0, 0};
    for (const auto& of : {exact_phases, fast_phases})
        EXPECT_EQ(of(zeros, zeros), std::vector<float>(5)) << "silence does not move";

    std::vector<float> shifted = {-3, -1, 0, 1.5, 3};
    shift_baseline(shifted, 0.5);
    EXPECT_NEAR(shifted[0], 2 * pi - 3, 1e-6);
    EXPECT_EQ((std::vector<float>(shifted.begin() + 1, shifted.end())), (std::vector<float>{-1, 0, 1.5, 3}));
    shift_baseline(shifted, -1);
    for (const float phase : shifted)
        EXPECT_TRUE(phase >= static_cast<float>(-2 * pi) && phase < 0.001F) << phase;
}

// What the estimator should find, in double precision; `clutter` radians per firing are mixed away around the filter.
struct Reference
{
    double r0 = 0;
    Complex r1;
    Reference(const std::int16_t* iq, int firings, const std::vector<double>& matrix, double clutter = 0)
    {
        std::vector<Complex> z(static_cast<std::size_t>(firings));
        for (std::size_t row = 0; row < z.size(); ++row)
            for (std::size_t column = 0; column < z.size(); ++column)
                z[row] += matrix[row * z.size() + column] * Complex(iq[2 * column], iq[2 * column + 1]) *
                          std::polar(1.0, clutter * (static_cast<double>(row) - static_cast<double>(column)));
        for (std::size_t k = 0; k < z.size(); ++k) {
            r0 += std::norm(z[k]);
            if (k > 0)
                r1 += std::conj(z[k - 1]) * z[k];
        }
    }
};

TEST(FlowEstimator, FindsFilteredAutocorrelations)
{
    std::mt19937 generator(3);
    const auto random = [&](int range) { return static_cast<int>(generator() % static_cast<unsigned>(2 * range + 1)) - range; };
    for (int firings = 3; firings <= 17; ++firings)
        for (const char* filter : {"none", "mean", "poly:1", "iir:0.1", "dct:2"}) {
            SCOPED_TRACE(filter + (", firings " + std::to_string(firings)));
            const FlowEstimator estimator({clutter_filter_of(filter), false, 1, 1}, firings);
            EnsembleFrame frame{3, 5, firings, {}};
            for (int pixel = 0; pixel < 15; ++pixel) { // strong clutter, weak flow, noise
                const double turn = 0.4 * (pixel - 7);
                const int clutter = random(8000);
                for (int k = 0; k < firings; ++k) {
                    frame.iq.push_back(static_cast<std::int16_t>(clutter + std::lround(400 * std::cos(turn * k)) + random(30)));
                    frame.iq.push_back(
                        static_cast<std::int16_t>(-clutter / 2 + std::lround(400 * std::sin(turn * k)) + random(30)));
                }
            }
            std::fill_n(frame.iq.begin(), 2 * firings, std::int16_t{0}); // silence
            const FlowMaps maps = estimator.estimate(frame);
            EXPECT_EQ(maps.spread[0], 0);
            EXPECT_EQ(maps.power[0], 0);
            for (std::size_t pixel = 1; pixel < maps.r0.size(); ++pixel) {
                const std::int16_t* iq = frame.iq.data() + pixel * static_cast<std::size_t>(2 * firings);
                const Reference truth(iq, firings, estimator.matrix());
                const Reference raw(iq, firings, design({ClutterFilter::Kind::none, 0, 0}, firings));
                const double rounding = 2e-6 * std::sqrt(raw.r0 * truth.r0) + 1e-6 * truth.r0;
                ASSERT_NEAR(maps.tissue[pixel], raw.r0, 1e-6 * raw.r0) << pixel;
                ASSERT_NEAR(maps.r0[pixel], truth.r0, rounding) << pixel;
                ASSERT_NEAR(maps.real[pixel], truth.r1.real(), rounding) << pixel;
                ASSERT_NEAR(maps.imaginary[pixel], truth.r1.imag(), rounding) << pixel;
                ASSERT_NEAR(maps.spread[pixel], 1 - std::abs(truth.r1) / truth.r0, 2 * rounding / truth.r0) << pixel;
                ASSERT_NEAR(maps.power[pixel], 10 * std::log10(truth.r0 / firings + 1), 5 * rounding / truth.r0 + 3e-6)
                    << pixel;
            }
        }
    EXPECT_THROW(FlowEstimator({}, 2), BadInput);
    EXPECT_THROW(FlowEstimator({{}, false, 2, 1}, 8), BadInput);
    EXPECT_THROW(FlowEstimator({}, 8).estimate({1, 1, 10, std::vector<std::int16_t>(20)}), BadInput);
}

TEST(FlowEstimator, AveragesAutocorrelations)
{
    // A single tone in the middle of silence: its neighbourhood takes its phase and spread, and shares its power.
    constexpr int firings = 8;
    EnsembleFrame frame{5, 9, firings, std::vector<std::int16_t>(5 * 9 * 2 * firings)};
    for (int k = 0; k < firings; ++k) {
        frame.iq[static_cast<std::size_t>((2 * 9 + 4) * 2 * firings + 2 * k)] =
            static_cast<std::int16_t>(std::lround(3000 * std::cos(0.5 * k)));
        frame.iq[static_cast<std::size_t>((2 * 9 + 4) * 2 * firings + 2 * k + 1)] =
            static_cast<std::int16_t>(std::lround(3000 * std::sin(0.5 * k)));
    }
    const FlowMaps maps = FlowEstimator({{ClutterFilter::Kind::none, 0, 0}, false, 3, 5}, firings).estimate(frame);
    const std::vector<float> phases = exact_phases(maps.real, maps.imaginary);
    for (int line = 0; line < 5; ++line)
        for (int sample = 0; sample < 9; ++sample) {
            const auto pixel = static_cast<std::size_t>(9 * line + sample);
            const bool near = std::abs(line - 2) <= 1 && std::abs(sample - 4) <= 2;
            EXPECT_NEAR(maps.power[pixel], near ? 10 * std::log10(9e6 / 15 + 1) : 0, 0.01) << line << ", " << sample;
            EXPECT_NEAR(phases[pixel], near ? 0.5 : 0, 1e-3);
            EXPECT_NEAR(maps.spread[pixel], near ? 0.125 : 0, 1e-3);
        }
    // At the edge the mean is that of what is there.
    std::vector<float> values = {1, 2, 4, 8};
    box_mean(values, 1, 4, 3, 3);
    EXPECT_EQ(values, (std::vector<float>{1.5F, 7 / 3.0F, 14 / 3.0F, 6}));
}

TEST(FlowEstimator, BringsMovingClutterToRest)
{
    FlowScene scene;
    scene.vessel.wall_speed = 30e-3; // fast walls
    for (const int firings : {10, 16}) {
        const SyntheticFlow flow = synthesise_flow(5, firings, scene);
        const auto tissue_left = [&](bool mix) {
            const FlowMaps maps = FlowEstimator({clutter_filter_of("mean"), mix, 1, 1}, firings).estimate(flow.frame);
            double sum = 0;
            double count = 0;
            double lumen_phase = 0;
            for (std::size_t pixel = 0; pixel < maps.r0.size(); ++pixel)
                if (std::fabs(flow.radius[pixel]) > 1.2F && std::fabs(flow.radius[pixel]) < 2) {
                    sum += maps.r0[pixel];
                    ++count;
                } else if (std::fabs(flow.radius[pixel]) < 0.2F) {
                    lumen_phase += exact_phase(maps.real[pixel], maps.imaginary[pixel]) > 1 ? 1 : 0;
                }
            EXPECT_GT(lumen_phase, 2000) << "blood keeps its speed";
            return 10 * std::log10(sum / count);
        };
        EXPECT_LT(tissue_left(true), tissue_left(false) - 10) << "firings " << firings;
    }
    // Flow keeps its own phase, also next to clutter that was mixed to rest.
    for (const int firings : {8, 9, 10, 12}) {
        EnsembleFrame frame{1, 1, firings, {}};
        for (int k = 0; k < firings; ++k) {
            const Complex z = std::polar(8000.0, 0.2 * k) + std::polar(400.0, 1.2 * k);
            frame.iq.push_back(static_cast<std::int16_t>(std::lround(z.real())));
            frame.iq.push_back(static_cast<std::int16_t>(std::lround(z.imag())));
        }
        const FlowEstimator estimator({clutter_filter_of("mean"), true, 1, 1}, firings);
        const FlowMaps maps = estimator.estimate(frame);
        const Reference raw(frame.iq.data(), firings, design(clutter_filter_of("none"), firings));
        const Reference truth(frame.iq.data(), firings, estimator.matrix(), std::arg(raw.r1));
        // 12 firings and less use the kernel's approximate sine.
        EXPECT_NEAR(exact_phase(maps.real[0], maps.imaginary[0]), std::arg(truth.r1), 0.03) << "firings " << firings;
        EXPECT_NEAR(maps.r0[0], truth.r0, 0.05 * truth.r0) << "firings " << firings;
    }
}

// FNV-1a over the samples.
std::uint64_t digest_of(const std::vector<std::int16_t>& samples)
{
    std::uint64_t digest = 0xcbf29ce484222325;
    for (const std::int16_t sample : samples)
        digest = (digest ^ static_cast<std::uint16_t>(sample)) * 0x100000001b3;
    return digest;
}

TEST(SyntheticFlow, GivesTheSameSamplesOnEveryMachine)
{
    EXPECT_EQ(digest_of(synthesise_flow(1, 5).frame.iq), 0x2cab1ec89e332323u);
    // A longer ensemble begins with the shorter one; another seed is another phantom.
    const SyntheticFlow flow = synthesise_flow(9, 4);
    const SyntheticFlow longer = synthesise_flow(9, 7);
    const SyntheticFlow other = synthesise_flow(10, 4);
    std::size_t different = 0;
    for (std::size_t pixel = 0; pixel < flow.radius.size(); ++pixel)
        for (std::size_t k = 0; k < 8; ++k) {
            ASSERT_EQ(flow.frame.iq[8 * pixel + k], longer.frame.iq[14 * pixel + k]) << pixel;
            different += flow.frame.iq[8 * pixel + k] != other.frame.iq[8 * pixel + k] ? 1 : 0;
        }
    EXPECT_GT(different, 7 * flow.radius.size());
    EXPECT_LT(*std::max_element(flow.frame.iq.begin(), flow.frame.iq.end()), 32767) << "nothing is clipped";
    EXPECT_GT(*std::min_element(flow.frame.iq.begin(), flow.frame.iq.end()), -32768) << "nothing is clipped";
}

// The demo's chain.
struct Pipeline
{
    SyntheticFlow flow;
    ColourChain chain;
    FlowMaps maps;
    ColourImage picture;

    explicit Pipeline(std::uint32_t seed, int firings = 12)
        : flow(synthesise_flow(seed, firings)), chain(flow.description, wanted())
    {
        maps = chain.flow(flow.frame);
        chain.choose(maps);
        picture = chain.picture(maps, FlowQuantity::velocity);
    }
    std::vector<Check> checks() const { return check_flow(chain, maps, picture, flow); }
    std::set<std::string> wrong() const
    {
        std::set<std::string> names;
        for (const Check& check : checks())
            if (!check.ok)
                names.insert(check.quantity);
        return names;
    }
    static ColourParameters wanted()
    {
        ColourParameters parameters;
        parameters.flow.average_lines = 3;
        parameters.flow.average_samples = 5;
        return parameters;
    }
};

TEST(FlowChecks, PassWhateverTheSeedAndTheFirings)
{
    for (const std::uint32_t seed : {0u, 2u, 77u, 4000000000u}) {
        const std::vector<Check> checks = Pipeline(seed).checks();
        EXPECT_TRUE(all_ok(checks)) << "seed " << seed << "\n" << table_of(checks);
    }
    for (const int firings : {8, 10, 15}) {
        const std::vector<Check> checks = Pipeline(1, firings).checks();
        EXPECT_TRUE(all_ok(checks)) << "firings " << firings << "\n" << table_of(checks);
    }
}

TEST(FlowChecks, FindWhatIsWrong)
{
    const Pipeline right(1);
    const auto wrong_after = [&](const std::function<void(Pipeline&)>& change) {
        Pipeline changed = right;
        change(changed);
        return changed.wrong();
    };
    EXPECT_EQ(wrong_after([](Pipeline&) {}), std::set<std::string>());
    EXPECT_EQ(wrong_after([](Pipeline& p) {
                  for (float& imaginary : p.maps.imaginary)
                      imaginary = -imaginary;
              }).size(),
              10u)
        << "the other way round";
    EXPECT_EQ(wrong_after([](Pipeline& p) {
                  for (float& velocity : p.flow.velocity)
                      velocity *= 1.1F;
              }),
              (std::set<std::string>{"flow at -0.6 radii", "flow at -0.4 radii", "flow at -0.2 radii", "flow at +0.0 radii",
                                     "flow at +0.2 radii", "flow at +0.4 radii", "flow at +0.6 radii",
                                     "flow, rms error of a pixel"}));
    EXPECT_EQ(wrong_after([](Pipeline& p) { std::swap(p.picture.red, p.picture.blue); }),
              (std::set<std::string>{"picture: lumen in red"}));
    EXPECT_EQ(wrong_after([](Pipeline& p) { std::fill(p.picture.red.begin(), p.picture.red.end(), std::uint8_t{255}); }),
              (std::set<std::string>{"picture: tissue in colour"}));
    EXPECT_EQ(wrong_after([](Pipeline& p) { p.picture.green = p.picture.blue = p.picture.red; }),
              (std::set<std::string>{"picture: lumen in red"}));
}

} // namespace
