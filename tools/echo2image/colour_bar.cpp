#include "colour_picture.h"
#include "small_text.h"

#include <algorithm>
#include <cstddef>

namespace echo2image {

namespace {

constexpr int gap = 8; // pixels between picture and bar, and above and below the bar
constexpr int bar_width = 14;
constexpr int text_gap = 4;
constexpr int longest_text = 6;
constexpr int lowest_bar = 64;
constexpr int highest_bar = 256;
constexpr std::uint8_t ink = 200;

// The same picture on a larger black canvas.
ColourImage enlarged(const ColourImage& image, int width, int height)
{
    ColourImage larger;
    larger.width = width;
    larger.height = height;
    larger.pixel_size = image.pixel_size;
    const auto copy = [&](const std::vector<std::uint8_t>& from, std::vector<std::uint8_t>& to) {
        to.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
        for (std::ptrdiff_t row = 0; row < image.height; ++row)
            std::copy_n(from.begin() + row * image.width, image.width, to.begin() + row * width);
    };
    copy(image.red, larger.red);
    copy(image.green, larger.green);
    copy(image.blue, larger.blue);
    return larger;
}

} // namespace

ColourImage with_bar(const ColourImage& image, const Priority& priority, const ColourStyle& style, const BarTexts& texts)
{
    const int height = std::clamp(image.height - 2 * gap, lowest_bar, highest_bar);
    const int left = image.width + gap;
    ColourImage result =
        enlarged(image, left + bar_width + text_gap + longest_text * letter_pitch, std::max(image.height, height + 2 * gap));
    const std::vector<Colour> colours = bar_colours(priority, style, bar_width, height);
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < bar_width; ++column) {
            const Colour colour = colours[static_cast<std::size_t>(row * bar_width + column)];
            const std::size_t pixel = static_cast<std::size_t>(gap + row) * static_cast<std::size_t>(result.width) +
                                      static_cast<std::size_t>(left + column);
            result.red[pixel] = colour.red;
            result.green[pixel] = colour.green;
            result.blue[pixel] = colour.blue;
        }
    const int text_left = left + bar_width + text_gap;
    const auto write = [&](int row, const std::string& text) {
        for (std::vector<std::uint8_t>* plane : {&result.red, &result.green, &result.blue})
            draw_text(*plane, result.width, text_left, row, text, ink);
    };
    write(gap, texts.top);
    write(gap + letter_height + 3, texts.unit);
    write(gap + height - letter_height, texts.bottom);
    if (style.quantity == FlowQuantity::velocity) {
        const int zero = gap + static_cast<int>((1 + style.baseline) / 2 * height) - letter_height / 2;
        if (zero > gap + 2 * letter_height + 6 && zero < gap + height - 2 * letter_height - 3)
            write(zero, "0");
    }
    return result;
}

} // namespace echo2image
