#include "frame_filters.h"

#include "input_file.h"

#include <utils_sse.h>

#include <algorithm>
#include <charconv>
#include <limits>

namespace echo2image {

namespace {

constexpr int block = 16; // pixels that the kernels take at once; what is left over may follow another rule
constexpr int most_frames = 8;

const FilterTraits& traits_of(FilterKind kind)
{
    return *std::find_if(all_filters().begin(), all_filters().end(), [&](const FilterTraits& f) { return f.kind == kind; });
}

// Frames that a filter looks at, the newest one included; of persistence the picture shown last.
std::size_t window_of(const FilterStep& step)
{
    switch (step.kind) {
    case FilterKind::median3:
    case FilterKind::extremum3:
        return 3;
    case FilterKind::median5:
    case FilterKind::adaptive:
    case FilterKind::weight_adjust:
        return 5;
    case FilterKind::average:
    case FilterKind::mask_average:
        return static_cast<std::size_t>(step.value);
    case FilterKind::persist:
    case FilterKind::median2d:
    case FilterKind::box:
        break;
    }
    return 1;
}

using Frames = std::vector<const std::uint8_t*>;

// Reciprocals for a mean of those frames that are not black at a pixel: 256 / their number, rounded down, so that the sum
// times the factor stays within 16 bits.
std::vector<std::uint16_t> mask_of(Frames::const_iterator first, Frames::const_iterator last, int n)
{
    std::uint16_t factors[most_frames + 1] = {};
    for (int count = 1; count <= most_frames; ++count)
        factors[count] = static_cast<std::uint16_t>(256 / count);
    std::vector<std::uint16_t> mask(static_cast<std::size_t>(n));
    for (std::size_t i = 0; i < mask.size(); ++i)
        mask[i] = factors[std::count_if(first, last, [i](const std::uint8_t* frame) { return frame[i] != 0; })];
    return mask;
}

// MedianFilter takes the median of five frames only in calls of less than a block.
void median_of_five(std::uint8_t* to, const Frames& f, int n)
{
    for (int i = 0; i < n; i += block - 1)
        CUtils_SSE::MedianFilter(to + i, f[0] + i, f[1] + i, f[2] + i, f[3] + i, f[4] + i, std::min(block - 1, n - i));
}

} // namespace

const std::vector<FilterTraits>& all_filters()
{
    using K = FilterKind;
    static const std::vector<FilterTraits> filters = {
        {K::median3, "median3", "Median of three frames", nullptr, 0, 0, 1, 0},
        {K::median5, "median5", "Median of five frames", nullptr, 0, 0, 1, 0},
        {K::extremum3, "extremum3", "The most extreme of three frames, blended with the others; half as bright", nullptr, 0, 0,
         1, 0},
        {K::persist, "persist", "Blend with the picture shown last, which gets 1 to 15 sixteenths", "1..15", 1, 15, 1, 0},
        {K::average, "average", "Mean of two or four frames", "2|4", 2, 4, 2, 0},
        {K::median2d, "median2d", "Median of 3 x 3 or 5 x 5 pixels (default: 3)", "3|5", 3, 5, 2, 3},
        {K::mask_average, "mask-average", "Mean of those of 2 to 8 frames that are not black there (default: 4)", "2..8", 2,
         most_frames, 1, 4},
        {K::adaptive, "adaptive", "Mean of three frames, but what is bright before or after them stays", nullptr, 0, 0, 1, 0},
        {K::weight_adjust, "weight-adjust",
         "Mean of three frames and the brighter of those before and after, which gets 1 to 255 256ths (default: 128)", "1..255",
         1, 255, 1, 128},
        {K::box, "box", "Mean of 2 x 2 pixels", nullptr, 0, 0, 1, 0},
    };
    return filters;
}

FilterStep filter_of(const std::string& name, const std::string& value)
{
    const auto& filters = all_filters();
    const auto found = std::find_if(filters.begin(), filters.end(), [&](const FilterTraits& f) { return f.name == name; });
    if (found == filters.end()) {
        std::string names;
        for (const FilterTraits& filter : filters)
            names += (names.empty() ? "" : ", ") + std::string(filter.name);
        throw BadInput("filters: expected one of " + names + ", found " + in_quotes(name));
    }
    if (value.empty() && (found->values == nullptr || found->usual != 0))
        return {found->kind, found->usual};
    if (found->values == nullptr)
        throw BadInput("--" + name + ": expected no value, found " + in_quotes(value));
    int number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size() || number < found->least || number > found->greatest ||
        (number - found->least) % found->step != 0)
        throw BadInput("--" + name + ": expected " + found->values + ", found " +
                       (value.empty() ? "nothing" : in_quotes(value)));
    return {found->kind, number};
}

std::string to_text(const std::vector<FilterStep>& steps)
{
    std::string text;
    for (const FilterStep& step : steps) {
        text.append(text.empty() ? "" : ", ").append(traits_of(step.kind).name);
        if (step.value != 0)
            text.append(" ").append(std::to_string(step.value));
    }
    return text;
}

std::vector<FilterStep> filters_of(const std::string& text)
{
    std::vector<FilterStep> steps;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(", ", at), text.size());
        const std::string word = text.substr(at, end - at);
        const std::size_t blank = word.find(' ');
        steps.push_back(filter_of(word.substr(0, blank), blank == std::string::npos ? "" : word.substr(blank + 1)));
        at = end + 2;
    }
    return steps;
}

std::int64_t frames_before(const std::vector<FilterStep>& steps)
{
    std::int64_t before = 0;
    for (const FilterStep& step : steps) {
        if (step.kind == FilterKind::persist)
            return whole_history;
        before += static_cast<std::int64_t>(window_of(step)) - 1;
    }
    return before;
}

FrameFilters::FrameFilters(const std::vector<FilterStep>& steps, std::int64_t rows, std::int64_t columns)
{
    // Room for blocks, and for the row and column that the box filter adds.
    if (rows * columns > std::numeric_limits<int>::max() - rows - columns - 2 * block)
        throw BadInput("filters: expected frames of less than 2^31 pixels, found " + std::to_string(rows) + " x " +
                       std::to_string(columns));
    rows_ = static_cast<int>(rows);
    columns_ = static_cast<int>(columns);
    pixels_ = rows_ * columns_;
    padded_ = (pixels_ + block - 1) / block * block;
    for (const FilterStep& step : steps)
        stages_.push_back({step, {}});
}

std::vector<std::uint8_t> FrameFilters::next(std::vector<std::uint8_t> frame, StageTimes* times)
{
    if (stages_.empty())
        return frame;
    frame.resize(static_cast<std::size_t>(padded_));
    for (Stage& stage : stages_) {
        const StageTimer timer(times, traits_of(stage.step.kind).name, rows_);
        apply(stage, frame);
    }
    frame.resize(static_cast<std::size_t>(pixels_));
    return frame;
}

void FrameFilters::apply(Stage& stage, std::vector<std::uint8_t>& frame) const
{
    const FilterStep& step = stage.step;
    if (step.kind == FilterKind::median2d || step.kind == FilterKind::box)
        return filter_in_space(step, frame);

    std::vector<std::vector<std::uint8_t>>& frames = stage.frames;
    if (frames.empty())
        frames.assign(window_of(step), frame);
    if (step.kind == FilterKind::persist) {
        CUtils_SSE::PersistImage(frames[0].data(), frame.data(), frames[0].data(), step.value, 16 - step.value, padded_);
        frame = frames[0];
        return;
    }
    std::rotate(frames.begin(), frames.begin() + 1, frames.end());
    frames.back() = frame;

    Frames f;
    for (const std::vector<std::uint8_t>& kept : frames)
        f.push_back(kept.data());
    const int count = static_cast<int>(f.size());
    std::uint8_t* const to = frame.data();
    switch (step.kind) {
    case FilterKind::median3:
        CUtils_SSE::MedianFilter(to, f[0], f[1], f[2], padded_);
        break;
    case FilterKind::median5:
        median_of_five(to, f, padded_);
        break;
    case FilterKind::extremum3:
        CUtils_SSE::ExtremumFilter(to, f[0], f[1], f[2], padded_);
        break;
    case FilterKind::average:
        if (count == 2)
            CUtils_SSE::TemporalAverage2(to, f[0], padded_);
        else
            CUtils_SSE::TemporalAverage4(to, f[0], f[1], f[2], padded_);
        break;
    case FilterKind::mask_average:
        CUtils_SSE::MaskAverage(to, f.data(), count, mask_of(f.begin(), f.end(), padded_).data(), padded_);
        break;
    case FilterKind::adaptive:
    case FilterKind::weight_adjust: {
        const std::vector<std::uint16_t> mask = mask_of(f.begin() + 1, f.end() - 1, padded_);
        std::vector<std::uint8_t> gate(static_cast<std::size_t>(padded_), 255);
        if (step.kind == FilterKind::adaptive)
            CUtils_SSE::AdaptiveAverage(to, f.data(), count, mask.data(), padded_, gate.data());
        else
            CUtils_SSE::WeightAdjustAverage(to, f.data(), count, mask.data(), padded_, gate.data(),
                                            static_cast<std::uint8_t>(step.value));
        break;
    }
    case FilterKind::persist:
    case FilterKind::median2d:
    case FilterKind::box:
        break;
    }
}

// On a larger copy, whose added columns and row repeat the last ones: the 3 x 3 median leaves rows of less than a block as
// they are, and the box filter blackens the last column and row.
void FrameFilters::filter_in_space(const FilterStep& step, std::vector<std::uint8_t>& frame) const
{
    const int width = std::max(block, columns_ + 1);
    const int height = rows_ + 1;
    std::vector<std::uint8_t> source(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (int row = 0; row < height; ++row) {
        const auto from = frame.begin() + std::ptrdiff_t{std::min(row, rows_ - 1)} * columns_;
        const auto to = source.begin() + std::ptrdiff_t{row} * width;
        std::fill(std::copy_n(from, columns_, to), to + width, from[columns_ - 1]);
    }
    std::vector<std::uint8_t> result(source.size());
    if (step.kind == FilterKind::box)
        CUtils_SSE::Filter2x2(result.data(), source.data(), width, height);
    else if (step.value == 3)
        CUtils_SSE::MedianFilter2DWin3(result.data(), source.data(), width, width, height);
    else
        CUtils_SSE::MedianFilter2DWin5(result.data(), source.data(), width, width, height);

    const int border = step.kind == FilterKind::box ? 0 : step.value / 2; // stays as it is
    for (int row = border; row < rows_ - border; ++row)
        if (columns_ > 2 * border)
            std::copy_n(result.begin() + std::ptrdiff_t{row} * width + border, columns_ - 2 * border,
                        frame.begin() + std::ptrdiff_t{row} * columns_ + border);
}

} // namespace echo2image
