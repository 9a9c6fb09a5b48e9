#include "motion.h"

#include "bad_input.h"

#include <utils_sse.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

namespace echo2image {

namespace {

constexpr int fine_reach = 5;   // pixels around a start position, by contract of the fine search
constexpr int column_shift = 4; // that the fine search adds to columns
constexpr int overhang = 5;     // pixels by which candidates of the rough search may leave the picture
constexpr int border = overhang + fine_reach;
constexpr int tile = 15; // pixels within which candidates share a slot, by contract of the searches
constexpr int full_score = 255;
constexpr float least_deviation = 3; // grey values; below, what correlates is rounding, compression and noise
constexpr int pixels_per_step = 32;
constexpr int most_block_columns = 256; // with these, no sum leaves 32 bits
constexpr int most_block_rows = 255;
constexpr int farthest_search = 128;
constexpr int largest_grid = 1024;

// The rough search sees every second row: half of a block's energy, which a perfect match scores by its square root.
constexpr double rough_full_score = full_score * 0.70710678118654752;
// Its scores scatter around those of the fine search, which has the last word.
constexpr double rough_share_of_threshold = 0.5;

struct Release
{
    void operator()(void* block) const { CUtils_SSE::aligned_free(block); }
};

template <class T>
std::unique_ptr<T[], Release> aligned(int count)
{
    void* const memory = CUtils_SSE::aligned_malloc(static_cast<unsigned int>(count) * sizeof(T), 16);
    if (memory == nullptr)
        throw std::bad_alloc();
    return std::unique_ptr<T[], Release>(static_cast<T*>(memory));
}

void expect(bool valid, const char* option, const std::string& expected, int found)
{
    if (!valid)
        throw BadInput(std::string(option) + ": expected " + expected + ", found " + std::to_string(found));
}

// What a kernel call wants to know of the reference block. Deviations are taken around the truncated mean, as the kernels
// take the candidates'; together with the factors below this bounds every score by 255, so that none wraps.
struct Reference
{
    int mean = 0;
    float rough_deviation = 0;
    float fine_deviation = 0;
};

class Matcher
{
public:
    Matcher(const GreyImage& second, const MotionOptions& options)
        : options_(options), half_(options.block_rows / 2), rows_(second.height), columns_(second.width),
          stride_(second.width + 2 * border), pixels_(options.block_rows * options.block_columns),
          reference_(aligned<unsigned char>(pixels_)), work_(aligned<unsigned char>(pixels_)), scratch_(aligned<int>(4))
    {
        // Beyond its edges the picture goes on with its outermost pixels: rows by contract of the searches, columns here.
        image_.reserve(static_cast<std::size_t>(stride_) * static_cast<std::size_t>(rows_));
        for (int row = 0; row < rows_; ++row) {
            const auto begin = second.pixels.begin() + std::ptrdiff_t{row} * columns_;
            image_.insert(image_.end(), border, *begin);
            image_.insert(image_.end(), begin, begin + columns_);
            image_.insert(image_.end(), border, *(begin + columns_ - 1));
        }
    }

    BlockMotion match(const GreyImage& first, int column, int row)
    {
        BlockMotion motion;
        motion.column = column;
        motion.row = row;
        for (int r = 0; r < options_.block_rows; ++r)
            std::copy_n(first.pixels.begin() + std::ptrdiff_t{row + r} * first.width + column, options_.block_columns,
                        reference_.get() + r * options_.block_columns);
        const Reference reference = measure();
        if (reference.fine_deviation < least_deviation)
            return motion;
        motion.outcome = BlockMotion::Outcome::poor;
        const int starts = search_roughly(reference, column, row);
        const int slots = search_finely(reference, starts);
        int best = 0;
        for (int slot = 1; slot <= slots; ++slot) {
            const auto i = static_cast<std::size_t>(slot);
            const int right = static_cast<std::int16_t>(fine_columns_[i]) - (column + options_.block_columns / 2);
            const int down = static_cast<std::int16_t>(fine_rows_[i]) - (row + half_);
            if (fine_best_[i] <= best || !same_contrast(reference.mean, column + right, row + down))
                continue;
            best = fine_best_[i];
            if (std::abs(right) > options_.search_columns || std::abs(down) > options_.search_rows) {
                motion.outcome = BlockMotion::Outcome::edge;
                continue;
            }
            motion.outcome = BlockMotion::Outcome::tracked;
            motion.right = right;
            motion.down = down;
            motion.correlation = static_cast<double>(best) / full_score;
        }
        return motion;
    }

private:
    Reference measure() const
    {
        std::int64_t sum = 0;
        for (int i = 0; i < pixels_; ++i)
            sum += reference_[static_cast<std::size_t>(i)];
        Reference reference;
        reference.mean = static_cast<int>(sum / pixels_);
        double squares[2] = {0, 0}; // of even and of odd rows; whole numbers
        for (int i = 0; i < pixels_; ++i) {
            const int difference = reference_[static_cast<std::size_t>(i)] - reference.mean;
            squares[i / options_.block_columns % 2] += difference * difference;
        }
        // The searches divide by 1 less than the (half) number of pixels.
        reference.rough_deviation = static_cast<float>(std::sqrt(squares[0] / pixels_) * pixels_ / (0.5 * pixels_ - 1));
        reference.fine_deviation =
            static_cast<float>(std::sqrt((squares[0] + squares[1]) / pixels_) * pixels_ / (pixels_ - 1.0));
        return reference;
    }

    // The best candidate of each tile of the search range starts a fine search; false peaks may look better roughly. In tiles of
    // this size the rough search opens one slot at most.
    int search_roughly(const Reference& reference, int column, int row)
    {
        const int first_row = std::max(-overhang, row - options_.search_rows);
        const int first_column = std::max(-overhang, column - options_.search_columns);
        const int rows = std::min(rows_ - options_.block_rows + overhang, row + options_.search_rows) + 1 - first_row;
        const int columns =
            std::min(columns_ - options_.block_columns + overhang, column + options_.search_columns) + 1 - first_column;
        const int tile_rows = (rows + tile - 1) / tile;
        const int tile_columns = (columns + tile - 1) / tile;
        const std::size_t slots = static_cast<std::size_t>(tile_rows) * static_cast<std::size_t>(tile_columns) + 1;
        rough_rows_.resize(slots);
        rough_columns_.resize(slots);
        rough_best_.assign(slots, 0);
        int starts = 0;
        for (int i = 0; i < tile_rows; ++i)
            for (int j = 0; j < tile_columns; ++j) {
                candidate_rows_.clear();
                candidate_columns_.clear();
                for (int r = rows * i / tile_rows; r < rows * (i + 1) / tile_rows; ++r)
                    for (int c = columns * j / tile_columns; c < columns * (j + 1) / tile_columns; ++c) {
                        candidate_rows_.push_back(static_cast<unsigned short>(first_row + r));
                        candidate_columns_.push_back(static_cast<unsigned short>(first_column + c + border));
                    }
                int used = 0;
                CUtils_SSE::RoughCorrelation(
                    image_.data(), candidate_rows_.data(), candidate_columns_.data(), rough_rows_.data() + starts,
                    rough_columns_.data() + starts, static_cast<int>(candidate_rows_.size()), &used, work_.get(),
                    reference_.get(), rough_best_.data() + starts, half_, stride_, rows_, scratch_.get(),
                    options_.block_columns, reference.rough_deviation, static_cast<float>(reference.mean),
                    static_cast<int>(rough_share_of_threshold * rough_full_score * options_.threshold));
                starts += used;
            }
        return starts;
    }

    // Positions written are those of the blocks' middles in the picture without border.
    int search_finely(const Reference& reference, int starts)
    {
        const std::size_t slots = static_cast<std::size_t>(starts) + 1;
        fine_rows_.resize(slots);
        fine_columns_.resize(slots);
        fine_best_.assign(slots, 0);
        int used = 0;
        CUtils_SSE::FineCorrelation(image_.data(), rough_rows_.data(), rough_columns_.data(), fine_rows_.data(),
                                    fine_columns_.data(), starts, &used, work_.get(), reference_.get(), fine_best_.data(),
                                    half_, stride_, rows_, scratch_.get(), options_.block_columns, reference.fine_deviation,
                                    static_cast<float>(reference.mean), static_cast<int>(full_score * options_.threshold),
                                    options_.block_columns / 2 - border - column_shift);
        return used;
    }

    // The searches take a block and its negative for equal.
    bool same_contrast(int mean, int column, int row) const
    {
        std::int64_t sum = 0;
        std::int64_t product = 0;
        std::int64_t reference_sum = 0;
        for (int r = 0; r < options_.block_rows; ++r) {
            const unsigned char* const line =
                image_.data() + std::ptrdiff_t{std::clamp(row + r, 0, rows_ - 1)} * stride_ + column + border;
            for (int c = 0; c < options_.block_columns; ++c) {
                const int difference = reference_[static_cast<std::size_t>(r * options_.block_columns + c)] - mean;
                sum += line[c];
                product += line[c] * difference;
                reference_sum += difference;
            }
        }
        return product * pixels_ > sum * reference_sum;
    }

    MotionOptions options_;
    int half_;
    int rows_;
    int columns_;
    int stride_;
    int pixels_; // of a block
    std::vector<unsigned char> image_;
    std::unique_ptr<unsigned char[], Release> reference_;
    std::unique_ptr<unsigned char[], Release> work_;
    std::unique_ptr<int[], Release> scratch_;
    std::vector<unsigned short> candidate_rows_, candidate_columns_;
    std::vector<unsigned short> rough_rows_, rough_columns_; // from entry 1 on, like all below
    std::vector<unsigned short> fine_rows_, fine_columns_;
    std::vector<unsigned char> rough_best_, fine_best_;
};

} // namespace

const char* to_string(BlockMotion::Outcome outcome)
{
    switch (outcome) {
    case BlockMotion::Outcome::tracked:
        return "tracked";
    case BlockMotion::Outcome::edge:
        return "edge";
    case BlockMotion::Outcome::poor:
        return "poor";
    default:
        return "flat";
    }
}

void check_motion_options(const MotionOptions& options, int width, int height)
{
    expect(options.block_columns >= pixels_per_step && options.block_columns <= most_block_columns &&
               options.block_columns % pixels_per_step == 0,
           "--block", "a width that is a multiple of 32 from 32 to 256", options.block_columns);
    expect(options.block_rows >= 3 && options.block_rows <= most_block_rows && options.block_rows % 2 == 1, "--block",
           "an odd height from 3 to 255", options.block_rows);
    expect(options.grid >= 1 && options.grid <= largest_grid, "--grid", "1 to 1024 pixels", options.grid);
    for (const int search : {options.search_columns, options.search_rows})
        expect(search >= 0 && search <= farthest_search, "--search", "0 to 128 pixels", search);
    if (!(options.threshold >= 0 && options.threshold < 1))
        throw BadInput("--threshold: expected a correlation from 0 to below 1, found " + std::to_string(options.threshold));
    if (width < options.block_columns || height < options.block_rows)
        throw BadInput("--block: expected at most the picture's " + std::to_string(width) + " x " + std::to_string(height) +
                       " pixels, found " + std::to_string(options.block_columns) + " x " + std::to_string(options.block_rows));
}

std::vector<BlockMotion> track(const GreyImage& first, const GreyImage& second, const MotionOptions& options,
                               const std::function<void(int, int)>& between_rows)
{
    check_motion_options(options, second.width, second.height);
    if (first.width != second.width || first.height != second.height)
        throw BadInput("motion: expected two pictures of one size, found " + std::to_string(first.width) + " x " +
                       std::to_string(first.height) + " and " + std::to_string(second.width) + " x " +
                       std::to_string(second.height) + " pixels");
    Matcher matcher(second, options);
    const int free_columns = first.width - options.block_columns;
    const int free_rows = first.height - options.block_rows;
    const int grid_rows = free_rows / options.grid + 1;
    std::vector<BlockMotion> blocks;
    for (int i = 0; i < grid_rows; ++i) {
        if (between_rows)
            between_rows(i, grid_rows);
        const int row = free_rows % options.grid / 2 + i * options.grid;
        for (int column = free_columns % options.grid / 2; column <= free_columns; column += options.grid)
            blocks.push_back(matcher.match(first, column, row));
    }
    return blocks;
}

std::string csv_of(const std::vector<BlockMotion>& blocks, const MotionOptions& options, double pixel_size)
{
    std::string csv = "column,row,right_px,down_px,right_mm,down_mm,correlation,outcome\n";
    char text[160];
    for (const BlockMotion& block : blocks) {
        std::snprintf(text, sizeof text, "%.1f,%.1f,", block.column + 0.5 * (options.block_columns - 1),
                      block.row + 0.5 * (options.block_rows - 1));
        csv += text;
        const double mm = 1e3 * pixel_size;
        if (block.tracked() && pixel_size > 0)
            std::snprintf(text, sizeof text, "%d,%d,%.4f,%.4f,%.3f,", block.right, block.down, block.right * mm,
                          block.down * mm, block.correlation);
        else if (block.tracked())
            std::snprintf(text, sizeof text, "%d,%d,,,%.3f,", block.right, block.down, block.correlation);
        else
            std::snprintf(text, sizeof text, ",,,,,");
        csv += text;
        csv += to_string(block.outcome);
        csv += '\n';
    }
    return csv;
}

double quantile(std::vector<double> values, double share)
{
    if (values.empty())
        return 0;
    const auto rank = static_cast<std::ptrdiff_t>(std::ceil(share * static_cast<double>(values.size()))) - 1;
    const auto at = values.begin() + std::clamp<std::ptrdiff_t>(rank, 0, static_cast<std::ptrdiff_t>(values.size()) - 1);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

} // namespace echo2image
