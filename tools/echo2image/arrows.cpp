#include "arrows.h"

#include "small_text.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace echo2image {

namespace {

constexpr int greatest_magnification = 10;
constexpr double head_length = 6; // pixels
constexpr int strip_height = 24;
constexpr std::uint8_t ink = 200;

// Draws on an image and ignores what lies outside.
class Canvas
{
public:
    explicit Canvas(GreyImage& image) : image_(image) { image_.marks.resize(image_.pixels.size()); }

    void put(int column, int row, std::uint8_t grey, bool marked)
    {
        if (column < 0 || row < 0 || column >= image_.width || row >= image_.height)
            return;
        const std::size_t i =
            static_cast<std::size_t>(row) * static_cast<std::size_t>(image_.width) + static_cast<std::size_t>(column);
        image_.pixels[i] = grey;
        image_.marks[i] = marked ? 255 : 0;
    }
    // The nib is a black square of three pixels, or a single marked one.
    void line(double x, double y, double to_x, double to_y, bool seam)
    {
        const double dx = to_x - x;
        const double dy = to_y - y;
        const int steps = static_cast<int>(std::ceil(std::max(std::fabs(dx), std::fabs(dy))));
        for (int i = 0; i <= steps; ++i) {
            const double part = steps > 0 ? static_cast<double>(i) / steps : 0;
            const int column = static_cast<int>(std::floor(x + part * dx + 0.5));
            const int row = static_cast<int>(std::floor(y + part * dy + 0.5));
            if (!seam)
                put(column, row, 255, true);
            for (int k = 0; seam && k < 9; ++k)
                put(column + k % 3 - 1, row + k / 3 - 1, 0, false);
        }
    }
    void arrow(double x, double y, double dx, double dy, bool seam)
    {
        line(x, y, x + dx, y + dy, seam);
        const double length = std::sqrt(dx * dx + dy * dy);
        if (length < 2)
            return;
        const double size = std::min(head_length, 0.6 * length) / length;
        for (const double side : {0.5, -0.5}) { // half the head's length to either side of it
            const double back_x = -dx + side * dy;
            const double back_y = -dy - side * dx;
            line(x + dx, y + dy, x + dx + size * back_x, y + dy + size * back_y, seam);
        }
    }

private:
    GreyImage& image_;
};

} // namespace

int arrow_magnification(const std::vector<BlockMotion>& blocks, const MotionOptions& options)
{
    std::vector<double> lengths;
    for (const BlockMotion& block : blocks)
        if (block.tracked())
            lengths.push_back(std::sqrt(static_cast<double>(block.right * block.right + block.down * block.down)));
    const double long_one = quantile(lengths, 0.8); // the longest are often wrong
    return long_one > 0 ? static_cast<int>(std::clamp(0.75 * options.grid / long_one, 1.0, double{greatest_magnification})) : 1;
}

void draw_arrows(GreyImage& image, int zoom, int magnification, const std::vector<BlockMotion>& blocks,
                 const MotionOptions& options)
{
    Canvas canvas(image);
    const double stretch = static_cast<double>(zoom) * magnification;
    for (const bool seam : {true, false})
        for (const BlockMotion& block : blocks) {
            if (!block.tracked())
                continue;
            const double x = (block.column + 0.5 * options.block_columns) * zoom - 0.5;
            const double y = (block.row + 0.5 * options.block_rows) * zoom - 0.5;
            canvas.arrow(x, y, block.right * stretch, block.down * stretch, seam);
        }
}

GreyImage with_arrow_key(const GreyImage& image, int zoom, int magnification, double pixel_size)
{
    // 1, 2, 5, 10, .. micrometres or hundredths of pixels: the first that makes an arrow of fair size.
    constexpr double fair_length = 24;
    constexpr int left = 16;
    const bool in_mm = pixel_size > 0;
    const double pixels_of_unit = (in_mm ? 1e-3 / pixel_size : 1.0) * zoom * magnification;
    double value = 0.001;
    std::string digits = "0.001";
    for (int k = 1; k < 24 && value * pixels_of_unit < fair_length; ++k) {
        constexpr int steps[] = {1, 2, 5};
        const int decade = k / 3; // of thousandths
        int thousandths = steps[k % 3];
        for (int i = 0; i < decade; ++i)
            thousandths *= 10;
        value = thousandths / 1000.0;
        digits = std::to_string(thousandths / 1000);
        if (thousandths < 1000)
            digits += '.' + std::to_string(1000 + thousandths).substr(1, static_cast<std::size_t>(3 - decade));
    }
    GreyImage keyed = image;
    keyed.height += strip_height;
    keyed.pixels.resize(static_cast<std::size_t>(keyed.width) * static_cast<std::size_t>(keyed.height));
    keyed.marks.resize(keyed.pixels.size());
    Canvas canvas(keyed);
    const double length = value * pixels_of_unit;
    canvas.arrow(left, image.height + 0.5 * strip_height, length, 0, false);
    draw_text(keyed.pixels, keyed.width, left + static_cast<int>(length) + 10,
              image.height + (strip_height - letter_height) / 2, digits + (in_mm ? " mm" : " px"), ink);
    return keyed;
}

} // namespace echo2image
