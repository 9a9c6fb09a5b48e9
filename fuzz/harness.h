// What the fuzz targets of echo2image share: files in memory, and what may come of reading them.
#pragma once

#include "chain.h"
#include "input_file.h"
#include "recording.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

namespace fs = std::filesystem;
using namespace echo2image;

// Stops at what should never happen; the fuzzer keeps the input.
inline void demand(bool holds, std::string_view what)
{
    if (holds)
        return;
    std::fprintf(stderr, "==demand== %.*s\n", static_cast<int>(what.size()), what.data());
    std::abort();
}

// A folder of the process, in memory where the system has such a place.
class Folder
{
public:
    Folder()
    {
        const fs::path memory = "/dev/shm";
        path_ = (fs::is_directory(memory) ? memory : fs::temp_directory_path()) / ("fuzz-" + std::to_string(getpid()));
        fs::create_directories(path_);
    }
    ~Folder()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const fs::path& path() const { return path_; }

    fs::path write(const char* name, std::string_view content) const
    {
        const fs::path file = path_ / name;
        std::FILE* const stream = std::fopen(file.c_str(), "wb");
        demand(stream && std::fwrite(content.data(), 1, content.size(), stream) == content.size() && std::fclose(stream) == 0,
               "the fuzzer's own files can be written");
        return file;
    }

private:
    fs::path path_;
};

inline std::string_view text_of(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

// Runs read(), which may throw BadInput with one line, and nothing else, and takes little time.
template <class Read>
void read_or_reject(const Read& read)
{
    constexpr double most_seconds = 1; // of this process, with its sanitizers
    const std::clock_t start = std::clock();
    try {
        read();
    } catch (const BadInput& error) {
        const std::string_view line = error.what();
        demand(!line.empty() && line.size() <= 1000 && printable(line) == line, "one line says what is wrong");
    }
    demand(static_cast<double>(std::clock() - start) < most_seconds * CLOCKS_PER_SEC, "reading takes little time");
}

// Makes `file` end where this layout says, if that is not too much, so that what follows the header is reached.
void fit_size(const fs::path& file, const std::vector<std::int64_t>& shape, std::uint64_t header_bytes, int element_bytes);

// Holds what a recording says of itself against what it hands out, and makes a picture of its first frame.
void check(const Recording& recording);

// Opens the file for layout alone and for pictures.
void open_and_check(const fs::path& file, const fs::path& folder);

// The picture of a frame, with the largest envelope white.
void make_picture(const Recording& recording, const ChainParameters& wanted);

} // namespace fuzz
