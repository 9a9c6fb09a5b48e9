#include "dicom.h"

#include <cstring>
#include <fstream>

namespace echo2image {

bool is_dicom(const std::filesystem::path& file)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error))
        return false;
    std::ifstream stream(file, std::ios::binary);
    char start[132] = {};
    return stream.read(start, sizeof start) && std::memcmp(start + 128, "DICM", 4) == 0;
}

} // namespace echo2image
