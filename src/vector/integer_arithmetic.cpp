// Element-wise arithmetic of two 16-bit sample arrays.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

// Exact sums of four samples each.
UTILS_SSE_INLINE i32 four_sums(const short* a, const short* b)
{
    return multiply_add_pairs(interleave_low(load_four(a), load_four(b)), broadcast_short(1));
}

} // namespace

void CUtils_SSE::Average2(short* dst, const short* a, const short* b, int n)
{
    using Four = Part<i16, 8>;
    // The tail truncates towards zero; negative means stay negative.
    const auto four = [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        const i32 sum = four_sums(a + i, b + i);
        const i32 mean = shift_right<1>(add_wrap(sum, shift_right_unsigned<31>(sum)));
        Four::store(dst + i, narrow_saturate(mean, mean));
    };
    const auto one = [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { dst[i] = static_cast<short>((a[i] + b[i]) / 2); };
    map_with_tail<8, 4>(
        n,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            // The shift of the sum is a logical one, on purpose: every negative sum becomes more than 16 bits hold, and
            // saturates. Seen from 32767 down, those are the distances beyond 32767, which read as negative.
            const auto largest = run.broadcast(short{32767});
            const auto distance = bit_xor(average_down(run.load(a + i), run.load(b + i)), largest);
            return bit_xor(maximum(distance, run.broadcast(short{0})), largest);
        },
        [=](std::ptrdiff_t i, auto result) UTILS_SSE_LAMBDA { store(dst + i, result); },
        [=](Rest rest) UTILS_SSE_LAMBDA { for_rest(rest, four, one); }, ahead<1024>(a), ahead<1024>(b));
}

namespace {

constexpr float kBothAtLimits = 32767 >> 5; // 1023

template <class V>
struct Saturated
{
    V sum, mask;
};

} // namespace

void CUtils_SSE::AddSaturate(short* dst, float* flags, const short* a, const short* b, int n)
{
    using Four = Part<i16, 8>;
    const auto compute = [=](const auto& x, const auto& y) UTILS_SSE_LAMBDA {
        using V = std::decay_t<decltype(x)>;
        return Saturated<V>{add_saturate(x, y), both_at_limits(x, y)};
    };
    const auto one = [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        const auto at_limit = [](short x) UTILS_SSE_LAMBDA { return x == 32767 || x == -32768; };
        const short x = a[i];
        const short y = b[i];
        dst[i] = saturate_to_short(x + y);
        flags[i] = at_limit(x) && at_limit(y) ? kBothAtLimits : 0.0f;
    };
    map_to_the_end<8, 4>(
        n, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return compute(run.load(a + i), run.load(b + i)); },
        [=](std::ptrdiff_t i, const auto& result) UTILS_SSE_LAMBDA {
            const auto mask = result.mask;
            using Flags = decltype(in_turn(as_floats(mask), as_floats(mask)));
            store(dst + i, result.sum);
            store(flags + i, bit_and(in_turn(as_floats(interleave_low(mask, mask)), as_floats(interleave_high(mask, mask))),
                                     Flags::broadcast(kBothAtLimits)));
        },
        [=](int count) UTILS_SSE_LAMBDA {
            if (UTILS_SSE_IN_LINE(count < 4)) {
                for_few(count, one);
                return;
            }
            const auto put_four = [=](std::ptrdiff_t i, const Saturated<i16>& result) UTILS_SSE_LAMBDA {
                Four::store(dst + i, result.sum);
                store(flags + i, bit_and(as_floats(interleave_low(result.mask, result.mask)), broadcast<f32>(kBothAtLimits)));
            };
            const std::ptrdiff_t last = count - 4;
            const auto first_results = compute(load_four(a), load_four(b));
            const auto last_results = compute(load_four(a + last), load_four(b + last));
            put_four(0, first_results);
            put_four(last, last_results);
        },
        ahead<1024>(a), ahead<1024>(b));
}
