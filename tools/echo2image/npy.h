// NumPy's .npy files, versions 1 to 3.
#pragma once

#include "description.h"

#include <filesystem>

namespace echo2image {

Layout read_npy_header(const std::filesystem::path& file); // throws BadInput

} // namespace echo2image
