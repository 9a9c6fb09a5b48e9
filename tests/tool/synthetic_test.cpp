// The portable functions, the built-in scanner, and the demo's checks against its truth.
#include "chain.h"
#include "demo_checks.h"
#include "portable_math.h"
#include "synthetic.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <string>

using namespace echo2image;

namespace {

double relative_error(double value, double reference)
{
    return reference == 0 ? std::fabs(value) : std::fabs(value - reference) / std::fabs(reference);
}

TEST(PortableMath, AgreesWithTheCLibrary)
{
    std::mt19937_64 generator(5);
    const auto uniform = [&](double low, double high) {
        return low + (high - low) * static_cast<double>(generator() >> 11) * 0x1p-53;
    };
    double worst = 0;
    for (int i = 0; i < 50000; ++i) {
        const double reach = i % 2 == 0 ? 10 : 1e6;
        const double angle = uniform(-reach, reach);
        const double x = uniform(-1, 1) * std::exp(uniform(-40, 40));
        const double y = uniform(-1, 1);
        const double exponent = uniform(-700, 700);
        const double positive = i % 2 == 0 ? uniform(0.5, 2) : std::exp(exponent);
        worst = std::max({worst, std::fabs(portable::sin(angle) - std::sin(angle)),
                          std::fabs(portable::cos(angle) - std::cos(angle)),
                          relative_error(portable::atan2(y, x), std::atan2(y, x)),
                          relative_error(portable::exp(exponent), std::exp(exponent)),
                          relative_error(portable::log(positive), std::log(positive)),
                          relative_error(portable::pow10(exponent / 2.4), std::pow(10.0, exponent / 2.4))});
    }
    EXPECT_LT(worst, 4e-15);
}

TEST(PortableMath, IsExactWhereItShouldBe)
{
    const double inf = std::numeric_limits<double>::infinity();
    for (const double x : {-inf, -1.0, -0.0, 0.0, 1.0, inf})
        for (const double y : {-inf, -1.0, -0.0, 0.0, 1.0, inf}) {
            const double angle = portable::atan2(y, x);
            EXPECT_EQ(angle, std::atan2(y, x)) << y << ", " << x;
            EXPECT_EQ(std::signbit(angle), std::signbit(y)) << y << ", " << x;
        }
    for (const double x : {-inf, -800.0, 0.0, 800.0, inf})
        EXPECT_EQ(portable::exp(x), std::exp(x)) << x;
    for (const double x : {0.0, 1.0, inf})
        EXPECT_EQ(portable::log(x), std::log(x)) << x;
    double power = 1;
    for (int i = 0; i <= 22; ++i, power *= 10) {
        EXPECT_EQ(portable::pow10(i), power);
        EXPECT_EQ(portable::pow10(-i), 1 / power);
    }
    EXPECT_EQ(portable::pow10(400), inf);
    EXPECT_EQ(portable::pow10(-400), 0);
    EXPECT_TRUE(std::isnan(portable::sin(inf)) && std::isnan(portable::cos(inf)) && std::isnan(portable::log(-1)));
    EXPECT_TRUE(std::signbit(portable::sin(-0.0)));
    EXPECT_EQ(portable::cos(0), 1);
}

// FNV-1a over the samples.
std::uint64_t digest_of(const std::vector<std::int16_t>& samples)
{
    std::uint64_t digest = 0xcbf29ce484222325;
    for (const std::int16_t sample : samples)
        digest = (digest ^ static_cast<std::uint16_t>(sample)) * 0x100000001b3;
    return digest;
}

TEST(Synthetic, GivesTheSameSamplesOnEveryMachine)
{
    EXPECT_EQ(digest_of(synthesise(1).rf), 0x1c9ce9887cc3037bu);
    EXPECT_EQ(digest_of(synthesise(4294967295).rf), 0xc78a6e49523c4e31u);
    EXPECT_EQ(digest_of(synthesise_pairs(1).frame.rf), 0xc6dfb3e2df1730afu);
}

TEST(Synthetic, UsesTheRangeWithoutClipping)
{
    for (std::uint32_t seed = 0; seed < 4; ++seed) {
        const SyntheticFrame frame = synthesise(seed);
        ASSERT_EQ(frame.rf.size(), static_cast<std::size_t>(frame.description.lines * frame.description.samples));
        const auto [least, greatest] = std::minmax_element(frame.rf.begin(), frame.rf.end());
        EXPECT_GT(*greatest, 20000) << "seed " << seed;
        EXPECT_LT(*greatest, 32767) << "seed " << seed;
        EXPECT_LT(*least, -10000) << "seed " << seed;
        EXPECT_GT(*least, -32768) << "seed " << seed;
    }
}

// The demo's chain, with a hand on every stage.
struct Pipeline
{
    SyntheticFrame frame;
    EnvelopeFrame envelope;
    GreyImage image;
    ScanConverter converter;
    static constexpr double dynamic_range = 60;

    explicit Pipeline(SyntheticFrame synthetic)
        : frame(std::move(synthetic)), envelope(EnvelopeDetector(frame.description, {}).detect(frame.rf)),
          converter(frame.description.geometry, envelope.lines, envelope.samples, envelope.sample_spacing,
                    envelope.first_sample_offset, 0)
    {
        const float reference = *std::max_element(envelope.values.begin(), envelope.values.end());
        image = converter.convert(compress(envelope, reference, dynamic_range));
    }
    std::vector<Check> checks() const
    {
        std::vector<Check> all = check_envelope(envelope, frame);
        const std::vector<Check> more = check_picture(image, converter, dynamic_range, frame);
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
};

std::set<std::string> wrong_in(const std::vector<Check>& checks)
{
    std::set<std::string> wrong;
    for (const Check& check : checks)
        if (!check.ok)
            wrong.insert(check.quantity);
    return wrong;
}

TEST(DemoChecks, PassWhateverTheSeed)
{
    for (const std::uint32_t seed : {0u, 1u, 2u, 3u, 77u, 4000000000u}) {
        const std::vector<Check> checks = Pipeline(synthesise(seed)).checks();
        EXPECT_TRUE(all_ok(checks)) << "seed " << seed << "\n" << table_of(checks);
    }
}

TEST(DemoChecks, FindFalseTruths)
{
    using Names = std::set<std::string>;
    const Pipeline chain(synthesise(1));
    struct Case
    {
        std::string what;
        std::function<void(SyntheticFrame&)> falsify;
        Names wrong;
    };
    const Case cases[] = {
        {"wire 1 mm aside", [](SyntheticFrame& f) { f.truth.wires[2].lateral += 1e-3; },
         Names{"wire 3, depth", "wire 3, lateral", "picture: farthest wire"}},
        {"wire 0.08 mm deeper", [](SyntheticFrame& f) { f.truth.wires[8].depth += 8e-5; }, Names{"wire 9, depth"}},
        {"wire 0.08 mm aside", [](SyntheticFrame& f) { f.truth.wires[12].lateral -= 8e-5; }, Names{"wire 13, lateral"}},
        {"cyst darker by 3 dB", [](SyntheticFrame& f) { f.truth.cysts[1].contrast_db -= 3; },
         Names{"hypoechoic cyst, 7 mm", "picture: hypoechoic cyst, 7 mm"}},
        {"cyst brighter by 5 dB", [](SyntheticFrame& f) { f.truth.cysts[3].contrast_db += 5; },
         Names{"hyperechoic cyst, 5 mm", "picture: hyperechoic cyst, 5 mm"}},
        {"fluid 2 mm deeper", [](SyntheticFrame& f) { f.truth.cysts[4].depth += 2e-3; },
         Names{"fluid cyst, 5 mm", "picture: fluid cyst, 5 mm"}},
        {"wider beam", [](SyntheticFrame& f) { f.speckle_size.lateral *= 1.25; }, Names{"speckle, lateral size"}},
    };
    for (const Case& c : cases) {
        Pipeline falsified = chain;
        c.falsify(falsified.frame);
        EXPECT_EQ(wrong_in(falsified.checks()), c.wrong) << c.what << "\n" << table_of(falsified.checks());
    }
}

TEST(DemoChecks, FindFaultsOfTheChain)
{
    // Noise has the statistics of speckle, but nothing else of it.
    SyntheticFrame noise = synthesise(1);
    std::mt19937 generator(1);
    for (std::int16_t& sample : noise.rf)
        sample = static_cast<std::int16_t>(static_cast<int>(generator() % 4096) - 2048);
    const std::vector<Check> checks = Pipeline(noise).checks();
    EXPECT_EQ(std::count_if(checks.begin(), checks.end(), [](const Check& check) { return check.ok; }), 1) << table_of(checks);

    // A tone has no speckle at all.
    SyntheticFrame tone = synthesise(1);
    const std::int16_t period[] = {0, 700, 1000, 700, 0, -700, -1000, -700};
    for (std::size_t i = 0; i < tone.rf.size(); ++i)
        tone.rf[i] = period[i % 8];
    EXPECT_TRUE(wrong_in(Pipeline(tone).checks()).count("speckle, mean / deviation"));

    const Pipeline chain(synthesise(1));
    Pipeline late = chain;
    late.envelope.first_sample_offset += 3 * late.frame.description.sample_spacing;
    EXPECT_EQ(wrong_in(check_envelope(late.envelope, late.frame)).count("wire 1, depth"), 1u);

    Pipeline mirrored = chain;
    for (int row = 0; row < mirrored.image.height; ++row) {
        const auto begin = mirrored.image.pixels.begin() + row * mirrored.image.width;
        std::reverse(begin, begin + mirrored.image.width);
    }
    EXPECT_GE(wrong_in(mirrored.checks()).size(), 3u) << table_of(mirrored.checks());

    // A grey surface shows nothing, wherever it is looked at.
    std::fill(mirrored.image.pixels.begin(), mirrored.image.pixels.end(), std::uint8_t{100});
    const std::vector<Check> flat = check_picture(mirrored.image, mirrored.converter, Pipeline::dynamic_range, chain.frame);
    EXPECT_EQ(wrong_in(flat).size(), flat.size()) << table_of(flat);
}

struct HarmonicPipeline
{
    PulseInversionFrame pairs;
    EnvelopeFrame envelope;

    explicit HarmonicPipeline(PulseInversionFrame synthetic) : pairs(std::move(synthetic)), envelope(harmonic(pairs.frame)) {}
    static EnvelopeFrame harmonic(const SyntheticFrame& frame)
    {
        ChainParameters wanted;
        wanted.rf.pulse_inversion = PulseInversion::sum;
        return Chain(frame.description, wanted).envelope(frame.rf);
    }
    std::set<std::string> wrong() const { return wrong_in(check_harmonic(envelope, pairs)); }
};

TEST(HarmonicChecks, PassWhateverTheSeed)
{
    for (const std::uint32_t seed : {0u, 1u, 77u, 4000000000u}) {
        const HarmonicPipeline harmonic(synthesise_pairs(seed));
        EXPECT_EQ(harmonic.wrong(), std::set<std::string>()) << "seed " << seed;
    }
}

TEST(HarmonicChecks, FindFaultsOfPairsAndMarks)
{
    using Names = std::set<std::string>;
    const PulseInversionFrame pairs = synthesise_pairs(1);
    const std::int64_t samples = pairs.frame.description.samples;

    // The second firing comes a tenth of a period late, or a little weaker than is known.
    PulseInversionFrame faulty = pairs;
    for (std::int64_t line = 0; line < pairs.frame.description.lines; ++line) {
        const auto length = static_cast<std::ptrdiff_t>(samples);
        const auto second = faulty.frame.rf.begin() + static_cast<std::ptrdiff_t>(2 * line + 1) * length;
        std::rotate(second, second + length - 1, second + length);
    }
    EXPECT_EQ(HarmonicPipeline(faulty).wrong().count("sum: fundamental"), 1u);
    faulty = pairs;
    faulty.fundamental_left = 0.021;
    EXPECT_EQ(HarmonicPipeline(faulty).wrong(), Names{"sum: fundamental"});

    // Without tissue's harmonic there is only what the weaker firing leaves.
    faulty = pairs;
    for (std::int64_t line = 0; line < pairs.frame.description.lines; ++line)
        for (std::int64_t i = 0; i < samples; ++i) {
            std::int16_t& first = faulty.frame.rf[static_cast<std::size_t>(2 * line * samples + i)];
            std::int16_t& second = faulty.frame.rf[static_cast<std::size_t>((2 * line + 1) * samples + i)];
            const int linear = (first - second) / 2;
            first = static_cast<std::int16_t>(linear);
            second = static_cast<std::int16_t>(-linear + linear / 50);
        }
    EXPECT_EQ(HarmonicPipeline(faulty).wrong().count("sum: second harmonic"), 1u);

    const HarmonicPipeline harmonic(pairs);
    HarmonicPipeline wrong = harmonic;
    wrong.pairs.sheet_depth += 2e-4;
    EXPECT_EQ(wrong.wrong(), (Names{"clipped: first mark", "clipped: last mark"}));
    wrong = harmonic;
    wrong.envelope.clipped.back() = 255;
    EXPECT_EQ(wrong.wrong(), Names{"clipped: last mark"});
    wrong.envelope.clipped.assign(wrong.envelope.clipped.size(), 0);
    EXPECT_EQ(wrong.wrong(), (Names{"clipped: lines", "clipped: first mark", "clipped: last mark"}));
    wrong = harmonic;
    wrong.pairs.frame.speckle_size.lateral *= 1.4142;
    EXPECT_EQ(wrong.wrong(), Names{"harmonic speckle, lateral"});
}

} // namespace
