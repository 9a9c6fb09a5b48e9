// The demo's part about flow.
#pragma once

#include <cstdint>
#include <filesystem>

namespace echo2image {

// Makes colour.png of the built-in vessel in the folder, prints its profile and the checks against the truth, and returns
// whether all are right. Throws BadInput.
bool demo_colour(const std::filesystem::path& folder, std::uint32_t seed);

} // namespace echo2image
