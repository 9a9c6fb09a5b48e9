// Colours: maps, who has a pixel, bars, and numbers on the picture's grid.
#include "bad_input.h"
#include "colour_chain.h"
#include "small_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

using namespace echo2image;

namespace {

constexpr double pi = 3.14159265358979323846;

// CIELAB of an sRGB colour.
struct Lab
{
    double l, a, b;
    explicit Lab(const Colour& colour)
    {
        const auto linear = [](std::uint8_t value) {
            const double v = value / 255.0;
            return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
        };
        const double r = linear(colour.red), g = linear(colour.green), bl = linear(colour.blue);
        const auto f = [](double t) { return t > 216.0 / 24389 ? std::cbrt(t) : (24389.0 / 27 * t + 16) / 116; };
        const double x = f((0.4124564 * r + 0.3575761 * g + 0.1804375 * bl) / 0.95047);
        const double y = f(0.2126729 * r + 0.7151522 * g + 0.0721750 * bl);
        const double z = f((0.0193339 * r + 0.1191920 * g + 0.9503041 * bl) / 1.08883);
        l = 116 * y - 16;
        a = 500 * (x - y);
        b = 200 * (y - z);
    }
};

double distance(const Colour& one, const Colour& other)
{
    const Lab p(one), q(other);
    return std::sqrt(std::pow(p.l - q.l, 2) + std::pow(p.a - q.a, 2) + std::pow(p.b - q.b, 2));
}

TEST(ColourMaps, PaintTowardsRedAndAwayBlue)
{
    for (const VelocityMap map : {VelocityMap::red_yellow, VelocityMap::red_blue, VelocityMap::variance}) {
        const ColourMap colours = colours_of(map);
        for (std::size_t i = 1; i < 128; ++i) {
            const Colour away = colours[127 - i];
            const Colour towards = colours[128 + i];
            ASSERT_TRUE(towards.red > 0 && towards.blue == 0 && towards.red >= towards.green) << to_string(map) << i;
            ASSERT_TRUE(away.red == towards.blue && away.green == towards.green && away.blue == towards.red)
                << to_string(map) << i;
            ASSERT_GE(towards.red + towards.green, colours[127 + i].red + colours[127 + i].green) << "the faster the brighter";
        }
    }
    const ColourMap usual = colours_of(VelocityMap::red_yellow);
    EXPECT_TRUE(usual[255].red == 255 && usual[255].green == 255 && usual[255].blue == 0) << "yellow";
    EXPECT_TRUE(usual[0].red == 0 && usual[0].green == 255 && usual[0].blue == 255) << "cyan";
    const ColourMap black = colours_of(VelocityMap::red_blue);
    EXPECT_EQ(black[127].blue + black[128].red, 0);
    const ColourMap grey = colours_of(VelocityMap::grey);
    for (std::size_t i = 0; i < 256; ++i)
        ASSERT_TRUE(grey[i].red == grey[i].green && grey[i].red == grey[i].blue && (i == 0 || grey[i].red >= grey[i - 1].red));
    EXPECT_TRUE(grey[0].red == 0 && grey[255].red == 255);

    // Perceptually equal steps: over 16 entries, where the rounding to 8 bits does not show.
    const ColourMap even = colours_of(VelocityMap::diverging);
    for (std::size_t i = 0; i + 16 < 128; ++i) {
        ASSERT_NEAR(distance(even[128 + i], even[144 + i]), 16 * std::hypot(55, 52) / 127, 0.8) << i;
        ASSERT_NEAR(distance(even[127 - i], even[111 - i]), 16 * std::hypot(55, 52) / 127, 0.8) << i;
    }
    for (const ColourMap& amounts : {power_colours(), spread_colours()})
        for (std::size_t i = 1; i < 256; ++i)
            ASSERT_GE(Lab(amounts[i]).l, Lab(amounts[i - 1]).l) << i;
    for (const char* name : {"red-yellow", "red-blue", "variance", "diverging", "grey"})
        EXPECT_EQ(std::string(to_string(velocity_map_of(name))), name);
    EXPECT_THROW(velocity_map_of("rainbow"), BadInput);
}

TEST(ColourMaps, GiveEachSideItsEntries)
{
    struct Case
    {
        double phase; // in units of pi
        double baseline;
        int entry;
    };
    for (const Case& c : {Case{0, 0, 128},
                          {-1e-6, 0, 127},
                          {0.9999, 0, 255},
                          {-1, 0, 0},
                          {0.5, 0, 192},
                          {-0.501, 0, 63},
                          {1.4999, 0.5, 255},
                          {-0.4999, 0.5, 0},
                          {0.75, 0.5, 192},
                          {1.9999, 1, 255},
                          {0, 1, 128},
                          {-1.9999, -1, 0},
                          {1, 0, 255},
                          {-1, 0.5, 0}})
        EXPECT_EQ(entry_of_phase(static_cast<float>(c.phase * pi), c.baseline), c.entry) << c.phase << ", " << c.baseline;
}

GreyImage grey_of(int width, int height, std::uint8_t value)
{
    GreyImage grey;
    grey.width = width;
    grey.height = height;
    grey.pixels.assign(static_cast<std::size_t>(width * height), value);
    return grey;
}

TEST(Priority, FollowsPowerSpreadAndTissue)
{
    struct Case
    {
        double power, spread, phase;
        int grey;
        bool coloured;
    };
    const Priority priority = {20, 0.4, 0.3, 100};
    for (const Case& c : {Case{20.01, 0.1, 1, 50, true},
                          {19.99, 0.1, 1, 50, false},
                          {40, 0.39, 1, 50, true},
                          {40, 0.41, 1, 50, false},
                          {40, 0.1, 0.29, 100, false},
                          {40, 0.1, -0.29, 255, false},
                          {40, 0.1, 0.29, 99, true},
                          {40, 0.1, 0.31, 255, true},
                          {40, 0.1, -0.31, 100, true},
                          {40, 0.1, 3.1, 255, true}}) {
        FlowImage flow;
        flow.firings = 8;
        const double r0 = 8 * (std::pow(10, c.power / 10) - 1);
        flow.r0 = {static_cast<float>(r0)};
        flow.real = {static_cast<float>(r0 * (1 - c.spread) * std::cos(c.phase))};
        flow.imaginary = {static_cast<float>(r0 * (1 - c.spread) * std::sin(c.phase))};
        const GreyImage grey = grey_of(1, 1, static_cast<std::uint8_t>(c.grey));
        EXPECT_EQ(coloured_pixels(grey, flow, priority)[0], c.coloured ? 255 : 0)
            << c.power << ", " << c.spread << ", " << c.phase << ", " << c.grey;
    }
    const FlowImage silence = {8, {0}, {0}, {0}};
    EXPECT_EQ(coloured_pixels(grey_of(1, 1, 0), silence, {0, 1, 0, 0})[0], 0) << "nothing is there to be coloured";
    const FlowImage still = {8, {100}, {50}, {0}};
    EXPECT_EQ(coloured_pixels(grey_of(1, 1, 255), still, {0, 1, 0, 0})[0], 255) << "no tissue speed, no tissue";
}

TEST(ColourPicture, ShowsVelocityPowerAndSpread)
{
    FlowImage flow;
    flow.firings = 1;
    // Grey, towards, away, aliased when the baseline is shifted.
    flow.r0 = {1, 999, 999, 999};
    for (const double phase : {0.0, 0.5 * pi, -0.5 * pi, -0.9 * pi}) {
        flow.real.push_back(static_cast<float>(800 * std::cos(phase)));
        flow.imaginary.push_back(static_cast<float>(800 * std::sin(phase)));
    }
    const GreyImage grey = grey_of(4, 1, 77);
    const Priority priority = {10, 0.5, 0, 0};
    const auto painted = [&](FlowQuantity quantity, VelocityMap map, double baseline, double greatest) {
        const ColourImage image = paint(grey, flow, priority, {quantity, map, baseline, greatest});
        EXPECT_TRUE(image.red[0] == 77 && image.green[0] == 77 && image.blue[0] == 77);
        return image;
    };
    const auto expect = [](const ColourImage& image, std::size_t pixel, const Colour& colour) {
        EXPECT_EQ(image.red[pixel], colour.red) << pixel;
        EXPECT_EQ(image.green[pixel], colour.green) << pixel;
        EXPECT_EQ(image.blue[pixel], colour.blue) << pixel;
    };
    const ColourMap colours = colours_of(VelocityMap::red_yellow);
    const ColourImage usual = painted(FlowQuantity::velocity, VelocityMap::red_yellow, 0, 0);
    expect(usual, 1, colours[192]);
    expect(usual, 2, colours[63]);
    EXPECT_LT(usual.red[3], usual.blue[3]);
    const ColourImage shifted = painted(FlowQuantity::velocity, VelocityMap::red_yellow, 0.5, 0);
    EXPECT_GT(shifted.red[3], shifted.blue[3]);
    const ColourImage variance = painted(FlowQuantity::velocity, VelocityMap::variance, 0, 0);
    EXPECT_EQ(variance.green[1], green_of_spread(1 - 800.0 / 999, 0.5));
    expect(painted(FlowQuantity::power, VelocityMap::grey, 0, 49.9), 1, power_colours()[128]);
    expect(painted(FlowQuantity::spread, VelocityMap::grey, 0, 0), 2, spread_colours()[101]);

    // The bar lies beside the picture and runs through the colours, fastest towards the probe at the top.
    const ColourImage large = {
        10, 300, 0, std::vector<std::uint8_t>(3000, 9), std::vector<std::uint8_t>(3000, 9), std::vector<std::uint8_t>(3000, 9)};
    const ColourImage barred = with_bar(large, priority, {}, {"+12.3", "-12.3", "cm/s"});
    EXPECT_EQ(barred.height, 300);
    const std::size_t width = static_cast<std::size_t>(barred.width);
    for (std::size_t i = 0; i < 256; ++i)
        expect(barred, (8 + i) * width + 20, colours[255 - i]);
    EXPECT_EQ(barred.red[299 * width + 9], 9);
    const auto inked = std::count(barred.red.begin(), barred.red.end(), std::uint8_t{200});
    EXPECT_GT(inked, 100) << "texts";
    for (const std::size_t row : {std::size_t{8}, std::size_t{18}, std::size_t{257}}) { // top, unit, bottom
        const auto begin = barred.red.begin() + static_cast<std::ptrdiff_t>(row * width);
        EXPECT_NE(std::count(begin, begin + static_cast<std::ptrdiff_t>(7 * width), std::uint8_t{200}), 0) << row;
    }
    const ColourImage flat = {
        10, 3, 0, std::vector<std::uint8_t>(30), std::vector<std::uint8_t>(30), std::vector<std::uint8_t>(30)};
    EXPECT_GE(with_bar(flat, priority, {}, {}).height, 64) << "room for the bar";
    std::vector<std::uint8_t> plane(8 * 9);
    draw_text(plane, 8, -3, -2, "8", 1);
    draw_text(plane, 8, 6, 7, "8", 1);
    EXPECT_GT(std::count(plane.begin(), plane.end(), std::uint8_t{1}), 5) << "cut at the edges";
}

TEST(ScanConverter, TakesNumbersLikeGreyValues)
{
    std::mt19937 generator(8);
    for (const Geometry::Kind kind : {Geometry::Kind::linear, Geometry::Kind::steered, Geometry::Kind::curved}) {
        Geometry geometry;
        geometry.kind = kind;
        geometry.line_pitch = 0.3e-3;
        geometry.steering = 0.3;
        geometry.first_angle = -0.4;
        geometry.angle_step = 0.02;
        geometry.apex_radius = 0.02;
        const ScanConverter converter(geometry, 41, 150, 0.1e-3, 0, 200);
        std::vector<std::uint8_t> grey;
        for (int i = 0; i < 41 * 150; ++i)
            grey.push_back(static_cast<std::uint8_t>(1 + generator() % 255));
        const GreyImage image = converter.convert(grey);
        const std::vector<float> numbers = converter.convert(std::vector<float>(grey.begin(), grey.end()));
        ASSERT_EQ(numbers.size(), image.pixels.size());
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            ASSERT_LE(std::fabs(numbers[i] - static_cast<float>(image.pixels[i])), 0.5001F) << i;
            ASSERT_EQ(numbers[i] == 0, image.pixels[i] == 0) << "outside the field of view, " << i;
        }
        EXPECT_THROW(converter.convert(std::vector<float>(3)), BadInput);
    }
}

} // namespace
