#include "small_text.h"

#include <cstddef>

namespace echo2image {

namespace {

struct Letter
{
    char name;
    const char* rows[letter_height];
};

constexpr Letter letters[] = {
    {'0', {" ### ", "#   #", "#  ##", "# # #", "##  #", "#   #", " ### "}},
    {'1', {"  #  ", " ##  ", "  #  ", "  #  ", "  #  ", "  #  ", " ### "}},
    {'2', {" ### ", "#   #", "    #", "   # ", "  #  ", " #   ", "#####"}},
    {'3', {" ### ", "#   #", "    #", "  ## ", "    #", "#   #", " ### "}},
    {'4', {"   # ", "  ## ", " # # ", "#  # ", "#####", "   # ", "   # "}},
    {'5', {"#####", "#    ", "#### ", "    #", "    #", "#   #", " ### "}},
    {'6', {" ### ", "#    ", "#    ", "#### ", "#   #", "#   #", " ### "}},
    {'7', {"#####", "    #", "   # ", "  #  ", "  #  ", "  #  ", "  #  "}},
    {'8', {" ### ", "#   #", "#   #", " ### ", "#   #", "#   #", " ### "}},
    {'9', {" ### ", "#   #", "#   #", " ####", "    #", "    #", " ### "}},
    {'+', {"     ", "  #  ", "  #  ", "#####", "  #  ", "  #  ", "     "}},
    {'-', {"     ", "     ", "     ", "#####", "     ", "     ", "     "}},
    {'.', {"     ", "     ", "     ", "     ", "     ", " ##  ", " ##  "}},
    {'/', {"    #", "    #", "   # ", "  #  ", " #   ", "#    ", "#    "}},
    {'B', {"#### ", "#   #", "#   #", "#### ", "#   #", "#   #", "#### "}},
    {'V', {"#   #", "#   #", "#   #", "#   #", "#   #", " # # ", "  #  "}},
    {'a', {"     ", "     ", " ### ", "    #", " ####", "#   #", " ####"}},
    {'c', {"     ", "     ", " ### ", "#   #", "#    ", "#   #", " ### "}},
    {'d', {"    #", "    #", " ####", "#   #", "#   #", "#   #", " ####"}},
    {'m', {"     ", "     ", "## # ", "# # #", "# # #", "# # #", "# # #"}},
    {'p', {"     ", "     ", "#### ", "#   #", "#### ", "#    ", "#    "}},
    {'r', {"     ", "     ", "# ## ", "##  #", "#    ", "#    ", "#    "}},
    {'s', {"     ", "     ", " ####", "#    ", " ### ", "    #", "#### "}},
    {'x', {"     ", "     ", "#   #", " # # ", "  #  ", " # # ", "#   #"}},
};

} // namespace

void draw_text(std::vector<std::uint8_t>& plane, int width, int column, int row, std::string_view text, std::uint8_t ink)
{
    const int height = width > 0 ? static_cast<int>(plane.size() / static_cast<std::size_t>(width)) : 0;
    for (const char c : text) {
        for (const Letter& letter : letters)
            for (int y = 0; letter.name == c && y < letter_height; ++y)
                for (int x = 0; x < letter_width; ++x)
                    if (letter.rows[y][x] == '#' && row + y >= 0 && row + y < height && column + x >= 0 && column + x < width)
                        plane[static_cast<std::size_t>(row + y) * static_cast<std::size_t>(width) +
                              static_cast<std::size_t>(column + x)] = ink;
        column += letter_pitch;
    }
}

} // namespace echo2image
