// Mask averages of the inner frames of a sequence, blended with the brighter of its first and fifth frame.
#include "filters/frame_sums.h"
#include "utils_sse.h"

#include <cstring>

using namespace simd;

namespace {

// blend(average, bright) is 256 times the result of eight pixels, 65025 at most.
template <class Blend>
UTILS_SSE_INLINE void average_adaptively(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                         const unsigned short* mask, int n, const unsigned char* gate, const Blend& blend)
{
    if (n <= 0)
        return;
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
        [=](PixelSums s, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const u8 bright = bit_and(maximum(load<u8>(first + i), load<u8>(fifth + i)), load<u8>(gate + i));
            const i16 low = blend(divide_wrapping<8>(s.low, m, i), widen_low(bright));
            const i16 high = blend(divide_wrapping<8>(s.high, m, i + 8), widen_high(bright));
            return narrow_saturate(shift_right_unsigned<8>(low), shift_right_unsigned<8>(high));
        },
        // The tail is the mask average of all frames, neither blended nor gated, on purpose.
        Frames{frames, frameCount}, Unweighted(),
        [=](auto count, i16 s, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return divide_wrapping<count()>(s, m, i); });
}

} // namespace

void CUtils_SSE::AdaptiveAverage(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                 const unsigned short* mask, int n, unsigned char* gate)
{
    const i16 largest = broadcast_short(255);
    average_adaptively(dst, frames, frameCount, mask, n, gate, [=](i16 average, i16 bright) UTILS_SSE_LAMBDA {
        return add_wrap(multiply_low(average, subtract_wrap(largest, bright)), multiply_low(bright, bright));
    });
}

void CUtils_SSE::WeightAdjustAverage(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                     const unsigned short* mask, int n, unsigned char* gate, unsigned char k)
{
    const i16 weight = broadcast_short(k);
    const i16 rest = broadcast_short(static_cast<short>(255 - k));
    average_adaptively(dst, frames, frameCount, mask, n, gate, [=](i16 average, i16 bright) UTILS_SSE_LAMBDA {
        return add_wrap(multiply_low(average, rest), multiply_low(bright, weight));
    });
}
