// Sums and means of integer arrays.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

// The sum of values(run, i), which wraps, over whole blocks. Integers may be added in any order, so four sums run side by side.
// n is Block at least.
template <int Block, class Values>
UTILS_SSE_INLINE int sum_blocks(int n, const Values& values)
{
    using Wide = Blocks<UTILS_SSE_MOST_BLOCKS>;
    using Sum = I32<Wide::count>;
    constexpr int step = Wide::count * Block;
    const auto with_single_blocks = [&](i32 sum, Rest rest) UTILS_SSE_LAMBDA {
        for (; rest.count >= Block; rest.count -= Block, rest.i += Block)
            sum = add_wrap(sum, values(Blocks<1>(), rest.i));
        return fold_wrap(sum);
    };
    if (Wide::count > 1 ? UTILS_SSE_OUT_OF_LINE(n < step) : UTILS_SSE_IN_LINE(n < 8 * step))
        return with_single_blocks(zero<i32>(), Rest{0, n});
    Sum sums[4] = {zero<Sum>(), zero<Sum>(), zero<Sum>(), zero<Sum>()};
    const auto add = [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        repeat<4>([&](auto k) UTILS_SSE_LAMBDA { sums[k] = in_order(add_wrap(sums[k], values(Wide(), i + k * step))); });
    };
    Rest rest = read_blocks<8 * step, 1>(n, [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { add(i), add(i + 4 * step); });
    if constexpr (Wide::count > 1) {
        for (; rest.count >= step; rest.count -= step, rest.i += step)
            sums[0] = add_wrap(sums[0], values(Wide(), rest.i));
        rest = behind_blocks<step>(n);
    }
    return with_single_blocks(add_blocks_wrap(add_wrap(add_wrap(sums[0], sums[1]), add_wrap(sums[2], sums[3]))), rest);
}

// The number that a mean is divided by: of no elements it is 0 / 0.
UTILS_SSE_INLINE float divisor(int n)
{
    return to_float(maximum(n, 0));
}

} // namespace

float CUtils_SSE::DotProduct(const short* a, const short* b, int n)
{
    float sum = 0.0f;
    // The body shifts the sum of two products, the tail every single one: it loses more.
    const auto four = [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        const i32x2 products = multiply_exact(load_four(a + i), load_four(b + i));
        const f32 terms = to_float(shift_right<15>(products.low));
        repeat<4>([&](auto k) UTILS_SSE_LAMBDA { sum = sum + lane<k()>(terms); });
    };
    const auto one = [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { sum = sum + to_float(multiply_exact(a[i], b[i]) >> 15); };
    if (UTILS_SSE_OUT_OF_LINE(n >= 4)) {
        f32 lanes = zero<f32>();
        const Rest rest = read_blocks<8, 4>(
            n,
            [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
                lanes = lanes + to_float(shift_right<15>(multiply_add_pairs(load<i16>(a + i), load<i16>(b + i))));
            },
            ahead<1024>(a), ahead<1024>(b));
        sum = fold(lanes);
        for_rest(rest, four, one);
        return sum;
    }
    for_few(n, one);
    return sum;
}

float CUtils_SSE::SumProduct(const int* a, int n)
{
    float sum = 0.0f;
    const auto one = [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { sum = sum + to_float(a[i]); };
    if (UTILS_SSE_OUT_OF_LINE(n >= 4)) {
        sum = to_float(sum_blocks<4>(n, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return run.load(a + i); }));
        for_up_to_three(behind_blocks<4>(n), one);
    } else
        for_few(n, one);
    return sum / divisor(n) * 0.00390625f; // 1 / 256
}

float CUtils_SSE::SumProduct2(const short* a, int n)
{
    float sum = 0.0f;
    const auto one = [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { sum = sum + to_float(a[i]); };
    if (UTILS_SSE_OUT_OF_LINE(n >= 8)) {
        sum = to_float(sum_blocks<8>(n, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            return multiply_add_pairs(run.load(a + i), run.broadcast(short{1}));
        }));
        for_rest(behind_blocks<8>(n), one);
    } else if (UTILS_SSE_OUT_OF_LINE(n >= 4))
        for_rest(Rest{0, n}, one);
    else
        for_few(n, one);
    return sum / divisor(n);
}
