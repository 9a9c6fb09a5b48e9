// Reading files that nobody vouches for, and saying in one line what is wrong with them.
#pragma once

#include "bad_input.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

namespace echo2image {

// Text from a file or the command line made fit for one line of a message.
inline std::string printable(std::string_view text)
{
    constexpr const char* digits = "0123456789abcdef";
    std::string line;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f)
            line += c;
        else
            line += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
    }
    return line;
}

// The same in quotation marks, long text cut short.
inline std::string in_quotes(std::string_view text)
{
    std::size_t length = 48;
    if (text.size() <= length)
        return '"' + printable(text) + '"';
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xc0) == 0x80) // not in the middle of a UTF-8 character
        --length;
    return '"' + printable(text.substr(0, length)) + "...\"";
}

inline std::string name_of(const std::filesystem::path& file)
{
    return printable(file.u8string());
}

[[noreturn]] inline void reject(const std::filesystem::path& file, std::string_view field, std::string_view expected,
                                std::string_view found)
{
    std::string line = name_of(file) + ": ";
    if (!field.empty())
        line.append(field).append(": ");
    line.append("expected ").append(expected).append(", found ").append(found);
    throw BadInput(line);
}

// A regular file, read at given places.
class InputFile
{
public:
    explicit InputFile(std::filesystem::path file) : path_(std::move(file))
    {
        std::error_code error;
        const std::filesystem::file_status status = std::filesystem::status(path_, error);
        if (!std::filesystem::exists(status))
            reject(path_, "", "a file", status.type() == std::filesystem::file_type::not_found ? "nothing" : error.message());
        if (!std::filesystem::is_regular_file(status))
            reject(path_, "", "a file",
                   std::filesystem::is_directory(status) ? "a folder" : "something that is no regular file");
        size_ = std::filesystem::file_size(path_, error);
        if (!error)
            stream_.open(path_, std::ios::binary);
        if (error || !stream_)
            reject(path_, "", "a file that can be read", error ? error.message() : "one that cannot be opened");
    }

    const std::filesystem::path& path() const { return path_; }
    std::uint64_t size() const { return size_; }

    void read(std::uint64_t offset, char* to, std::size_t bytes)
    {
        stream_.clear();
        stream_.seekg(static_cast<std::streamoff>(offset));
        stream_.read(to, static_cast<std::streamsize>(bytes));
        if (!stream_ || static_cast<std::size_t>(stream_.gcount()) != bytes)
            reject(path_, "", std::to_string(bytes) + " bytes at byte " + std::to_string(offset),
                   "a file that ends or fails before");
    }

    // The whole of a small file.
    std::string text(std::uint64_t most)
    {
        if (size_ > most)
            reject(path_, "", "at most " + std::to_string(most) + " bytes", std::to_string(size_));
        std::string content(static_cast<std::size_t>(size_), '\0');
        read(0, content.data(), content.size());
        return content;
    }

private:
    std::filesystem::path path_;
    std::uint64_t size_ = 0;
    std::ifstream stream_;
};

} // namespace echo2image
