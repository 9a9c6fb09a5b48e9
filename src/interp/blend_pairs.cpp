// The two firings of each pulse-inversion pair blended into one line.
#include "interp/clip_mask.h"
#include "simd/loops.h"
#include "utils_sse.h"

#include <algorithm>

using namespace simd;

namespace {

template <class V>
struct Blended
{
    V rf, flags;
};

// Whole blocks of one line, in their order: weigh(x) is the second firing as it enters the sum. Widest: see map_blocks().
template <int Line, int Widest, class Weigh>
UTILS_SSE_INLINE void blend(const short* first, const short* second, short* out, short* clip, std::ptrdiff_t from,
                            std::ptrdiff_t to, const Weigh& weigh)
{
    map_blocks<8, Line, Widest>(
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
    const f32x2 one = broadcast_twice(1.0f);
    const float keep = 1.0f - reduction / 100.0f;
    const f32x2 slope = broadcast_twice(ramp < far_off ? reduction / static_cast<float>(8 * (far_off - ramp)) / 100.0f : 0.0f);
    const f32x2 eight = broadcast_twice(8.0f);
    const float counted[8] = {0, 1, 2, 3, 4, 5, 6, 7};

    for (int line = 0; line < lines; ++line, rf += 2 * static_cast<std::ptrdiff_t>(n), out += n, clip += n) {
        const short* first = rf;
        const short* second = rf + n;
        blend<4, 4>(first, second, out, clip, 0, ramp_from, [](auto x) UTILS_SSE_LAMBDA { return x; });
        f32x2 j = load<f32x2>(counted); // exact up to 2^24
        blend<2, 1>(first, second, out, clip, ramp_from, ramp_to, [&](i16 x) UTILS_SSE_LAMBDA {
            const f32x2 weight = one - j * slope;
            j = j + eight;
            return round_to_short(weight * to_float(widen(x)));
        });
        blend<2, 4>(first, second, out, clip, ramp_to, sample(blocks), [=](auto x) UTILS_SSE_LAMBDA {
            const auto values = to_float(widen(x));
            return round_to_short(values * decltype(values)::broadcast(keep));
        });
    }
}
