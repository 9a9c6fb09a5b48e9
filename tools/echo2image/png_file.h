// PNG pictures with text.
#pragma once

#include "bmode.h"
#include "colour_picture.h"
#include "output_file.h"

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace echo2image {

// Keywords and texts of a PNG's text chunks, in order.
using TextFields = std::vector<std::pair<std::string, std::string>>;

// 8-bit RGB with all settings fixed, so that the same libpng and zlib write the same bytes. Throws BadInput.
void write_png(OutputFile& file, const GreyImage& image, const TextFields& text);
void write_png(OutputFile& file, const ColourImage& image, const TextFields& text);

struct PngPicture
{
    GreyImage image;               // pixel_size is left at 0
    bool grey = true;              // nothing but grey and marked pixels
    std::vector<std::uint8_t> rgb; // [row][column][red, green, blue]
    TextFields text;
};

bool is_png(const std::filesystem::path& file);
PngPicture read_png(const std::filesystem::path& file); // throws BadInput

} // namespace echo2image
