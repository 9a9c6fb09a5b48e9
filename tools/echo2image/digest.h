// SHA-256, the fingerprint of inputs and outputs.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

namespace echo2image {

class Sha256
{
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void add(const void* bytes, std::size_t count);
    void add_file(const std::filesystem::path& file); // throws BadInput
    std::string hex();                                // 64 digits; ends the sum, nothing may be added afterwards

private:
    struct Context;
    std::unique_ptr<Context> context_;
};

std::string sha256(const void* bytes, std::size_t count);
std::string sha256_of_file(const std::filesystem::path& file); // throws BadInput

} // namespace echo2image
