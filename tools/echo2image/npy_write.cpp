#include "npy_write.h"

#include <string>

namespace echo2image {

static_assert(sizeof(float) == 4);

void write_npy_header(OutputFile& file, const std::vector<std::int64_t>& shape)
{
    std::string header = "{'descr': '<f4', 'fortran_order': False, 'shape': (";
    for (const std::int64_t extent : shape)
        header += std::to_string(extent) + ",";
    header += ")}";
    // Magic, version and length take 10 bytes; numbers start at a multiple of 64, and the header ends with a new line.
    header.append(63 - (10 + header.size()) % 64, ' ');
    header += '\n';
    std::string start = "\x93NUMPY";
    start += '\1';
    start += '\0';
    start += static_cast<char>(header.size() & 0xff);
    start += static_cast<char>(header.size() >> 8);
    start += header;
    file.write(start.data(), start.size());
}

void write_npy_values(OutputFile& file, const std::vector<float>& values)
{
    file.write(values.data(), values.size() * sizeof(float));
}

} // namespace echo2image
