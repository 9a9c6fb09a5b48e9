#include "output_file.h"

#include "bad_input.h"
#include "open_file.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <random>
#include <string>
#include <system_error>
#include <utility>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#endif

namespace echo2image {

namespace fs = std::filesystem;

namespace {

volatile std::sig_atomic_t noted_signal = 0;

extern "C" void note_signal(int signal)
{
    noted_signal = signal;
}

std::string reason(int error)
{
    return error != 0 ? std::strerror(error) : "unknown error";
}

// Where the bytes really go: a symbolic link stays one.
fs::path followed(const fs::path& target)
{
    std::error_code error;
    if (!fs::is_symlink(fs::symlink_status(target, error)))
        return target;
    fs::path real = fs::weakly_canonical(target, error);
    if (error)
        throw BadInput(target.string() + ": cannot follow this link: " + error.message());
    return real;
}

// A file that did not exist; null with errno EEXIST when it does.
std::FILE* new_file(const fs::path& file)
{
#ifdef _WIN32
    // fopen() in the C runtime that every Windows has knows no "x".
    const int handle = _wopen(file.c_str(), _O_CREAT | _O_EXCL | _O_BINARY | _O_WRONLY, _S_IREAD | _S_IWRITE);
    return handle < 0 ? nullptr : _fdopen(handle, "wb");
#else
    return std::fopen(file.c_str(), "wbx");
#endif
}

fs::path folder_of(const fs::path& file)
{
    return file.has_parent_path() ? file.parent_path() : fs::path(".");
}

} // namespace

void check_target(const fs::path& target)
{
    const std::string where = target.string() + ": cannot be written: ";
    if (!target.has_filename() || target.filename() == "." || target.filename() == "..")
        throw BadInput(where + "a file name is expected, found a folder");
    const fs::path real = followed(target);
    std::error_code error;
    if (const fs::file_status folder = fs::status(folder_of(real), error); !fs::is_directory(folder))
        throw BadInput(where + "folder " + folder_of(real).string() +
                       (fs::exists(folder) ? " is not a folder" : " does not exist"));
    const fs::file_status status = fs::status(real, error);
    if (fs::is_directory(status))
        throw BadInput(where + "it is a folder");
    if (!fs::exists(status))
        return;
    if (!fs::is_regular_file(status))
        throw BadInput(where + "it is a device or pipe, not a file");
    // Renaming would replace a file that the user has protected.
    std::FILE* existing = open_file(real, "r+b");
    if (existing == nullptr)
        throw BadInput(where + reason(errno));
    std::fclose(existing);
}

OutputFile::OutputFile(const fs::path& target) : named_(target)
{
    check_target(target);
    target_ = followed(target);
    std::random_device random;
    for (int attempt = 0;; ++attempt) {
        char suffix[16];
        std::snprintf(suffix, sizeof suffix, ".%08x", static_cast<unsigned int>(random()));
        temporary_ = folder_of(target_) / ("." + target_.filename().string().substr(0, 200) + suffix);
        errno = 0;
        stream_ = new_file(temporary_);
        if (stream_ != nullptr)
            return;
        if (errno != EEXIST || attempt == 100)
            throw BadInput(named_.string() + ": cannot be written: " + reason(errno));
    }
}

OutputFile::OutputFile(OutputFile&& other) noexcept
    : named_(std::move(other.named_)), target_(std::move(other.target_)), temporary_(std::move(other.temporary_)),
      stream_(std::exchange(other.stream_, nullptr))
{
    other.temporary_.clear();
}

OutputFile::~OutputFile()
{
    if (stream_ != nullptr)
        std::fclose(stream_);
    std::error_code ignored;
    if (!temporary_.empty())
        fs::remove(temporary_, ignored);
}

void OutputFile::write(const void* data, std::size_t bytes)
{
    errno = 0;
    if (std::fwrite(data, 1, bytes, stream_) != bytes)
        throw BadInput(named_.string() + ": cannot be written: " + reason(errno));
}

void OutputFile::finish()
{
    if (stream_ == nullptr)
        return;
    errno = 0;
    if (std::fclose(std::exchange(stream_, nullptr)) != 0)
        throw BadInput(named_.string() + ": cannot be written: " + reason(errno));
}

void OutputFile::commit()
{
    finish();
    std::error_code error;
    fs::rename(temporary_, target_, error);
    if (error)
        throw BadInput(named_.string() + ": cannot be written: " + error.message());
    temporary_.clear();
}

void note_signals()
{
    std::signal(SIGINT, note_signal);
    std::signal(SIGTERM, note_signal);
#ifdef SIGHUP
    std::signal(SIGHUP, note_signal);
#endif
#ifdef SIGXFSZ
    std::signal(SIGXFSZ, SIG_IGN); // a file size limit is a write error like any other
#endif
}

void stop_when_interrupted()
{
    if (noted_signal != 0)
        throw Interrupted{noted_signal};
}

} // namespace echo2image
