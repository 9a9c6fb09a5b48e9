#include "digest.h"

#include "input_file.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

extern "C" {
#include <sha2.h>
}

namespace echo2image {

struct Sha256::Context
{
    SHA2_CTX sum;
};

Sha256::Sha256() : context_(std::make_unique<Context>())
{
    SHA256Init(&context_->sum);
}

Sha256::~Sha256() = default;

void Sha256::add(const void* bytes, std::size_t count)
{
    SHA256Update(&context_->sum, static_cast<const std::uint8_t*>(bytes), count);
}

void Sha256::add_file(const std::filesystem::path& file)
{
    InputFile input(file);
    std::vector<char> block(1 << 18);
    for (std::uint64_t at = 0; at < input.size();) {
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), input.size() - at));
        input.read(at, block.data(), count);
        add(block.data(), count);
        at += count;
    }
}

std::string Sha256::hex()
{
    std::array<std::uint8_t, SHA256_DIGEST_LENGTH> digest;
    SHA256Final(digest.data(), &context_->sum);
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : digest)
        text += {digits[byte >> 4], digits[byte & 15]};
    return text;
}

std::string sha256(const void* bytes, std::size_t count)
{
    Sha256 sum;
    sum.add(bytes, count);
    return sum.hex();
}

std::string sha256_of_file(const std::filesystem::path& file)
{
    Sha256 sum;
    sum.add_file(file);
    return sum.hex();
}

} // namespace echo2image
