// Sums and means of integer arrays.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

// The sum of values(run, i), which wraps, over whole blocks. Integers may be added in any order, so four sums run side by side.
template <int Block, class Values>
UTILS_SSE_INLINE Rest sum_blocks(int n, int& sum, const Values& values)
{
    using Wide = Blocks<UTILS_SSE_MOST_BLOCKS>;
    using Sum = I32<Wide::count>;
    constexpr int step = Wide::count * Block;
    Sum sums[4] = {zero<Sum>(), zero<Sum>(), zero<Sum>(), zero<Sum>()};
    const auto add = [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        repeat<4>([&](auto k) UTILS_SSE_LAMBDA { sums[k] = in_order(add_wrap(sums[k], values(Wide(), i + k * step))); });
    };
    Rest rest = read_blocks<8 * step, 1>(n, [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { add(i), add(i + 4 * step); });
    if constexpr (Wide::count > 1)
        for (; rest.count >= step; rest.count -= step, rest.i += step)
            sums[0] = add_wrap(sums[0], values(Wide(), rest.i));
    i32 blocks = add_blocks_wrap(add_wrap(add_wrap(sums[0], sums[1]), add_wrap(sums[2], sums[3])));
    for (; rest.count >= Block; rest.count -= Block, rest.i += Block)
        blocks = add_wrap(blocks, values(Blocks<1>(), rest.i));
    sum = fold_wrap(blocks);
    return rest;
}

// The number that a mean is divided by: of no elements it is 0 / 0.
UTILS_SSE_INLINE float divisor(int n)
{
    return to_float(maximum(n, 0));
}

} // namespace

float CUtils_SSE::DotProduct(const short* a, const short* b, int n)
{
    f32 lanes = zero<f32>();
    const Rest rest = read_blocks<8, 4>(
        n,
        [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            lanes = lanes + to_float(shift_right<15>(multiply_add_pairs(load<i16>(a + i), load<i16>(b + i))));
        },
        ahead<1024>(a), ahead<1024>(b));
    float sum = fold(lanes);
    // The body shifts the sum of two products, the tail every single one: it loses more.
    for_rest(
        rest,
        [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const i32x2 products = multiply_exact(load_four(a + i), load_four(b + i));
            const f32 terms = to_float(shift_right<15>(products.low));
            repeat<4>([&](auto k) UTILS_SSE_LAMBDA { sum = sum + lane<k()>(terms); });
        },
        [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { sum = sum + to_float(multiply_exact(a[i], b[i]) >> 15); });
    return sum;
}

float CUtils_SSE::SumProduct(const int* a, int n)
{
    int whole = 0;
    const Rest rest = sum_blocks<4>(n, whole, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return run.load(a + i); });
    float sum = to_float(whole);
    for_up_to_three(rest, [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { sum = sum + to_float(a[i]); });
    return sum / divisor(n) * 0.00390625f; // 1 / 256
}

float CUtils_SSE::SumProduct2(const short* a, int n)
{
    int whole = 0;
    const Rest rest = sum_blocks<8>(n, whole, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        return multiply_add_pairs(run.load(a + i), run.broadcast(short{1}));
    });
    float sum = to_float(whole);
    for_rest(rest, [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { sum = sum + to_float(a[i]); });
    return sum / divisor(n);
}
