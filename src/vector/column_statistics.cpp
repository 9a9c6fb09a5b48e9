// Means and maxima of the columns of a block of rows.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

struct Rows
{
    const short* src;
    int count;
    std::ptrdiff_t stride;

    // A column's walk ends in front of this position. A column beyond the stride begins later, and so has fewer rows.
    std::ptrdiff_t end() const { return count * stride; }
};

// Vectors of columns that are computed side by side.
template <int Wide, int Count>
struct Vectors
{
    static constexpr int count = Count;
    static constexpr int columns = Count * Wide * 8;
    using Columns = Part<i16, Wide * 16>;
};

// body(vectors, j) computes the columns of some Vectors from j on, tail(count, j) the columns of a tail.
template <class Body, class Tail>
UTILS_SSE_INLINE void for_columns(int n, std::ptrdiff_t stride, const Body& body, const Tail& tail)
{
    Rest rest{0, n};
    const auto step = [&](auto vectors) UTILS_SSE_LAMBDA {
        body(vectors, rest.i);
        rest.i += vectors.columns;
        rest.count -= vectors.columns;
    };
    // The columns of a group have their rows in common: none lies beyond the stride.
    const auto fits = [&](auto vectors)
                          UTILS_SSE_LAMBDA { return rest.count >= vectors.columns && rest.i + vectors.columns <= stride; };
    constexpr int wide = UTILS_SSE_MOST_BLOCKS;
    constexpr Vectors<wide, sizeof(void*) == 8 ? 4 : 2> group; // a line at least, or what registers can hold
    constexpr Vectors<wide, 1> vector;
    constexpr Vectors<1, 1> block;
    while (fits(group))
        step(group);
    if constexpr (wide > 1)
        while (fits(vector))
            step(vector);
    while (rest.count >= block.columns)
        step(block);
    if (n <= stride)
        cover<4>(rest, tail);
    else
        for (; rest.count > 0; --rest.count, ++rest.i)
            tail(std::integral_constant<int, 1>(), rest.i);
}

// Float sums of some vectors of columns, row by row. As long as no sum can leave 24 bits they are exact whatever the order,
// so the first rows are summed as integers, two at a time.
template <class Columns, int N, int Count>
UTILS_SSE_INLINE void sum_rows(F32x2<N> (&sum)[Count], const Rows& rows, std::ptrdiff_t j)
{
    using Samples = typename Columns::Vector;
    constexpr int exact = (1 << 24) / 32768;
    const auto columns = [&](std::ptrdiff_t i, int vector)
                             UTILS_SSE_LAMBDA { return Columns::load(rows.src + i + vector * Columns::elements); };
    const auto hint = [&](std::ptrdiff_t i)
                          UTILS_SSE_LAMBDA { ahead<1024>(rows.src).template hint<Count * Columns::elements>(i); };
    I32x2<N> whole[Count];
    repeat<Count>([&](auto k) UTILS_SSE_LAMBDA { whole[k] = {zero<I32<N>>(), zero<I32<N>>()}; });
    const auto add = [&](auto k, Samples x, Samples y) UTILS_SSE_LAMBDA {
        const auto ones = Samples::broadcast(1);
        whole[k].low = in_order(add_wrap(whole[k].low, multiply_add_pairs(interleave_low(x, y), ones)));
        if constexpr (Columns::elements >= 8)
            whole[k].high = in_order(add_wrap(whole[k].high, multiply_add_pairs(interleave_high(x, y), ones)));
    };
    std::ptrdiff_t i = j;
    const std::ptrdiff_t end = minimum(rows.count, exact) * rows.stride;
    for (; i + rows.stride < end; i += 2 * rows.stride) {
        hint(i), hint(i + rows.stride);
        repeat<Count>([&](auto k) UTILS_SSE_LAMBDA { add(k, columns(i, k), columns(i + rows.stride, k)); });
    }
    if (i < end) {
        hint(i);
        repeat<Count>([&](auto k) UTILS_SSE_LAMBDA { add(k, columns(i, k), zero<Samples>()); });
        i += rows.stride;
    }
    repeat<Count>([&](auto k) UTILS_SSE_LAMBDA { sum[k] = to_float(whole[k]); });
    for (; i < rows.end(); i += rows.stride) {
        hint(i);
        repeat<Count>([&](auto k) UTILS_SSE_LAMBDA { sum[k] = sum[k] + to_float(widen(columns(i, k))); });
    }
}

// The lower one of the lowest (at most 0) and of the highest (at least 0) sample, negated: what is not above 0 has room for
// the magnitude of -32768.
template <class V>
struct NegativeMagnitude
{
    V lowest = zero<V>();
    V highest = zero<V>();

    UTILS_SSE_INLINE void add(V x)
    {
        lowest = in_order(minimum(lowest, x));
        highest = in_order(maximum(highest, x));
    }
    UTILS_SSE_INLINE V result() const { return minimum(lowest, subtract_wrap(zero<V>(), highest)); }
};

template <class Columns, int Count>
UTILS_SSE_INLINE void find_magnitudes(NegativeMagnitude<typename Columns::Vector> (&magnitude)[Count], const Rows& rows,
                                      std::ptrdiff_t j)
{
    const auto add_row = [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        ahead<1024>(rows.src).template hint<Count * Columns::elements>(i);
        repeat<Count>([&](auto k) UTILS_SSE_LAMBDA { magnitude[k].add(Columns::load(rows.src + i + k * Columns::elements)); });
    };
    std::ptrdiff_t i = j;
    if constexpr (Count == 1) // a single vector is too little work for a turn of a loop
        for (; i + 3 * rows.stride < rows.end(); i += 4 * rows.stride)
            repeat<4>([&](auto k) UTILS_SSE_LAMBDA { add_row(i + k * rows.stride); });
    for (; i < rows.end(); i += rows.stride)
        add_row(i);
}

// One column whose rows follow each other without a gap, eight at least.
UTILS_SSE_INLINE i16 negative_magnitude_of_array(const short* src, int count)
{
    NegativeMagnitude<i16> magnitude;
    cover_blocks<8>(count, [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { magnitude.add(load<i16>(src + i)); });
    i16 lowest = magnitude.result();
    lowest = minimum(lowest, move_down<4>(lowest));
    lowest = minimum(lowest, move_down<2>(lowest));
    return minimum(lowest, move_down<1>(lowest));
}

} // namespace

void CUtils_SSE::Average(short* dst, const short* src, int rows, int stride, int n)
{
    if (rows < 0)
        return;
    const Rows all{src, rows, stride};
    const float count = to_float(rows); // 0 / 0 without rows
    for_columns(
        n, stride,
        [&](auto vectors, std::ptrdiff_t j) UTILS_SSE_LAMBDA {
            using Columns = typename decltype(vectors)::Columns;
            using Divisor = typename VectorOf<float, Columns::blocks>::type;
            F32x2<Columns::blocks> sum[vectors.count];
            sum_rows<Columns>(sum, all, j);
            repeat<vectors.count>([&](auto k) UTILS_SSE_LAMBDA {
                const auto divisor = Divisor::broadcast(count);
                store(dst + j + k * Columns::elements,
                      narrow_saturate(round_to_int(sum[k].low / divisor), round_to_int(sum[k].high / divisor)));
            });
        },
        // Body rounds to nearest even and saturates, tail truncates and keeps the low 16 bits.
        [&](auto columns, std::ptrdiff_t j) UTILS_SSE_LAMBDA {
            using Columns = Part<i16, 2 * columns()>;
            f32x2 sum[1];
            sum_rows<Columns>(sum, all, j);
            const i32 mean = truncate_to_int(sum[0].low / broadcast<f32>(count));
            Columns::store(dst + j, narrow_wrap(mean, mean));
        });
}

void CUtils_SSE::MaxAbsoluteValue(short* dst, const short* src, int rows, int stride, int n)
{
    if (rows < 0)
        return;
    // In the body the magnitude of -32768 is 32767, in the tail 32768, of which the low 16 bits are -32768 again.
    if (n == 1 && stride == 1 && rows >= 8) {
        Part<i16, 2>::store(dst, subtract_wrap(zero<i16>(), negative_magnitude_of_array(src, rows)));
        return;
    }
    const Rows all{src, rows, stride};
    for_columns(
        n, stride,
        [&](auto vectors, std::ptrdiff_t j) UTILS_SSE_LAMBDA {
            using Columns = typename decltype(vectors)::Columns;
            using Samples = typename Columns::Vector;
            NegativeMagnitude<Samples> magnitude[vectors.count];
            find_magnitudes<Columns>(magnitude, all, j);
            repeat<vectors.count>([&](auto k) UTILS_SSE_LAMBDA {
                store(dst + j + k * Columns::elements, subtract_saturate(zero<Samples>(), magnitude[k].result()));
            });
        },
        [&](auto columns, std::ptrdiff_t j) UTILS_SSE_LAMBDA {
            using Columns = Part<i16, 2 * columns()>;
            NegativeMagnitude<i16> magnitude[1];
            find_magnitudes<Columns>(magnitude, all, j);
            Columns::store(dst + j, subtract_wrap(zero<i16>(), magnitude[0].result()));
        });
}
