#include "metaimage.h"

#include "input_file.h"
#include "units.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <sstream>

namespace echo2image {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t most_header = 1 << 24; // one text line per frame and quantity can add up
constexpr const char* last_field = "ElementDataFile";

class Header
{
public:
    // Reads up to and including the field ElementDataFile, behind which samples may follow.
    explicit Header(InputFile& input) : file_(input.path())
    {
        std::string line;
        std::string block;
        while (fields_.count(last_field) == 0) {
            if (size_ + block.size() >= std::min(most_header, input.size()) && block.empty())
                reject(file_, last_field, "this field at the end of a header", "none");
            if (block.empty()) {
                block.resize(static_cast<std::size_t>(std::min<std::uint64_t>(1 << 14, input.size() - size_)));
                input.read(size_, block.data(), block.size());
            }
            const std::size_t end = std::min(block.find('\n'), block.size());
            const std::size_t taken = std::min(end + 1, block.size());
            line.append(block, 0, end);
            size_ += taken;
            const bool whole = end < block.size() || size_ == input.size();
            block.erase(0, taken);
            if (whole) {
                add(line);
                line.clear();
            }
        }
    }

    std::uint64_t size() const { return size_; }

    const std::string* find(const char* name) const
    {
        const auto field = fields_.find(name);
        return field == fields_.end() ? nullptr : &field->second;
    }

    const std::string& at(const char* name) const
    {
        const std::string* value = find(name);
        if (!value)
            reject(file_, name, "this field", "none");
        return *value;
    }

    bool flag(const char* name) const
    {
        const std::string* value = find(name);
        if (!value)
            return false;
        const bool yes = *value == "True" || *value == "true" || *value == "TRUE" || *value == "1";
        if (!yes && *value != "False" && *value != "false" && *value != "FALSE" && *value != "0")
            reject(file_, name, "True or False", in_quotes(*value));
        return yes;
    }

    // One or more numbers, separated by blanks.
    std::vector<double> numbers(const char* name) const
    {
        std::istringstream words(at(name));
        std::vector<double> values;
        for (std::string word; words >> word;) {
            const auto value = parse_quantity(word, Quantity::number);
            if (!value)
                reject(file_, name, "numbers", in_quotes(at(name)));
            values.push_back(*value);
        }
        return values;
    }

    std::vector<std::int64_t> whole_numbers(const char* name, std::int64_t least) const
    {
        constexpr double most = 9007199254740992; // doubles are exact so far
        std::vector<std::int64_t> values;
        for (const double value : numbers(name)) {
            if (!(value >= static_cast<double>(least) && value <= most && value == std::floor(value)))
                reject(file_, name, "whole numbers from " + std::to_string(least) + " on", in_quotes(at(name)));
            values.push_back(static_cast<std::int64_t>(value));
        }
        return values;
    }

    std::int64_t whole_number(const char* name, std::int64_t least, std::int64_t otherwise) const
    {
        if (!find(name))
            return otherwise;
        const std::vector<std::int64_t> values = whole_numbers(name, least);
        if (values.size() != 1)
            reject(file_, name, "one number", in_quotes(at(name)));
        return values.front();
    }

private:
    void add(std::string line)
    {
        ++line_;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        const std::string where = "line " + std::to_string(line_);
        if (std::any_of(line.begin(), line.end(), [](unsigned char c) { return (c < 0x20 && c != '\t') || c == 0x7f; }))
            reject(file_, where, "text", in_quotes(line));
        if (line.find_first_not_of(" \t") == std::string::npos)
            return;
        const std::size_t equals = line.find('=');
        const std::string name = trimmed(line.substr(0, std::min(equals, line.size())));
        if (equals == std::string::npos || name.empty())
            reject(file_, where, "\"Field = value\"", in_quotes(line));
        if (!fields_.emplace(name, trimmed(line.substr(equals + 1))).second)
            reject(file_, where, "every field once", in_quotes(name) + " again");
    }

    static std::string trimmed(const std::string& text)
    {
        const std::size_t first = text.find_first_not_of(" \t");
        return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t") - first + 1);
    }

    const fs::path& file_;
    std::uint64_t size_ = 0;
    int line_ = 0;
    std::map<std::string, std::string> fields_;
};

// What UltrasoundImageOrientation says of the first two dimensions.
enum class Orientation
{
    unknown,
    depth_first,   // F.: the fastest dimension runs away from the probe
    lateral_first, // .F
};

Orientation orientation_of(const fs::path& file, const Header& header)
{
    constexpr const char* name = "UltrasoundImageOrientation";
    const std::string* text = header.find(name);
    if (!text)
        return Orientation::unknown;
    const std::string letters = text->substr(0, 2);
    if (letters == "FM" || letters == "FU")
        return Orientation::depth_first;
    if (letters == "MF" || letters == "UF")
        return Orientation::lateral_first;
    reject(file, name, "depth that runs away from the probe: FM, FU, MF or UF", in_quotes(*text));
}

// Names the axes of the ultrasound image types. Shapes come as the header has them, slowest first.
void apply_image_type(const fs::path& file, const Header& header, Layout& layout)
{
    constexpr const char* name = "UltrasoundImageType";
    const std::string* type = header.find(name);
    if (!type)
        return;
    const bool brightness = *type == "BRIGHTNESS";
    const bool iq_line = *type == "RF_IQ_LINE";
    const bool i_line_q_line = *type == "RF_I_LINE_Q_LINE";
    if (!brightness && !iq_line && !i_line_q_line && *type != "RF_REAL")
        reject(file, name, "BRIGHTNESS, RF_REAL, RF_IQ_LINE or RF_I_LINE_Q_LINE", in_quotes(*type));
    if (layout.shape.size() < 2 || layout.shape.size() > 3)
        reject(file, "NDims", std::string("2 or 3 for ") + *type, std::to_string(layout.shape.size()));
    const bool pairs = iq_line || i_line_q_line;
    layout.content = brightness ? Content::bmode : pairs ? Content::iq : Content::rf;

    const Orientation orientation = orientation_of(file, header);
    if (pairs) {
        // Pairs stand along a line, so the first dimension is depth or the file contradicts itself.
        if (orientation == Orientation::lateral_first)
            reject(file, "UltrasoundImageOrientation", std::string("FM or FU for ") + *type,
                   in_quotes(header.at("UltrasoundImageOrientation")));
        std::int64_t& doubled = layout.shape[layout.shape.size() - (iq_line ? 1 : 2)];
        if (doubled % 2 != 0)
            reject(file, "DimSize", "an even number of numbers I and Q", in_quotes(header.at("DimSize")));
        doubled /= 2;
        layout.shape.insert(layout.shape.end() - (iq_line ? 0 : 1), 2);
    }
    if (orientation == Orientation::unknown)
        return;
    const bool depth_first = orientation == Orientation::depth_first;
    const std::string depth = brightness ? "row" : "sample";
    const std::string lateral = brightness ? "column" : "line";
    layout.axes = {depth_first ? lateral : depth, depth_first ? depth : lateral};
    if (pairs)
        layout.axes.insert(layout.axes.end() - (iq_line ? 0 : 1), "component");
    if (header.whole_numbers("DimSize", 1).size() == 3)
        layout.axes.insert(layout.axes.begin(), "frame");

    if (!brightness || !header.find("ElementSpacing"))
        return;
    // Millimetres. All ones is what stands there when nobody knew.
    const std::vector<double> spacing = header.numbers("ElementSpacing");
    const auto sound = [](double millimetres) { return millimetres >= 1e-3 && millimetres <= 50; };
    if (spacing.size() != header.whole_numbers("DimSize", 1).size() || !sound(spacing[0]) || !sound(spacing[1]))
        reject(file, "ElementSpacing", "a spacing from 0.001 to 50 mm for each dimension",
               in_quotes(header.at("ElementSpacing")));
    if (std::all_of(spacing.begin(), spacing.end(), [](double value) { return value == 1; }))
        return;
    layout.row_spacing = spacing[depth_first ? 0 : 1] / 1000;
    layout.column_spacing = spacing[depth_first ? 1 : 0] / 1000;
}

void refuse_what_cannot_be_read(const fs::path& file, const Header& header, ElementType type)
{
    if (const std::string* kind = header.find("ObjectType"); kind && *kind != "Image")
        reject(file, "ObjectType", "Image", in_quotes(*kind));
    if (header.find("BinaryData") && !header.flag("BinaryData"))
        reject(file, "BinaryData", "True (samples as text are not read)", in_quotes(header.at("BinaryData")));
    if (header.flag("CompressedData"))
        reject(file, "CompressedData", "False (compressed samples are not read)", in_quotes(header.at("CompressedData")));
    for (const char* name : {"BinaryDataByteOrderMSB", "ElementByteOrderMSB"})
        if (header.flag(name) && type != ElementType::uint8)
            reject(file, name, "False (big-endian samples are not read)", in_quotes(header.at(name)));
}

} // namespace

MetaImage read_metaimage_header(const fs::path& file)
{
    InputFile input(file);
    const Header header(input);

    MetaImage image;
    Layout& layout = image.layout;
    layout.format = "MetaImage";
    const std::string& type = header.at("ElementType");
    if (type == "MET_SHORT")
        layout.type = ElementType::int16;
    else if (type == "MET_UCHAR")
        layout.type = ElementType::uint8;
    else
        reject(file, "ElementType", "MET_SHORT or MET_UCHAR", in_quotes(type));
    refuse_what_cannot_be_read(file, header, layout.type);

    layout.shape = header.whole_numbers("DimSize", 1);
    const std::int64_t dimensions = header.whole_number("NDims", 1, -1);
    if (dimensions < 0)
        header.at("NDims");
    if (dimensions != static_cast<std::int64_t>(layout.shape.size()))
        reject(file, "DimSize", std::to_string(dimensions) + " numbers, as NDims says", in_quotes(header.at("DimSize")));
    std::reverse(layout.shape.begin(), layout.shape.end()); // the header has the fastest first
    if (const std::int64_t channels = header.whole_number("ElementNumberOfChannels", 1, 1); channels > 1) {
        if (header.find("UltrasoundImageType"))
            reject(file, "ElementNumberOfChannels", "1 for an ultrasound image", std::to_string(channels));
        layout.shape.push_back(channels);
    }
    apply_image_type(file, header, layout);

    const std::string& data = header.at(last_field);
    const std::int64_t header_size = header.whole_number("HeaderSize", -1, 0);
    if (data == "LOCAL" || data == "Local" || data == "local") {
        if (header_size != 0)
            reject(file, "HeaderSize", "none where the samples follow the header", std::to_string(header_size));
        layout.data_file = file;
        layout.header_bytes = header.size();
        return image;
    }
    if (data.empty() || data == "LIST" || data.find('%') != std::string::npos)
        reject(file, last_field, "LOCAL or the name of one file", in_quotes(data));
    layout.data_file = file.parent_path() / fs::u8path(data);
    image.header = input.text(most_header);
    if (header_size >= 0) {
        layout.header_bytes = static_cast<std::uint64_t>(header_size);
        return image;
    }
    // -1: the samples are the last bytes of the file.
    std::uint64_t bytes = static_cast<std::uint64_t>(bytes_per_element(layout.type));
    const std::uint64_t size = InputFile(layout.data_file).size();
    for (const std::int64_t count : layout.shape)
        bytes = static_cast<std::uint64_t>(count) > size / bytes ? size + 1 : bytes * static_cast<std::uint64_t>(count);
    layout.header_bytes = bytes <= size ? size - bytes : 0;
    return image;
}

} // namespace echo2image
