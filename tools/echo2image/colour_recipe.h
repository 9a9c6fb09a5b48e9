// How a colour picture was made: enough to make it again. The recipe is that of a grey picture with further fields.
#pragma once

#include "colour_chain.h"
#include "output_file.h"
#include "png_file.h"
#include "recipe.h"

#include <filesystem>
#include <string>

namespace echo2image {

struct ColourRecipe
{
    Recipe base;                 // its chain holds nothing that the parameters do not say
    ColourParameters parameters; // complete: see ColourChain::choose()
};

// SHA-256 of width and height as little-endian 32-bit numbers, then red, green and blue of each pixel, row by row.
std::string digest_of(const ColourImage& image);

bool is_colour_recipe(const TextFields& text);
ColourRecipe colour_recipe_of(const TextFields& text, const std::filesystem::path& picture); // throws BadInput

// Into a file that the caller commits. Throws BadInput.
void write_picture(OutputFile& file, const ColourImage& image, ColourRecipe recipe);

// The ensembles that a chain works on: the first firings of a recording's frame. Throws BadInput.
EnsembleFrame read_ensembles(const Recording& recording, std::int64_t frame, int firings);

// Makes a colour picture again and compares; says on the standard output what differs and returns whether nothing does.
// `recording` is where the recording is now, empty for synthetic ensembles. Throws BadInput.
bool verify_colour(const PngPicture& picture, const std::filesystem::path& name, const std::filesystem::path& recording,
                   const std::filesystem::path& data_folder);

} // namespace echo2image
