// What the envelope detectors share: their two or three signals (I, Q, third) and the last step, from filtered signals to
// the envelope.
#pragma once

#include "simd/vectors.h"

namespace detection {
inline namespace UTILS_SSE_TIER {

// Where the signals of a line, or of a part of it, begin.
template <int Signals>
struct Lines
{
    const short* line[Signals];

    Lines from(std::ptrdiff_t sample) const
    {
        Lines moved = *this;
        for (const short*& signal : moved.line)
            signal += sample;
        return moved;
    }
};

// sqrt(Q * Q + I * I), plus the third sum with its sign. V is f32 or float.
template <class V, int Signals>
UTILS_SSE_INLINE V envelope(const V (&sum)[Signals])
{
    const V magnitude = simd::square_root(sum[1] * sum[1] + sum[0] * sum[0]);
    if constexpr (Signals == 3)
        return magnitude + sum[2];
    else
        return magnitude;
}

} // namespace UTILS_SSE_TIER
} // namespace detection
