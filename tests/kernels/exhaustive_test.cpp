// Small domains in full, and floats by a prime step through all their bit patterns, against the plain loops.
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#define PLAIN_LIBRARY plain_exhaustive
#include "plain/plain.h"

namespace {

using Plain = plain_exhaustive;
using Bytes = std::vector<unsigned char>;

std::vector<float> floats_of_all_kinds()
{
    constexpr std::uint64_t step = 4093;
    std::vector<float> values;
    for (std::uint64_t bits = 1; bits < (std::uint64_t{1} << 32); bits += step) {
        const auto pattern = static_cast<std::uint32_t>(bits);
        float value = 0;
        std::memcpy(&value, &pattern, sizeof value);
        values.push_back(value);
    }
    return values;
}

// Converts all values in calls of `run` elements: of whole blocks to see the body, of fewer to see the tail.
template <class Out, class Convert>
std::vector<Out> in_runs(const std::vector<float>& values, std::size_t run, Convert convert)
{
    std::vector<Out> result(values.size());
    for (std::size_t i = 0; i < values.size(); i += run)
        convert(result.data() + i, values.data() + i, static_cast<int>(std::min(run, values.size() - i)));
    return result;
}

template <class Out, class Convert, class Meaning>
void expect_equal(const std::vector<float>& values, std::size_t run, Convert convert, Meaning meaning)
{
    const std::vector<Out> found = in_runs<Out>(values, run, convert);
    const std::vector<Out> expected = in_runs<Out>(values, run, meaning);
    for (std::size_t i = 0; i < values.size(); ++i)
        ASSERT_EQ(found[i], expected[i]) << "for " << values[i] << " in runs of " << run;
}

TEST(Exhaustive, FloatsToIntegers)
{
    const std::vector<float> values = floats_of_all_kinds();
    const std::vector<float> ones(4096, 1.0f);
    for (const std::size_t run : {4096u, 3u})
        expect_equal<int>(
            values, run, [&](int* dst, const float* src, int n) { CUtils_SSE::ApplyGain(src, ones.data(), dst, n); },
            [&](int* dst, const float* src, int n) { Plain::ApplyGain(src, ones.data(), dst, n); });
    Bytes low(65536);
    Bytes high(65536);
    for (std::size_t i = 0; i < 65536; ++i) {
        low[i] = static_cast<unsigned char>(i);
        high[i] = static_cast<unsigned char>(i >> 8);
    }
    for (const std::size_t run : {4096u, 15u}) {
        expect_equal<unsigned char>(
            values, run, [](unsigned char* dst, const float* src, int n) { CUtils_SSE::FloatToByte(dst, src, 1.0f, n); },
            [](unsigned char* dst, const float* src, int n) { Plain::FloatToByte(dst, src, 1.0f, n); });
        for (const Bytes* table : {&low, &high})
            expect_equal<unsigned char>(
                values, run,
                [&](unsigned char* dst, const float* src, int n) { CUtils_SSE::FloatToByte(dst, src, table->data(), n); },
                [&](unsigned char* dst, const float* src, int n) { Plain::FloatToByte(dst, src, table->data(), n); });
    }
}

TEST(Exhaustive, PhasesOfAllKindsOfFloats)
{
    std::vector<float> values = floats_of_all_kinds();
    values.resize(values.size() / 4 * 4);
    const auto expect_equal_bits = [](const float* found, const float* expected, float y, float x) {
        for (int i = 0; i < 4; ++i) {
            const bool both_nan = found[i] != found[i] && expected[i] != expected[i];
            ASSERT_TRUE(both_nan || std::memcmp(found + i, expected + i, sizeof(float)) == 0) << "among " << y << ", " << x;
        }
    };
    for (const float other : {1.0f, -1.0f, -0.0f})
        for (std::size_t i = 0; i < values.size(); i += 4) {
            float four[4] = {other, other, other, other};
            float* const some = values.data() + i;
            for (const bool vary_x : {false, true}) {
                float* const y = vary_x ? four : some;
                float* const x = vary_x ? some : four;
                float found[8];
                float expected[8];
                CUtils_SSE::ATan2Bound(4, y, x, 0.75f, found, found + 4);
                Plain::ATan2Bound(4, y, x, 0.75f, expected, expected + 4);
                expect_equal_bits(found, expected, *y, *x);
                expect_equal_bits(found + 4, expected + 4, *y, *x);
                if (HasFatalFailure())
                    return;
            }
        }
}

// The logarithm, where the kernel has its own and where it asks the C library: next to the middle between two floats its own
// would be rounded to the other one.
TEST(Exhaustive, PowersInDecibels)
{
    std::vector<float> values = floats_of_all_kinds();
    for (const double middle : {0x1.00e1bp+0, 0x1.01c7d4p+0, 0x1.01e376p+0, 0x1.021b42p+0, 0x1.161e44p+0})
        values.push_back(static_cast<float>(std::sqrt(2 * (middle - 1))));
    for (const float value : values)
        for (const int n : {2, 8}) {
            alignas(16) const float I[8] = {value};
            alignas(16) const float Q[8] = {};
            float found[4][4] = {};
            float expected[4][4] = {};
            CUtils_SSE::AutoCorrelateSSE(n, I, Q, found[0], found[1], found[2], found[3]);
            Plain::AutoCorrelateSSE(n, I, Q, expected[0], expected[1], expected[2], expected[3]);
            const bool both_nan = found[1][0] != found[1][0] && expected[1][0] != expected[1][0];
            ASSERT_TRUE(both_nan || found[1][0] == expected[1][0])
                << n << " firings of which one is " << value << ": " << found[1][0] << " dB, not " << expected[1][0];
        }
}

constexpr int kSamples = 65536;

// check(rf, table, entry) with every sample and 16-byte aligned tables of one entry.
template <class Check>
void for_samples_and_tables(Check check)
{
    std::vector<short> rf(kSamples);
    for (std::size_t i = 0; i < kSamples; ++i)
        rf[i] = static_cast<short>(static_cast<int>(i) - 32768);
    std::vector<short> room(kSamples + 8);
    short* const table = room.data() + (16 - reinterpret_cast<std::uintptr_t>(room.data()) % 16) % 16 / sizeof(short);
    for (const int entry : {-32768, -32767, -32766, -23170, -16384, -12345, -257, -256,  -255,  -3,    -2,    -1,    0,
                            1,      2,      3,      127,    255,    256,    8191, 16383, 16384, 23170, 31234, 32766, 32767}) {
        std::fill(table, table + kSamples, static_cast<short>(entry));
        check(rf.data(), table, entry);
    }
}

TEST(Exhaustive, SamplesTimesTables)
{
    std::vector<short> q15[4];
    std::vector<float> floats[4];
    for (int i = 0; i < 4; ++i) {
        q15[i].resize(kSamples);
        floats[i].resize(kSamples);
    }
    for_samples_and_tables([&](const short* rf, const short* table, int entry) {
        CUtils_SSE::DemodulateNew(rf, q15[0].data(), q15[1].data(), table, table, 1, kSamples);
        Plain::DemodulateNew(rf, q15[2].data(), q15[3].data(), table, table, 1, kSamples);
        EXPECT_EQ(q15[0], q15[2]) << entry;
        EXPECT_EQ(q15[1], q15[3]) << entry;
        CUtils_SSE::Demodulate(rf, table, table, floats[0].data(), floats[1].data(), kSamples);
        Plain::Demodulate(rf, table, table, floats[2].data(), floats[3].data(), kSamples);
        EXPECT_EQ(floats[0], floats[2]) << entry;
        EXPECT_EQ(floats[1], floats[3]) << entry;
        CUtils_SSE::DemodulateColor(rf, table, table, floats[0].data(), floats[1].data(), kSamples);
        Plain::DemodulateColor(rf, table, table, floats[2].data(), floats[3].data(), kSamples);
        EXPECT_EQ(floats[0], floats[2]) << entry;
        EXPECT_EQ(floats[1], floats[3]) << entry;
    });
}

// Of its own name: processors without SSE4.1 leave it out (scripts/check-old-processors.sh).
TEST(Exhaustive, DemodulateColorNewOfSamplesTimesTables)
{
    alignas(16) static int found[2][kSamples];
    std::vector<int> expected[2] = {std::vector<int>(kSamples), std::vector<int>(kSamples)};
    for_samples_and_tables([&](const short* rf, const short* table, int entry) {
        CUtils_SSE::DemodulateColorNew(rf, table, table, found[0], found[1], kSamples);
        Plain::DemodulateColorNew(rf, table, table, expected[0].data(), expected[1].data(), kSamples);
        for (int i = 0; i < 2; ++i)
            EXPECT_TRUE(std::equal(expected[i].begin(), expected[i].end(), found[i])) << "output " << i << ", table " << entry;
    });
}

TEST(Exhaustive, EveryGreyLevelAndFillComesBack)
{
    Bytes grey(256 + 5);
    for (std::size_t i = 0; i < grey.size(); ++i)
        grey[i] = static_cast<unsigned char>(i);
    const int n = static_cast<int>(grey.size());
    for (int fill = 0; fill < 256; ++fill) {
        Bytes packed(4 * grey.size());
        Bytes back(grey.size());
        CUtils_SSE::BWToColour(packed.data(), grey.data(), n, static_cast<unsigned char>(fill));
        for (std::size_t i = 0; i < grey.size(); ++i)
            ASSERT_EQ(packed[4 * i + 3], fill) << "pixel " << i;
        CUtils_SSE::ColourToBW(back.data(), packed.data(), n);
        ASSERT_EQ(back, grey);
        Bytes red(grey.size()), green(grey.size()), blue(grey.size()), again(packed.size());
        CUtils_SSE::ColourToRGB(red.data(), green.data(), blue.data(), packed.data(), n);
        CUtils_SSE::RGBToColour(again.data(), red.data(), green.data(), blue.data(), n, static_cast<unsigned char>(fill));
        ASSERT_EQ(again, packed);
    }
}

// Every triple of bytes through the filters of three frames, in one call for the body and in calls of 15 for the tail.
TEST(Exhaustive, TriplesOfBytesInTime)
{
    constexpr int n = 65536;
    Bytes f2(n), f3(n), found(n), expected(n);
    for (std::size_t i = 0; i < n; ++i) {
        f2[i] = static_cast<unsigned char>(i);
        f3[i] = static_cast<unsigned char>(i >> 8);
    }
    using Filter = void (*)(unsigned char*, const unsigned char*, const unsigned char*, const unsigned char*, int);
    const Filter filters[][2] = {{&CUtils_SSE::MedianFilter, &Plain::MedianFilter},
                                 {&CUtils_SSE::ExtremumFilter, &Plain::ExtremumFilter}};
    for (const auto& filter : filters)
        for (int first = 0; first < 256; ++first) {
            const Bytes f1(n, static_cast<unsigned char>(first));
            filter[0](found.data(), f1.data(), f2.data(), f3.data(), n);
            filter[1](expected.data(), f1.data(), f2.data(), f3.data(), n);
            ASSERT_EQ(found, expected) << "first frame " << first;
            for (int i = 0; i < n; i += 15) {
                const int run = std::min(15, n - i);
                filter[0](&found[static_cast<std::size_t>(i)], f1.data(), &f2[static_cast<std::size_t>(i)],
                          &f3[static_cast<std::size_t>(i)], run);
                filter[1](&expected[static_cast<std::size_t>(i)], f1.data(), &f2[static_cast<std::size_t>(i)],
                          &f3[static_cast<std::size_t>(i)], run);
            }
            ASSERT_EQ(found, expected) << "first frame " << first << ", tail";
        }
}

} // namespace
