// Recordings of real echoes. They lie in the folder that UTILS_SSE_DATA names, else in ../shared/data next to the sources;
// tests that need them skip where they are absent.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace real_data {

inline std::filesystem::path folder()
{
    const char* named = std::getenv("UTILS_SSE_DATA");
    return named && *named != '\0' ? named : UTILS_SSE_SOURCE_DIR "/../shared/data";
}

inline bool present()
{
    std::error_code error;
    return std::filesystem::is_directory(folder(), error);
}

// The project's description of a recording, such as "disk_rf".
inline std::filesystem::path example(const std::string& name)
{
    return std::filesystem::path(UTILS_SSE_SOURCE_DIR "/docs/examples") / (name + ".yml");
}

} // namespace real_data

#define SKIP_WITHOUT_REAL_DATA()                                                                                               \
    if (!real_data::present())                                                                                                 \
    GTEST_SKIP() << "no recordings in " << real_data::folder() << "; UTILS_SSE_DATA can name another folder"
