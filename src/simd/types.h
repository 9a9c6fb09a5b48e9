// The vector types, and how they come from memory and go there.
#pragma once

#include "simd/config.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

struct f32
{
    static constexpr int lanes = 4;
    using element = float;
    __m128 v;
};

struct f64
{
    static constexpr int lanes = 2;
    using element = double;
    __m128d v;
};

struct i32
{
    static constexpr int lanes = 4;
    using element = int;
    __m128i v;
};

struct i64
{
    static constexpr int lanes = 2;
    using element = std::int64_t;
    __m128i v;
};

struct i16
{
    static constexpr int lanes = 8;
    using element = short;
    __m128i v;
};

struct u8
{
    static constexpr int lanes = 16;
    using element = unsigned char;
    __m128i v;
};

// Two neighbouring vectors: what a vector of narrower elements widens to. `low` holds the lower half of the elements.
struct f32x2
{
    f32 low, high;
};

struct i32x2
{
    i32 low, high;
};

// --- load and store ------------------------------------------------------------------------------------------------
// load<V>(p) reads one V, or one element when V is an element type. Any address.

template <class V>
struct Memory
{
    static UTILS_SSE_INLINE V load(const typename V::element* p)
    {
        return V{_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))};
    }
    static UTILS_SSE_INLINE void store(typename V::element* p, V x) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), x.v); }
};

template <>
struct Memory<f32>
{
    static UTILS_SSE_INLINE f32 load(const float* p) { return {_mm_loadu_ps(p)}; }
    static UTILS_SSE_INLINE void store(float* p, f32 x) { _mm_storeu_ps(p, x.v); }
};

template <>
struct Memory<f64>
{
    static UTILS_SSE_INLINE f64 load(const double* p) { return {_mm_loadu_pd(p)}; }
    static UTILS_SSE_INLINE void store(double* p, f64 x) { _mm_storeu_pd(p, x.v); }
};

// Elements go through memcpy: a destination may be the memory of a source of another type (ApplyGain in place).
template <class T>
struct ElementMemory
{
    static UTILS_SSE_INLINE T load(const void* p)
    {
        T x;
        std::memcpy(&x, p, sizeof x);
        return x;
    }
    static UTILS_SSE_INLINE void store(void* p, T x) { std::memcpy(p, &x, sizeof x); }
};
template <>
struct Memory<float> : ElementMemory<float>
{
};
template <>
struct Memory<int> : ElementMemory<int>
{
};
template <>
struct Memory<unsigned> : ElementMemory<unsigned>
{
};
template <>
struct Memory<short> : ElementMemory<short>
{
};
template <>
struct Memory<unsigned char> : ElementMemory<unsigned char>
{
};

template <>
struct Memory<f32x2>
{
    static UTILS_SSE_INLINE f32x2 load(const float* p) { return {{_mm_loadu_ps(p)}, {_mm_loadu_ps(p + 4)}}; }
};

template <class V, class T>
UTILS_SSE_INLINE V load(const T* p)
{
    return Memory<V>::load(p);
}

template <class V, class T>
UTILS_SSE_INLINE void store(T* p, V x)
{
    Memory<V>::store(p, x);
}

UTILS_SSE_INLINE void store(float* p, f32x2 x)
{
    store(p, x.low);
    store(p + 4, x.high);
}

UTILS_SSE_INLINE void store(int* p, i32x2 x)
{
    store(p, x.low);
    store(p + 4, x.high);
}

// Parts of a vector, from its low end; the other lanes are zero.
UTILS_SSE_INLINE i16 load_four(const short* p)
{
    return {_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))};
}
// x0 x1 x2 x3 x0 x1 x2 x3
UTILS_SSE_INLINE i16 load_four_twice(const short* p)
{
    const __m128i four = load_four(p).v;
    return {_mm_unpacklo_epi64(four, four)};
}
UTILS_SSE_INLINE u8 load_four(const unsigned char* p)
{
    return {_mm_cvtsi32_si128(Memory<int>::load(p))};
}
UTILS_SSE_INLINE void store_four(unsigned char* p, u8 x)
{
    Memory<int>::store(p, _mm_cvtsi128_si32(x.v));
}
UTILS_SSE_INLINE u8 load_eight(const unsigned char* p)
{
    return {_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))};
}
UTILS_SSE_INLINE void store_eight(unsigned char* p, u8 x)
{
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), x.v);
}
// From a multiple of 16 bytes: SSE arithmetic takes such operands straight from memory.
UTILS_SSE_INLINE f32 load_aligned(const float* p)
{
    return {_mm_load_ps(p)};
}
UTILS_SSE_INLINE f32 load_one(const float* p)
{
    return {_mm_load_ss(p)};
}
UTILS_SSE_INLINE f32 load_two(const float* p)
{
    return {_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)))};
}
UTILS_SSE_INLINE void store_two(float* p, f32 x)
{
    _mm_storel_pi(reinterpret_cast<__m64*>(p), x.v);
}
UTILS_SSE_INLINE void store_upper_two(float* p, f32 x)
{
    _mm_storeh_pi(reinterpret_cast<__m64*>(p), x.v);
}

// x, made here and now. Of integer sums compilers know that any order gives the same result; they regroup and postpone
// them, and then run out of registers.
template <class V>
UTILS_SSE_INLINE V in_order(V x)
{
#if defined(__GNUC__) || defined(__clang__)
    __asm__("" : "+x"(x.v));
#endif
    return x;
}

// p, of whose contents the compiler knows nothing: it loads constants from there instead of making them.
template <class T>
UTILS_SSE_INLINE const T* in_memory(const T* p)
{
#if defined(__GNUC__) || defined(__clang__)
    __asm__("" : "+r"(p));
#endif
    return p;
}

// The lowest `Bytes` bytes of a V; load and store move exactly these, the other lanes of a loaded vector are zero.
template <class V, int Bytes>
struct Part
{
    using T = typename V::element;
    static constexpr int elements = Bytes / static_cast<int>(sizeof(T));

    static UTILS_SSE_INLINE V load(const T* p)
    {
        if constexpr (Bytes == 16)
            return Memory<V>::load(p);
        else if constexpr (Bytes == 8)
            return {_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))};
        else if constexpr (Bytes == 4)
            return {_mm_cvtsi32_si128(ElementMemory<std::int32_t>::load(p))};
        else if constexpr (Bytes == 2)
            return {_mm_cvtsi32_si128(ElementMemory<std::uint16_t>::load(p))};
        else
            return {_mm_cvtsi32_si128(ElementMemory<std::uint8_t>::load(p))};
    }
    static UTILS_SSE_INLINE void store(T* p, V x)
    {
        if constexpr (Bytes == 16)
            Memory<V>::store(p, x);
        else if constexpr (Bytes == 8)
            _mm_storel_epi64(reinterpret_cast<__m128i*>(p), x.v);
        else if constexpr (Bytes == 4)
            ElementMemory<std::int32_t>::store(p, _mm_cvtsi128_si32(x.v));
        else if constexpr (Bytes == 2)
            ElementMemory<std::uint16_t>::store(p, static_cast<std::uint16_t>(_mm_cvtsi128_si32(x.v)));
        else
            ElementMemory<std::uint8_t>::store(p, static_cast<std::uint8_t>(_mm_cvtsi128_si32(x.v)));
    }
};

template <int Bytes>
struct Part<f32, Bytes>
{
    using T = float;
    static constexpr int elements = Bytes / 4;

    static UTILS_SSE_INLINE f32 load(const float* p)
    {
        return {_mm_castsi128_ps(Part<i32, Bytes>::load(reinterpret_cast<const int*>(p)).v)};
    }
    static UTILS_SSE_INLINE void store(float* p, f32 x)
    {
        Part<i32, Bytes>::store(reinterpret_cast<int*>(p), i32{_mm_castps_si128(x.v)});
    }
};

} // namespace UTILS_SSE_TIER
} // namespace simd
