#include "bad_input.h"
#include "bmode.h"
#include "portable_math.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

namespace echo2image {

namespace {

constexpr int narrowest_fitting = 512; // pixels, when no width is asked for
constexpr int widest_fitting = 1024;
constexpr int highest_fitting = 2048;
constexpr int least_side = 1;
constexpr int greatest_side = 16384;
constexpr std::int64_t most_lines = 65535; // Q16 indices are 32 bits wide
constexpr std::size_t kept_pixels = 1 << 20;
// Sizes beyond these are mistakes, and within them every index fits its integer.
constexpr double farthest = 1000;      // metres
constexpr double least_spacing = 1e-9; // metres or radians
constexpr double steepest = 85 * portable::pi / 180;

constexpr std::uint32_t outside = 0xffffffff;

std::string number(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::int64_t q16(double index)
{
    return static_cast<std::int64_t>(std::floor(index * 65536 + 0.5));
}

// Q16 index of something that owns half of the way to its neighbours; `outside` beyond.
std::uint32_t owned(std::int64_t index, std::int64_t count)
{
    if (index < -32768 || index >= count * 65536 - 32768)
        return outside;
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(index, 0, (count - 1) * 65536));
}

bool within_reach(double metres)
{
    return std::fabs(metres) <= farthest;
}

bool spaced(double spacing)
{
    return std::fabs(spacing) >= least_spacing && within_reach(spacing);
}

// Every sample replaced by the mean of the `count` (odd) samples around it, of fewer at the ends; rounded to nearest.
std::vector<std::uint8_t> averaged(const std::vector<std::uint8_t>& lines, std::int64_t samples, std::int64_t count)
{
    const std::int64_t reach = count / 2;
    std::vector<std::uint8_t> means(lines.size());
    for (std::size_t line = 0; line < lines.size(); line += static_cast<std::size_t>(samples)) {
        const std::uint8_t* values = lines.data() + line;
        std::uint32_t sum = 0;
        std::uint32_t summed = 0;
        for (std::int64_t next = 0; next < samples + reach; ++next) {
            if (next < samples) {
                sum += values[next];
                ++summed;
            }
            if (next >= count) {
                sum -= values[next - count];
                --summed;
            }
            if (next >= reach)
                means[line + static_cast<std::size_t>(next - reach)] =
                    static_cast<std::uint8_t>((2 * sum + summed) / (2 * summed));
        }
    }
    return means;
}

// An odd number of samples that a pixel covers.
std::int64_t covered(double pixel_size, double sample_step, std::int64_t samples)
{
    const double count = std::min(pixel_size / sample_step, static_cast<double>(samples));
    return 2 * static_cast<std::int64_t>((count - 1) / 2) + 1;
}

void expect(bool valid, const char* what, const char* expected, double found)
{
    if (!valid)
        throw BadInput(std::string("geometry: ") + what + " must be " + expected + ", found " + number(found));
}

} // namespace

ScanConverter::ScanConverter(const Geometry& geometry, std::int64_t lines, std::int64_t samples, double sample_spacing,
                             double first_sample_offset, int width)
    : lines_(lines), samples_(samples)
{
    if (lines < 1 || samples < 1 || lines > most_lines || samples > most_lines)
        throw BadInput("scan conversion takes 1 to " + std::to_string(most_lines) + " lines of 1 to " +
                       std::to_string(most_lines) + " samples, found " + std::to_string(lines) + " lines of " +
                       std::to_string(samples) + " samples; --decimation shortens lines");
    if (width != 0 && (width < least_side || width > greatest_side))
        throw BadInput("the picture's width must lie between " + std::to_string(least_side) + " and " +
                       std::to_string(greatest_side) + " pixels, found " + std::to_string(width));
    line_stride_ = static_cast<std::size_t>(samples);
    expect(within_reach(first_sample_offset), "the first sample's offset", "below 1000 m", first_sample_offset);
    if (geometry.kind != Geometry::Kind::picture)
        expect(spaced(sample_spacing) && sample_spacing > 0, "sample_spacing", "between 1 nm and 1000 m", sample_spacing);
    fan_ = geometry.kind == Geometry::Kind::sector || geometry.kind == Geometry::Kind::curved;
    if (fan_)
        prepare_fan(geometry, sample_spacing, first_sample_offset, width);
    else
        prepare_parallel(geometry, sample_spacing, first_sample_offset, width);
}

// Square pixels over a rectangle in metres. A fitting picture has pixels of about the natural size.
void ScanConverter::choose_grid(double left, double right, double top, double bottom, double natural_pixel, int width)
{
    const double across = right - left;
    const double down = bottom - top;
    double columns = width;
    if (width == 0)
        columns =
            std::min(std::clamp(std::ceil(across / natural_pixel - 1e-6), double{narrowest_fitting}, double{widest_fitting}),
                     std::max(1.0, std::floor(highest_fitting * (across / down))));
    pixel_size_ = across / columns;
    const double rows = std::max(1.0, std::floor(down / pixel_size_ + 0.5));
    if (!(columns <= greatest_side && rows <= greatest_side))
        throw BadInput("the picture would have " + number(columns) + " x " + number(rows) + " pixels; at most " +
                       std::to_string(greatest_side) + " each way are possible");
    width_ = static_cast<int>(columns);
    height_ = static_cast<int>(rows);
    left_ = left;
    top_ = top;
}

void ScanConverter::prepare_parallel(const Geometry& geometry, double sample_spacing, double first_sample_offset, int width)
{
    double pitch = geometry.line_pitch;
    double first_line = geometry.first_line;
    double slope = 0;
    double row_step = sample_spacing; // metres of depth per sample
    double first_row = geometry.start_depth + first_sample_offset;
    if (geometry.kind == Geometry::Kind::picture) {
        size_known_ = geometry.column_spacing > 0 && geometry.row_spacing > 0;
        pitch = size_known_ ? geometry.column_spacing : 1;
        row_step = size_known_ ? geometry.row_spacing : 1;
        expect(spaced(pitch), "column_spacing", "between 1 nm and 1000 m", pitch);
        expect(spaced(row_step), "row_spacing", "between 1 nm and 1000 m", row_step);
        first_line = 0;
        first_row = 0;
        line_stride_ = 1;
        sample_stride_ = static_cast<std::size_t>(lines_);
    } else {
        expect(spaced(pitch), "line_pitch", "between 1 nm and 1000 m, or the same to the left", pitch);
        expect(within_reach(first_line), "first_line", "within 1000 m", first_line);
        expect(within_reach(first_row), "start_depth", "within 1000 m", first_row);
    }
    if (geometry.kind == Geometry::Kind::steered) {
        expect(std::fabs(geometry.steering) <= steepest, "steering", "within 85 degrees of straight down",
               geometry.steering * 180 / portable::pi);
        const double cosine = portable::cos(geometry.steering);
        slope = portable::sin(geometry.steering) / cosine;
        first_row *= cosine;
        row_step *= cosine;
    }

    const double top = first_row - 0.5 * row_step;
    const double bottom = first_row + (static_cast<double>(samples_) - 0.5) * row_step;
    const double line_ends[] = {first_line - 0.5 * pitch, first_line + (static_cast<double>(lines_) - 0.5) * pitch};
    const double shifts[] = {top * slope, bottom * slope};
    const double left = std::min(line_ends[0], line_ends[1]) + std::min(shifts[0], shifts[1]);
    const double right = std::max(line_ends[0], line_ends[1]) + std::max(shifts[0], shifts[1]);
    if (geometry.kind == Geometry::Kind::picture && width == 0) {
        // Pictures keep their pixels; where these are not square, the longer side is resampled.
        const double columns = std::floor((right - left) / std::min(pitch, row_step) + 0.5);
        choose_grid(left, right, top, bottom, 0, static_cast<int>(std::min(columns, greatest_side + 1.0)));
    } else {
        choose_grid(left, right, top, bottom, std::min(row_step, std::fabs(pitch)), width);
    }
    if (geometry.kind != Geometry::Kind::picture)
        averaged_samples_ = covered(pixel_size_, row_step, samples_);

    for (int column = 0; column < width_; ++column)
        column_line_.push_back(q16((left_ + (column + 0.5) * pixel_size_ - first_line) / pitch));
    for (int row = 0; row < height_; ++row) {
        const double depth = top_ + (row + 0.5) * pixel_size_;
        row_line_.push_back(q16(depth * slope / pitch));
        row_sample_.push_back(q16((depth - first_row) / row_step));
    }
}

void ScanConverter::prepare_fan(const Geometry& geometry, double sample_spacing, double first_sample_offset, int width)
{
    first_angle_ = geometry.first_angle;
    angle_step_ = geometry.angle_step;
    first_radius_ = geometry.apex_radius + first_sample_offset;
    radius_step_ = sample_spacing;
    depth_zero_ = geometry.kind == Geometry::Kind::curved ? geometry.apex_radius : 0;
    expect(spaced(angle_step_), "angle_step", "a number other than 0", angle_step_);
    expect(within_reach(geometry.apex_radius) && geometry.apex_radius >= 0 && first_radius_ >= 0, "apex_radius",
           "between 0 and 1000 m", geometry.apex_radius);
    const double edges[] = {first_angle_ - 0.5 * angle_step_, first_angle_ + (static_cast<double>(lines_) - 0.5) * angle_step_};
    const double least = std::min(edges[0], edges[1]);
    const double greatest = std::max(edges[0], edges[1]);
    if (!(least >= -portable::pi && greatest <= portable::pi))
        throw BadInput("geometry: angles must lie between -180 and 180 degrees from straight down, found " +
                       number(least * 180 / portable::pi) + " to " + number(greatest * 180 / portable::pi));

    // The box around the fan: its corners, and where it crosses an axis.
    const double near = std::max(0.0, first_radius_ - 0.5 * radius_step_);
    const double far = first_radius_ + (static_cast<double>(samples_) - 0.5) * radius_step_;
    double left = std::numeric_limits<double>::infinity();
    double right = -left;
    double top = left;
    double bottom = -left;
    for (const double angle : {least, greatest, -portable::pi / 2, 0.0, portable::pi / 2}) {
        if (angle < least || angle > greatest)
            continue;
        for (const double radius : {near, far}) {
            left = std::min(left, radius * portable::sin(angle));
            right = std::max(right, radius * portable::sin(angle));
            top = std::min(top, radius * portable::cos(angle));
            bottom = std::max(bottom, radius * portable::cos(angle));
        }
    }
    const double line_distance = std::fabs(angle_step_) * 0.5 * (near + far);
    choose_grid(left, right, top - depth_zero_, bottom - depth_zero_, std::min(radius_step_, line_distance), width);
    averaged_samples_ = covered(pixel_size_, radius_step_, samples_);

    const std::size_t pixels = static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_);
    if (pixels > kept_pixels)
        return;
    std::vector<Entry> lookup(pixels);
    for (int row = 0; row < height_; ++row)
        look_up_row(row, lookup.data() + static_cast<std::size_t>(row) * static_cast<std::size_t>(width_));
    lookup_ = std::move(lookup);
}

void ScanConverter::look_up_row(int row, Entry* entries) const
{
    const Entry black = {outside, outside};
    if (!lookup_.empty()) {
        std::copy_n(lookup_.begin() + static_cast<std::ptrdiff_t>(row) * width_, width_, entries);
    } else if (fan_) {
        const double down = top_ + depth_zero_ + (row + 0.5) * pixel_size_;
        for (int column = 0; column < width_; ++column) {
            const double across = left_ + (column + 0.5) * pixel_size_;
            const double line = (portable::atan2(across, down) - first_angle_) / angle_step_;
            const double sample = (std::sqrt(across * across + down * down) - first_radius_) / radius_step_;
            const Entry entry = {owned(q16(line), lines_), owned(q16(sample), samples_)};
            entries[column] = entry.line == outside || entry.sample == outside ? black : entry;
        }
    } else {
        const std::uint32_t sample = owned(row_sample_[static_cast<std::size_t>(row)], samples_);
        const std::int64_t shift = row_line_[static_cast<std::size_t>(row)];
        for (int column = 0; column < width_; ++column) {
            const std::uint32_t line = owned(column_line_[static_cast<std::size_t>(column)] - shift, lines_);
            entries[column] = line == outside || sample == outside ? black : Entry{line, sample};
        }
    }
}

GreyImage ScanConverter::convert(const std::vector<std::uint8_t>& lines, StageTimes* times) const
{
    const StageTimer timer(times, "scan conversion", lines_);
    if (averaged_samples_ > 1 && lines.size() == static_cast<std::size_t>(lines_) * static_cast<std::size_t>(samples_))
        return look_up(averaged(lines, samples_, averaged_samples_));
    return look_up(lines);
}

GreyImage ScanConverter::look_up(const std::vector<std::uint8_t>& lines) const
{
    if (lines.size() != static_cast<std::size_t>(lines_) * static_cast<std::size_t>(samples_))
        throw BadInput("scan conversion: " + std::to_string(lines_) + " lines of " + std::to_string(samples_) +
                       " samples expected, found " + std::to_string(lines.size()) + " samples");
    GreyImage image;
    image.width = width_;
    image.height = height_;
    image.pixel_size = size_known_ ? pixel_size_ : 0;
    image.pixels.resize(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_));

    std::vector<Entry> entries(static_cast<std::size_t>(width_));
    std::uint8_t* pixel = image.pixels.data();
    for (int row = 0; row < height_; ++row) {
        look_up_row(row, entries.data());
        for (const Entry& entry : entries) {
            if (entry.line == outside) {
                *pixel++ = 0;
                continue;
            }
            const std::size_t line = entry.line >> 16;
            const std::size_t sample = entry.sample >> 16;
            const std::uint64_t right = entry.line & 0xffff; // weights of the next line and the next sample
            const std::uint64_t below = entry.sample & 0xffff;
            const std::uint8_t* corner = lines.data() + line * line_stride_ + sample * sample_stride_;
            const std::size_t next_line = right != 0 ? line_stride_ : 0;
            const std::size_t next_sample = below != 0 ? sample_stride_ : 0;
            const std::uint64_t here = corner[0] * (65536 - below) + corner[next_sample] * below;
            const std::uint64_t there = corner[next_line] * (65536 - below) + corner[next_line + next_sample] * below;
            *pixel++ = static_cast<std::uint8_t>((here * (65536 - right) + there * right + 0x80000000) >> 32);
        }
    }
    return image;
}

void ScanConverter::pixel_of(double lateral, double depth, double& column, double& row) const
{
    column = (lateral - left_) / pixel_size_ - 0.5;
    row = (depth - top_) / pixel_size_ - 0.5;
}

GreyImage with_scale(const GreyImage& image, const ScanConverter& converter)
{
    if (!(image.pixel_size > 0))
        throw BadInput("--scale needs pixels of known size; the recording does not state row and column spacing");
    constexpr int margin = scale_margin;
    constexpr int long_tick = 10;
    constexpr int short_tick = 5;
    constexpr std::uint8_t ink = 160;
    // Distance of short and of long ticks in metres: the first that leaves room between them and still gives a scale.
    struct Step
    {
        double minor;
        double major;
    };
    constexpr std::array<Step, 7> steps = {
        {{1e-4, 5e-4}, {1e-3, 5e-3}, {5e-3, 1e-2}, {1e-2, 5e-2}, {5e-2, 1e-1}, {1e-1, 5e-1}, {1, 5}}};
    const double span = image.pixel_size * std::max(image.width, image.height);
    std::size_t choice = span >= 2e-2 ? 2 : span >= 5e-3 ? 1 : 0;
    while (choice + 1 < steps.size() && steps[choice].minor < 4 * image.pixel_size)
        ++choice;
    const Step step = steps[choice];
    const int major = static_cast<int>(step.major / step.minor + 0.5);

    GreyImage scaled;
    scaled.width = image.width + margin;
    scaled.height = image.height + margin;
    scaled.pixel_size = image.pixel_size;
    scaled.pixels.resize(static_cast<std::size_t>(scaled.width) * static_cast<std::size_t>(scaled.height));
    const auto at = [&](int column, int row) -> std::uint8_t& {
        return scaled
            .pixels[static_cast<std::size_t>(row) * static_cast<std::size_t>(scaled.width) + static_cast<std::size_t>(column)];
    };
    for (int row = 0; row < image.height; ++row)
        std::copy_n(image.pixels.begin() + static_cast<std::ptrdiff_t>(row) * image.width, image.width, &at(margin, row));
    if (!image.marks.empty()) {
        scaled.marks.resize(scaled.pixels.size());
        for (int row = 0; row < image.height; ++row)
            std::copy_n(image.marks.begin() + static_cast<std::ptrdiff_t>(row) * image.width, image.width,
                        scaled.marks.begin() + static_cast<std::ptrdiff_t>(row) * scaled.width + margin);
    }

    double origin_column = 0;
    double origin_row = 0;
    converter.pixel_of(0, 0, origin_column, origin_row);
    const double pixels = step.minor / image.pixel_size;
    const auto ticks = [&](double origin, int extent, const auto& draw) {
        const auto first = static_cast<std::int64_t>(std::ceil((-0.5 - origin) / pixels));
        for (std::int64_t k = first;; ++k) {
            const double place = std::floor(origin + static_cast<double>(k) * pixels + 0.5);
            if (!(place < extent))
                return;
            if (place >= 0)
                draw(static_cast<int>(place), k % major == 0 ? long_tick : short_tick);
        }
    };
    ticks(origin_row, image.height, [&](int row, int length) {
        for (int column = margin - 2 - length; column < margin - 2; ++column)
            at(column, row) = ink;
    });
    ticks(origin_column, image.width, [&](int column, int length) {
        for (int row = 0; row < length; ++row)
            at(margin + column, image.height + 2 + row) = ink;
    });
    return scaled;
}

} // namespace echo2image
