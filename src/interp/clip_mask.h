// The clip mask of pulse-inversion pairs.
#pragma once

#include "simd/vectors.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

// 1023 where both firings are at full scale (32767 or -32768), else 0.
UTILS_SSE_INLINE i16 clip_flags(i16 first, i16 second)
{
    // One step past the rails the numbers turn round: 32767 and -32768 become 0 and 1, all others, read as unsigned, more.
    const i16 beyond = bit_or(add_wrap(first, broadcast_short(-32767)), add_wrap(second, broadcast_short(-32767)));
    const i16 all_bits = equal(shift_right_unsigned<1>(beyond), broadcast_short(0));
    return shift_right_unsigned<6>(all_bits); // 65535 >> 6
}

} // namespace UTILS_SSE_TIER
} // namespace simd
