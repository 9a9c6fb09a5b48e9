// Block matching: where the speckle of one grey picture went in another. Built on RoughCorrelation and FineCorrelation.
#pragma once

#include "bmode.h"
#include "stage_times.h"

#include <functional>
#include <string>
#include <vector>

namespace echo2image {

// In pixels of the pictures.
struct MotionOptions
{
    int block_columns = 32;  // whole multiples of 32
    int block_rows = 33;     // odd
    int grid = 16;           // from block to block, both ways
    int search_columns = 12; // each way; the fine search may go 5 further
    int search_rows = 12;
    double threshold = 0.4; // normalised cross-correlation that a match must exceed
};

struct BlockMotion
{
    enum class Outcome
    {
        tracked,
        edge, // the best match lies beyond the search range, so that a better one may lie further away
        poor, // nothing in reach is alike enough
        flat, // no contrast to recognise: a standard deviation below 3 grey values
    };
    int column; // of its top left corner in the first picture
    int row;
    Outcome outcome = Outcome::flat;
    int right = 0; // displacement; only when tracked, like the correlation
    int down = 0;
    double correlation = 0; // above 0, at most 1, in steps of 1/255

    bool tracked() const { return outcome == Outcome::tracked; }
};

const char* to_string(BlockMotion::Outcome outcome);

// Throws BadInput when an option is out of its range or no block fits into a picture of this size.
void check_motion_options(const MotionOptions& options, int width, int height);

// The blocks of a grid, row by row; the grid lies in the middle of the picture. Both pictures have the same size.
// `between_rows` is called before every row of blocks with the number of rows done and of all rows.
std::vector<BlockMotion> track(const GreyImage& first, const GreyImage& second, const MotionOptions& options,
                               const std::function<void(int, int)>& between_rows = {});

// A line per block: the block's middle, its displacement in pixels and, where `pixel_size` (metres) is not 0, in millimetres,
// and its correlation; empty fields for what is unknown.
std::string csv_of(const std::vector<BlockMotion>& blocks, const MotionOptions& options, double pixel_size);

// The value that `share` (0 to 1) of the values do not exceed; 0 of none.
double quantile(std::vector<double> values, double share);

} // namespace echo2image
