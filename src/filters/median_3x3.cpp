// Median of the 3x3 neighbourhood. Each column of three is sorted once and then serves the three windows it belongs to: 18
// minima and maxima for a vector of results, of which the columns take 6.
#include "filters/rows.h"
#include "filters/sorting.h"
#include "utils_sse.h"

#include <algorithm>

using namespace simd;

namespace {

template <class V>
struct Column
{
    V low, middle, high;
};

// The order of operands, here and in median_of_columns(), decides about NaN and about zeros of both signs; utils_sse.h states
// it.
template <class V>
UTILS_SSE_INLINE Column<V> sort_column(V a, V b, V c)
{
    const V low = minimum(a, b);
    const V high = maximum(a, b);
    const V t = minimum(high, c);
    return {minimum(low, t), maximum(low, t), maximum(high, c)};
}

template <class V>
UTILS_SSE_INLINE V median_of_columns(const Column<V>& left, const Column<V>& centre, const Column<V>& right)
{
    const V p = maximum(maximum(left.low, centre.low), right.low);
    V middles[3] = {left.middle, centre.middle, right.middle};
    SortThree(middles);
    const V q = middles[1];
    const V r = minimum(minimum(left.high, centre.high), right.high);
    return maximum(minimum(p, q), minimum(maximum(p, q), r));
}

// Sorted columns of one row of windows. They go through memory, since SSE2 has no cheap way to move lanes from one vector to
// the next.
template <class T>
struct SortedColumns
{
    static constexpr int most = 2048 / sizeof(T);
    T low[most], middle[most], high[most];
};

// Rows of up to so many vectors sort every column three times instead: their columns would be loaded, off the places where they
// were stored, while the stores are still under way, and the processor waits for these.
constexpr int kShortRow = 3;

// handle(count, i) for runs of a row of n elements; count is a constant. Runs may overlap.
template <class V, class Handle, class... Streams>
UTILS_SSE_INLINE void for_runs(int n, const Handle& handle, Streams... streams)
{
    constexpr std::integral_constant<int, UTILS_SSE_MOST_BLOCKS * V::lanes> whole;
    if (n < whole) {
        cover<whole / 2>(Rest{0, n}, handle);
        return;
    }
    constexpr std::ptrdiff_t group = 4 * whole;
    std::ptrdiff_t i = 0;
    for (; n - i >= group; i += group) {
        (streams.template hint<4 * whole>(i), ...);
        repeat<4>([&](auto k) UTILS_SSE_LAMBDA { handle(whole, i + k() * whole()); });
    }
    for (; n - i >= whole; i += whole)
        handle(whole, i);
    if (i < n)
        handle(whole, n - whole);
}

// `count` results of one row from *dst on, the first for the window whose upper left pixel is *src.
template <class V, class T>
void filter_row(SortedColumns<T>& columns, T* dst, const T* src, std::ptrdiff_t pitch, int count)
{
    const T* const rows[3] = {src, src + pitch, src + 2 * pitch};
    const auto sorted_here = [&](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        return sort_column(run.load(rows[0] + i), run.load(rows[1] + i), run.load(rows[2] + i));
    };
    if (count <= kShortRow * V::lanes) {
        for_runs<V>(count, [&](auto lanes, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            using Run = Part<V, lanes() * static_cast<int>(sizeof(T))>;
            Run::store(dst + i, median_of_columns(sorted_here(Run(), i), sorted_here(Run(), i + 1), sorted_here(Run(), i + 2)));
        });
        return;
    }
    for_runs<V>(
        count + 2,
        [&](auto lanes, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            using Run = Part<V, lanes() * static_cast<int>(sizeof(T))>;
            const Column<typename Run::Vector> column = sorted_here(Run(), i);
            Run::store(columns.low + i, column.low);
            Run::store(columns.middle + i, column.middle);
            Run::store(columns.high + i, column.high);
        },
        ahead<64>(rows[0]), ahead<64>(rows[1]), ahead<64>(rows[2]));
    for_runs<V>(count, [&](auto lanes, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        using Run = Part<V, lanes() * static_cast<int>(sizeof(T))>;
        const auto column = [&](std::ptrdiff_t k) UTILS_SSE_LAMBDA {
            return Column<typename Run::Vector>{Run::load(columns.low + k), Run::load(columns.middle + k),
                                                Run::load(columns.high + k)};
        };
        Run::store(dst + i, median_of_columns(column(i), column(i + 1), column(i + 2)));
    });
}

// `copied` bytes of every row are copied; columns 1 .. last of the inner rows are filtered.
template <class V, class T>
void median_3x3(T* dst, const T* src, std::ptrdiff_t pitch, int height, std::ptrdiff_t copied, int last)
{
    if (height < 3 || last < 1) {
        copy_rows(dst, src, pitch, height, copied);
        return;
    }
    const std::ptrdiff_t bottom = (height - std::ptrdiff_t{1}) * pitch;
    copy_rows(dst, src, pitch, 1, copied);
    copy_rows(dst + bottom, src + bottom, pitch, 1, copied);
    for (std::ptrdiff_t y = 1; y < height - 1; ++y) {
        T* const to = dst + y * pitch;
        const T* const from = src + y * pitch;
        to[0] = from[0];
        for (std::ptrdiff_t x = last + 1; x < copied / static_cast<std::ptrdiff_t>(sizeof(T)); ++x)
            to[x] = from[x];
    }
    SortedColumns<T> columns;
    constexpr int tile = SortedColumns<T>::most - 2 * V::lanes;
    for (int x = 1; x <= last;) {
        const int count = std::min(tile, last - x + 1);
        for (std::ptrdiff_t y = 1; y < height - 1; ++y)
            filter_row<V>(columns, dst + y * pitch + x, src + (y - 1) * pitch + x - 1, pitch, count);
        x += count;
    }
}

} // namespace

void CUtils_SSE::MedianFilter2DWin3(unsigned char* dst, const unsigned char* src, int pitch, int width, int height)
{
    median_3x3<u8>(dst, src, pitch, height, width, width < 16 ? 0 : width - 2);
}

void CUtils_SSE::MedianFilter2DWin3(float* dst, const float* src, int pitch, int width, int height)
{
    // Of an even width the last two inner columns stay unfiltered, on purpose.
    const int last = width < 3 ? 0 : width % 2 != 0 ? width - 2 : width - 4;
    median_3x3<f32>(dst, src, pitch, height, std::ptrdiff_t{4} * width, last);
}

void CUtils_SSE::MedianFilter2DWin3Short(short* dst, short* src, int pitch, int width, int height)
{
    // As many bytes of each row are copied as it has columns, and what is filtered behind whole steps of six columns depends
    // on width mod 8, both on purpose.
    const int last = width < 8 ? 0 : std::min(6 * ((width - 8) / 6 + 1) + width % 8, width - 2);
    median_3x3<i16, short>(dst, src, pitch, height, width, last);
}
