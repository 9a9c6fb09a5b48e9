// What the filters of whole images do with rows.
#pragma once

#include "simd/config.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

// The first `bytes` bytes of each row; nothing when bytes <= 0.
template <class T>
inline void copy_rows(T* dst, const T* src, std::ptrdiff_t pitch, int height, std::ptrdiff_t bytes)
{
    if (height <= 0 || bytes <= 0)
        return;
    if (bytes == pitch * static_cast<std::ptrdiff_t>(sizeof(T)))
        std::memcpy(dst, src, static_cast<std::size_t>(bytes) * static_cast<std::size_t>(height));
    else
        for (std::ptrdiff_t y = 0; y < height; ++y)
            std::memcpy(dst + y * pitch, src + y * pitch, static_cast<std::size_t>(bytes));
}

} // namespace UTILS_SSE_TIER
} // namespace simd
