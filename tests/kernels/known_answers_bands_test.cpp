// What utils_sse.h promises of the frequency bands, as numbers worked out by hand.
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using Samples = std::vector<short>;

TEST(Bands, SumsWrapInTheBodyOnly)
{
    struct
    {
        short low, high;
        int body, tail;
    } const cases[] = {{12800, 0, 100, 100},    {-256, 0, 0, 0},        {127, 0, 0, 0},         {128, -1, 0, 0},
                       {32640, 127, 255, 255},  {20000, 20000, 0, 255}, {32767, 1, 0, 255},     {-32768, -1, 255, 0},
                       {-32768, -20000, 99, 0}, {-129, 256, 0, 0},      {32767, -127, 255, 255}};
    for (const auto& c : cases)
        for (const std::size_t n : {31u, 47u}) {
            Bytes dst(n + 1, 77);
            CUtils_SSE::CombineBands(dst.data(), Samples(n, c.low).data(), Samples(n, c.high).data(), static_cast<int>(n));
            for (std::size_t i = 0; i < n; ++i)
                EXPECT_EQ(dst[i], i < n / 16 * 16 ? c.body : c.tail) << c.low << " + " << c.high << " at " << i;
            EXPECT_EQ(dst[n], 77);
        }
}

struct Bands
{
    Samples low, high;
};

Bands separated(const Bytes& image, int width)
{
    Bands bands{Samples(image.size(), 77), Samples(image.size(), 77)};
    CUtils_SSE::SeparateBands(bands.low.data(), bands.high.data(), image.data(), width, static_cast<int>(image.size()) / width);
    return bands;
}

TEST(Bands, LowBandIsTheBinomialSmoothing)
{
    const int weights[5] = {1, 4, 6, 4, 1};
    const int width = 21;
    Bytes image(width * 9, 0);
    image[4 * width + 10] = 3;
    const Bands bands = separated(image, width);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < width; ++x) {
            const int dx = x - 10;
            const int dy = y - 4;
            const bool near = dx >= -2 && dx <= 2 && dy >= -2 && dy <= 2;
            const int sum = near ? 3 * weights[dx + 2] * weights[dy + 2] : 0;
            const auto i = static_cast<std::size_t>(y * width + x);
            EXPECT_EQ(bands.low[i], (sum + 1) / 2) << x << " " << y; // 1.5 in the corners gives 2
            EXPECT_EQ(bands.high[i], 128 * image[i] - bands.low[i]) << x << " " << y;
        }

    // Borders repeat: a bright corner weighs 11/16 in both directions, and a flat image is all low band.
    Bytes corner(width * 9, 0);
    corner[0] = 255;
    corner.back() = 255;
    const Bands corners = separated(corner, width);
    EXPECT_EQ(corners.low[0], (255 * 121 + 1) / 2);
    EXPECT_EQ(corners.low[1], (255 * 11 * 5 + 1) / 2);
    EXPECT_EQ(corners.low[2 * width + 2], (255 + 1) / 2);
    EXPECT_EQ(corners.low.back(), (255 * 121 + 1) / 2);
    EXPECT_EQ(separated(Bytes(33 * 3, 255), 33).low, Samples(33 * 3, 32640));
    EXPECT_EQ(separated(Bytes(5, 9), 1).low, Samples(5, 1152));
}

TEST(Bands, CombiningGivesTheImageBack)
{
    std::mt19937 random(3);
    for (const int width : {1, 2, 3, 4, 5, 7, 16, 23, 64, 1023, 1024, 1025, 1026, 1027, 2053})
        for (const int height : {1, 2, 3, 5, 8}) {
            Bytes image(static_cast<std::size_t>(width * height));
            for (unsigned char& pixel : image)
                pixel = static_cast<unsigned char>(random() % 3 == 0 ? random() % 256 : random() % 2 * 255);
            const Bands bands = separated(image, width);
            Bytes back(image.size(), 77);
            CUtils_SSE::CombineBands(back.data(), bands.low.data(), bands.high.data(), width * height);
            ASSERT_EQ(back, image) << width << " x " << height;
        }
}

} // namespace
