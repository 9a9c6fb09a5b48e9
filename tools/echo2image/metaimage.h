// MetaImage files: a text header and samples, in one file (.mha) or two (.mhd).
#pragma once

#include "description.h"

#include <filesystem>
#include <string>

namespace echo2image {

struct MetaImage
{
    Layout layout;
    std::string header; // its text, when the samples are in another file
};

MetaImage read_metaimage_header(const std::filesystem::path& file); // throws BadInput

} // namespace echo2image
