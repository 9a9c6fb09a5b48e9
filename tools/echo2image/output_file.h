// Files that appear whole or not at all.
#pragma once

#include <cstddef>
#include <cstdio>
#include <filesystem>

namespace echo2image {

// Writes to a temporary file beside the target and puts it in place with commit(). Without commit() nothing is left. The
// constructor finds out whether the target can be written at all, so that it can be called before long work.
// All functions throw BadInput.
class OutputFile
{
public:
    explicit OutputFile(const std::filesystem::path& target);
    OutputFile(OutputFile&& other) noexcept;
    OutputFile& operator=(OutputFile&&) = delete;
    ~OutputFile();

    void write(const void* data, std::size_t bytes);
    void finish(); // everything is written; the file is closed but not yet in place
    void commit();

private:
    std::filesystem::path named_;  // as the user wrote it, for messages
    std::filesystem::path target_; // with symbolic links followed
    std::filesystem::path temporary_;
    std::FILE* stream_ = nullptr;
};

// Throws BadInput when `target` is a folder, a device, or not writable, or when its folder is missing. Writes nothing.
void check_target(const std::filesystem::path& target);

// From now on SIGINT, SIGTERM and SIGHUP are only noted, so that temporary files can be removed first.
void note_signals();
// Throws Interrupted when such a signal was noted; long work calls it between frames.
void stop_when_interrupted();

struct Interrupted
{
    int signal;
};

} // namespace echo2image
