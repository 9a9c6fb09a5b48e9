// Sums of absolute differences of two segments of floats or of pixels.
#include "simd/loops.h"
#include "utils_sse.h"

#include <cstdlib>

using namespace simd;

namespace {

// The sum over the lowest pixels of both segments, which are as many as a part has. SSE2 has the instruction for it.
template <class Pixels>
UTILS_SSE_INLINE auto sum_of_part(const unsigned char* a, const unsigned char* b)
{
    return even_to_64(sum_absolute_differences(Pixels::load(a), Pixels::load(b)));
}

// What is left below 2 * Bytes pixels: no pixel may be counted twice, so parts of 8, 4, 2 and 1.
template <int Bytes>
UTILS_SSE_INLINE void sum_rest(i64& sum, Rest rest, const unsigned char* a, const unsigned char* b)
{
    if (rest.count >= Bytes) {
        sum = add_wrap(sum, sum_of_part<Part<u8, Bytes>>(a + rest.i, b + rest.i));
        rest.count -= Bytes;
        rest.i += Bytes;
    }
    if constexpr (Bytes > 1)
        sum_rest<Bytes / 2>(sum, rest, a, b);
}

// n is 16 at least.
UTILS_SSE_INLINE long long sum_blocks(const unsigned char* a, const unsigned char* b, int n)
{
    constexpr int step = UTILS_SSE_MOST_BLOCKS * 16;
    using Step = Part<u8, step>;
    using Sum = I64<UTILS_SSE_MOST_BLOCKS>;
    Sum sums[4] = {zero<Sum>(), zero<Sum>(), zero<Sum>(), zero<Sum>()};
    Rest rest = read_blocks<4 * step, 1>(
        n,
        [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            repeat<4>([&](auto k) UTILS_SSE_LAMBDA {
                sums[k] = add_wrap(sums[k], sum_of_part<Step>(a + i + k * step, b + i + k * step));
            });
        },
        ahead<64>(a), ahead<64>(b));
    if constexpr (step > 16) {
        for (; rest.count >= step; rest.count -= step, rest.i += step)
            sums[0] = add_wrap(sums[0], sum_of_part<Step>(a + rest.i, b + rest.i));
        rest = behind_blocks<step>(n);
    }
    i64 sum = add_blocks_wrap(add_wrap(add_wrap(sums[0], sums[1]), add_wrap(sums[2], sums[3])));
    for (; rest.count >= 16; rest.count -= 16, rest.i += 16)
        sum = add_wrap(sum, sum_of_part<Part<u8, 16>>(a + rest.i, b + rest.i));
    sum_rest<8>(sum, rest, a, b);
    return fold_wrap(sum);
}

} // namespace

float CUtils_SSE::SumAbsDiff(const float* a, const float* b, int n)
{
    return sum_in_lanes(
        n,
        [=](auto v, std::ptrdiff_t i)
            UTILS_SSE_LAMBDA { return absolute(load<decltype(v)>(a + i) - load<decltype(v)>(b + i)); },
        ahead<64>(a), ahead<64>(b));
}

long long CUtils_SSE::SumAbsDiff(const unsigned char* a, const unsigned char* b, int n)
{
    if (UTILS_SSE_OUT_OF_LINE(n >= 16))
        return sum_blocks(a, b, n);
    if (UTILS_SSE_OUT_OF_LINE(n >= 4)) {
        i64 sum = zero<i64>();
        sum_rest<8>(sum, Rest{0, n}, a, b);
        return fold_wrap(sum);
    }
    int sum = 0;
    for_few(n, [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { sum += std::abs(a[i] - b[i]); });
    return sum;
}
