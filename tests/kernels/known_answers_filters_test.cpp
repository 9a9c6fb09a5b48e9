// What utils_sse.h promises of the mask and frame averages and the small filters, as numbers worked out by hand.
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using Factors = std::vector<unsigned short>;

// Frames of one value each, and the list of pointers to them.
template <class T>
struct FlatFrames
{
    FlatFrames(std::size_t n, const std::vector<T>& values)
    {
        for (const T value : values)
            frames.emplace_back(n, value);
        for (const std::vector<T>& frame : frames)
            list.push_back(frame.data());
    }
    std::vector<std::vector<T>> frames;
    std::vector<const T*> list;
};

// Calls with one block and a tail of 7 pixels and with two blocks and a tail of 15; every pixel is the same.
template <class Call>
void expect_body_and_tail(const std::string& what, int body, int tail, const Call& call)
{
    for (const std::size_t n : {23u, 47u}) {
        Bytes dst(n + 1, 77);
        call(dst.data(), n, static_cast<int>(n));
        for (std::size_t i = 0; i < n; ++i)
            ASSERT_EQ(dst[i], i < n / 16 * 16 ? body : tail) << what << ", pixel " << i << " of " << n;
        EXPECT_EQ(dst[n], 77) << what;
    }
}

TEST(MaskAverages, OfBytesKeepTheLowByte)
{
    struct
    {
        Bytes frames;
        unsigned short factor;
        int expected;
    } const cases[] = {{{100, 100, 100, 100}, 64, 100}, {{200, 200, 200, 200}, 64, 200},
                       {{10, 20, 31}, 85, 20},                                         // 61 * 85 = 5185
                       {{255, 255, 255}, 256, 253},                                    // of 765
                       {{255, 255}, 65535, 0xfe},                                      // of 0x1fdfe
                       {Bytes(257, 255), 256, 255},     {Bytes(300, 255), 256, 0xd4}}; // of 0xffff and of 0x12ad4
    for (const auto& c : cases)
        expect_body_and_tail(std::to_string(c.frames.size()) + " frames", c.expected, c.expected,
                             [&](unsigned char* dst, std::size_t size, int n) {
                                 const FlatFrames<unsigned char> frames(size, c.frames);
                                 CUtils_SSE::MaskAverage(dst, frames.list.data(), static_cast<int>(c.frames.size()),
                                                         Factors(size, c.factor).data(), n);
                             });
    for (const int none : {0, -3})
        expect_body_and_tail("no frames", 0, 0, [&](unsigned char* dst, std::size_t size, int n) {
            CUtils_SSE::MaskAverage(dst, nullptr, none, Factors(size, 256).data(), n);
        });
}

TEST(MaskAverages, WeightedTailsNeitherWrapNorSaturate)
{
    const Bytes nine(9, 255);
    const Factors weight_257(9, 257); // 255 * 257 >> 4 = 4095, nine times 36855
    struct
    {
        Bytes frames;
        Factors weights;
        unsigned short factor;
        int body, tail;
    } const cases[] = {{{100, 100}, {8, 8}, 256, 100, 100},
                       {{15, 15}, {1, 1}, 256, 0, 0}, // each rounded down
                       {{255}, {4096}, 1, 15, 255},   // 0xff000 >> 4: 0xf00 and 0xff00
                       {{200}, {16}, 512, 255, 144},  // 400
                       {{1}, {16}, 32768, 255, 128},  // 1 * -32768, and 1 * 32768
                       {{0}, {16}, 32768, 0, 0},
                       {{2}, {16}, 65535, 255, 255},
                       {nine, weight_257, 1, 255, 143},      // -28681, and 36855
                       {nine, weight_257, 65535, 112, 112}}; // -28681 * -1, and the low bits of 36855 * 65535
    for (const auto& c : cases)
        expect_body_and_tail(testing::PrintToString(c.frames) + testing::PrintToString(c.weights), c.body, c.tail,
                             [&](unsigned char* dst, std::size_t size, int n) {
                                 const FlatFrames<unsigned char> frames(size, c.frames);
                                 Factors weights = c.weights;
                                 CUtils_SSE::MaskAverage(dst, frames.list.data(), static_cast<int>(c.frames.size()),
                                                         Factors(size, c.factor).data(), n, weights.data());
                                 EXPECT_EQ(weights, c.weights);
                             });
}

TEST(MaskAverages, WithDifferentDivisorsDivideTheTailOnceMore)
{
    struct
    {
        Bytes frames;
        Factors weights;
        int body, tail;
    } const cases[] = {{{100, 100}, {8, 8}, 100, 0},
                       {{255, 255}, {32, 32}, 255, 3},             // 1020
                       {{255}, {65535}, 255, 0xef},                // 0xff01 >> 4, and 0xfeff01 >> 12
                       {Bytes(8, 255), Factors(8, 257), 255, 127}, // 32760
                       {Bytes(9, 255), Factors(9, 257), 0, 143}};  // 36855 is negative in 16 bits
    for (const auto& c : cases)
        expect_body_and_tail(testing::PrintToString(c.frames) + testing::PrintToString(c.weights), c.body, c.tail,
                             [&](unsigned char* dst, std::size_t size, int n) {
                                 const FlatFrames<unsigned char> frames(size, c.frames);
                                 Factors weights = c.weights;
                                 CUtils_SSE::MaskAverageWithDifferentDivisors(
                                     dst, frames.list.data(), static_cast<int>(c.frames.size()), n, weights.data());
                             });
}

TEST(MaskAverages, DivisorMaskSaturatesInTheBodyOnly)
{
    struct
    {
        unsigned short factor;
        unsigned char pixel;
        int body, tail;
    } const cases[] = {{256, 77, 77, 77},     {128, 201, 100, 100}, {512, 200, 255, 144},   {32767, 1, 127, 127},
                       {32767, 2, 255, 255},  {32767, 3, 255, 127}, {32768, 0, 0, 0},       {32768, 1, 255, 128},
                       {40000, 200, 255, 18}, {65535, 1, 255, 255}, {65535, 255, 255, 255}, {0, 255, 0, 0}};
    for (const auto& c : cases)
        expect_body_and_tail(std::to_string(c.factor) + " * " + std::to_string(c.pixel), c.body, c.tail,
                             [&](unsigned char* dst, std::size_t size, int n) {
                                 CUtils_SSE::ApplyDivisorMask(dst, Bytes(size, c.pixel).data(), Factors(size, c.factor).data(),
                                                              n);
                             });
}

TEST(MaskAverages, Of16BitFramesUseFourFactorsTwice)
{
    constexpr std::size_t n = 23;
    struct
    {
        std::vector<short> frames;
        unsigned short first_factor, step;  // factor of element i of a block: first + i * step
        std::function<int(int)> body, tail; // of element i
    } const cases[] = {{{10, 20}, 256, 256, [](int i) { return 30 * (i % 4 + 1); }, [](int i) { return 30 * (i % 8 + 1); }},
                       {{-1}, 128, 0, [](int) { return -1; }, [](int) { return 255; }},
                       {{10, 20, 0}, 32768, 0, [](int) { return -3840; }, [](int) { return 0; }},
                       {{20000, 20000}, 256, 0, [](int) { return 32767; }, [](int) { return 40000 % 256; }},
                       {{-20000, -20000}, 256, 0, [](int) { return -32768; }, [](int) { return 25536 % 256; }},
                       {{-32768, -32768}, 32768, 0, [](int) { return -32768; }, [](int) { return 0; }}, // 2^31 wraps
                       {{}, 256, 0, [](int) { return 0; }, [](int) { return 0; }}};
    for (const auto& c : cases) {
        Factors factors;
        for (std::size_t i = 0; i < n; ++i)
            factors.push_back(static_cast<unsigned short>(c.first_factor + i % 8 * c.step));
        std::vector<short> dst(n + 1, 77);
        const FlatFrames<short> frames(n, c.frames);
        CUtils_SSE::MaskAverage(dst.data(), frames.list.data(), static_cast<int>(c.frames.size()), factors.data(), n);
        for (int i = 0; i < static_cast<int>(n); ++i)
            EXPECT_EQ(dst[static_cast<std::size_t>(i)], i < 16 ? c.body(i) : c.tail(i))
                << testing::PrintToString(c.frames) << " element " << i;
        EXPECT_EQ(dst[n], 77);
    }
}

TEST(MaskAverages, AdaptiveOnesBlendFramesZeroAndFourInTheBody)
{
    struct
    {
        Bytes frames; // the list always has five pointers where the function needs them
        int count;
        unsigned char gate, k;
        int adaptive, adjusted, tail;
    } const cases[] = {{{100, 100, 100, 100, 100}, 5, 255, 128, 99, 99, 166},
                       {{100, 100, 100, 100, 100}, 5, 0, 128, 98, 49, 166},
                       {{100, 100, 100, 100, 100}, 5, 0x0f, 128, 97, 51, 166}, // 100 & 15 = 4
                       {{100, 100, 100, 100, 100}, 5, 255, 0, 99, 98, 166},
                       {{100, 100, 100, 100, 100}, 5, 255, 255, 99, 99, 166},
                       {{255, 100, 100, 100, 100}, 5, 255, 128, 254, 176, 217},
                       {{100, 100, 100, 100, 255}, 5, 255, 128, 254, 176, 217},
                       {{100, 100, 100, 100, 255, 0}, 6, 255, 128, 254, 218, 217}, // frame 4 is an inner one, too
                       {{100, 100, 100, 9, 255}, 3, 255, 128, 254, 143, 99},       // and need not be one of them
                       {{100, 100, 9, 9, 9}, 2, 255, 128, 39, 50, 66},             // no inner frame
                       {{100}, 1, 0, 128, 100, 100, 100},
                       {{100}, -1, 0, 128, 100, 100, 100}};
    for (const auto& c : cases)
        for (const bool adaptive : {true, false}) {
            const int body = adaptive ? c.adaptive : c.adjusted;
            expect_body_and_tail(
                testing::PrintToString(c.frames) + (adaptive ? " adaptive" : " adjusted"), body, c.tail,
                [&](unsigned char* dst, std::size_t size, int n) {
                    const FlatFrames<unsigned char> frames(size, c.frames);
                    const Factors mask(size, 85);
                    Bytes gate(size, c.gate);
                    if (adaptive)
                        CUtils_SSE::AdaptiveAverage(dst, frames.list.data(), c.count, mask.data(), n, gate.data());
                    else
                        CUtils_SSE::WeightAdjustAverage(dst, frames.list.data(), c.count, mask.data(), n, gate.data(), c.k);
                });
        }
}

TEST(FrameAverages, RoundAsStated)
{
    struct
    {
        unsigned char d, a, b, c;
        int two[2], four, fast[2]; // of d and a; body and tail where they differ
    } const cases[] = {{0, 1, 0, 0, {1, 0}, 0, {1, 0}},
                       {255, 254, 255, 255, {255, 254}, 254, {255, 254}},
                       {0, 0, 0, 1, {0, 0}, 0, {1, 0}},
                       {255, 255, 255, 255, {255, 255}, 255, {255, 255}},
                       {1, 2, 0, 1, {2, 1}, 1, {2, 1}}, // any other pairing of these gives 1
                       {200, 201, 203, 202, {201, 200}, 201, {202, 201}}};
    for (const auto& c : cases) {
        const std::string what = "d = " + std::to_string(c.d) + ", a = " + std::to_string(c.a);
        const auto average = [&](auto function) {
            return [&c, function](unsigned char* dst, std::size_t size, int n) {
                const Bytes before(size, c.d);
                std::copy(before.begin(), before.end(), dst);
                function(dst, Bytes(size, c.a).data(), Bytes(size, c.b).data(), Bytes(size, c.c).data(), n);
            };
        };
        expect_body_and_tail(what, c.two[0], c.two[1],
                             average([](unsigned char* d, const unsigned char* a, const unsigned char*, const unsigned char*,
                                        int n) { CUtils_SSE::TemporalAverage2(d, a, n); }));
        expect_body_and_tail(what, c.four, c.four, average(&CUtils_SSE::TemporalAverage4));
        expect_body_and_tail(what, c.fast[0], c.fast[1], average(&CUtils_SSE::TemporalAverage4Fast));
    }
}

TEST(FrameAverages, FourPixelsAreRoundedDownWhateverTheirLowBits)
{
    const unsigned char values[] = {0, 1, 2, 3, 127, 128, 252, 253, 254, 255};
    Bytes d, a, b, c;
    for (int i = 0; i < 10000; ++i) {
        d.push_back(values[i % 10]);
        a.push_back(values[i / 10 % 10]);
        b.push_back(values[i / 100 % 10]);
        c.push_back(values[i / 1000]);
    }
    const Bytes before = d;
    CUtils_SSE::TemporalAverage4(d.data(), a.data(), b.data(), c.data(), 10000);
    for (std::size_t i = 0; i < d.size(); ++i)
        ASSERT_EQ(d[i], (before[i] + a[i] + b[i] + c[i]) / 4) << i;
}

TEST(FrameAverages, BlendsByPercentAndSixteenths)
{
    struct
    {
        int percent;
        unsigned char a, b;
        int expected;
    } const blends[] = {{50, 0, 255, 127}, {1, 255, 0, 253}, {99, 0, 255, 252}, {33, 0, 255, 83},
                        {100, 9, 8, 8},    {0, 9, 8, 9},     {-5, 9, 8, 9},     {INT_MAX, 9, 8, 8}};
    for (const auto& c : blends)
        expect_body_and_tail(
            std::to_string(c.percent) + " %", c.expected, c.expected, [&](unsigned char* dst, std::size_t size, int n) {
                CUtils_SSE::WeightedAverage(dst, Bytes(size, c.a).data(), Bytes(size, c.b).data(), n, c.percent);
            });
    struct
    {
        int weight_a, weight_b;
        unsigned char a, b;
        int body, tail;
    } const steps[] = {{12, 4, 255, 0, 191, 191},     {12, 4, 1, 1, 1, 1},
                       {12, 4, 1, 0, 0, 0},           {16, 16, 255, 255, 255, 254}, // 510
                       {-1, 0, 100, 0, 0, 249},                                     // -7
                       {200, 200, 255, 255, 0, 231},                                // 102000 is negative in 16 bits
                       {65536 + 16, 0, 10, 0, 10, 10}};
    for (const auto& c : steps)
        expect_body_and_tail(std::to_string(c.weight_a) + ", " + std::to_string(c.weight_b), c.body, c.tail,
                             [&](unsigned char* dst, std::size_t size, int n) {
                                 CUtils_SSE::PersistImage(Bytes(size, c.a).data(), Bytes(size, c.b).data(), dst, c.weight_a,
                                                          c.weight_b, n);
                             });
}

TEST(SmallFilters, BoxLeavesLastRowAndColumnBlack)
{
    const Bytes image = {1, 2, 3, 4, 5, 6, 7, 8, 10};
    Bytes dst(9, 77);
    CUtils_SSE::Filter2x2(dst.data(), image.data(), 3, 3);
    EXPECT_EQ(dst, Bytes({3, 4, 0, 6, 7, 0, 0, 0, 0})); // 29 / 4 is rounded down
    for (const int width : {1, 2, 16, 17, 20, 33, 3000, 5000})
        for (const int height : {1, 2, 7}) {
            const auto size = static_cast<std::size_t>(width * height);
            Bytes flat(size + 1, 77);
            CUtils_SSE::Filter2x2(flat.data(), Bytes(size, 201).data(), width, height);
            for (int i = 0; i < width * height; ++i)
                ASSERT_EQ(flat[static_cast<std::size_t>(i)], i % width == width - 1 || i / width == height - 1 ? 0 : 201)
                    << width << " x " << height << " at " << i;
            EXPECT_EQ(flat[size], 77);
        }
}

// Whole tiles: what lies beyond the image comes from the staging buffer, and beyond the tiles nothing changes.
TEST(SmallFilters, TranspositionShowsStagingBesideTheImage)
{
    const auto allocate = [](unsigned bytes) {
        return std::unique_ptr<unsigned char, void (*)(void*)>(
            static_cast<unsigned char*>(CUtils_SSE::aligned_malloc(bytes, 16)), CUtils_SSE::aligned_free);
    };
    const auto staging = allocate(512 * 1024);
    const auto result = allocate(1024 * 512);
    const auto padded = [](int x) { return (x + 15) / 16 * 16; };
    const auto old_staging = [](int i) { return static_cast<unsigned char>(i * 7 + i / 1024 * 3 + 1); };
    const int sizes[][2] = {{16, 16}, {1, 1}, {5, 3}, {24, 30}, {40, 1}, {1, 40}, {100, 130}, {512, 512}, {1024, 497}};
    for (const auto& size : sizes) {
        const int width = size[0];
        const int height = size[1];
        Bytes image;
        for (int i = 0; i < width * height; ++i)
            image.push_back(static_cast<unsigned char>(i * 31 + i / width * 5));
        const Bytes before = image;
        for (int i = 0; i < 512 * 1024; ++i) {
            staging.get()[i] = old_staging(i);
            result.get()[i] = 77;
        }
        CUtils_SSE::TransposeImage(image.data(), width, height, staging.get(), result.get());
        EXPECT_EQ(image, before);
        const auto staged = [&](int row, int column) {
            const bool inside = row < height && column < width;
            return inside ? image[static_cast<std::size_t>(row * width + column)] : old_staging(row * 1024 + column);
        };
        for (int i = 0; i < 512 * 1024; ++i)
            ASSERT_EQ(staging.get()[i], staged(i / 1024, i % 1024)) << width << " x " << height << ", staging " << i;
        for (int i = 0; i < 1024 * 512; ++i)
            ASSERT_EQ(result.get()[i], i / 512 < padded(width) && i % 512 < padded(height) ? staged(i % 512, i / 512) : 77)
                << width << " x " << height << ", row " << i / 512 << ", byte " << i % 512;
    }
}

} // namespace
