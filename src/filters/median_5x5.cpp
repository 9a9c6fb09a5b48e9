// Median of the 5x5 neighbourhood, exact. Four windows are filtered at once: two rows by two columns, the columns being even
// and odd ones in vectors of their own. What windows have in common is sorted once, and of it only what can still become the
// median is kept:
//
//   columns  0 1 2 3 4 5      the core, 16 pixels, belongs to all four windows: sorted, ranks 3 .. 12 are kept
//   row 0    t t t t t t      with column 0 or 5 (l, r: 4 pixels): 20 pixels that two windows share, ranks 7 .. 12 are kept
//       1    l c c c c r      with five pixels of row 0 or 5 (t, b): the 25 of one window, rank 12 is the median
//       2    l c c c c r
//       3    l c c c c r      A pixel of rank 2 among 16 has 13 above it, so it is none of the 25 whose rank is 12; in the
//       4    l c c c c r      same way the other bounds follow.
//   row 5    b b b b b b
//
// This takes 56.5 minima and maxima for a vector of results. Such sharing of sorted parts between the windows of a tile is
// due to Adams ("Fast Median Filters using Separable Sorting Networks", 2021).
#include "filters/rows.h"
#include "filters/sorting.h"
#include "utils_sse.h"

#include <algorithm>

using namespace simd;

namespace {

// What two rows of windows have in common, one entry for each two columns. Whole vectors are stored and loaded: behind the last
// entry stands nothing of use.
template <class T>
struct Shared
{
    static constexpr int most = 512 / static_cast<int>(sizeof(T)); // pairs of result columns
    static constexpr int room = most + 2 + 2 * UTILS_SSE_MOST_BLOCKS * 16 / static_cast<int>(sizeof(T));

    T even[4][room], odd[4][room];             // columns 2k and 2k + 1 of rows 1 .. 4, each sorted
    T both[8][room];                           // columns 2k + 1 and 2k + 2 of rows 1 .. 4, sorted together
    T outer_even[2][room], outer_odd[2][room]; // columns 2k and 2k + 1 of rows 0 and 5
    T outer_both[2][2][room];                  // columns 2k + 1 and 2k + 2 of rows 0 and 5, each pair sorted
};

template <class V, int Count, class T, std::size_t Room>
UTILS_SSE_INLINE void store_sorted(T (&lists)[Count][Room], std::ptrdiff_t k, const Sorted<V, Count>& x)
{
    repeat<Count>([&](auto i) UTILS_SSE_LAMBDA { store(lists[i()] + k, x.at[i()]); });
}

template <class V, int Count, class T, std::size_t Room>
UTILS_SSE_INLINE Sorted<V, Count> load_sorted(const T (&lists)[Count][Room], std::ptrdiff_t k)
{
    Sorted<V, Count> x;
    repeat<Count>([&](auto i) UTILS_SSE_LAMBDA { x.at[i()] = load<V>(lists[i()] + k); });
    return x;
}

// Of pixels of one row, those of even columns and those of odd ones.
template <class V>
struct Split
{
    V even, odd;

    static UTILS_SSE_INLINE Split load(const typename V::element* p)
    {
        V low, high;
        load_in_turn(p, low.v, high.v);
        return {even_lanes(low, high), odd_lanes(low, high)};
    }
    static UTILS_SSE_INLINE void store(typename V::element* p, const Split& x)
    {
        store_in_turn(p, interleave_low(x.even, x.odd).v, interleave_high(x.even, x.odd).v);
    }
};

// split(r) returns the pixels of row r from column 2k on.
template <class V, class T, class SplitRow>
UTILS_SSE_INLINE void sort_columns(Shared<T>& shared, std::ptrdiff_t k, const SplitRow& split)
{
    const Split<V> r1 = split(1), r2 = split(2), r3 = split(3), r4 = split(4);
    store_sorted(shared.even, k, merge(sorted(r1.even, r2.even), sorted(r3.even, r4.even)));
    store_sorted(shared.odd, k, merge(sorted(r1.odd, r2.odd), sorted(r3.odd, r4.odd)));
    const Split<V> r0 = split(0), r5 = split(5);
    store(shared.outer_even[0] + k, r0.even);
    store(shared.outer_odd[0] + k, r0.odd);
    store(shared.outer_even[1] + k, r5.even);
    store(shared.outer_odd[1] + k, r5.odd);
}

template <class V, class T>
UTILS_SSE_INLINE void sort_both(Shared<T>& shared, std::ptrdiff_t k)
{
    store_sorted(shared.both, k, merge(load_sorted<V>(shared.odd, k), load_sorted<V>(shared.even, k + 1)));
    repeat<2>([&](auto r) UTILS_SSE_LAMBDA {
        store_sorted(shared.outer_both[r()], k,
                     sorted(load<V>(shared.outer_odd[r()] + k), load<V>(shared.outer_even[r()] + k + 1)));
    });
}

// The medians of the windows that begin with columns 2k and 2k + 1, in the upper and in the lower row.
template <class V, class T, class Put>
UTILS_SSE_INLINE void select_medians(const Shared<T>& shared, std::ptrdiff_t k, const Put& put)
{
    const Sorted<V, 10> core = every<3, 1, 10>(merge(load_sorted<V>(shared.both, k), load_sorted<V>(shared.both, k + 1)));
    const Sorted<V, 6> left = every<4, 1, 6>(merge(core, load_sorted<V>(shared.even, k)));
    const Sorted<V, 6> right = every<4, 1, 6>(merge(core, load_sorted<V>(shared.odd, k + 2)));
    repeat<2>([&](auto r) UTILS_SSE_LAMBDA {
        const Sorted<V, 4> four =
            merge(load_sorted<V>(shared.outer_both[r()], k), load_sorted<V>(shared.outer_both[r()], k + 1));
        const auto median = [&](const Sorted<V, 6>& six, const T* fifth)
                                UTILS_SSE_LAMBDA { return merge(six, merge(four, Sorted<V, 1>{{load<V>(fifth)}})).at[5]; };
        put(r, Split<V>{median(left, shared.outer_even[r()] + k), median(right, shared.outer_odd[r()] + k + 2)});
    });
}

// body(k) for blocks of Block numbers k out of 0 .. count - 1; the last block is moved back to end with the last number.
template <int Block, class Body>
UTILS_SSE_INLINE void for_blocks(std::ptrdiff_t count, const Body& body)
{
    for (std::ptrdiff_t k = 0;;) {
        body(k);
        if (k + Block >= count)
            return;
        k = std::min(k + Block, count - Block);
    }
}

// `count` results of each of two rows, from upper[0] and lower[0] on. rows[r][0] is the upper left pixel of the windows in
// row r. When count is odd, one more result is written, which is of no use.
template <class V, class T>
void filter_rows(Shared<T>& shared, T* upper, T* lower, const T* const (&rows)[6], int count)
{
    constexpr int lanes = V::blocks * V::lanes;
    const std::ptrdiff_t whole = (count + 4) / 2; // pairs of columns
    if (whole >= lanes) {
        for_blocks<lanes>(whole, [&](std::ptrdiff_t k) UTILS_SSE_LAMBDA {
            sort_columns<V>(shared, k, [&](int r) UTILS_SSE_LAMBDA { return Split<V>::load(rows[r] + 2 * k); });
        });
        if (count % 2 != 0)
            sort_columns<typename VectorOf<T, 1>::type>(shared, whole, [&](int r) UTILS_SSE_LAMBDA {
                const auto last = Part<V, static_cast<int>(sizeof(T))>::load(rows[r] + 2 * whole);
                return Split<typename VectorOf<T, 1>::type>{last, last};
            });
    } else {
        T copies[6][2 * lanes] = {};
        for (int r = 0; r < 6; ++r)
            std::memcpy(copies[r], rows[r], static_cast<std::size_t>(count + 4) * sizeof(T));
        sort_columns<V>(shared, 0, [&](int r) UTILS_SSE_LAMBDA { return Split<V>::load(copies[r]); });
    }

    const std::ptrdiff_t pairs = (count + 1) / 2; // of results
    for (std::ptrdiff_t k = 0; k <= pairs; k += lanes)
        sort_both<V>(shared, k);

    const auto select_into = [&](T* first, T* second) UTILS_SSE_LAMBDA {
        for_blocks<lanes>(pairs, [&](std::ptrdiff_t k) UTILS_SSE_LAMBDA {
            select_medians<V>(shared, k, [&](auto r, const Split<V>& medians) UTILS_SSE_LAMBDA {
                Split<V>::store((r() == 0 ? first : second) + 2 * k, medians);
            });
        });
    };
    T results[2][2 * lanes];
    const bool narrow = pairs < lanes;
    select_into(narrow ? results[0] : upper, narrow ? results[1] : lower);
    if (narrow) {
        std::memcpy(upper, results[0], static_cast<std::size_t>(count) * sizeof(T));
        std::memcpy(lower, results[1], static_cast<std::size_t>(count) * sizeof(T));
    }
}

// In vectors of at most `Blocks` blocks: the widest that a row fills.
template <int Blocks, class T>
UTILS_SSE_INLINE void filter_rows_in(Shared<T>& shared, T* upper, T* lower, const T* const (&rows)[6], int count)
{
    using V = typename VectorOf<T, Blocks>::type;
    if constexpr (Blocks > 1) {
        if (count < 2 * Blocks * V::lanes)
            return filter_rows_in<Blocks / 2>(shared, upper, lower, rows, count);
    }
    filter_rows<V>(shared, upper, lower, rows, count);
}

template <class T>
void median_5x5(T* dst, const T* src, std::ptrdiff_t pitch, int width, int height)
{
    const std::ptrdiff_t bytes = std::ptrdiff_t{width} * static_cast<std::ptrdiff_t>(sizeof(T));
    if (width < 5 || height < 5) {
        copy_rows(dst, src, pitch, height, bytes);
        return;
    }
    Shared<T> shared;
    for (int x = 0; x < width - 4;) {
        const int count = std::min(2 * Shared<T>::most, width - 4 - x);
        for (std::ptrdiff_t y = 0; y < height - 4; y += 2) {
            // A single row at the end is filtered twice: with its first row instead of one below, its windows stay the same.
            const bool single = y == height - 5;
            const T* const top = src + y * pitch + x;
            const T* const rows[6] = {
                top, top + pitch, top + 2 * pitch, top + 3 * pitch, top + 4 * pitch, single ? top : top + 5 * pitch};
            T* const upper = dst + (y + 2) * pitch + x + 2;
            T* const lower = single ? upper : upper + pitch;
            filter_rows_in<UTILS_SSE_MOST_BLOCKS>(shared, upper, lower, rows, count);
        }
        x += count;
    }
    // The borders, behind the result too many of an odd width.
    const std::ptrdiff_t bottom = (height - std::ptrdiff_t{2}) * pitch;
    copy_rows(dst, src, pitch, 2, bytes);
    copy_rows(dst + bottom, src + bottom, pitch, 2, bytes);
    for (std::ptrdiff_t y = 2; y < height - 2; ++y)
        for (const std::ptrdiff_t x : {0, 1, width - 2, width - 1})
            dst[y * pitch + x] = src[y * pitch + x];
}

} // namespace

void CUtils_SSE::MedianFilter2DWin5(unsigned char* dst, const unsigned char* src, int pitch, int width, int height)
{
    median_5x5(dst, src, pitch, width, height);
}

void CUtils_SSE::MedianFilter2DWin5(float* dst, const float* src, int pitch, int width, int height)
{
    median_5x5(dst, src, pitch, width, height);
}

void CUtils_SSE::MedianFilter2DWin5Short(short* dst, short* src, int pitch, int width, int height)
{
    median_5x5<short>(dst, src, pitch, width, height);
}
