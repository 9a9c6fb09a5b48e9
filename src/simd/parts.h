// Vectors that are filled in part, for what is left of whole blocks.
#pragma once

#include "simd/types.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

// The lowest `Bytes` bytes of a vector with V's elements; load and store move exactly these, the other lanes of a loaded
// vector are zero. From 16 bytes on they are all the lanes of one, two or four blocks.
template <class V, int Bytes>
struct Part
{
    using T = typename V::element;
    static constexpr int elements = Bytes / static_cast<int>(sizeof(T));
    static constexpr int blocks = Bytes > 16 ? Bytes / 16 : 1;
    using Vector = typename VectorOf<T, blocks>::type;

    static UTILS_SSE_INLINE Vector load(const T* p)
    {
        if constexpr (Bytes >= 16)
            return Vector::load(p);
        else if constexpr (std::is_same<T, float>::value)
            return {_mm_castsi128_ps(low_bytes(p))};
        else
            return {low_bytes(p)};
    }
    static UTILS_SSE_INLINE void store(T* p, Vector x)
    {
        if constexpr (Bytes >= 16)
            Vector::store(p, x);
        else if constexpr (std::is_same<T, float>::value)
            store_low_bytes(p, _mm_castps_si128(x.v));
        else
            store_low_bytes(p, x.v);
    }

private:
    static UTILS_SSE_INLINE __m128i low_bytes(const T* p)
    {
        if constexpr (Bytes == 8)
            return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
        else if constexpr (Bytes == 4)
            return _mm_cvtsi32_si128(ElementMemory<std::int32_t>::load(p));
        else if constexpr (Bytes == 2)
            return _mm_cvtsi32_si128(ElementMemory<std::uint16_t>::load(p));
        else
            return _mm_cvtsi32_si128(ElementMemory<std::uint8_t>::load(p));
    }
    static UTILS_SSE_INLINE void store_low_bytes(T* p, __m128i x)
    {
        if constexpr (Bytes == 8)
            _mm_storel_epi64(reinterpret_cast<__m128i*>(p), x);
        else if constexpr (Bytes == 4)
            ElementMemory<std::int32_t>::store(p, _mm_cvtsi128_si32(x));
        else if constexpr (Bytes == 2)
            ElementMemory<std::uint16_t>::store(p, static_cast<std::uint16_t>(_mm_cvtsi128_si32(x)));
        else
            ElementMemory<std::uint8_t>::store(p, static_cast<std::uint8_t>(_mm_cvtsi128_si32(x)));
    }
};

} // namespace UTILS_SSE_TIER
} // namespace simd
