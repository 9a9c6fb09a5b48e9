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

constexpr std::integral_constant<int, sizeof(void*) == 8 ? 4 : 2> kGroup; // blocks: a line, or what registers can hold

// body(blocks, j) computes `blocks` blocks of columns from j on, tail(count, j) the columns of a tail.
template <class Body, class Tail>
UTILS_SSE_INLINE void for_columns(int n, std::ptrdiff_t stride, const Body& body, const Tail& tail)
{
    Rest rest{0, n};
    // The columns of a group have their rows in common: none lies beyond the stride.
    for (; rest.count >= kGroup * 8 && rest.i + kGroup * 8 <= stride; rest.count -= kGroup * 8, rest.i += kGroup * 8)
        body(kGroup, rest.i);
    for (; rest.count >= 8; rest.count -= 8, rest.i += 8)
        body(std::integral_constant<int, 1>(), rest.i);
    if (n <= stride)
        cover<4>(rest, tail);
    else
        for (; rest.count > 0; --rest.count, ++rest.i)
            tail(std::integral_constant<int, 1>(), rest.i);
}

// Float sums of Blocks blocks of columns, row by row. As long as no sum can leave 24 bits they are exact whatever the order,
// so the first rows are summed as integers, two at a time.
template <class Columns, int Blocks>
UTILS_SSE_INLINE void sum_rows(f32x2 (&sum)[Blocks], const Rows& rows, std::ptrdiff_t j)
{
    constexpr int exact = (1 << 24) / 32768;
    const auto columns = [&](std::ptrdiff_t i, int block) UTILS_SSE_LAMBDA { return Columns::load(rows.src + i + block * 8); };
    const auto hint = [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { ahead<1024>(rows.src).template hint<Blocks * 8>(i); };
    i32x2 whole[Blocks];
    repeat<Blocks>([&](auto k) UTILS_SSE_LAMBDA { whole[k] = {zero<i32>(), zero<i32>()}; });
    const auto add = [&](auto k, i16 x, i16 y) UTILS_SSE_LAMBDA {
        const i16 ones = broadcast_short(1);
        whole[k].low = in_order(add_wrap(whole[k].low, multiply_add_pairs(interleave_low(x, y), ones)));
        if constexpr (Columns::elements == 8)
            whole[k].high = in_order(add_wrap(whole[k].high, multiply_add_pairs(interleave_high(x, y), ones)));
    };
    std::ptrdiff_t i = j;
    const std::ptrdiff_t end = minimum(rows.count, exact) * rows.stride;
    for (; i + rows.stride < end; i += 2 * rows.stride) {
        hint(i), hint(i + rows.stride);
        repeat<Blocks>([&](auto k) UTILS_SSE_LAMBDA { add(k, columns(i, k), columns(i + rows.stride, k)); });
    }
    if (i < end) {
        hint(i);
        repeat<Blocks>([&](auto k) UTILS_SSE_LAMBDA { add(k, columns(i, k), zero<i16>()); });
        i += rows.stride;
    }
    repeat<Blocks>([&](auto k) UTILS_SSE_LAMBDA { sum[k] = to_float(whole[k]); });
    for (; i < rows.end(); i += rows.stride) {
        hint(i);
        repeat<Blocks>([&](auto k) UTILS_SSE_LAMBDA { sum[k] = sum[k] + to_float(widen(columns(i, k))); });
    }
}

// The lowest (at most 0) and the highest (at least 0) sample of Blocks blocks of columns, negated both: what is not above 0
// has room for the magnitude of -32768.
template <class Columns, int Blocks>
UTILS_SSE_INLINE void negative_magnitudes(i16 (&magnitude)[Blocks], const Rows& rows, std::ptrdiff_t j)
{
    i16 lowest[Blocks];
    i16 highest[Blocks];
    repeat<Blocks>([&](auto k) UTILS_SSE_LAMBDA { lowest[k] = highest[k] = zero<i16>(); });
    for (std::ptrdiff_t i = j; i < rows.end(); i += rows.stride) {
        ahead<1024>(rows.src).template hint<Blocks * 8>(i);
        repeat<Blocks>([&](auto k) UTILS_SSE_LAMBDA {
            const i16 x = Columns::load(rows.src + i + k * 8);
            lowest[k] = in_order(minimum(lowest[k], x));
            highest[k] = in_order(maximum(highest[k], x));
        });
    }
    repeat<Blocks>([&](auto k) UTILS_SSE_LAMBDA { magnitude[k] = minimum(lowest[k], subtract_wrap(zero<i16>(), highest[k])); });
}

} // namespace

void CUtils_SSE::Average(short* dst, const short* src, int rows, int stride, int n)
{
    if (rows < 0)
        return;
    const Rows all{src, rows, stride};
    const f32 count = broadcast<f32>(to_float(rows)); // 0 / 0 without rows
    for_columns(
        n, stride,
        [&](auto blocks, std::ptrdiff_t j) UTILS_SSE_LAMBDA {
            f32x2 sum[blocks()];
            sum_rows<Part<i16, 16>>(sum, all, j);
            repeat<blocks()>([&](auto k) UTILS_SSE_LAMBDA {
                store(dst + j + k * 8, narrow_saturate(round_to_int(sum[k].low / count), round_to_int(sum[k].high / count)));
            });
        },
        // Body rounds to nearest even and saturates, tail truncates and keeps the low 16 bits.
        [&](auto columns, std::ptrdiff_t j) UTILS_SSE_LAMBDA {
            using Columns = Part<i16, 2 * columns()>;
            f32x2 sum[1];
            sum_rows<Columns>(sum, all, j);
            const i32 mean = truncate_to_int(sum[0].low / count);
            Columns::store(dst + j, narrow_wrap(mean, mean));
        });
}

void CUtils_SSE::MaxAbsoluteValue(short* dst, const short* src, int rows, int stride, int n)
{
    if (rows < 0)
        return;
    const Rows all{src, rows, stride};
    for_columns(
        n, stride,
        [&](auto blocks, std::ptrdiff_t j) UTILS_SSE_LAMBDA {
            i16 magnitude[blocks()];
            negative_magnitudes<Part<i16, 16>>(magnitude, all, j);
            repeat<blocks()>([&](auto k)
                                 UTILS_SSE_LAMBDA { store(dst + j + k * 8, subtract_saturate(zero<i16>(), magnitude[k])); });
        },
        // In the body the magnitude of -32768 is 32767, in the tail 32768, of which the low 16 bits are -32768 again.
        [&](auto columns, std::ptrdiff_t j) UTILS_SSE_LAMBDA {
            using Columns = Part<i16, 2 * columns()>;
            i16 magnitude[1];
            negative_magnitudes<Columns>(magnitude, all, j);
            Columns::store(dst + j, subtract_wrap(zero<i16>(), magnitude[0]));
        });
}
