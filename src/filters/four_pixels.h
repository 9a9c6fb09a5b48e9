// The mean of four pixels in bytes, without wider lanes.
#pragma once

#include "simd/vectors.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

// floor((a + b + c + d) / 4). The average of averages rounds up up to three times; it exceeds the result, by 1, exactly when
// one of the three lost a half.
template <class V>
UTILS_SSE_INLINE V mean_down(V a, V b, V c, V d)
{
    const V ab = average_up(a, b);
    const V cd = average_up(c, d);
    const V halves = bit_or(bit_or(bit_xor(a, b), bit_xor(c, d)), bit_xor(ab, cd)); // in the lowest bit
    return subtract_wrap(average_up(ab, cd), bit_and(halves, V::broadcast(1)));
}

} // namespace UTILS_SSE_TIER
} // namespace simd
