// Magnitudes of a recursive radix-2 combination, and its table of cosines and sines.
//
// The recursion is defined by four lanes that belong to one stride s and one offset o; lane d (3 - d in the order of its
// definition) of the step uses table entry t = (o + d * s) mod n and the same lane of two steps of the double stride:
//
//   step(s, o) = first.re + (c[t] + i s[t]) * second       first = step(2s, o), second = step(2s, o + s/2)
//
// with first.re added to both parts. Followed from every output down this takes n^2 / 16 combinations, nearly all of them
// again and again: a step depends on s and on o mod n alone. Here each is computed once. For a window of outputs all steps of
// one stride are needed, in a row of neighbouring offsets that is s/2 longer than the window:
//
//   stride 8      o o o o o o o o o o o o . . . .       a window of 12, and s/2 = 4 more
//                 |\|\                                  first at the same place, second s/2 = 2 further
//   stride 4      o o o o o o o o o o o o . .
//
// So a row becomes the row of half the stride in place, in ascending order. Lanes lie in rows of their own: neighbouring
// offsets fill a vector, and table entries are neighbours too. The last three combinations, which need only the offsets 4k,
// 4k + 1 and 4k + 2, are done together, with the four lanes turned into the vector.
//
// One combination of four: 4 products, 4 sums, 5 loads, 2 stores. Stack: 16 KB.
#include "simd/loops.h"
#include "utils_sse.h"

#include <algorithm>

using namespace simd;

namespace {

// Up to 8 kRow the largest row fits, and the number of combinations is about n (log2 n - 3.5), towards the end up to a
// quarter more. Beyond, rows start at the stride kRow, whose steps are computed by plain recursion: n^2 / kRow combinations
// more.
constexpr int kRow = 512;

struct Step
{
    f32 re, im;
};

UTILS_SSE_INLINE f32 combined_re(f32 c, f32 s, f32 first, Step second)
{
    return (c * second.re - s * second.im) + first;
}
// The real part of the first step joins the imaginary part as well; its imaginary part is not used.
UTILS_SSE_INLINE Step combined(f32 c, f32 s, f32 first, Step second)
{
    return {combined_re(c, s, first, second), (s * second.re + c * second.im) + first};
}

struct Transform
{
    const float* input;
    const float* table;
    std::ptrdiff_t n;

    // All indices are multiples of four, so that no vector straddles the end.
    UTILS_SSE_INLINE std::ptrdiff_t wrap(std::ptrdiff_t i) const { return i & (n - 1); }
    UTILS_SSE_INLINE f32 samples(std::ptrdiff_t i) const { return load<f32>(input + wrap(i)); }
    UTILS_SSE_INLINE f32 cosines(std::ptrdiff_t t) const { return load<f32>(table + wrap(t)); }
    UTILS_SSE_INLINE f32 sines(std::ptrdiff_t t) const { return load<f32>(table + n + wrap(t)); }

    // Lane d of the steps with stride n / 8 and the four offsets from o on: the first that combine anything.
    UTILS_SSE_INLINE Step of_samples(std::ptrdiff_t o, int d) const
    {
        const std::ptrdiff_t stride = n / 8;
        const std::ptrdiff_t t = o + d * stride;
        return combined(cosines(t), sines(t), samples(t + d * stride), {samples(t + d * stride + stride / 2), zero<f32>()});
    }
};

// The same for any smaller stride, by plain recursion.
Step of_steps(const Transform& transform, std::ptrdiff_t stride, std::ptrdiff_t o, int d)
{
    if (8 * stride == transform.n)
        return transform.of_samples(o, d);
    const std::ptrdiff_t t = o + d * stride;
    const f32 first = of_steps(transform, 2 * stride, o, d).re;
    const Step second = of_steps(transform, 2 * stride, o + stride / 2, d);
    return combined(transform.cosines(t), transform.sines(t), first, second);
}

// The steps of one stride from the offset `start` on.
struct Row
{
    alignas(16) float re[4][kRow];
    alignas(16) float im[4][kRow];

    UTILS_SSE_INLINE Step at(std::ptrdiff_t i, int d) const { return {load<f32>(re[d] + i), load<f32>(im[d] + i)}; }

    // make(o, i, d): lane d of the steps with the four offsets from o on, which stand at i.
    template <class Make>
    UTILS_SSE_INLINE void fill(std::ptrdiff_t start, std::ptrdiff_t count, const Make& make)
    {
        for (int d = 0; d < 4; ++d)
            for (std::ptrdiff_t i = 0; i < count; i += 4) {
                const Step step = make(start + i, i, d);
                store(re[d] + i, step.re);
                store(im[d] + i, step.im);
            }
    }
};

// Rows d = 3, 2, 1, 0 of four offsets each, turned: row k holds the lanes of offset k in the order of their definition.
//   a0 a1 a2 a3                       a0 b0 c0 d0
//   b0 b1 b2 b3   a0 b0 a1 b1  ..     a1 b1 c1 d1
//   c0 c1 c2 c3   c0 d0 c1 d1  ..     a2 b2 c2 d2
//   d0 d1 d2 d3
struct Turned
{
    f32 row[3];
};
UTILS_SSE_INLINE Turned turned(f32 a, f32 b, f32 c, f32 d)
{
    const f32 ab = interleave_low(a, b);
    const f32 cd = interleave_low(c, d);
    return {{low_halves(ab, cd), high_halves(ab, cd), low_halves(interleave_high(a, b), interleave_high(c, d))}};
}

// x6 x4 x2 x0 and x7 x5 x3 x1 of x0 .. x7.
UTILS_SSE_INLINE f32 even_downwards(f32 low, f32 high)
{
    return {_mm_shuffle_ps(high.v, low.v, _MM_SHUFFLE(0, 2, 0, 2))};
}
UTILS_SSE_INLINE f32 odd_downwards(f32 low, f32 high)
{
    return {_mm_shuffle_ps(high.v, low.v, _MM_SHUFFLE(1, 3, 1, 3))};
}

// `count` magnitudes from bin `start` on; quarter(o, i, d) is lane d of the steps with stride 4. Returns the largest of
// these and `largest`.
template <class Quarter>
UTILS_SSE_INLINE f32 finish(const Transform& transform, float* magnitude, std::ptrdiff_t start, std::ptrdiff_t count,
                            f32 largest, const Quarter& quarter)
{
    for (std::ptrdiff_t i = 0; i < count; i += 4) {
        const std::ptrdiff_t o = start + i;
        const Step d3 = quarter(o, i, 3);
        const Step d2 = quarter(o, i, 2);
        const Step d1 = quarter(o, i, 1);
        const Step d0 = quarter(o, i, 0);
        const Turned re = turned(d3.re, d2.re, d1.re, d0.re);
        const Turned im = turned(d3.im, d2.im, d1.im, d0.im);

        const f32 c = transform.cosines(o);
        const f32 s = transform.sines(o);
        const f32 next_c = transform.cosines(o + 4);
        const f32 next_s = transform.sines(o + 4);
        const f32 first = combined_re(even_downwards(c, next_c), even_downwards(s, next_s), re.row[0], {re.row[1], im.row[1]});
        const Step second = combined(odd_downwards(c, next_c), odd_downwards(s, next_s), re.row[1], {re.row[2], im.row[2]});

        // Bins are in natural order, and so is the table here.
        const Step bins = combined(c, s, first, second);
        const f32 result = square_root(bins.re * bins.re + bins.im * bins.im);
        store(magnitude + o, result);
        largest = maximum(result, largest); // of a NaN and a number: the number
    }
    return largest;
}

// Of lengths below 64 no row is stored: samples are the steps with stride n / 4, which is 4 or 8.
UTILS_SSE_INLINE f32 finish_sixteen(const Transform& transform, float* magnitude)
{
    return finish(transform, magnitude, 0, 16, zero<f32>(), [&](std::ptrdiff_t o, std::ptrdiff_t, int d) UTILS_SSE_LAMBDA {
        return Step{transform.samples(o + d * 4), zero<f32>()};
    });
}

// x2 x3 y0 y1
UTILS_SSE_INLINE f32 between(f32 x, f32 y)
{
    return {_mm_shuffle_ps(x.v, y.v, _MM_SHUFFLE(1, 0, 3, 2))};
}

UTILS_SSE_INLINE f32 finish_thirty_two(const Transform& transform, float* magnitude)
{
    return finish(transform, magnitude, 0, 32, zero<f32>(), [&](std::ptrdiff_t o, std::ptrdiff_t, int d) UTILS_SSE_LAMBDA {
        const std::ptrdiff_t t = o + d * 4;
        const f32 first = transform.samples(o + d * 8);
        const f32 two_further = between(first, transform.samples(o + d * 8 + 4));
        return combined(transform.cosines(t), transform.sines(t), first, {two_further, zero<f32>()});
    });
}

UTILS_SSE_INLINE float largest_lane(f32 x)
{
    const f32 pairs = maximum(x, high_halves(x, x)); // 0,2 1,3: no NaN and no -0 among them, so any order will do
    return maximum(lane<0>(pairs), lane<1>(pairs));
}

} // namespace

float CUtils_SSE::FFTmagnitude(float* magnitude, const float* input, const float* table, int n)
{
    if (n < 16 || (n & (n - 1)) != 0)
        return 1.0f;
    const Transform transform{input, table, n};

    if (n < 64)
        return largest_lane(n == 16 ? finish_sixteen(transform, magnitude) : finish_thirty_two(transform, magnitude));

    const int top = std::min(n / 8, kRow);
    const int window = std::min(n, kRow - top / 2);
    Row row;
    f32 largest = zero<f32>();
    for (int start = 0; start < n; start += window) {
        const int count = std::min(window, n - start);
        const auto fill = [&](int stride, const auto& make) UTILS_SSE_LAMBDA { row.fill(start, count + stride / 2, make); };
        if (top == n / 8)
            fill(top, [&](std::ptrdiff_t o, std::ptrdiff_t, int d) UTILS_SSE_LAMBDA { return transform.of_samples(o, d); });
        else
            fill(top, [&](std::ptrdiff_t o, std::ptrdiff_t, int d) UTILS_SSE_LAMBDA { return of_steps(transform, top, o, d); });

        const auto halved = [&](int stride, std::ptrdiff_t o, std::ptrdiff_t i, int d) UTILS_SSE_LAMBDA {
            const std::ptrdiff_t t = o + d * stride;
            return combined(transform.cosines(t), transform.sines(t), load<f32>(row.re[d] + i), row.at(i + stride / 2, d));
        };
        for (int stride = top / 2; stride >= 8; stride /= 2)
            fill(stride, [&](std::ptrdiff_t o, std::ptrdiff_t i, int d) UTILS_SSE_LAMBDA { return halved(stride, o, i, d); });
        largest = finish(transform, magnitude, start, count, largest,
                         [&](std::ptrdiff_t o, std::ptrdiff_t i, int d) UTILS_SSE_LAMBDA { return halved(4, o, i, d); });
    }
    return largest_lane(largest);
}
