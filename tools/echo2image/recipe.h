// How a picture was made: enough to make it again. The recipe travels in the picture's text chunks.
#pragma once

#include "chain.h"
#include "motion.h"
#include "output_file.h"
#include "png_file.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace echo2image {

// A frame of RF or I/Q with the firings that the chain needs.
std::vector<std::int16_t> read_frame(const Recording& recording, const Chain& chain, std::int64_t frame);

// The chain's filters when they have seen all that decides what they make of `frame`, and expect it next. So a picture is
// the same whichever frames are made with it.
FrameFilters filters_before(const Recording& recording, const Chain& chain, std::int64_t frame);

// Of a picture of motion: what is tracked, from the recipe's frame to this one.
struct MotionRecipe
{
    std::int64_t second_frame = 1;
    MotionOptions options;
};

struct Recipe
{
    enum class Input
    {
        recording,
        synthetic,
    };
    std::string program; // name and version; write_picture() fills it in
    std::string command; // "bmode", "filter", "motion" or "demo"
    Input input = Input::recording;
    std::string file;         // recording: as the user named it
    std::uint32_t seed = 0;   // synthetic
    std::int64_t frame = 0;   // recording
    std::string input_digest; // SHA-256: Recording::digest(), or digest_of() the synthetic samples
    ChainParameters chain;
    std::optional<MotionRecipe> motion;
    std::string pixel_digest; // SHA-256 of width, height and pixels; write_picture() fills it in
};

std::string program_version(); // "echo2image 1.0.0"

// SHA-256 of the samples as little-endian 16-bit numbers.
std::string digest_of(const std::vector<std::int16_t>& samples);
// SHA-256 of width and height as little-endian 32-bit numbers, then the grey pixels row by row; where there are marked
// pixels, then a byte for each pixel, 255 when it is marked and 0 when not.
std::string digest_of(const GreyImage& image);

TextFields to_text(const Recipe& recipe);
Recipe recipe_of(const TextFields& text, const std::filesystem::path& picture); // throws BadInput

// Writes the picture with its recipe as PNG; the file appears whole or not at all. Throws BadInput.
void write_picture(const std::filesystem::path& file, const GreyImage& image, const Recipe& recipe);
// The same into a file that the caller commits.
void write_picture(OutputFile& file, const GreyImage& image, Recipe recipe);

} // namespace echo2image
