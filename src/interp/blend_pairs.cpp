// The two firings of each pulse-inversion pair blended into one line.
#include "interp/clip_mask.h"
#include "simd/loops.h"
#include "utils_sse.h"

#include <algorithm>

using namespace simd;

namespace {

constexpr float kCounted[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15,
                              16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31};

// j of N blocks, given that of the first.
template <int N>
UTILS_SSE_INLINE F32x2<N> counted_from(f32x2 first)
{
    if constexpr (N == 1)
        return first;
    else
        return F32x2<N>::broadcast(lane<0>(first.low)) + F32x2<N>::load(kCounted);
}

template <class V>
struct Blended
{
    V rf, flags;
};

// Whole blocks of one line, in their order: weigh(x) is the second firing as it enters the sum. All parts of a line compute
// as many blocks side by side: behind 512-bit instructions narrower ones find a port less.
template <int Line, class Weigh>
UTILS_SSE_INLINE void blend(const short* first, const short* second, short* out, short* clip, std::ptrdiff_t from,
                            std::ptrdiff_t to, const Weigh& weigh)
{
    map_blocks<8, Line>(
        static_cast<int>(to - from),
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const auto y = run.load(first + from + i);
            const auto x = run.load(second + from + i);
            return Blended<std::remove_const_t<decltype(x)>>{add_saturate(weigh(x), y), clip_flags(x, y)};
        },
        [=](std::ptrdiff_t i, const auto& blended) UTILS_SSE_LAMBDA {
            store(out + from + i, blended.rf);
            store(clip + from + i, blended.flags);
        });
}

template <int N>
UTILS_SSE_INLINE I16<N> round_to_short(F32x2<N> x)
{
    return narrow_saturate(round_to_int(x.low), round_to_int(x.high));
}

} // namespace

void CUtils_SSE::BlendTwoRF2D(const short* rf, short* out, short* clip, int lines, int n, int rampStart, int rampEnd,
                              int percent)
{
    if (n < 8)
        return;
    // Whole blocks only: of the ramp, and of the line, which has no tail.
    const std::int64_t ramp = rampStart >> 3;
    const std::int64_t far_off = rampEnd >> 3;
    const std::int64_t blocks = n >> 3;
    const auto sample = [=](std::int64_t block) { // within the line
        return static_cast<std::ptrdiff_t>(8 * std::min(std::max(block, std::int64_t{0}), blocks));
    };
    const std::ptrdiff_t ramp_from = sample(std::min(ramp, far_off));
    const std::ptrdiff_t ramp_to = sample(far_off);

    const float reduction = static_cast<float>(percent);
    const float keep = 1.0f - reduction / 100.0f;
    const float slope = ramp < far_off ? reduction / static_cast<float>(8 * (far_off - ramp)) / 100.0f : 0.0f;

    for (int line = 0; line < lines; ++line, rf += 2 * static_cast<std::ptrdiff_t>(n), out += n, clip += n) {
        const short* first = rf;
        const short* second = rf + n;
        blend<4>(first, second, out, clip, 0, ramp_from, [](auto x) UTILS_SSE_LAMBDA { return x; });
        f32x2 j = f32x2::load(kCounted); // of the next block
        blend<2>(first, second, out, clip, ramp_from, ramp_to, [&](auto x) UTILS_SSE_LAMBDA {
            const auto values = to_float(widen(x));
            using Values = std::remove_const_t<decltype(values)>;
            const Values weight = Values::broadcast(1.0f) - counted_from<x.blocks>(j) * Values::broadcast(slope);
            j = j + broadcast_twice(8.0f * x.blocks);
            return round_to_short(weight * values);
        });
        blend<2>(first, second, out, clip, ramp_to, sample(blocks), [=](auto x) UTILS_SSE_LAMBDA {
            const auto values = to_float(widen(x));
            return round_to_short(values * decltype(values)::broadcast(keep));
        });
    }
}
