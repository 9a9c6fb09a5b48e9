// Blocks of an 8-bit image, and how like the reference block they are.
//
// The score needs sums over (p - m) with m the block's own truncated mean. In integers that wrap at 32 bits they follow
// exactly from sums over the bare pixels, so m need not be known before the pixels are read, one look at each pixel is
// enough, and windows that overlap can share what they have in common:
//   sum of (p - m)^2       = sum of p^2 - m (2 sum of p - N m)
//   sum of (p - m)(q - mq) = sum of p (q - mq) - m (sum of (q - mq))
#pragma once

#include "simd/loops.h"

namespace simd {
inline namespace UTILS_SSE_TIER {
namespace block_matching {

// How many blocks of pixels are summed side by side: rows are counted in steps of 32 pixels.
constexpr int kWide = UTILS_SSE_MOST_BLOCKS < 2 ? UTILS_SSE_MOST_BLOCKS : 2;
using WideBytes = U8<kWide>;
using WideShorts = I16<kWide>;
using WideInts = I32<kWide>;

struct Position
{
    int row, column;
};

struct Image
{
    const unsigned char* pixels;
    std::ptrdiff_t stride;
    int last_row;
};

// The rows of a block one after the other. Above and below the image its first and last row repeat.
class BlockRows
{
public:
    UTILS_SSE_INLINE BlockRows() {}
    UTILS_SSE_INLINE BlockRows(const Image& image, Position at)
        : next_(image.pixels + minimum(maximum(at.row, 0), image.last_row) * image.stride + at.column), stride_(image.stride),
          row_(static_cast<unsigned>(at.row)), last_row_(static_cast<unsigned>(image.last_row))
    {}
    UTILS_SSE_INLINE const unsigned char* next()
    {
        const unsigned char* const row = next_;
        next_ += row_ < last_row_ ? stride_ : 0; // a row above the image is a large unsigned number
        ++row_;
        return row;
    }

private:
    const unsigned char* next_;
    std::ptrdiff_t stride_;
    unsigned row_, last_row_;
};

// What all candidates of a call have in common.
struct Reference
{
    const unsigned char* pixels;
    WideShorts mean;
    int rows;
    int width;
    int counted; // pixels of a row that enter the sums: whole steps of 32

    UTILS_SSE_INLINE Reference(const unsigned char* block, float mean_, int half, int width_)
        : pixels(block), mean(WideShorts::broadcast(static_cast<short>(truncate_to_int(mean_)))),
          rows(static_cast<int>(2u * static_cast<unsigned>(half) + 1u)), width(width_), counted(width_ & ~31)
    {}
    UTILS_SSE_INLINE const unsigned char* row(int r) const { return pixels + static_cast<std::ptrdiff_t>(r) * width; }

    // f(column) for all counted pixels of a row, as many at a time as WideBytes has.
    template <class Function>
    UTILS_SSE_INLINE void for_each_block(const Function& f) const
    {
        for (std::ptrdiff_t column = 0; column < counted; column += 32) {
            f(column);
            if constexpr (kWide == 1)
                f(column + 16);
        }
    }
};

// Pixels in two vectors; which ones stand in which is of no consequence to a sum.
struct Pixels
{
    WideShorts even, odd;
};

UTILS_SSE_INLINE Pixels split(WideBytes x)
{
    return {widen_even(x), widen_odd(x)};
}
UTILS_SSE_INLINE Pixels differences(WideBytes x, WideShorts mean)
{
    return {subtract_wrap(widen_even(x), mean), subtract_wrap(widen_odd(x), mean)};
}
UTILS_SSE_INLINE void add_products(WideInts& sum, Pixels x, Pixels y)
{
    sum = in_order(add_wrap(sum, multiply_add_pairs(x.even, y.even)));
    sum = in_order(add_wrap(sum, multiply_add_pairs(x.odd, y.odd)));
}
UTILS_SSE_INLINE void add_pixels(WideInts& sum, WideBytes x)
{
    sum = in_order(add_wrap(sum, sum_absolute_differences(x, zero<WideBytes>())));
}

// --- scores ------------------------------------------------------------------------------------------------------------

// Sums over the pixels p of one candidate in each lane, q being the reference.
struct Sums
{
    i32 pixels;   // of p
    i32 squares;  // of p^2
    i32 products; // of p (q - mean of q)
};

struct Scores
{
    i32 score; // the low byte counts
    i32 mean;
};

// Four scores at a time; kept apart from the sums, which need all registers.
class Scoring
{
public:
    UTILS_SSE_INLINE Scoring(const Reference& reference, int row_step, float deviation)
        : counted_(broadcast_int(
              static_cast<int>(static_cast<unsigned>(reference.rows) * static_cast<unsigned>(reference.counted)))),
          size_(broadcast<f32>(
              to_float(static_cast<int>(static_cast<unsigned>(reference.rows) * static_cast<unsigned>(reference.width))))),
          area_(to_float(reference.rows) * to_float(reference.width)), deviation_(broadcast<f32>(deviation))
    {
        WideInts sum = zero<WideInts>();
        for (int r = 0; r < reference.rows; r += row_step)
            reference.for_each_block([&](std::ptrdiff_t column) UTILS_SSE_LAMBDA {
                const Pixels q = differences(load<WideBytes>(reference.row(r) + column), reference.mean);
                add_products(sum, q, {WideShorts::broadcast(1), WideShorts::broadcast(1)});
            });
        reference_ = broadcast_int(fold_wrap(add_blocks_wrap(sum)));
    }

    // divide(x): x over the number of pixels that entered the products, less one.
    template <class Divide>
    UTILS_SSE_INLINE Scores operator()(const Sums& sums, const Divide& divide) const
    {
        const i32 m = truncate_to_int(to_float(sums.pixels) / size_);
        const i32 twice = add_wrap(sums.pixels, sums.pixels);
        const i32 squares = subtract_wrap(sums.squares, multiply_wrap(m, subtract_wrap(twice, multiply_wrap(m, counted_))));
        const i32 products = subtract_wrap(sums.products, multiply_wrap(m, reference_));
        const f32 sigma = square_root(to_float(squares) / broadcast<f32>(area_));
        // A quotient taken in double and rounded to single is the same number, as it is with roots.
        const f32 scale = broadcast<f32>(255.0f) / (sigma * deviation_);
        return {absolute_wrap(truncate_to_int(divide(to_float(products) * scale))), m};
    }

    float area() const { return area_; }

private:
    i32 counted_, reference_;
    f32 size_;
    float area_;
    f32 deviation_;
};

} // namespace block_matching
} // namespace UTILS_SSE_TIER
} // namespace simd
