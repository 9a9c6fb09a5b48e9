// Mask averages of the inner frames of a sequence, blended with the brighter of its first and fifth frame.
#include "filters/frame_sums.h"
#include "utils_sse.h"

#include <cstring>

using namespace simd;

namespace {

// blend(average, bright) is 256 times the result of eight pixels, 65025 at most. n is 16 at least.
template <class Blend>
UTILS_SSE_INLINE void average_adaptively(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                         const unsigned short* mask, int n, const unsigned char* gate, const Blend& blend)
{
    if (frameCount <= 1) {
        std::memmove(dst, frames[0], static_cast<std::size_t>(n)); // dst may be the frame
        return;
    }
    const short* m = lanes_of(mask);
    const unsigned char* first = frames[0];
    const unsigned char* fifth = frames[4]; // whatever their number, on purpose
    const Frames inner{frames + 1, frameCount - std::ptrdiff_t{2}};
    map_frame_sums(
        n, dst, inner, Unweighted(),
        [=](auto run, auto s, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const auto factors = run.load_two(m + i);
            const auto bright = bit_and(maximum(run.load(first + i), run.load(fifth + i)), run.load(gate + i));
            const auto low = blend(divide_wrapping(s.low, factors.low), widen_low(bright));
            const auto high = blend(divide_wrapping(s.high, factors.high), widen_high(bright));
            return narrow_saturate(shift_right_unsigned<8>(low), shift_right_unsigned<8>(high));
        },
        Frames{frames, frameCount}, Unweighted(), divided_by(mask));
}

UTILS_SSE_APART void blend_by_brightness(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                         const unsigned short* mask, int n, unsigned char* gate)
{
    average_adaptively(dst, frames, frameCount, mask, n, gate, [](auto average, auto bright) UTILS_SSE_LAMBDA {
        const auto largest = decltype(bright)::broadcast(255);
        return add_wrap(multiply_low(average, subtract_wrap(largest, bright)), multiply_low(bright, bright));
    });
}

UTILS_SSE_APART void blend_by_weight(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                     const unsigned short* mask, int n, unsigned char* gate, unsigned char k)
{
    average_adaptively(dst, frames, frameCount, mask, n, gate, [=](auto average, auto bright) UTILS_SSE_LAMBDA {
        const auto weight = decltype(bright)::broadcast(k);
        const auto rest = decltype(bright)::broadcast(static_cast<short>(255 - k));
        return add_wrap(multiply_low(average, rest), multiply_low(bright, weight));
    });
}

// The tail is the mask average of all frames, neither blended nor gated, on purpose; of a single frame it is the frame.
UTILS_SSE_INLINE void average_few(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                  const unsigned short* mask, int n)
{
    const Frames list{frames, frameCount};
    const Rest all{0, n};
    if (UTILS_SSE_OUT_OF_LINE(frameCount <= 1))
        cover_frame_sums<8>(all, dst, Frames{frames, 1}, Unweighted(),
                            [](auto, auto s, std::ptrdiff_t) UTILS_SSE_LAMBDA { return s; });
    else
        cover_frame_sums<8>(all, dst, list, Unweighted(), divided_by(mask));
}

} // namespace

void CUtils_SSE::AdaptiveAverage(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                 const unsigned short* mask, int n, unsigned char* gate)
{
    if (n >= 16)
        blend_by_brightness(dst, frames, frameCount, mask, n, gate);
    else
        average_few(dst, frames, frameCount, mask, n);
}

void CUtils_SSE::WeightAdjustAverage(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                     const unsigned short* mask, int n, unsigned char* gate, unsigned char k)
{
    if (n >= 16)
        blend_by_weight(dst, frames, frameCount, mask, n, gate, k);
    else
        average_few(dst, frames, frameCount, mask, n);
}
