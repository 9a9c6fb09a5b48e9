// The 2x2 box filter and the transposition of images.
#include "filters/four_pixels.h"
#include "simd/loops.h"
#include "utils_sse.h"

#include <algorithm>
#include <cstring>

using namespace simd;

namespace {

// A tile of eight columns and sixteen rows. Each round interleaves vector k with vector k + 4 (8 in the first round):
//
//   rows            r0 .. r15, eight pixels each
//   after round 1   rows k and k + 8 alternate, columns 0 .. 7       k = 0 .. 7
//         round 2   rows k, k + 4, k + 8, k + 12, columns 0 .. 3 and 4 .. 7
//         round 3   every other row from k on, two columns
//         round 4   all rows in order, one column: the columns in order
UTILS_SSE_INLINE void interleave_round(u8 (&x)[8])
{
    u8 y[8];
    repeat<4>([&](auto k) UTILS_SSE_LAMBDA {
        y[2 * k] = interleave_low(x[k], x[k + 4]);
        y[2 * k + 1] = interleave_high(x[k], x[k + 4]);
    });
    repeat<8>([&](auto k) UTILS_SSE_LAMBDA { x[k] = y[k]; });
}

UTILS_SSE_INLINE void transpose_8_columns(unsigned char* dst, std::ptrdiff_t dst_pitch, const unsigned char* src,
                                          std::ptrdiff_t src_pitch)
{
    u8 x[8];
    repeat<8>([&](auto k) UTILS_SSE_LAMBDA {
        x[k] = interleave_low(load_eight(src + k * src_pitch), load_eight(src + (k + 8) * src_pitch));
    });
    interleave_round(x);
    interleave_round(x);
    interleave_round(x);
    repeat<8>([&](auto k) UTILS_SSE_LAMBDA { store(dst + k * dst_pitch, x[k]); });
}

constexpr std::ptrdiff_t kStagingPitch = 1024;
constexpr std::ptrdiff_t kResultPitch = 512;

constexpr std::ptrdiff_t round_up_to_16(std::ptrdiff_t x)
{
    return (x + 15) & ~std::ptrdiff_t{15};
}

// A call of memset costs more than these.
UTILS_SSE_INLINE void blacken(unsigned char* row, int width)
{
    if (width <= 32)
        cover<16>(Rest{0, width},
                  [=](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA { Part<u8, count()>::store(row + i, zero<u8>()); });
    else
        std::memset(row, 0, static_cast<std::size_t>(width));
}

} // namespace

void CUtils_SSE::Filter2x2(unsigned char* dst, const unsigned char* src, int width, int height)
{
    if (width <= 0 || height <= 0)
        return;
    if (width == 1) { // there is but the last column
        blacken(dst, height);
        return;
    }
    const std::ptrdiff_t w = width;
    // Rows follow each other without a gap, so several are filtered as one run; what that makes of the last column, where it
    // meets the next row, is replaced. Stretches of rows are still in L1 then.
    constexpr int most = 4096; // pixels
    const std::ptrdiff_t last = height - std::ptrdiff_t{1};
    const std::ptrdiff_t stretch = w * last <= most ? last : std::max(most / width, 1); // short calls need not divide
    for (std::ptrdiff_t row = 0; row < last; row += stretch) {
        const std::ptrdiff_t rows = std::min(stretch, last - row);
        const unsigned char* in = src + row * w;
        unsigned char* out = dst + row * w;
        const auto box = [=](auto part, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const unsigned char* p = in + i;
            return in_order(mean_down(part.load(p), part.load(p + 1), part.load(p + w), part.load(p + w + 1)));
        };
        const auto few = [=](int count) UTILS_SSE_LAMBDA {
            cover<8>(Rest{0, count}, [=](auto part, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
                using Pixels = Part<u8, part()>;
                Pixels::store(out + i, box(Pixels(), i));
            });
        };
        map_to_the_end<16, 4>(
            static_cast<int>(rows * w - 1), box,
            [=](std::ptrdiff_t i, auto pixels) UTILS_SSE_LAMBDA { store(out + i, pixels); }, few, ahead<1024>(in),
            ahead<1024>(in + w));
        for (std::ptrdiff_t r = 1; r <= rows; ++r)
            out[r * w - 1] = 0;
    }
    blacken(dst + last * w, width);
}

void CUtils_SSE::TransposeImage(unsigned char* image, int width, int height, unsigned char* staging, unsigned char* result)
{
    if (width <= 0 || height <= 0)
        return;
    const std::ptrdiff_t columns = round_up_to_16(width);
    const std::ptrdiff_t rows = round_up_to_16(height);
    // Four tiles below each other fill a line of the result. Tiles inside the image come from there: its rows usually meet more
    // sets of the cache than those of the staging buffer, 1024 bytes apart.
    for (std::ptrdiff_t top = 0; top < rows; top += 64) {
        const std::ptrdiff_t bottom = std::min(top + 64, rows);
        for (std::ptrdiff_t r = top; r < std::min<std::ptrdiff_t>(bottom, height); ++r)
            std::memcpy(staging + r * kStagingPitch, image + r * width, static_cast<std::size_t>(width));
        for (std::ptrdiff_t x = 0; x < columns; x += 8)
            for (std::ptrdiff_t y = top; y < bottom; y += 16) {
                const bool inside = x + 8 <= width && y + 16 <= height;
                const std::ptrdiff_t pitch = inside ? width : kStagingPitch;
                transpose_8_columns(result + x * kResultPitch + y, kResultPitch,
                                    inside ? image + y * pitch + x : staging + y * pitch + x, pitch);
            }
    }
}
