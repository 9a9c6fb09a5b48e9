// An image split into two frequency bands and put together again.
#include "simd/loops.h"
#include "utils_sse.h"

#include <algorithm>
#include <cstdint>

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
// Between rows of sums. Loads wait for stores to an address that differs by whole pages; multiples of this do not.
constexpr int kRow = kTile + 32;

// Sums of a row: its pixels smoothed along the row, 0 .. 16 * 255. Beyond the borders the border pixels repeat.

// sums[x - from] for from <= x < to, in a row of 4 pixels at least.
void smooth_row(short* sums, const unsigned char* row, int width, int from, int to)
{
    // The first two columns from a border, pixels counted from there.
    const auto at_border = [=](int x, const unsigned char* border, std::ptrdiff_t step) {
        const int p0 = border[0], p1 = border[step], p2 = border[2 * step], p3 = border[3 * step];
        sums[x - from] = static_cast<short>(row + x == border ? 11 * p0 + 4 * p1 + p2 : 5 * p0 + 6 * p1 + 4 * p2 + p3);
    };
    const int inside = std::max(from, 2);
    const int right = std::max(std::min(to, width - 2), inside);
    for (int x = from; x < std::min(inside, to); ++x)
        at_border(x, row, 1);

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
        at_border(x, row + width - 1, -1);
}

struct Bands
{
    i16 low, high;
};

// The bands of a row from the sums of the rows around it.
UTILS_SSE_INLINE Bands separate(i16 row_2_up, i16 row_up, i16 row, i16 row_down, i16 row_2_down, u8 pixels)
{
    const i16 low = halve_unsigned_up(smooth(row_2_up, row_up, row, row_down, row_2_down)); // 128 / 256
    return {low, subtract_wrap(shift_left<7>(widen_low(pixels)), low)};
}

// The same for `Columns` of them.
template <int Columns>
UTILS_SSE_INLINE Bands separate(const short* const (&rows)[5], const unsigned char* pixels, std::ptrdiff_t i)
{
    const auto row = [&](int k) UTILS_SSE_LAMBDA { return Part<i16, 2 * Columns>::load(rows[k] + i); };
    return separate(row(0), row(1), row(2), row(3), row(4), Part<u8, Columns>::load(pixels + i));
}

void separate_row(short* low, short* high, const short* const (&rows)[5], const unsigned char* pixels, int columns)
{
    const Rest rest = map_blocks<8, 2, 1>(
        columns, [&](Blocks<1>, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return separate<8>(rows, pixels, i); },
        [=](std::ptrdiff_t i, const Bands& bands) UTILS_SSE_LAMBDA {
            store(low + i, bands.low);
            store(high + i, bands.high);
        });
    cover<4>(rest, [&](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        using Band = Part<i16, 2 * count()>;
        const Bands bands = separate<count()>(rows, pixels, i);
        Band::store(low + i, bands.low);
        Band::store(high + i, bands.high);
    });
}

// Up to 8 columns: a row is one vector, and nothing but pixels and bands goes through memory.

// A row of 1 .. 8 bytes as one number, the first byte lowest.
UTILS_SSE_INLINE std::uint64_t as_number(const unsigned char* row, int width)
{
    const auto ends = [=](auto part) UTILS_SSE_LAMBDA { // they may overlap
        constexpr int bytes = static_cast<int>(sizeof part);
        return std::uint64_t{load<decltype(part)>(row)} | std::uint64_t{load<decltype(part)>(row + width - bytes)}
                                                              << 8 * (width - bytes);
    };
    return width >= 4 ? ends(std::uint32_t()) : width >= 2 ? ends(std::uint16_t()) : row[0];
}

struct NarrowRow
{
    u8 pixels;
    i16 sums;
};

UTILS_SSE_INLINE NarrowRow smooth_narrow_row(const unsigned char* row, int width)
{
    const std::uint64_t pixels = as_number(row, width);
    const std::uint64_t first = row[0];
    const std::uint64_t last = row[width - 1] * std::uint64_t{0x0101010101010101};
    const std::uint64_t extended = width < 8 ? pixels | last << 8 * width : pixels;
    const auto vector = [](std::uint64_t bytes)
                            UTILS_SSE_LAMBDA { return load_eight(reinterpret_cast<const unsigned char*>(&bytes)); };
    const u8 x2 = vector(extended);
    return {x2,
            smooth(widen_low(vector(pixels << 16 | first << 8 | first)), widen_low(vector(pixels << 8 | first)), widen_low(x2),
                   widen_low(vector(extended >> 8 | last << 56)), widen_low(vector(extended >> 16 | last << 48)))};
}

void separate_narrow(short* low, short* high, const unsigned char* src, int width, int height)
{
    const auto put = [=](short* row, i16 band) UTILS_SSE_LAMBDA {
        short lanes[8];
        store(lanes, band);
        cover<8>(Rest{0, width}, [&](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            using Columns = Part<i16, 2 * count()>;
            Columns::store(row + i, Columns::load(lanes + i));
        });
    };
    const unsigned char* ahead = src; // of the row, by two
    const unsigned char* const bottom = src + (height - std::ptrdiff_t{1}) * width;
    const auto next = [&]() UTILS_SSE_LAMBDA {
        ahead += ahead < bottom ? width : 0;
        return smooth_narrow_row(ahead, width);
    };
    NarrowRow row = smooth_narrow_row(src, width);
    NarrowRow row_down = row;
    NarrowRow row_2_down = next();
    i16 row_up = row.sums;
    for (int y = 0; y < height; ++y, low += width, high += width) {
        const i16 row_2_up = row_up;
        row_up = row.sums;
        row = row_down;
        row_down = row_2_down;
        row_2_down = next();
        const Bands bands = separate(row_2_up, row_up, row.sums, row_down.sums, row_2_down.sums, row.pixels);
        put(low, bands.low);
        put(high, bands.high);
    }
}

} // namespace

void CUtils_SSE::CombineBands(unsigned char* dst, const short* low, const short* high, int n)
{
    // The tail does not wrap, on purpose.
    const auto compute = [=](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        using Band = Part<i16, 2 * count()>;
        const i16 pixels = combine_exactly(Band::load(low + i), Band::load(high + i));
        return narrow_saturate(pixels, pixels);
    };
    const auto put = [=](auto count, std::ptrdiff_t i, u8 pixels)
                         UTILS_SSE_LAMBDA { Part<u8, count()>::store(dst + i, pixels); };
    map_with_tail<16, 4>(
        n,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const auto half = [=](std::ptrdiff_t k)
                                  UTILS_SSE_LAMBDA { return combine_wrapping(run.load(low + k), run.load(high + k)); };
            return narrow_in_order(half(i), half(i + run.count * 8));
        },
        [=](std::ptrdiff_t i, auto pixels) UTILS_SSE_LAMBDA { store(dst + i, pixels); },
        [=](Rest rest) UTILS_SSE_LAMBDA { cover_in_place<8>(rest, compute, put); }, ahead<1024>(low), ahead<1024>(high));
}

void CUtils_SSE::SeparateBands(short* low, short* high, const unsigned char* src, int width, int height)
{
    if (width <= 0 || height <= 0)
        return;
    if (width <= 8) {
        separate_narrow(low, high, src, width, height);
        return;
    }
    short sums[5][kRow];
    const std::ptrdiff_t stride = width;
    for (int x = 0; x < width;) {
        const int columns = std::min(kTile, width - x);
        const short* rows[5] = {}; // around y; beyond the borders the border rows repeat
        int slot = 0;
        for (std::ptrdiff_t y = -2; y < height; ++y) {
            repeat<4>([&](auto k) UTILS_SSE_LAMBDA { rows[k] = rows[k + 1]; }); // by vectors they would wait for each other
            if (y + 2 < height) {
                const unsigned char* row = src + (y + 2) * stride;
                smooth_row(sums[slot], row, width, x, x + columns);
                rows[4] = sums[slot];
                slot = slot < 4 ? slot + 1 : 0;
            }
            if (y == -2)
                rows[2] = rows[3] = rows[4];
            if (y >= 0)
                separate_row(low + y * stride + x, high + y * stride + x, rows, src + y * stride + x, columns);
        }
        x += columns;
    }
}
