// std::fopen() for any path: Windows' own takes the characters of one code page only.
#pragma once

#include <cstdio>
#include <filesystem>
#include <string>

namespace echo2image {

inline std::FILE* open_file(const std::filesystem::path& file, const char* mode)
{
#ifdef _WIN32
    return _wfopen(file.c_str(), std::wstring(mode, mode + std::char_traits<char>::length(mode)).c_str());
#else
    return std::fopen(file.c_str(), mode);
#endif
}

} // namespace echo2image
