// NumPy files of single-precision numbers.
#pragma once

#include "output_file.h"

#include <cstdint>
#include <vector>

namespace echo2image {

// Header of an array in C order, type '<f4'; the caller writes its numbers behind it.
void write_npy_header(OutputFile& file, const std::vector<std::int64_t>& shape);
void write_npy_values(OutputFile& file, const std::vector<float>& values);

} // namespace echo2image
