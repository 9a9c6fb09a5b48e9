// Letters for pictures: digits, signs and the units of the bars, 5 x 7 pixels each.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace echo2image {

constexpr int letter_width = 5;
constexpr int letter_height = 7;
constexpr int letter_pitch = letter_width + 1;

// Draws onto a plane [row][column] of `width` columns; what lies outside, and letters that are not known, stay blank.
void draw_text(std::vector<std::uint8_t>& plane, int width, int column, int row, std::string_view text, std::uint8_t ink);

} // namespace echo2image
