#include "option_values.h"

#include "bad_input.h"

#include <charconv>
#include <system_error>

namespace echo2image {

std::int64_t whole_number(const std::string& name, const std::string& text, std::int64_t least, std::int64_t greatest)
{
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < least || value > greatest)
        throw BadInput(name + ": expected a whole number from " + std::to_string(least) + " to " + std::to_string(greatest) +
                       ", found \"" + text + "\"");
    return value;
}

void expect_extension(const std::string& name, const std::filesystem::path& file, const char* extension)
{
    if (file.extension() != extension)
        throw BadInput(name + ": expected a file name ending in " + extension + ", found \"" + file.string() + "\"");
}

} // namespace echo2image
