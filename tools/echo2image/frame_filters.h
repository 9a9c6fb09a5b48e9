// Filters over the frames of a cine: along time, in space, or both, one behind the other.
#pragma once

#include "stage_times.h"

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace echo2image {

enum class FilterKind
{
    median3,       // of this frame and the two before
    median5,       // of five frames
    extremum3,     // ExtremumFilter of three frames, its rule for whole blocks
    persist,       // value: sixteenths of the picture shown last
    average,       // value: 2 or 4 frames
    median2d,      // value: 3 x 3 or 5 x 5
    mask_average,  // value: frames; those that are black at a pixel do not count there
    adaptive,      // five frames: the mean of the inner ones, blended with the brighter of the outer ones
    weight_adjust, // the same with a constant weight; value: 256ths of the bright one
    box,           // 2 x 2
};

struct FilterStep
{
    FilterKind kind;
    int value = 0; // 0 for filters that take none
};

inline bool operator==(const FilterStep& a, const FilterStep& b)
{
    return a.kind == b.kind && a.value == b.value;
}

// A filter as users name it.
struct FilterTraits
{
    FilterKind kind;
    const char* name;
    const char* help;
    const char* values; // "2|4"; null when it takes none
    int least;
    int greatest;
    int step;  // from one permitted value to the next
    int usual; // when no value is given; 0: one must be
};

const std::vector<FilterTraits>& all_filters();

// "persist" and "12"; empty text stands for no value. Throws BadInput.
FilterStep filter_of(const std::string& name, const std::string& value);
// "median3, persist 12", and back; the latter throws BadInput.
std::string to_text(const std::vector<FilterStep>& steps);
std::vector<FilterStep> filters_of(const std::string& text);

// So many frames before a frame decide what it becomes; whole_history when all of them do.
constexpr std::int64_t whole_history = std::numeric_limits<std::int64_t>::max();
std::int64_t frames_before(const std::vector<FilterStep>& steps);

// Takes the frames of a cine in their order. A filter sees a frame and those before it; before the first frame there was
// nothing but the first frame.
class FrameFilters
{
public:
    FrameFilters(const std::vector<FilterStep>& steps, std::int64_t rows, std::int64_t columns); // throws BadInput
    // `frame` is [row][column].
    std::vector<std::uint8_t> next(std::vector<std::uint8_t> frame, StageTimes* times = nullptr);

private:
    struct Stage
    {
        FilterStep step;
        std::vector<std::vector<std::uint8_t>> frames; // oldest first; whole blocks of 16
    };
    void apply(Stage& stage, std::vector<std::uint8_t>& frame) const;
    void filter_in_space(const FilterStep& step, std::vector<std::uint8_t>& frame) const;

    int rows_ = 0;
    int columns_ = 0;
    int pixels_ = 0;
    int padded_ = 0; // pixels in whole blocks of 16
    std::vector<Stage> stages_;
};

} // namespace echo2image
