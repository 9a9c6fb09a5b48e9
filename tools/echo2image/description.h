// What a recording's files say of it: a YAML description, the data file itself, or both together.
#pragma once

#include "recording.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace echo2image {

// A YAML description, checked key by key. What may be missing depends on the data file: see complete().
struct Stated
{
    std::filesystem::path path;
    std::string text; // as read

    std::optional<std::string> file;
    std::optional<std::string> title;
    std::optional<Content> content;
    std::optional<ElementType> type;
    std::vector<std::string> axes;   // empty when not stated
    std::vector<std::int64_t> shape; // empty when not stated
    std::optional<std::uint64_t> header_bytes;
    std::optional<std::int64_t> valid_samples;
    std::vector<std::pair<std::int64_t, std::int64_t>> dead_lines; // from, to

    std::optional<double> sampling_frequency;
    std::optional<double> sample_spacing;
    std::optional<double> center_frequency;
    std::optional<double> demodulation_frequency;
    std::optional<double> bandwidth;
    std::optional<double> sound_speed;
    std::optional<double> offset;
    std::optional<double> frame_rate;
    std::optional<double> pulse_repetition_frequency;
    std::optional<double> dynamic_range;

    struct Place // of the lines; see Geometry
    {
        Geometry::Kind kind = Geometry::Kind::linear;
        std::optional<double> first_line;
        std::optional<double> line_pitch;
        std::optional<double> steering;
        std::optional<double> first_angle;
        std::optional<double> angle_step;
        std::optional<double> opening_angle; // from the first line to the last
        std::optional<double> apex_radius;
        std::optional<double> start_depth;
        std::optional<double> column_spacing;
        std::optional<double> row_spacing;
    };
    std::optional<Place> geometry;
};

// What a data file says of its samples.
struct Layout
{
    std::filesystem::path data_file;
    std::string format;
    ElementType type = ElementType::int16;
    std::uint64_t header_bytes = 0;
    std::vector<std::int64_t> shape; // in the order of the axes
    bool fastest_first = false;      // the first axis is the fastest one in the file
    // Of files that say more than type and shape:
    std::optional<Content> content;
    std::vector<std::string> axes; // empty when unknown
    double column_spacing = 0;     // metres; 0 when unknown
    double row_spacing = 0;
    double frame_rate = 0; // Hz
};

Stated read_description(const std::filesystem::path& path); // throws BadInput

// The layout of raw samples, which only the description knows.
Layout layout_of_raw(const Stated& stated, const std::filesystem::path& data_file); // throws BadInput

// Both together; `stated` may be null. Throws BadInput for what contradicts, is missing, or does not suit the content.
Description complete(const std::filesystem::path& source, const Stated* stated, const Layout& layout, Need need);

// Sets frames, lines, firings, and samples when it is 0, from axes and shape, and holds the data file's size against them.
// Throws BadInput.
void check_layout(Description& description);

std::int64_t bytes_per_element(ElementType type);
const char* to_string(ElementType type);

} // namespace echo2image
