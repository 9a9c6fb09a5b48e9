// The clip mask of pulse-inversion pairs.
#pragma once

#include "simd/vectors.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

// 1023 where both firings are at full scale (32767 or -32768), else 0.
template <int N>
UTILS_SSE_INLINE I16<N> clip_flags(I16<N> first, I16<N> second)
{
    return shift_right_unsigned<6>(both_at_limits(first, second)); // 65535 >> 6
}

} // namespace UTILS_SSE_TIER
} // namespace simd
