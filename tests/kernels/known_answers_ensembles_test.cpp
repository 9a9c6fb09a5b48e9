// What utils_sse.h promises of colour Doppler ensembles, as numbers worked out by hand, and special values against the
// plain loops.
#include "guarded_buffer.h"
#include "test_data.h"
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#define PLAIN_LIBRARY plain_ensembles
#include "plain/plain.h"

namespace {

using Floats = std::vector<float>;
constexpr float infinity = std::numeric_limits<float>::infinity();
const float nan = std::numeric_limits<float>::quiet_NaN();
constexpr double pi = 3.14159265358979323846;

std::uint32_t bits(float x)
{
    std::uint32_t pattern = 0;
    std::memcpy(&pattern, &x, sizeof pattern);
    return std::isnan(x) ? 0x7fc00000u : pattern;
}
std::vector<std::uint32_t> bits(const Floats& x)
{
    std::vector<std::uint32_t> patterns;
    for (const float value : x)
        patterns.push_back(bits(value));
    return patterns;
}

// At a multiple of 16 bytes, as the usual lengths ask for.
struct alignas(16) Aligned
{
    float at[16] = {};
};
struct alignas(16) Matrix
{
    float at[13 * 13] = {};
};

struct Pixel
{
    Aligned I, Q;

    Pixel() = default;
    // z[k] = amplitude exp(j k theta), and `behind` in the places behind the ensemble.
    Pixel(int n, double amplitude, double theta, float behind = 0)
    {
        for (int k = 0; k < 16; ++k) {
            I.at[k] = k < n ? static_cast<float>(amplitude * std::cos(k * theta)) : behind;
            Q.at[k] = k < n ? static_cast<float>(amplitude * std::sin(k * theta)) : behind;
        }
    }
};

struct Estimate
{
    float spread[5], power[5], re[5], im[5]; // one more than is written at most
};

template <class Library = CUtils_SSE>
Estimate estimate(int n, const Pixel& pixel)
{
    Estimate e;
    for (float* output : {e.spread, e.power, e.re, e.im})
        std::fill_n(output, 5, 77.0f);
    Library::AutoCorrelateSSE(n, pixel.I.at, pixel.Q.at, e.spread, e.power, e.re, e.im);
    return e;
}

Floats all_of(const Estimate& e)
{
    Floats values;
    for (const float* output : {e.spread, e.power, e.re, e.im})
        values.insert(values.end(), output, output + 5);
    return values;
}

TEST(AutoCorrelation, OfTonesAndSilence)
{
    for (const int n : {2, 3, 7, 8, 9, 10, 11, 12, 13}) {
        SCOPED_TRACE(n);
        const bool usual = n == 8 || n == 10 || n == 12;
        const int written = usual ? 1 : 4;
        const Estimate tone = estimate(n, Pixel(n, 1, 0.4));
        for (int copy = 0; copy < written; ++copy) {
            EXPECT_NEAR(tone.re[copy], (n - 1) * std::cos(0.4), 2e-6);
            EXPECT_NEAR(tone.im[copy], (n - 1) * std::sin(0.4), 2e-6); // counter-clockwise is positive
            EXPECT_NEAR(tone.spread[copy], usual ? 1.0 / n : 0.0, 5e-7);
            EXPECT_NEAR(tone.power[copy], 3.0103, 5e-6);
        }
        const Estimate silent = estimate(n, Pixel(n, 0, 0));
        for (const float* output : {silent.spread, silent.power, silent.re, silent.im})
            EXPECT_EQ(bits(Floats(output, output + 5)), bits(usual ? Floats{0, 77, 77, 77, 77} : Floats{0, 0, 0, 0, 77}));
        EXPECT_EQ(tone.spread[written], 77);
    }
}

TEST(AutoCorrelation, MeanPowerIsScaledByTheStatedConstants)
{
    const auto power = [](float r0, float factor) {
        const float argument = r0 * factor + 1.0f;
        return static_cast<float>(std::log10(static_cast<double>(argument))) * 10.0f;
    };
    int twelfths = 0;
    int tenths = 0;
    for (float first = 1; first < 400; ++first) {
        Pixel pixel;
        pixel.I.at[0] = first; // alone: R0 = first^2 exactly
        const float r0 = first * first;
        EXPECT_EQ(bits(*estimate(8, pixel).power), bits(power(r0, 0x1p-3f)));
        EXPECT_EQ(bits(*estimate(10, pixel).power), bits(power(r0, 0x1.99999ap-4f)));
        EXPECT_EQ(bits(*estimate(12, pixel).power), bits(power(r0, 0x1.55554cp-4f)));
        EXPECT_EQ(bits(*estimate(9, pixel).power), bits(power(r0 / 9.0f, 1.0f)));
        twelfths += bits(power(r0, 0x1.55554cp-4f)) != bits(power(r0, 0x1.555556p-4f));
        tenths += bits(power(r0, 0x1.99999ap-4f)) != bits(power(r0 / 10.0f, 1.0f));
    }
    EXPECT_GT(twelfths, 100); // so the lines above tell the constants apart
    EXPECT_GT(tenths, 0);
}

TEST(AutoCorrelation, OtherLengthsAreAKindOfTheirOwn)
{
    // Only the last sample has power: it is in the power, not in what the spread is relative to.
    Pixel last;
    last.I.at[8] = 3;
    EXPECT_EQ(estimate(9, last).spread[3], 0.0f);
    EXPECT_EQ(estimate(9, last).power[0], 0.30103001f * 10.0f); // log10(9 / 9 + 1), rounded before the product
    Pixel seven;
    seven.I.at[7] = 3;
    EXPECT_EQ(estimate(8, seven).spread[0], 1.0f);

    // No sample is read below two.
    for (const int n : {1, 0, -1, -8, INT_MIN}) {
        Estimate e;
        CUtils_SSE::AutoCorrelateSSE(n, nullptr, nullptr, e.spread, e.power, e.re, e.im);
        for (int copy = 0; copy < 4; ++copy) {
            EXPECT_EQ(bits(e.spread[copy]) | bits(e.re[copy]) | bits(e.im[copy]), 0u) << n;
            EXPECT_EQ(bits(e.power[copy]), n == 0 ? bits(nan) : 0u) << n;
        }
    }

    // Any subset of outputs may be null; each of the others is four floats in front of an inaccessible page.
    const Pixel pixel(9, 100, 1.1);
    const Estimate expected = estimate(9, pixel);
    for (unsigned present = 0; present < 16; ++present) {
        GuardedBuffer buffers[4];
        float* outputs[4] = {};
        for (unsigned i = 0; i < 4; ++i)
            if (present >> i & 1) {
                buffers[i].place(16, 4, GuardedBuffer::Against::end, 0, 0xa5);
                outputs[i] = reinterpret_cast<float*>(buffers[i].data());
            }
        CUtils_SSE::AutoCorrelateSSE(9, pixel.I.at, pixel.Q.at, outputs[0], outputs[1], outputs[2], outputs[3]);
        const float* wanted[] = {expected.spread, expected.power, expected.re, expected.im};
        for (unsigned i = 0; i < 4; ++i)
            if (outputs[i]) {
                EXPECT_EQ(Floats(outputs[i], outputs[i] + 4), Floats(wanted[i], wanted[i] + 4)) << present;
                EXPECT_FALSE(buffers[i].stray_write());
            }
    }
}

TEST(AutoCorrelation, LanesBeginWithTheirFirstTerm)
{
    // Zeros whose signs make every term of re, and then of im, -0: one +0 among them would make the sum +0.
    for (const int n : {8, 12, 16}) {
        Pixel re, im;
        for (int k = 0; k < n; ++k) {
            re.I.at[k] = re.Q.at[k] = k % 2 ? -0.0f : 0.0f;
            im.I.at[k] = k % 4 >= 2 ? -0.0f : 0.0f;
            im.Q.at[k] = k % 4 == 1 || k % 4 == 2 ? -0.0f : 0.0f;
        }
        EXPECT_EQ(std::signbit(estimate(n, re).re[0]), n != 16) << n; // other lengths begin with +0
        EXPECT_EQ(std::signbit(estimate(n, im).im[0]), n != 16) << n;
    }
}

TEST(AutoCorrelation, OutputsOfOneAddressKeepTheLast)
{
    // A host that wants the spread alone may let all results go to one place.
    const Pixel pixel(8, 10, 0.3);
    float only = 0;
    CUtils_SSE::AutoCorrelateSSE(8, pixel.I.at, pixel.Q.at, &only, &only, &only, &only);
    EXPECT_EQ(only, estimate(8, pixel).spread[0]);
}

TEST(Ensembles, SpecialValuesEqualThePlainLoops)
{
    const float special[] = {0.0f, -0.0f, 1.0f, -1.0f, 3e-23f, 1e-45f, 2e19f, -3e38f, infinity, -infinity, nan};
    Random random(7);
    for (int n : {0, 1, 2, 5, 8, 9, 10, 11, 12, 13})
        for (int round = 0; round < 3000; ++round) {
            const std::size_t kinds = round % 3 == 0 ? 2 : round % 3 == 1 ? 8 : 11; // zeros; finite; all
            Pixel pixel;
            Matrix matrix;
            float* const m = matrix.at;
            const auto any = [&] { return special[below(random, kinds)]; };
            for (int k = 0; k < 16; ++k) {
                pixel.I.at[k] = any();
                pixel.Q.at[k] = any();
            }
            for (int k = 0; k < n * n; ++k)
                m[k] = below(random, 2) ? any() : 1.0f;
            ASSERT_EQ(bits(all_of(estimate(n, pixel))), bits(all_of(estimate<plain_ensembles>(n, pixel)))) << n;

            Aligned found[2], expected[2];
            CUtils_SSE::IIRPerformMatrix(n, pixel.I.at, pixel.Q.at, found[0].at, found[1].at, m);
            plain_ensembles::IIRPerformMatrix(n, pixel.I.at, pixel.Q.at, expected[0].at, expected[1].at, m);
            for (int i = 0; i < 2; ++i)
                ASSERT_EQ(bits(Floats(found[i].at, found[i].at + 16)), bits(Floats(expected[i].at, expected[i].at + 16))) << n;
            if (n == 8 || n == 10 || n == 12) { // outputs crosswise in the place of the inputs
                Pixel same = pixel;
                CUtils_SSE::IIRPerformMatrix(n, same.I.at, same.Q.at, same.Q.at, same.I.at, m);
                ASSERT_EQ(bits(Floats(same.Q.at, same.Q.at + n)), bits(Floats(expected[0].at, expected[0].at + n))) << n;
                ASSERT_EQ(bits(Floats(same.I.at, same.I.at + n)), bits(Floats(expected[1].at, expected[1].at + n))) << n;
            }
        }
}

TEST(ClutterFilter, TenFirings)
{
    Matrix matrix;
    float* const m = matrix.at;
    for (int r = 0; r < 10; ++r)
        for (int c = 0; c < 10; ++c)
            m[10 * r + c] = r % 2 ? nan : r == c ? 1.0f : 0.0f; // odd rows are not read
    const Pixel pixel(10, 100, 0.7, nan);                       // nor do elements 10 and 11 matter
    Aligned I, Q;
    CUtils_SSE::IIRPerformMatrix(10, const_cast<float*>(pixel.I.at), const_cast<float*>(pixel.Q.at), I.at, Q.at, m);
    for (int k = 0; k < 10; ++k) {
        EXPECT_EQ(I.at[k], pixel.I.at[k / 2 * 2]);
        EXPECT_EQ(Q.at[k], pixel.Q.at[k / 2 * 2]);
    }
    EXPECT_EQ(I.at[10], 0);
    EXPECT_EQ(Q.at[10], 0);
    const Pixel zeros_behind(10, 100, 0.7);
    EXPECT_EQ(all_of(estimate(10, pixel)), all_of(estimate(10, zeros_behind)));

    // Both ways to the full product that the documentation names.
    Random random(3);
    Matrix full, moved, embedded;
    Pixel x;
    for (int k = 0; k < 10; ++k) {
        x.I.at[k] = static_cast<float>(below(random, 1000)) / 7.0f;
        x.Q.at[k] = static_cast<float>(below(random, 1000)) / 7.0f;
        for (int c = 0; c < 10; ++c)
            full.at[10 * k + c] = embedded.at[12 * k + c] = static_cast<float>(below(random, 1000)) / 7.0f;
    }
    std::copy_n(full.at + 10, 90, moved.at);
    Aligned even[2], odd[2], whole[2];
    CUtils_SSE::IIRPerformMatrix(10, x.I.at, x.Q.at, even[0].at, even[1].at, full.at);
    CUtils_SSE::IIRPerformMatrix(10, x.I.at, x.Q.at, odd[0].at, odd[1].at, moved.at);
    CUtils_SSE::IIRPerformMatrix(12, x.I.at, x.Q.at, whole[0].at, whole[1].at, embedded.at);
    for (int i = 0; i < 2; ++i)
        for (int r = 0; r < 10; ++r)
            EXPECT_EQ((r % 2 ? odd : even)[i].at[r], whole[i].at[r]) << r;
}

TEST(ClutterFilter, RowsMakeOutputs)
{
    for (const int n : {1, 5, 8, 12}) {
        Matrix matrix;
        for (int r = 0; r < n; ++r)
            matrix.at[r * n + (r + 1) % n] = 2; // output r is twice input r + 1
        Pixel pixel(n, 50, 0.9);
        Aligned I, Q;
        CUtils_SSE::IIRPerformMatrix(n, pixel.I.at, pixel.Q.at, I.at, Q.at, matrix.at);
        for (int r = 0; r < n; ++r) {
            EXPECT_EQ(I.at[r], 2 * pixel.I.at[(r + 1) % n]) << n;
            EXPECT_EQ(Q.at[r], 2 * pixel.Q.at[(r + 1) % n]) << n;
        }
    }
}

TEST(ClutterMixing, TurnsByTheta)
{
    for (const int n : {5, 8, 9, 10, 12}) {
        SCOPED_TRACE(n);
        const bool usual = n == 8 || n == 10 || n == 12;
        for (const double theta : {0.3, -0.3, pi / 2, -pi / 2, 3.0, -3.0, 5.5}) {
            Pixel pixel(n, 1, 0.7, 9.0f);
            const Pixel turned(n, 1, 0.7 + theta);
            CUtils_SSE::MixingClutter(n, pixel.I.at, pixel.Q.at, static_cast<float>(theta));
            for (int k = 0; k < n; ++k) {
                EXPECT_NEAR(pixel.I.at[k], turned.I.at[k], usual ? 0.0016 : 2e-6) << k << " " << theta;
                EXPECT_NEAR(pixel.Q.at[k], turned.Q.at[k], usual ? 0.0016 : 2e-6) << k << " " << theta;
            }
            EXPECT_EQ(pixel.I.at[n], 9); // elements 10 and 11 among others
            EXPECT_EQ(pixel.Q.at[n + 1], 9);
        }
        Pixel still(n, 1024, 0);
        CUtils_SSE::MixingClutter(n, still.I.at, still.Q.at, 0);
        for (int k = 0; k < n; ++k) {
            EXPECT_EQ(still.I.at[k], usual ? 1024 * 0.99999988f : 1024) << k; // c is one step below 1
            EXPECT_EQ(still.Q.at[k], 0) << k;
        }
    }
    CUtils_SSE::MixingClutter(0, nullptr, nullptr, 1);
    CUtils_SSE::MixingClutter(INT_MIN, nullptr, nullptr, 1);
    CUtils_SSE::IIRPerformMatrix(-1, nullptr, nullptr, nullptr, nullptr, nullptr);
}

TEST(ClutterMixing, PhasesAtTheEdgesAndOfAllKinds)
{
    // Around every multiple of pi that a phase step brings the firings to, through all floats by a prime step, and beyond.
    Floats thetas = {0.0f, -0.0f, infinity, -infinity, nan, 1.3e10f, -1.3e10f, 3e38f, 1e-45f, -1e-45f};
    for (int half_turns = 1; half_turns <= 24; ++half_turns)
        for (int k = 1; k < 12; ++k) {
            auto step = static_cast<float>(half_turns * 3.14159274 / k);
            for (int i = 0; i < 3; ++i)
                step = std::nextafter(step, 0.0f);
            for (int i = 0; i < 6; ++i, step = std::nextafter(step, infinity)) {
                thetas.push_back(step);
                thetas.push_back(-step);
            }
        }
    for (std::uint64_t pattern = 1; pattern < std::uint64_t{1} << 32; pattern += 100003) {
        const auto word = static_cast<std::uint32_t>(pattern);
        float theta = 0;
        std::memcpy(&theta, &word, sizeof theta);
        thetas.push_back(theta);
    }
    for (const float theta : thetas)
        for (const int n : {8, 9, 10, 12}) {
            Pixel found;
            for (int k = 0; k < 16; ++k)
                found.I.at[k] = 1; // shows cosine and sine themselves
            Pixel expected = found;
            CUtils_SSE::MixingClutter(n, found.I.at, found.Q.at, theta);
            plain_ensembles::MixingClutter(n, expected.I.at, expected.Q.at, theta);
            ASSERT_EQ(bits(Floats(found.I.at, found.I.at + 16)), bits(Floats(expected.I.at, expected.I.at + 16))) << theta;
            ASSERT_EQ(bits(Floats(found.Q.at, found.Q.at + 16)), bits(Floats(expected.Q.at, expected.Q.at + 16))) << theta;
            if (n != 9) {
                ASSERT_EQ(found.I.at[0], 0.99999988f) << theta; // phase 0, also of an infinite step
                ASSERT_EQ(found.Q.at[0], 0.0f) << theta;
            }
        }
}

TEST(ClutterMixing, ParabolasHaveTheStatedConstants)
{
    // x = 1 for firing 1: every constant moves the last bits of one of these.
    Pixel pixel;
    pixel.I.at[1] = pixel.I.at[2] = pixel.I.at[4] = 1;
    CUtils_SSE::MixingClutter(8, pixel.I.at, pixel.Q.at, 1.0f);
    EXPECT_NEAR(pixel.Q.at[1], std::sin(1.0), 0.0011);
    const auto sine = [](float x) { // with the bit patterns of the documentation
        const float y = 0x1.45f306p+0f * x + -0x1.9f02f6p-2f * x * std::fabs(x);
        const float correction = y * std::fabs(y) - y;
        return y + 0x1.ccccccp-3f * correction;
    };
    EXPECT_EQ(bits(pixel.Q.at[1]), bits(sine(1.0f)));
    EXPECT_EQ(bits(pixel.Q.at[2]), bits(sine(2.0f)));
    EXPECT_EQ(bits(pixel.I.at[1]), bits(sine(1.0f + 0x1.921fb6p+0f)));
    EXPECT_EQ(bits(pixel.I.at[2]), bits(sine(2.0f + 0x1.921fb6p+0f - 0x1.921fb6p+2f)));
    EXPECT_EQ(bits(pixel.Q.at[4]), bits(sine(4.0f - 0x1.921fb6p+2f)));
}

} // namespace
