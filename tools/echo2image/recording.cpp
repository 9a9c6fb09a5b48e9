#include "recording.h"

#include "description.h"
#include "digest.h"
#include "input_file.h"
#include "metaimage.h"
#include "npy.h"
#include "units.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <new>
#include <stdexcept>

namespace echo2image {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t block_bytes = 1 << 20; // read at once, when a frame is not simply one piece of the file

std::string extension_of(const fs::path& file)
{
    std::string extension = file.extension().u8string();
    for (char& c : extension)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return extension;
}

// The data file of a description.
fs::path find_data(const Stated& stated, const fs::path& data_folder)
{
    if (!stated.file)
        reject(stated.path, "file", "the name of the data file", "nothing");
    const fs::path file = fs::u8path(*stated.file);
    if (file.is_absolute())
        return file;
    if (!data_folder.empty())
        return data_folder / file;
    const fs::path beside = stated.path.parent_path() / file;
    std::error_code error;
    if (fs::exists(beside, error))
        return beside;
    const char* folder = std::getenv("UTILS_SSE_DATA");
    if (folder && *folder != '\0')
        return fs::path(folder) / file;
    reject(stated.path, "file",
           in_quotes(*stated.file) + " beside the description, or in the folder that --data or UTILS_SSE_DATA names",
           "no such file");
}

bool is_metaimage(const std::string& extension)
{
    return extension == ".mha" || extension == ".mhd";
}

// A description of the same name; .npy and MetaImage files may have one.
std::optional<Stated> read_description_beside(const fs::path& file)
{
    for (const char* extension : {".yml", ".yaml"}) {
        fs::path beside = file;
        beside.replace_extension(extension);
        std::error_code error;
        if (!fs::exists(beside, error))
            continue;
        Stated stated = read_description(beside);
        if (stated.file && fs::u8path(*stated.file) != file.filename())
            reject(beside, "file", name_of(file.filename()) + ", beside which the description stands", in_quotes(*stated.file));
        return stated;
    }
    return std::nullopt;
}

// An axis of the file as a frame needs it: how many steps, and what a step is in the file and in the frame.
struct Axis
{
    std::int64_t count;
    std::int64_t in_file;  // elements
    std::int64_t in_frame; // elements
};

// Which elements of the file make a frame. Axes slowest first; frame 0 starts at the first element.
struct FramePlan
{
    std::vector<Axis> axes;
    std::int64_t from_frame_to_frame = 0; // elements
    std::size_t size = 0;                 // of a frame, in elements
};

// Which firings of an ensemble a frame holds: the first ones, as lines behind one another or sample by sample.
struct Firings
{
    std::int64_t count = 1;
    bool by_sample = false;
};

FramePlan plan_of(const Description& description, const Firings& firings)
{
    const bool picture = std::find(description.axes.begin(), description.axes.end(), "row") != description.axes.end();
    const std::int64_t components = description.content == Content::iq ? 2 : 1;
    FramePlan plan;
    const std::int64_t line_size = description.samples * components; // of one firing
    const std::int64_t sample_step = components * (firings.by_sample ? firings.count : 1);
    plan.size = static_cast<std::size_t>(description.lines * firings.count * line_size);
    std::int64_t stride = 1;
    std::vector<Axis> axes; // fastest first
    for (std::size_t i = description.axes.size(); i-- > 0;) {
        const std::string& axis = description.axes[i];
        if (axis == "frame")
            plan.from_frame_to_frame = stride;
        else if (axis == "component")
            axes.push_back({components, stride, 1});
        else if (axis == "sample")
            axes.push_back({description.samples, stride, sample_step});
        else if (axis == "firing" && firings.count > 1)
            axes.push_back({firings.count, stride, firings.by_sample ? components : line_size});
        else if (axis == "line")
            axes.push_back({description.lines, stride, firings.count * line_size});
        else if (picture && axis == "column")
            axes.push_back({description.lines, stride, 1});
        else if (picture && axis == "row")
            axes.push_back({description.samples, stride, description.lines});
        stride *= description.shape[i];
    }
    for (const Axis& axis : axes) {
        // Axes that follow one another without a gap on both sides are one longer axis.
        if (!plan.axes.empty()) {
            Axis& last = plan.axes.back();
            if (axis.in_file == last.count * last.in_file && axis.in_frame == last.count * last.in_frame) {
                last.count *= axis.count;
                continue;
            }
        }
        plan.axes.push_back(axis);
    }
    std::reverse(plan.axes.begin(), plan.axes.end());
    return plan;
}

std::int16_t sample_at(const char* bytes, std::int16_t)
{
    const auto low = static_cast<unsigned char>(bytes[0]);
    const auto high = static_cast<unsigned char>(bytes[1]);
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(low | high << 8));
}

std::uint8_t sample_at(const char* bytes, std::uint8_t)
{
    return static_cast<std::uint8_t>(*bytes);
}

template <class Sample>
class FrameReader
{
public:
    FrameReader(const Description& description, const FramePlan& plan)
        : input_(description.data_file), header_(description.header_bytes), axes_(plan.axes), frame_(plan.size)
    {}

    std::vector<Sample> read(std::int64_t first_element)
    {
        read_axes(0, first_element, 0);
        return std::move(frame_);
    }

private:
    static constexpr auto bytes = static_cast<std::int64_t>(sizeof(Sample));

    // Elements of the file from the first to the last that the axes from `level` on touch.
    std::int64_t span(std::size_t level) const
    {
        std::int64_t elements = 1;
        for (; level < axes_.size(); ++level)
            elements += (axes_[level].count - 1) * axes_[level].in_file;
        return elements;
    }

    void read_axes(std::size_t level, std::int64_t in_file, std::int64_t in_frame)
    {
        Axis axis = axes_[level];
        const std::int64_t inner = span(level + 1);
        const std::int64_t room = block_bytes / bytes;
        // Steps of this axis that fit into a block; if not even one does, the axes below are cut.
        const std::int64_t piece = inner > room ? 0 : (room - inner) / axis.in_file + 1;
        for (std::int64_t i = 0; i < axis.count; i += std::max<std::int64_t>(piece, 1)) {
            const std::int64_t from = in_file + i * axis.in_file;
            const std::int64_t to = in_frame + i * axis.in_frame;
            if (piece == 0) {
                read_axes(level + 1, from, to);
                continue;
            }
            const std::int64_t count = std::min(piece, axis.count - i);
            block_.resize(static_cast<std::size_t>((inner + (count - 1) * axis.in_file) * bytes));
            input_.read(header_ + static_cast<std::uint64_t>(from * bytes), block_.data(), block_.size());
            scatter(level, count, block_.data(), frame_.data() + to);
        }
    }

    void scatter(std::size_t level, std::int64_t count, const char* from, Sample* to) const
    {
        const Axis& axis = axes_[level];
        for (std::int64_t i = 0; i < count; ++i)
            if (level + 1 < axes_.size())
                scatter(level + 1, axes_[level + 1].count, from + i * axis.in_file * bytes, to + i * axis.in_frame);
            else
                to[i * axis.in_frame] = sample_at(from + i * axis.in_file * bytes, Sample{});
    }

    InputFile input_;
    std::uint64_t header_;
    const std::vector<Axis>& axes_;
    std::vector<char> block_;
    std::vector<Sample> frame_;
};

template <class Sample>
std::vector<Sample> read_frame(const Description& description, std::int64_t frame, const Firings& firings = {})
{
    if (sizeof(Sample) != static_cast<std::size_t>(bytes_per_element(description.type)))
        throw std::logic_error(name_of(description.source) + ": the samples are of another type");
    if (frame < 0 || frame >= description.frames)
        reject(description.source, "frame", "0 to " + std::to_string(description.frames - 1), std::to_string(frame));
    const FramePlan plan = plan_of(description, firings);
    std::vector<Sample> samples;
    try {
        samples = FrameReader<Sample>(description, plan).read(frame * plan.from_frame_to_frame);
    } catch (const std::length_error&) {
        throw std::bad_alloc();
    }
    const auto line_size = static_cast<std::int64_t>(plan.size) / description.lines;
    const auto silence = static_cast<Sample>(std::lround(description.offset));
    for (const std::int64_t line : description.dead_lines)
        std::fill_n(samples.begin() + static_cast<std::ptrdiff_t>(line * line_size), line_size, silence);
    return samples;
}

std::string millimetres(double metres)
{
    return with_unit(metres, Quantity::length);
}

std::string spacing_and_place(const Description& d)
{
    const Geometry& g = d.geometry;
    const double lines = static_cast<double>(d.lines - 1);
    const double length = static_cast<double>(d.samples - 1) * d.sample_spacing;
    const auto range = [&](double from, double to, Quantity quantity) {
        return with_unit(from, quantity) + " to " + with_unit(to, quantity);
    };
    std::string text = to_string(g.kind);
    switch (g.kind) {
    case Geometry::Kind::steered:
        text += " by " + with_unit(g.steering, Quantity::angle);
        [[fallthrough]];
    case Geometry::Kind::linear:
        return text + ", lines from " + range(g.first_line, g.first_line + lines * g.line_pitch, Quantity::length) + " every " +
               millimetres(g.line_pitch) + ", samples from " + range(g.start_depth, g.start_depth + length, Quantity::length) +
               " along the line";
    case Geometry::Kind::sector:
    case Geometry::Kind::curved:
        return text + ", lines from " + range(g.first_angle, g.first_angle + lines * g.angle_step, Quantity::angle) +
               " every " + with_unit(g.angle_step, Quantity::angle) + ", samples from " +
               range(g.apex_radius, g.apex_radius + length, Quantity::length) + " from the apex";
    case Geometry::Kind::picture:
        return text + (g.row_spacing > 0
                           ? ", columns every " + millimetres(g.column_spacing) + ", rows every " + millimetres(g.row_spacing)
                           : ", size of a pixel not stated");
    }
    return text;
}

} // namespace

struct Recording::Impl
{
    Description description;
    std::vector<std::string> texts; // headers and descriptions
};

Recording::Recording(Description description) : impl_(std::make_unique<Impl>())
{
    check_layout(description);
    impl_->description = std::move(description);
}

Recording::Recording(Recording&&) noexcept = default;
Recording& Recording::operator=(Recording&&) noexcept = default;
Recording::~Recording() = default;

Recording Recording::open(const fs::path& file, const fs::path& data_folder, Need need)
{
    std::string extension = extension_of(file);
    std::optional<Stated> stated;
    fs::path data_file = file;
    if (extension == ".yml" || extension == ".yaml") {
        stated = read_description(file);
        data_file = find_data(*stated, data_folder);
        extension = extension_of(data_file);
    } else if (extension == ".npy" || is_metaimage(extension)) {
        InputFile{file};
        stated = read_description_beside(file);
    } else {
        reject(file, "", "a recording: a file whose name ends in .yml, .yaml, .npy, .mha or .mhd", in_quotes(extension));
    }

    Layout layout;
    std::string header;
    if (extension == ".npy") {
        layout = read_npy_header(data_file);
    } else if (is_metaimage(extension)) {
        MetaImage image = read_metaimage_header(data_file);
        layout = std::move(image.layout);
        header = std::move(image.header);
    } else {
        layout = layout_of_raw(*stated, data_file);
    }
    Recording recording(complete(file, stated ? &*stated : nullptr, layout, need));
    if (!header.empty())
        recording.impl_->texts.push_back(std::move(header));
    if (stated)
        recording.impl_->texts.push_back(std::move(stated->text));
    return recording;
}

const Description& Recording::description() const
{
    return impl_->description;
}

std::vector<std::int16_t> Recording::read_frame_i16(std::int64_t frame) const
{
    return read_frame<std::int16_t>(description(), frame);
}

std::vector<std::int16_t> Recording::read_firings_i16(std::int64_t frame) const
{
    return read_frame<std::int16_t>(description(), frame, {description().firings, false});
}

std::vector<std::int16_t> Recording::read_ensembles_i16(std::int64_t frame, std::int64_t firings) const
{
    const Description& d = description();
    if (d.content != Content::iq)
        reject(d.source, "content", "iq for ensembles", to_string(d.content));
    if (firings < 1 || firings > d.firings)
        reject(d.source, "firings", "1 to " + std::to_string(d.firings), std::to_string(firings));
    return read_frame<std::int16_t>(d, frame, {firings, true});
}

std::vector<std::uint8_t> Recording::read_frame_u8(std::int64_t frame) const
{
    return read_frame<std::uint8_t>(description(), frame);
}

std::string Recording::digest() const
{
    Sha256 sum;
    sum.add_file(description().data_file);
    for (const std::string& text : impl_->texts)
        sum.add(text.data(), text.size());
    return sum.hex();
}

std::string describe(const Recording& recording)
{
    const Description& d = recording.description();
    std::string text;
    const auto line = [&](const char* name, const std::string& value) {
        if (!value.empty())
            text.append(name).append(std::max<std::size_t>(1, 22 - std::string_view(name).size()), ' ').append(value) += '\n';
    };
    const auto known = [](double value, Quantity quantity) { return value == 0 ? std::string() : with_unit(value, quantity); };

    line("recording", name_of(d.source));
    line("title", d.title);
    line("data file", name_of(d.data_file));
    std::string layout = std::string(to_string(d.type)) + ' ';
    for (std::size_t i = 0; i < d.axes.size(); ++i)
        layout += '[' + std::to_string(d.shape[i]) + ' ' + d.axes[i] + (d.shape[i] == 1 ? "]" : "s]");
    if (d.header_bytes > 0)
        layout += " behind " + std::to_string(d.header_bytes) + " bytes of header";
    line("layout", d.format + ", " + layout);
    line("content", to_string(d.content));
    const bool picture = std::find(d.axes.begin(), d.axes.end(), "row") != d.axes.end();
    line("frames", std::to_string(d.frames) + (d.frame_rate > 0 ? " at " + with_unit(d.frame_rate, Quantity::frequency) : ""));
    line(picture ? "columns" : "lines",
         std::to_string(d.lines) + (d.dead_lines.empty() ? "" : ", " + std::to_string(d.dead_lines.size()) + " of them dead"));
    line(picture ? "rows" : "samples", std::to_string(d.samples));
    if (d.firings > 1)
        line("firings", std::to_string(d.firings) + (d.pulse_repetition_frequency > 0
                                                         ? " at " + with_unit(d.pulse_repetition_frequency, Quantity::frequency)
                                                         : ""));
    const bool sampling_known = d.sample_spacing > 0;
    if (!picture) {
        line("sampling frequency", d.sampling_frequency > 0 ? with_unit(d.sampling_frequency, Quantity::frequency)
                                   : sampling_known         ? ""
                                                            : "not stated");
        line("sample spacing", known(d.sample_spacing, Quantity::length));
        if (d.sampling_frequency > 0)
            line("sound speed", with_unit(d.sound_speed, Quantity::speed));
    }
    line("center frequency", known(d.center_frequency, Quantity::frequency));
    line("demodulated with", known(d.demodulation_frequency, Quantity::frequency));
    line("bandwidth", known(d.bandwidth, Quantity::frequency));
    line("offset", known(d.offset, Quantity::number));
    line("dynamic range", known(d.dynamic_range, Quantity::level));
    line("geometry", d.geometry_known ? spacing_and_place(d) : "not stated; a description must give it");
    return text;
}

} // namespace echo2image
