// What people type behind options, checked.
#ifndef ECHO2IMAGE_OPTION_VALUES_H
#define ECHO2IMAGE_OPTION_VALUES_H

#include <cstdint>
#include <filesystem>
#include <string>

namespace echo2image {

// The whole number that `text`, the value of the option `name`, stands for. BadInput unless it is one from least to greatest.
std::int64_t whole_number(const std::string& name, const std::string& text, std::int64_t least, std::int64_t greatest);

// BadInput unless the file name of the option `name` ends in this extension (".png").
void expect_extension(const std::string& name, const std::filesystem::path& file, const char* extension);

} // namespace echo2image

#endif
