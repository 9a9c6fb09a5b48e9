#include "description.h"

#include "input_file.h"
#include "units.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <map>
#include <numeric>
#include <sstream>

namespace echo2image {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t most_text = 1 << 20; // bytes of a description
constexpr std::int64_t most_elements = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t most_bytes = std::int64_t{1} << 60; // of a data file
constexpr double pi = 3.14159265358979323846;

std::string found(const YAML::Node& node)
{
    switch (node.Type()) {
    case YAML::NodeType::Scalar:
        return in_quotes(node.Scalar());
    case YAML::NodeType::Sequence:
        return "a list";
    case YAML::NodeType::Map:
        return "a map";
    default:
        return "nothing";
    }
}

std::string at_line(const YAML::Mark& mark)
{
    return "line " + std::to_string(mark.line + 1);
}

std::optional<std::int64_t> whole_number(std::string_view text)
{
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

std::size_t edit_distance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t corner = row[0]++;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t changed = corner + (a[i] != b[j]);
            corner = row[j + 1];
            row[j + 1] = std::min({changed, corner + 1, row[j] + 1});
        }
    }
    return row.back();
}

template <class Value>
using Choices = std::vector<std::pair<const char*, Value>>;

const Choices<Content> contents = {{"rf", Content::rf}, {"iq", Content::iq}, {"bmode", Content::bmode}};
const Choices<ElementType> types = {{"int16", ElementType::int16}, {"uint8", ElementType::uint8}};
const Choices<Geometry::Kind> kinds = {{"linear", Geometry::Kind::linear},
                                       {"steered", Geometry::Kind::steered},
                                       {"sector", Geometry::Kind::sector},
                                       {"curved", Geometry::Kind::curved},
                                       {"picture", Geometry::Kind::picture}};

template <class Value>
const char* name_of_choice(const Choices<Value>& choices, Value value)
{
    for (const auto& [name, choice] : choices)
        if (choice == value)
            return name;
    return "?";
}

// The keys of one map. What nobody has asked for when finish() is called is unknown.
class Keys
{
public:
    Keys(const fs::path& file, std::string prefix, const YAML::Node& map) : file_(file), prefix_(std::move(prefix))
    {
        for (const auto& entry : map) {
            const std::string where = at_line(entry.first.Mark());
            if (!entry.first.IsScalar())
                reject(file_, where, "the name of a key", found(entry.first));
            const std::string& key = entry.first.Scalar();
            const auto [first, is_new] = entries_.try_emplace(key, entry.first, entry.second);
            if (!is_new)
                reject(file_, where, "every key once", in_quotes(key) + " again, after " + at_line(first->second.first.Mark()));
        }
    }

    const YAML::Node* find(const char* key)
    {
        asked_.emplace_back(key);
        const auto entry = entries_.find(key);
        return entry == entries_.end() ? nullptr : &entry->second.second;
    }

    [[noreturn]] void refuse(const char* key, const std::string& expected, const std::string& got) const
    {
        reject(file_, prefix_ + key, expected, got);
    }

    std::optional<double> quantity(const char* key, Quantity quantity, double least, double greatest)
    {
        const YAML::Node* node = find(key);
        if (!node)
            return std::nullopt;
        if (!node->IsScalar())
            refuse(key, example_of(quantity), found(*node));
        return quantity_of(name_of(file_) + ": " + prefix_ + key, node->Scalar(), quantity, least, greatest);
    }

    // A step from line to line: may be negative but not (nearly) zero.
    std::optional<double> step(const char* key, Quantity kind, double least, double greatest)
    {
        const std::optional<double> value = quantity(key, kind, -greatest, greatest);
        if (value && std::fabs(*value) < least)
            refuse(key, "at least " + with_unit(least, kind) + " (or the same below zero)", with_unit(*value, kind));
        return value;
    }

    std::optional<std::int64_t> whole(const char* key, std::int64_t least, std::int64_t greatest)
    {
        const YAML::Node* node = find(key);
        if (!node)
            return std::nullopt;
        return whole_of(key, *node, least, greatest);
    }

    std::optional<std::string> text(const char* key)
    {
        const YAML::Node* node = find(key);
        if (!node)
            return std::nullopt;
        constexpr std::size_t longest = 500;
        if (!node->IsScalar() || node->Scalar().empty())
            refuse(key, "text", node->IsScalar() ? "nothing" : found(*node));
        if (printable(node->Scalar()) != node->Scalar() || node->Scalar().size() > longest)
            refuse(key, "one line of at most " + std::to_string(longest) + " bytes", found(*node));
        return node->Scalar();
    }

    template <class Value>
    std::optional<Value> choice(const char* key, const Choices<Value>& choices)
    {
        const YAML::Node* node = find(key);
        if (!node)
            return std::nullopt;
        std::string names;
        for (std::size_t i = 0; i < choices.size(); ++i) {
            if (node->IsScalar() && node->Scalar() == choices[i].first)
                return choices[i].second;
            names += (i == 0 ? "" : i + 1 == choices.size() ? " or " : ", ") + std::string(choices[i].first);
        }
        refuse(key, names, found(*node));
    }

    std::vector<std::string> names(const char* key)
    {
        std::vector<std::string> list;
        for (const YAML::Node& item : items(key, "a list of names such as [frame, line, sample]"))
            list.push_back(item.IsScalar() ? item.Scalar() : found(item));
        return list;
    }

    std::vector<std::int64_t> counts(const char* key)
    {
        std::vector<std::int64_t> list;
        for (const YAML::Node& item : items(key, "a list of whole numbers such as [16, 128, 676]"))
            list.push_back(whole_of(key, item, 1, most_bytes));
        return list;
    }

    // "3", "1..15", or a list of these.
    std::vector<std::pair<std::int64_t, std::int64_t>> ranges(const char* key)
    {
        std::vector<std::pair<std::int64_t, std::int64_t>> list;
        const YAML::Node* node = find(key);
        if (!node)
            return list;
        std::vector<YAML::Node> nodes;
        if (node->IsSequence())
            for (const auto& item : *node)
                nodes.push_back(item);
        else
            nodes.push_back(*node);
        for (const YAML::Node& item : nodes) {
            const std::string text = item.IsScalar() ? item.Scalar() : "";
            const std::size_t dots = text.find("..");
            const auto from = whole_number(std::string_view(text).substr(0, dots));
            const auto to = dots == std::string::npos ? from : whole_number(std::string_view(text).substr(dots + 2));
            if (!from || !to || *from < 0 || *to < *from)
                refuse(key, "line numbers such as 3 or 1..15", found(item));
            list.emplace_back(*from, *to);
        }
        return list;
    }

    void finish() const
    {
        for (const auto& [key, entry] : entries_) {
            if (std::find(asked_.begin(), asked_.end(), key) != asked_.end())
                continue;
            const std::string_view name = std::string_view(key).substr(0, 48);
            const auto nearest = std::min_element(asked_.begin(), asked_.end(), [&](const auto& a, const auto& b) {
                return edit_distance(a, name) < edit_distance(b, name);
            });
            reject(file_, at_line(entry.first.Mark()), "a known key (the nearest is " + prefix_ + *nearest + ')',
                   in_quotes(prefix_ + key));
        }
    }

private:
    std::int64_t whole_of(const char* key, const YAML::Node& node, std::int64_t least, std::int64_t greatest) const
    {
        const std::optional<std::int64_t> value = node.IsScalar() ? whole_number(node.Scalar()) : std::nullopt;
        if (!value || *value < least || *value > greatest)
            refuse(key, "a whole number from " + std::to_string(least) + " to " + std::to_string(greatest), found(node));
        return *value;
    }

    std::vector<YAML::Node> items(const char* key, const char* expected)
    {
        const YAML::Node* node = find(key);
        if (!node)
            return {};
        if (!node->IsSequence() || node->size() == 0)
            refuse(key, expected, node->IsSequence() ? "an empty list" : found(*node));
        std::vector<YAML::Node> nodes;
        for (const auto& item : *node)
            nodes.push_back(item);
        return nodes;
    }

    const fs::path& file_;
    std::string prefix_;
    std::map<std::string, std::pair<YAML::Node, YAML::Node>> entries_;
    std::vector<std::string> asked_;
};

Stated::Place read_geometry(const fs::path& file, const YAML::Node& map)
{
    if (!map.IsMap())
        reject(file, "geometry", "a map such as {kind: linear, line_pitch: 0.3 mm}", found(map));
    Keys keys(file, "geometry.", map);
    Stated::Place place;
    const auto kind = keys.choice("kind", kinds);
    if (!kind)
        keys.refuse("kind", "linear, steered, sector, curved or picture", "nothing");
    place.kind = *kind;
    constexpr double micrometre = 1e-6;
    constexpr double least_angle = 1e-6;
    switch (place.kind) {
    case Geometry::Kind::steered:
        place.steering = keys.quantity("steering", Quantity::angle, -85 * pi / 180, 85 * pi / 180);
        [[fallthrough]];
    case Geometry::Kind::linear:
        place.first_line = keys.quantity("first_line", Quantity::length, -1, 1);
        place.line_pitch = keys.step("line_pitch", Quantity::length, micrometre, 0.05);
        place.start_depth = keys.quantity("start_depth", Quantity::length, 0, 1);
        break;
    case Geometry::Kind::sector:
    case Geometry::Kind::curved:
        place.first_angle = keys.quantity("first_angle", Quantity::angle, -pi, pi);
        place.angle_step = keys.step("angle_step", Quantity::angle, least_angle, pi);
        place.opening_angle = keys.step("opening_angle", Quantity::angle, least_angle, 2 * pi);
        place.apex_radius = keys.quantity("apex_radius", Quantity::length, 0, 1);
        break;
    case Geometry::Kind::picture:
        place.column_spacing = keys.quantity("column_spacing", Quantity::length, micrometre, 0.05);
        place.row_spacing = keys.quantity("row_spacing", Quantity::length, micrometre, 0.05);
        break;
    }
    keys.finish();
    return place;
}

// Goes through a document without keeping anything.
class Ignore : public YAML::EventHandler
{
public:
    void OnDocumentStart(const YAML::Mark&) override {}
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark&, YAML::anchor_t) override {}
    void OnAlias(const YAML::Mark&, YAML::anchor_t) override {}
    void OnScalar(const YAML::Mark&, const std::string&, YAML::anchor_t, const std::string&) override {}
    void OnSequenceStart(const YAML::Mark&, const std::string&, YAML::anchor_t, YAML::EmitterStyle::value) override {}
    void OnSequenceEnd() override {}
    void OnMapStart(const YAML::Mark&, const std::string&, YAML::anchor_t, YAML::EmitterStyle::value) override {}
    void OnMapEnd() override {}
};

// The one document of a description.
YAML::Node parse(const fs::path& file, const std::string& text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte == 0x7f || (byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r'))
            reject(file, "", "text", in_quotes(text.substr(i, 1)) + " at byte " + std::to_string(i));
    }
    YAML::Node document;
    bool another = false;
    try {
        document = YAML::Load(text);
        // Load() ignores what follows the first document, and LoadAll() never returns from some broken texts.
        std::istringstream stream(text);
        YAML::Parser parser(stream);
        Ignore ignore;
        another = parser.HandleNextDocument(ignore) && parser.HandleNextDocument(ignore);
    } catch (const YAML::Exception& error) {
        reject(file, at_line(error.mark), "YAML", "this error: " + printable(error.msg));
    }
    if (another)
        reject(file, "", "one YAML document", "more behind it");
    const char* expected = "a map of keys and values";
    if (document.IsNull())
        reject(file, "", expected, "an empty file");
    if (!document.IsMap())
        reject(file, "", expected, found(document));
    return document;
}

std::string list(const std::vector<std::string>& names)
{
    std::string text = "[";
    for (std::size_t i = 0; i < names.size(); ++i)
        text += (i == 0 ? "" : ", ") + printable(names[i]);
    return text.size() > 200 ? "a long list" : text + ']';
}

std::string list(const std::vector<std::int64_t>& counts)
{
    std::vector<std::string> names;
    for (const std::int64_t count : counts)
        names.push_back(std::to_string(count));
    return list(names);
}

std::string product(const Description& description)
{
    std::string text;
    for (const std::int64_t count : description.shape)
        text += std::to_string(count) + " x ";
    return text + std::to_string(bytes_per_element(description.type));
}

bool has_axis(const std::vector<std::string>& axes, const char* axis)
{
    return std::find(axes.begin(), axes.end(), axis) != axes.end();
}

std::int64_t count_of(const Description& description, const char* axis)
{
    const auto found_axis = std::find(description.axes.begin(), description.axes.end(), axis);
    return found_axis == description.axes.end()
               ? 1
               : description.shape[static_cast<std::size_t>(found_axis - description.axes.begin())];
}

// One reading of a description together with its data file.
class Completion
{
public:
    Completion(const fs::path& source, const Stated* stated, const Layout& layout, Need need)
        : stated_(stated ? *stated : Stated{}), described_(stated), layout_(layout), need_(need)
    {
        d_.source = source;
        d_.data_file = layout.data_file;
        d_.format = layout.format;
    }

    Description run()
    {
        set_layout();
        check_layout(d_);
        set_valid_samples();
        set_dead_lines();
        set_physics();
        set_geometry();
        set_sampling();
        d_.title = stated_.title.value_or("");
        return std::move(d_);
    }

private:
    const fs::path& where() const { return described_ ? stated_.path : d_.source; }

    [[noreturn]] void missing(const char* key, const std::string& expected) const
    {
        if (described_)
            reject(where(), key, expected, "nothing");
        fs::path beside = d_.source.filename();
        beside.replace_extension(".yml");
        reject(where(), key, expected + " in a description " + name_of(beside) + " beside the file", "no such file");
    }

    // A key that has a meaning for some recordings only.
    void only_for(bool suits, const char* key, const char* whose, bool given) const
    {
        if (given && !suits)
            reject(where(), key, std::string("this key for ") + whose + " only",
                   std::string("it with content ") + to_string(d_.content));
    }

    // The data file knows best; a description may repeat what it says.
    template <class Value>
    void agree(const char* key, const std::optional<Value>& stated, const Value& actual, const Choices<Value>& choices) const
    {
        if (stated && *stated != actual)
            reject(where(), key, std::string(name_of_choice(choices, actual)) + " as " + name_of(layout_.data_file) + " has it",
                   name_of_choice(choices, *stated));
    }

    void set_layout()
    {
        if (!stated_.content && !layout_.content)
            missing("content", "rf, iq or bmode");
        d_.content = layout_.content ? *layout_.content : *stated_.content;
        agree("content", stated_.content, d_.content, contents);
        d_.type = layout_.type;
        agree("type", stated_.type, d_.type, types);
        if ((d_.content == Content::bmode) != (d_.type == ElementType::uint8))
            reject(where(), "type",
                   std::string(d_.content == Content::bmode ? "uint8" : "int16") + " for content " + to_string(d_.content),
                   to_string(d_.type));

        if (layout_.axes.empty() && stated_.axes.empty())
            missing("axes", "the names of the axes " + list(layout_.shape) + ", such as [frame, line, sample]");
        d_.axes = layout_.axes.empty() ? stated_.axes : layout_.axes;
        if (!stated_.axes.empty() && stated_.axes != d_.axes)
            reject(where(), "axes", list(d_.axes) + " as " + name_of(layout_.data_file) + " has them", list(stated_.axes));
        d_.shape = layout_.shape;
        if (!stated_.shape.empty() && stated_.shape != d_.shape)
            reject(where(), "shape", list(d_.shape) + " as " + name_of(layout_.data_file) + " has it", list(stated_.shape));
        if (d_.axes.size() != d_.shape.size())
            reject(where(), "axes", "one name for each of the " + std::to_string(d_.shape.size()) + " axes " + list(d_.shape),
                   list(d_.axes));
        if (layout_.fastest_first) {
            std::reverse(d_.axes.begin(), d_.axes.end());
            std::reverse(d_.shape.begin(), d_.shape.end());
        }
        d_.header_bytes = layout_.header_bytes;
        if (stated_.header_bytes && *stated_.header_bytes != d_.header_bytes)
            reject(where(), "header_bytes", std::to_string(d_.header_bytes) + " as " + name_of(layout_.data_file) + " has it",
                   std::to_string(*stated_.header_bytes));
    }

    void set_valid_samples()
    {
        if (!stated_.valid_samples)
            return;
        if (is_picture())
            reject(where(), "valid_samples", "this key for lines only", "it with the axes row and column");
        if (*stated_.valid_samples > d_.samples)
            reject(where(), "valid_samples", "1 to " + std::to_string(d_.samples), std::to_string(*stated_.valid_samples));
        d_.samples = *stated_.valid_samples;
    }

    void set_dead_lines()
    {
        std::vector<std::pair<std::int64_t, std::int64_t>> ranges = stated_.dead_lines;
        if (!ranges.empty() && is_picture())
            reject(where(), "dead_lines", "this key for lines only", "it with the axes row and column");
        std::sort(ranges.begin(), ranges.end());
        std::int64_t next = 0; // what lies before is in the list already
        for (const auto& [from, to] : ranges) {
            if (to >= d_.lines)
                reject(where(), "dead_lines", "lines 0 to " + std::to_string(d_.lines - 1), std::to_string(to));
            for (std::int64_t line = std::max(from, next); line <= to; ++line)
                d_.dead_lines.push_back(line);
            next = std::max(next, to + 1);
        }
    }

    void set_physics()
    {
        const bool rf = d_.content == Content::rf;
        const bool iq = d_.content == Content::iq;
        only_for(rf, "offset", "rf", stated_.offset.has_value());
        only_for(iq, "demodulation_frequency", "iq", stated_.demodulation_frequency.has_value());
        only_for(rf || iq, "bandwidth", "rf and iq", stated_.bandwidth.has_value());
        only_for(d_.content == Content::bmode, "dynamic_range", "bmode", stated_.dynamic_range.has_value());
        d_.center_frequency = stated_.center_frequency.value_or(0);
        d_.demodulation_frequency = stated_.demodulation_frequency.value_or(0);
        d_.bandwidth = stated_.bandwidth.value_or(0);
        d_.sound_speed = stated_.sound_speed.value_or(d_.sound_speed);
        d_.offset = stated_.offset.value_or(0);
        d_.frame_rate = stated_.frame_rate.value_or(layout_.frame_rate);
        d_.pulse_repetition_frequency = stated_.pulse_repetition_frequency.value_or(0);
        d_.dynamic_range = stated_.dynamic_range.value_or(0);
    }

    bool is_picture() const { return has_axis(d_.axes, "row"); }

    void set_geometry()
    {
        if (!stated_.geometry && is_picture()) {
            d_.geometry.kind = Geometry::Kind::picture;
        } else if (!stated_.geometry) {
            if (need_ == Need::picture)
                missing("geometry", "a map such as {kind: linear, line_pitch: 0.3 mm}");
            d_.geometry_known = false;
            return;
        }
        const Stated::Place place = stated_.geometry.value_or(Stated::Place{});
        Geometry& geometry = d_.geometry;
        if (stated_.geometry)
            geometry.kind = place.kind;
        if ((geometry.kind == Geometry::Kind::picture) != is_picture())
            reject(where(), "geometry.kind",
                   is_picture() ? "picture for the axes row and column" : "a kind of lines for the axes line and sample",
                   to_string(geometry.kind));
        const double steps = static_cast<double>(d_.lines - 1);
        switch (geometry.kind) {
        case Geometry::Kind::steered:
            if (!place.steering)
                missing("geometry.steering", "an angle such as 15 deg");
            geometry.steering = *place.steering;
            [[fallthrough]];
        case Geometry::Kind::linear:
            if (!place.line_pitch)
                missing("geometry.line_pitch", "a length such as 0.3 mm");
            geometry.line_pitch = *place.line_pitch;
            geometry.first_line = place.first_line.value_or(-0.5 * steps * geometry.line_pitch);
            geometry.start_depth = place.start_depth.value_or(0);
            break;
        case Geometry::Kind::sector:
        case Geometry::Kind::curved:
            set_fan(place, steps);
            break;
        case Geometry::Kind::picture:
            geometry.column_spacing = place.column_spacing.value_or(layout_.column_spacing);
            geometry.row_spacing = place.row_spacing.value_or(layout_.row_spacing);
            if ((geometry.column_spacing > 0) != (geometry.row_spacing > 0))
                missing(geometry.row_spacing > 0 ? "geometry.column_spacing" : "geometry.row_spacing",
                        "both column_spacing and row_spacing or neither");
            break;
        }
    }

    void set_fan(const Stated::Place& place, double steps)
    {
        if (place.angle_step.has_value() == place.opening_angle.has_value())
            reject(where(), "geometry.angle_step", "either angle_step or opening_angle", place.angle_step ? "both" : "neither");
        if (place.opening_angle && d_.lines < 2)
            reject(where(), "geometry.opening_angle", "angle_step for a fan of one line", "opening_angle");
        const bool curved = place.kind == Geometry::Kind::curved;
        if (!place.apex_radius || (curved && *place.apex_radius <= 0))
            missing("geometry.apex_radius", curved ? "a length above 0 such as 60 mm" : "a length such as 0 mm or 80 mm");
        Geometry& geometry = d_.geometry;
        geometry.apex_radius = *place.apex_radius;
        geometry.angle_step = place.angle_step ? *place.angle_step : *place.opening_angle / steps;
        geometry.first_angle = place.first_angle.value_or(-0.5 * steps * geometry.angle_step);
        const double last_angle = geometry.first_angle + steps * geometry.angle_step;
        if (std::fabs(geometry.first_angle) > pi || std::fabs(last_angle) > pi)
            reject(where(), "geometry", "angles within 180 deg of straight down",
                   with_unit(geometry.first_angle, Quantity::angle) + " to " + with_unit(last_angle, Quantity::angle));
    }

    void set_sampling()
    {
        const std::optional<double>& frequency = stated_.sampling_frequency;
        const std::optional<double>& spacing = stated_.sample_spacing;
        if (is_picture()) {
            if (frequency || spacing)
                reject(where(), frequency ? "sampling_frequency" : "sample_spacing", "this key for lines only",
                       "it with the axes row and column");
            return;
        }
        if (frequency && spacing)
            reject(where(), "sample_spacing", "either it or sampling_frequency (the sound speed gives the other)", "both");
        if (need_ == Need::picture && !frequency) {
            if (d_.content == Content::rf)
                missing("sampling_frequency", "a frequency such as 20 MHz");
            else if (!spacing)
                missing("sampling_frequency", "a frequency such as 20 MHz, or sample_spacing");
        }
        d_.sampling_frequency = frequency.value_or(0);
        d_.sample_spacing = frequency ? d_.sound_speed / (2 * *frequency) : spacing.value_or(0);
    }

    Stated stated_;
    bool described_;
    const Layout& layout_;
    Need need_;
    Description d_;
};

} // namespace

Stated read_description(const fs::path& path)
{
    Stated stated;
    stated.path = path;
    stated.text = InputFile(path).text(most_text);
    Keys keys(path, "", parse(path, stated.text));

    stated.file = keys.text("file");
    stated.title = keys.text("title");
    stated.content = keys.choice("content", contents);
    stated.type = keys.choice("type", types);
    stated.axes = keys.names("axes");
    stated.shape = keys.counts("shape");
    if (const auto bytes = keys.whole("header_bytes", 0, most_bytes))
        stated.header_bytes = static_cast<std::uint64_t>(*bytes);
    stated.valid_samples = keys.whole("valid_samples", 1, most_elements);
    stated.dead_lines = keys.ranges("dead_lines");

    const auto frequency = [&](const char* key, double least) { return keys.quantity(key, Quantity::frequency, least, 1e9); };
    stated.sampling_frequency = frequency("sampling_frequency", 1e4);
    stated.sample_spacing = keys.quantity("sample_spacing", Quantity::length, 1e-7, 0.01);
    stated.center_frequency = frequency("center_frequency", 1e4);
    stated.demodulation_frequency = frequency("demodulation_frequency", 1e4);
    stated.bandwidth = frequency("bandwidth", 1e3);
    stated.sound_speed = keys.quantity("sound_speed", Quantity::speed, 100, 20000);
    stated.offset = keys.quantity("offset", Quantity::number, -32768, 32767);
    stated.frame_rate = keys.quantity("frame_rate", Quantity::frequency, 1e-3, 1e6);
    stated.pulse_repetition_frequency = keys.quantity("pulse_repetition_frequency", Quantity::frequency, 1, 1e6);
    stated.dynamic_range = keys.quantity("dynamic_range", Quantity::level, 1, 200);
    if (const YAML::Node* geometry = keys.find("geometry"))
        stated.geometry = read_geometry(path, *geometry);
    keys.finish();
    return stated;
}

Layout layout_of_raw(const Stated& stated, const fs::path& data_file)
{
    Layout layout;
    layout.data_file = data_file;
    layout.format = "raw";
    if (!stated.type)
        reject(stated.path, "type", "int16 or uint8", "nothing");
    layout.type = *stated.type;
    if (stated.shape.empty())
        reject(stated.path, "shape", "a list of whole numbers such as [16, 128, 676]", "nothing");
    layout.shape = stated.shape;
    layout.header_bytes = stated.header_bytes.value_or(0);
    return layout;
}

Description complete(const fs::path& source, const Stated* stated, const Layout& layout, Need need)
{
    return Completion(source, stated, layout, need).run();
}

void check_layout(Description& description)
{
    const fs::path& where = description.source;
    const std::vector<std::string>& axes = description.axes;
    const bool picture = has_axis(axes, "row") || has_axis(axes, "column");
    std::vector<std::string> needed = {"line", "sample"};
    std::vector<std::string> allowed = {"frame", "firing"};
    if (picture) {
        needed = {"row", "column"};
        allowed = {"frame"};
    } else if (description.content == Content::iq) {
        needed.emplace_back("component");
    } else if (description.content == Content::bmode) {
        allowed = {"frame"};
    }
    if (picture && description.content != Content::bmode)
        reject(where, "axes", std::string("line and sample for content ") + to_string(description.content), list(axes));
    const auto known = [&](const std::string& axis) {
        return has_axis(needed, axis.c_str()) || has_axis(allowed, axis.c_str());
    };
    bool valid = axes.size() == description.shape.size() && std::all_of(axes.begin(), axes.end(), known);
    for (const std::string& axis : needed)
        valid = valid && has_axis(axes, axis.c_str());
    for (const std::string& axis : axes)
        valid = valid && std::count(axes.begin(), axes.end(), axis) == 1;
    if (!valid)
        reject(where, "axes", "each of " + list(needed) + " once, and perhaps some of " + list(allowed), list(axes));

    const std::int64_t element = bytes_per_element(description.type);
    std::int64_t bytes = element;
    for (const std::int64_t count : description.shape) {
        if (count < 1 || count > most_bytes / bytes)
            reject(where, "shape", "positive numbers that describe at most " + std::to_string(most_bytes) + " bytes",
                   list(description.shape));
        bytes *= count;
    }
    if (description.content == Content::iq && count_of(description, "component") != 2)
        reject(where, "shape", "2 components, I and Q", std::to_string(count_of(description, "component")));
    description.frames = count_of(description, "frame");
    description.firings = count_of(description, "firing");
    description.lines = count_of(description, picture ? "column" : "line");
    const std::int64_t samples = count_of(description, picture ? "row" : "sample");
    const std::int64_t elements = bytes / element / description.frames / description.firings;
    if (elements > most_elements)
        reject(where, "shape", "at most " + std::to_string(most_elements) + " elements per frame", std::to_string(elements));
    if (description.samples == 0)
        description.samples = samples;
    if (description.samples < 1 || description.samples > samples)
        reject(where, "samples", "1 to " + std::to_string(samples), std::to_string(description.samples));

    if (description.format == "DICOM") // its pixels are compressed, as a rule
        return;
    const std::uint64_t size = InputFile(description.data_file).size();
    const std::uint64_t header = description.header_bytes;
    if (header > static_cast<std::uint64_t>(most_bytes) || size != header + static_cast<std::uint64_t>(bytes))
        reject(description.data_file, "",
               std::to_string(header + static_cast<std::uint64_t>(bytes)) + " bytes (" + std::to_string(header) +
                   " of header and " + product(description) + ')',
               std::to_string(size));
}

std::int64_t bytes_per_element(ElementType type)
{
    return type == ElementType::int16 ? 2 : 1;
}

const char* to_string(ElementType type)
{
    return name_of_choice(types, type);
}

const char* to_string(Geometry::Kind kind)
{
    return name_of_choice(kinds, kind);
}

} // namespace echo2image
