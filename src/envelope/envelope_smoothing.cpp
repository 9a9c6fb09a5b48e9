// Smoothing of 8-bit envelope images with (-1, 6, 22, 6, -1) / 32, across rows and along them.
//
// Single precision holds every product and every sum of the float definition exactly: after the pass across rows values are
// multiples of 1/32 up to 271, after the pass along rows multiples of 1/1024 up to 289. So any order of operations gives
// the same bits, and the pass across rows, -510 .. 8670 in units of 1/32, fits 16-bit lanes.
//
// Machine code of the loop of FilterTheEnvelopSSE (GCC 12 and Clang 14, x86-64), 16 pixels: 10 loads, 10 punpcklbw, 4 pmullw,
// 8 paddw and psubw, 2 psraw, a packuswb and a store; the factors in registers, nothing on the stack.
#include "simd/loops.h"
#include "utils_sse.h"

#include <algorithm>

using namespace simd;

namespace {

// Factors of the kernel, in registers: products by numbers it knows GCC would replace by up to five shifts and sums.
template <int N>
struct Factors
{
    I16<N> inner = in_order(I16<N>::broadcast(6));
    I16<N> centre = in_order(I16<N>::broadcast(22));
};

// The pixels of five rows, smoothed, in units of 1/32. row(k) are those of the row k below.
template <class Row, int N>
UTILS_SSE_INLINE I16<N> across(const Row& row, Factors<N> factors)
{
    const auto outer = add_wrap(row(-2), row(2));
    const auto inner = add_wrap(row(-1), row(1));
    return subtract_wrap(add_wrap(multiply_low(inner, factors.inner), multiply_low(row(0), factors.centre)), outer);
}
UTILS_SSE_INLINE i16 eight_across(const unsigned char* p, std::ptrdiff_t cols, Factors<1> factors)
{
    return across([=](int r) UTILS_SSE_LAMBDA { return widen_low(load_eight(p + r * cols)); }, factors);
}
UTILS_SSE_INLINE int one_across(const unsigned char* p, std::ptrdiff_t cols)
{
    return 6 * (p[-cols] + p[cols]) + 22 * p[0] - (p[-2 * cols] + p[2 * cols]);
}

// The values of a row around p, smoothed, plus a half. V is f32 or float.
template <class V>
UTILS_SSE_INLINE V along(const float* p)
{
    const V outer = load<V>(p - 2) + load<V>(p + 2);
    const V inner = load<V>(p - 1) + load<V>(p + 1);
    return broadcast<V>(0.1875f) * inner + broadcast<V>(0.6875f) * load<V>(p) - broadcast<V>(0.03125f) * outer +
           broadcast<V>(0.5f);
}

UTILS_SSE_INLINE unsigned char clamp_to_byte(int x)
{
    return static_cast<unsigned char>(std::min(std::max(x, 0), 255));
}

UTILS_SSE_INLINE void store_clamped(unsigned char* p, i16 x)
{
    store_eight(p, narrow_saturate(x, x));
}

// Rows 0, 1 and the last two are not smoothed across rows.
constexpr bool is_edge(int i, int n)
{
    return i < 2 || i >= n - 2;
}

// eight(i) and one(i) are the same function of eight elements and of one.
template <class Eight, class One>
UTILS_SSE_INLINE void cover(int n, const Eight& eight, const One& one)
{
    if (n >= 8)
        cover_blocks<8>(n, eight);
    else
        for (std::ptrdiff_t i = 0; i < n; ++i)
            one(i);
}

// A row of values in units of 1/32, given by eight(c) and one(c), to the work buffer and, truncated, to the output.
template <bool WithOutput, class Eight, class One>
UTILS_SSE_INLINE void put_row(int cols, float* work, unsigned char* out, const Eight& eight, const One& one)
{
    constexpr float unit = 0.03125f;
    cover(
        cols,
        [&](std::ptrdiff_t c) UTILS_SSE_LAMBDA {
            const i16 value = eight(c);
            store(work + c, to_float(widen(value)) * f32x2{broadcast<f32>(unit), broadcast<f32>(unit)});
            if constexpr (WithOutput)
                store_clamped(out + c, shift_right<5>(value));
        },
        [&](std::ptrdiff_t c) UTILS_SSE_LAMBDA {
            const int value = one(c);
            work[c] = to_float(value) * unit;
            if constexpr (WithOutput)
                out[c] = clamp_to_byte(value >> 5);
        });
}

// A row of the work buffer, smoothed along the row and rounded.
UTILS_SSE_INLINE void smooth_along(const float* work, unsigned char* out, int cols)
{
    cover(
        cols - 4,
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const float* p = work + i + 2;
            const i32 low = truncate_to_int(along<f32>(p));
            const i32 high = truncate_to_int(along<f32>(p + 4));
            store_clamped(out + i + 2, narrow_saturate(low, high));
        },
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { out[i + 2] = clamp_to_byte(truncate_to_int(along<float>(work + i + 2))); });
    // The edge columns are not clamped: they keep the low 8 bits.
    const auto edge = [=](int c) { out[c] = static_cast<unsigned char>(truncate_to_int(work[c] + 0.5f)); };
    for (int c = 0; c < std::min(2, cols); ++c)
        edge(c);
    for (int c = std::max(2, cols - 2); c < cols; ++c)
        edge(c);
}

// A row is smoothed along when the next one has been smoothed across: loads that straddle two stores wait until these have left
// the core, which of short rows took as long again as everything else.
template <bool Along>
void filter(unsigned char* out, const unsigned char* in, float* work, int rows, int cols)
{
    const Factors<1> factors;
    for (int r = 0; r < rows; ++r, in += cols, work += cols, out += cols) {
        if (is_edge(r, rows))
            put_row<!Along>(
                cols, work, out,
                [=](std::ptrdiff_t c)
                    UTILS_SSE_LAMBDA { return multiply_low(widen_low(load_eight(in + c)), broadcast_short(32)); },
                [=](std::ptrdiff_t c) UTILS_SSE_LAMBDA { return in[c] * 32; });
        else
            put_row<!Along>(
                cols, work, out, [=](std::ptrdiff_t c) UTILS_SSE_LAMBDA { return eight_across(in + c, cols, factors); },
                [=](std::ptrdiff_t c) UTILS_SSE_LAMBDA { return one_across(in + c, cols); });
        if (Along && r > 0)
            smooth_along(work - cols, out - cols, cols);
    }
    if (Along && rows > 0)
        smooth_along(work - cols, out - cols, cols);
}

// The columns behind the last whole block of 16 keep the low 8 bits of what is too bright.
UTILS_SSE_INLINE void smooth_wrapping(const unsigned char* in, unsigned char* out, std::ptrdiff_t cols, Factors<1> factors)
{
    const auto eight = [=](std::ptrdiff_t c) UTILS_SSE_LAMBDA {
        const i16 value = maximum(eight_across(in + c, cols, factors), broadcast_short(0));
        store_clamped(out + c, bit_and(shift_right<5>(value), broadcast_short(0xff)));
    };
    const std::ptrdiff_t tail = cols % 16;
    if (cols < 8) {
        for (std::ptrdiff_t c = 0; c < cols; ++c)
            out[c] = static_cast<unsigned char>(std::max(one_across(in + c, cols), 0) >> 5);
    } else if (tail > 0) {
        if (tail > 8)
            eight(cols - tail);
        eight(cols - 8);
    }
}

} // namespace

void CUtils_SSE::FilterTheEnvelop(unsigned char* out, const unsigned char* in, float* work, int rows, int cols, int alongRows)
{
    if (cols <= 0)
        return;
    if (alongRows)
        filter<true>(out, in, work, rows, cols);
    else
        filter<false>(out, in, work, rows, cols);
}

void CUtils_SSE::FilterTheEnvelopSSE(unsigned char* out, const unsigned char* in, float*, int rows, int cols, int)
{
    if (cols <= 0)
        return;
    const std::ptrdiff_t width = cols;
    for (int r = 0; r < rows; ++r, in += cols, out += cols) {
        if (is_edge(r, rows)) {
            std::memcpy(out, in, static_cast<std::size_t>(cols));
            continue;
        }
        // Body clamps, tail wraps. The tail comes first, because its eight columns may reach into the body.
        smooth_wrapping(in, out, cols, Factors<1>());
        map_blocks<16, 4>(
            cols,
            [=](auto run, std::ptrdiff_t c) UTILS_SSE_LAMBDA {
                const Factors<run.count> factors;
                const auto row = [=](int k) UTILS_SSE_LAMBDA { return run.load(in + c + k * width); };
                const auto low = [=](int k) UTILS_SSE_LAMBDA { return widen_low(row(k)); };
                const auto high = [=](int k) UTILS_SSE_LAMBDA { return widen_high(row(k)); };
                return narrow_saturate(shift_right<5>(across(low, factors)), shift_right<5>(across(high, factors)));
            },
            [=](std::ptrdiff_t c, auto result) UTILS_SSE_LAMBDA { store(out + c, result); });
    }
}
