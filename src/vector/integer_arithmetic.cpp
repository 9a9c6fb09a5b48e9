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
    const Rest rest = map_blocks<8, 4>(
        n,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            // The shift of the sum is a logical one, on purpose: every negative sum becomes more than 16 bits hold, and
            // saturates. Seen from 32767 down, those are the distances beyond 32767, which read as negative.
            const auto largest = run.broadcast(short{32767});
            const auto distance = bit_xor(average_down(run.load(a + i), run.load(b + i)), largest);
            return bit_xor(maximum(distance, run.broadcast(short{0})), largest);
        },
        [=](std::ptrdiff_t i, auto result) UTILS_SSE_LAMBDA { store(dst + i, result); }, ahead<1024>(a), ahead<1024>(b));
    // The tail truncates towards zero; negative means stay negative.
    for_rest(
        rest,
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const i32 sum = four_sums(a + i, b + i);
            const i32 mean = shift_right<1>(add_wrap(sum, shift_right_unsigned<31>(sum)));
            Four::store(dst + i, narrow_saturate(mean, mean));
        },
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { dst[i] = static_cast<short>((a[i] + b[i]) / 2); });
}

namespace {

constexpr float kBothAtLimits = 32767 >> 5; // 1023

// `Blocks` blocks of saturated sums and their flags; all loads come before all stores, and each line is filled without a
// break. dst may be a or b.
template <int Blocks>
UTILS_SSE_INLINE void add_blocks(short* dst, float* flags, const short* a, const short* b)
{
    i16 sum[Blocks];
    i16 mask[Blocks];
    repeat<Blocks>([&](auto k) UTILS_SSE_LAMBDA {
        const i16 x = load<i16>(a + k * 8);
        const i16 y = load<i16>(b + k * 8);
        sum[k] = add_saturate(x, y);
        mask[k] = both_at_limits(x, y);
    });
    repeat<Blocks>([&](auto k) UTILS_SSE_LAMBDA { store(dst + k * 8, sum[k]); });
    repeat<Blocks>([&](auto k) UTILS_SSE_LAMBDA {
        const f32 flag = broadcast<f32>(kBothAtLimits);
        store(flags + k * 8, bit_and(as_floats(interleave_low(mask[k], mask[k])), flag));
        store(flags + k * 8 + 4, bit_and(as_floats(interleave_high(mask[k], mask[k])), flag));
    });
}

} // namespace

void CUtils_SSE::AddSaturate(short* dst, float* flags, const short* a, const short* b, int n)
{
    using Four = Part<i16, 8>;
    constexpr int group = sizeof(void*) == 8 ? 4 : 1; // 32-bit code has registers for one
    Rest rest = read_blocks<group * 8, 1>(
        n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { add_blocks<group>(dst + i, flags + i, a + i, b + i); }, ahead<1024>(a),
        ahead<1024>(b));
    if constexpr (group > 1)
        for (; rest.count >= 8; rest.count -= 8, rest.i += 8)
            add_blocks<1>(dst + rest.i, flags + rest.i, a + rest.i, b + rest.i);
    for_rest(
        rest,
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const i16 x = load_four(a + i);
            const i16 y = load_four(b + i);
            const i16 mask = both_at_limits(x, y);
            Four::store(dst + i, add_saturate(x, y));
            store(flags + i, bit_and(as_floats(interleave_low(mask, mask)), broadcast<f32>(kBothAtLimits)));
        },
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const auto at_limit = [](short x) UTILS_SSE_LAMBDA { return x == 32767 || x == -32768; };
            const short x = a[i];
            const short y = b[i];
            dst[i] = saturate_to_short(x + y);
            flags[i] = at_limit(x) && at_limit(y) ? kBothAtLimits : 0.0f;
        });
}
