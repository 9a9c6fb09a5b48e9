// The intensity-weighted centre of a region of an 8-bit image.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

// Sums of pixels times column weight, of pixels times row weight, and of pixels.
struct Moments
{
    f32 column, row, pixel;

    // Eight pixels: neighbours are added as integers. Times a row weight such a sum is exact, as float and as integer, until
    // it is rounded once, so one multiplication of floats does for both.
    UTILS_SSE_INLINE void add(i16 pixels, i16 column_weights, f32 row_weight)
    {
        const f32 pairs = to_float(multiply_add_pairs(pixels, broadcast_short(1)));
        column = column + to_float(multiply_add_pairs(pixels, column_weights));
        row = row + pairs * row_weight;
        pixel = pixel + pairs;
    }
};

alignas(16) constexpr short kFirstWeights[8] = {1, 2, 3, 4, 5, 6, 7, 8};
alignas(16) constexpr float kTailWeights[4] = {1.0f, 1.0f, 1.0f, 0.0f};
alignas(16) constexpr float kNextRow[4] = {0.0f, 1.0f, 0.0f, 0.0f};
alignas(16) constexpr float kNextColumn[4] = {1.0f, 0.0f, 0.0f, 0.0f};

} // namespace

void CUtils_SSE::Centroid(float& x, float& y, const unsigned char* image, int stride, int rows, int first)
{
    const int width = first < 0 || first >= stride ? 0 : stride - first;
    const f32 next_column = load<f32>(kNextColumn);
    const f32 next_row = load<f32>(kNextRow);
    Moments body{zero<f32>(), zero<f32>(), zero<f32>()};
    // The three terms of a pixel of the tail stand side by side; lanes: column, row, pixel, nothing. Here column weights count
    // from column 0 of the image.
    f32 tail = zero<f32>();
    f32 first_of_tail = add_to_lane_0(load<f32>(kTailWeights), to_float(stride - width % 16));
    f32 row_weight = broadcast<f32>(1.0f);
    for (int r = 0; r < rows; ++r) {
        const unsigned char* const line = image + static_cast<std::ptrdiff_t>(r) * stride + first;
        // In the body column weights count from the first column of the region and stop at 32767.
        i16 weights = load<i16>(kFirstWeights);
        const Rest rest = read_blocks<16, 1>(
            width,
            [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
                const u8 pixels = load<u8>(line + i);
                const i16 eight = broadcast_short(8);
                body.add(widen_low(pixels), weights, row_weight);
                weights = add_saturate(weights, eight);
                body.add(widen_high(pixels), weights, row_weight);
                weights = add_saturate(weights, eight);
            },
            ahead<1024>(line));
        row_weight = row_weight + broadcast<f32>(1.0f);

        f32 tail_weights = first_of_tail;
        for_rest(rest, [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            tail = tail + tail_weights * broadcast<f32>(to_float(int{line[i]}));
            tail_weights = tail_weights + next_column;
        });
        first_of_tail = first_of_tail + next_row;
    }
    float tails[4];
    store(tails, tail);
    const float pixel = fold(body.pixel) + tails[2];
    x = (fold(body.column) + tails[0]) / pixel;
    y = (fold(body.row) + tails[1]) / pixel;
}
