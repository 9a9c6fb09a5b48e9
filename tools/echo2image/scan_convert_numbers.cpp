#include "bad_input.h"
#include "bmode.h"

#include <cstddef>
#include <string>

namespace echo2image {

std::vector<float> ScanConverter::convert(const std::vector<float>& lines) const
{
    if (lines.size() != static_cast<std::size_t>(lines_) * static_cast<std::size_t>(samples_))
        throw BadInput("scan conversion: " + std::to_string(lines_) + " lines of " + std::to_string(samples_) +
                       " samples expected, found " + std::to_string(lines.size()) + " samples");
    std::vector<float> pixels(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_));
    std::vector<Entry> entries(static_cast<std::size_t>(width_));
    float* pixel = pixels.data();
    for (int row = 0; row < height_; ++row) {
        look_up_row(row, entries.data());
        for (const Entry& entry : entries) {
            float* const to = pixel++;
            if (entry.line == 0xffffffff) // outside the field of view
                continue;
            const double right = (entry.line & 0xffff) * 0x1p-16; // weights of the next line and the next sample
            const double below = (entry.sample & 0xffff) * 0x1p-16;
            const float* corner = lines.data() + (entry.line >> 16) * line_stride_ + (entry.sample >> 16) * sample_stride_;
            const std::size_t next_line = right != 0 ? line_stride_ : 0;
            const std::size_t next_sample = below != 0 ? sample_stride_ : 0;
            const double here = corner[0] * (1 - below) + corner[next_sample] * below;
            const double there = corner[next_line] * (1 - below) + corner[next_line + next_sample] * below;
            *to = static_cast<float>(here * (1 - right) + there * right);
        }
    }
    return pixels;
}

} // namespace echo2image
