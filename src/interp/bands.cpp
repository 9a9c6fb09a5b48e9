// An image split into two frequency bands and put together again.
#include "simd/loops.h"
#include "utils_sse.h"

#include <algorithm>

using namespace simd;

namespace {

template <class V>
UTILS_SSE_INLINE V combine_wrapping(V a, V b)
{
    return shift_right<7>(add_wrap(a, b));
}
// As good as a sum of full width: what saturates lies outside 0 .. 255 pixels in either case.
UTILS_SSE_INLINE i16 combine_exactly(i16 a, i16 b)
{
    return shift_right<7>(add_saturate(a, b));
}

// x0 + 4 x1 + 6 x2 + 4 x3 + x4, which sums to 16.
template <class V>
UTILS_SSE_INLINE V smooth(V x0, V x1, V x2, V x3, V x4)
{
    const V ends_and_centre = add_wrap(add_wrap(x0, x4), add_wrap(x2, x2));
    return add_wrap(ends_and_centre, shift_left<2>(add_wrap(add_wrap(x1, x3), x2)));
}

constexpr int kTile = 1024; // columns at a time: five rows of sums stay in L1

// sums[x - from] = pixels around column x of a row, smoothed along the row, 0 .. 16 * 255, for from <= x < to.
void smooth_row(short* sums, const unsigned char* row, int width, int from, int to)
{
    // Beyond the borders the border pixels repeat.
    const auto at_border = [=](int x) {
        const auto pixel = [=](int k) { return int{row[std::min(std::max(x + k, 0), width - 1)]}; };
        sums[x - from] = static_cast<short>(pixel(-2) + pixel(2) + 4 * (pixel(-1) + pixel(1)) + 6 * pixel(0));
    };
    const int inside = std::max(from, 2);
    const int right = std::max(std::min(to, width - 2), inside);
    for (int x = from; x < std::min(inside, to); ++x)
        at_border(x);

    const unsigned char* pixels = row + inside;
    short* smoothed = sums + (inside - from);
    const Rest rest = map_blocks<16, 2>(
        right - inside,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const auto x0 = run.load(pixels + i - 2), x1 = run.load(pixels + i - 1), x2 = run.load(pixels + i);
            const auto x3 = run.load(pixels + i + 1), x4 = run.load(pixels + i + 2);
            return in_turn(smooth(widen_low(x0), widen_low(x1), widen_low(x2), widen_low(x3), widen_low(x4)),
                           smooth(widen_high(x0), widen_high(x1), widen_high(x2), widen_high(x3), widen_high(x4)));
        },
        [=](std::ptrdiff_t i, auto halves) UTILS_SSE_LAMBDA { store(smoothed + i, halves); });
    cover<8>(rest, [=](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        const auto pixel = [=](int k) UTILS_SSE_LAMBDA { return widen_low(Part<u8, count()>::load(pixels + i + k)); };
        Part<i16, 2 * count()>::store(smoothed + i, smooth(pixel(-2), pixel(-1), pixel(0), pixel(1), pixel(2)));
    });
    for (int x = right; x < to; ++x)
        at_border(x);
}

struct Bands
{
    i16 low, high;
};

// The bands of some pixels of a row from the smoothed rows around it. Sums and Pixels are the parts of vectors they fill.
template <class Sums, class Pixels>
UTILS_SSE_INLINE Bands separate(Sums, Pixels, const short* const (&rows)[5], const unsigned char* pixels, std::ptrdiff_t i)
{
    const i16 low = halve_unsigned_up( // 128 / 256
        smooth(Sums::load(rows[0] + i), Sums::load(rows[1] + i), Sums::load(rows[2] + i), Sums::load(rows[3] + i),
               Sums::load(rows[4] + i)));
    return {low, subtract_wrap(shift_left<7>(widen_low(Pixels::load(pixels + i))), low)};
}

void separate_row(short* low, short* high, const short* const (&rows)[5], const unsigned char* pixels, int columns)
{
    const Rest rest = map_blocks<8, 2, 1>(
        columns,
        [&](Blocks<1>, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return separate(Part<i16, 16>(), Part<u8, 8>(), rows, pixels, i); },
        [=](std::ptrdiff_t i, const Bands& bands) UTILS_SSE_LAMBDA {
            store(low + i, bands.low);
            store(high + i, bands.high);
        });
    cover<4>(rest, [&](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        using Band = Part<i16, 2 * count()>;
        const Bands bands = separate(Band(), Part<u8, count()>(), rows, pixels, i);
        Band::store(low + i, bands.low);
        Band::store(high + i, bands.high);
    });
}

} // namespace

void CUtils_SSE::CombineBands(unsigned char* dst, const short* low, const short* high, int n)
{
    const Rest rest = map_blocks<16, 4>(
        n,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const auto half = [=](std::ptrdiff_t k)
                                  UTILS_SSE_LAMBDA { return combine_wrapping(run.load(low + k), run.load(high + k)); };
            return narrow_in_order(half(i), half(i + run.count * 8));
        },
        [=](std::ptrdiff_t i, auto pixels) UTILS_SSE_LAMBDA { store(dst + i, pixels); }, ahead<1024>(low), ahead<1024>(high));
    // The tail does not wrap, on purpose.
    cover_in_place<8>(
        rest,
        [=](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            using Band = Part<i16, 2 * count()>;
            const i16 pixels = combine_exactly(Band::load(low + i), Band::load(high + i));
            return narrow_saturate(pixels, pixels);
        },
        [=](auto count, std::ptrdiff_t i, u8 pixels) UTILS_SSE_LAMBDA { Part<u8, count()>::store(dst + i, pixels); });
}

void CUtils_SSE::SeparateBands(short* low, short* high, const unsigned char* src, int width, int height)
{
    if (height <= 0)
        return;
    short sums[5][kTile]; // smoothed rows; row y is kept in y mod 5
    const std::ptrdiff_t stride = width;
    for (int x = 0; x < width;) {
        const int columns = std::min(kTile, width - x);
        int ready = 0; // rows that have been smoothed
        for (int y = 0; y < height; ++y) {
            for (; ready < height && ready - 2 <= y; ++ready)
                smooth_row(sums[ready % 5], src + ready * stride, width, x, x + columns);
            const auto row = [&](int k) { // beyond the borders the border rows repeat
                return sums[(k < 0 ? std::max(y + k, 0) : std::min(k, height - 1 - y) + y) % 5];
            };
            const short* const rows[5] = {row(-2), row(-1), row(0), row(1), row(2)};
            const std::ptrdiff_t start = y * stride + x;
            separate_row(low + start, high + start, rows, src + start, columns);
        }
        x += columns;
    }
}
