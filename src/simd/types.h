// The vector types, and how they come from memory and go there.
#pragma once

#include "simd/registers.h"

#include <type_traits>

namespace simd {
inline namespace UTILS_SSE_TIER {

// A vector of N blocks has them side by side, as they lie in memory, and every verb acts inside each block: what is right for
// one block is right for two or four at once, bit for bit. `lanes` are those of one block, and pictures show one block.

template <int N>
struct F32
{
    static constexpr int blocks = N;
    static constexpr int lanes = 4;
    using element = float;
    typename Registers<N>::ps v;

    static UTILS_SSE_INLINE F32 load(const element* p) { return {Registers<N>::load(p)}; }
    static UTILS_SSE_INLINE void store(element* p, F32 x) { Registers<N>::store(p, x.v); }
    static UTILS_SSE_INLINE F32 zero() { return {Registers<N>::zero_ps()}; }
    static UTILS_SSE_INLINE F32 broadcast(element x) { return {Registers<N>::set1(x)}; }
};

template <int N>
struct I32
{
    static constexpr int blocks = N;
    static constexpr int lanes = 4;
    using element = int;
    typename Registers<N>::si v;

    static UTILS_SSE_INLINE I32 load(const element* p) { return {Registers<N>::load(p)}; }
    static UTILS_SSE_INLINE void store(element* p, I32 x) { Registers<N>::store(p, x.v); }
    static UTILS_SSE_INLINE I32 zero() { return {Registers<N>::zero_si()}; }
    static UTILS_SSE_INLINE I32 broadcast(element x) { return {Registers<N>::set1(x)}; }
};

template <int N>
struct I64
{
    static constexpr int blocks = N;
    static constexpr int lanes = 2;
    using element = std::int64_t;
    typename Registers<N>::si v;

    static UTILS_SSE_INLINE I64 load(const element* p) { return {Registers<N>::load(p)}; }
    static UTILS_SSE_INLINE void store(element* p, I64 x) { Registers<N>::store(p, x.v); }
    static UTILS_SSE_INLINE I64 zero() { return {Registers<N>::zero_si()}; }
};

template <int N>
struct I16
{
    static constexpr int blocks = N;
    static constexpr int lanes = 8;
    using element = short;
    typename Registers<N>::si v;

    static UTILS_SSE_INLINE I16 load(const element* p) { return {Registers<N>::load(p)}; }
    static UTILS_SSE_INLINE void store(element* p, I16 x) { Registers<N>::store(p, x.v); }
    static UTILS_SSE_INLINE I16 zero() { return {Registers<N>::zero_si()}; }
    static UTILS_SSE_INLINE I16 broadcast(element x) { return {Registers<N>::set1(x)}; }
};

template <int N>
struct U8
{
    static constexpr int blocks = N;
    static constexpr int lanes = 16;
    using element = unsigned char;
    typename Registers<N>::si v;

    static UTILS_SSE_INLINE U8 load(const element* p) { return {Registers<N>::load(p)}; }
    static UTILS_SSE_INLINE void store(element* p, U8 x) { Registers<N>::store(p, x.v); }
    static UTILS_SSE_INLINE U8 zero() { return {Registers<N>::zero_si()}; }
    static UTILS_SSE_INLINE U8 broadcast(element x) { return {Registers<N>::set1(x)}; }
};

struct f64
{
    static constexpr int lanes = 2;
    using element = double;
    __m128d v;

    static UTILS_SSE_INLINE f64 load(const double* p) { return {_mm_loadu_pd(p)}; }
    static UTILS_SSE_INLINE void store(double* p, f64 x) { _mm_storeu_pd(p, x.v); }
    static UTILS_SSE_INLINE f64 zero() { return {_mm_setzero_pd()}; }
};

// Two vectors: what a vector of narrower elements widens to. `low` holds the lower half of the elements of each block, `high`
// the upper half, so that in memory their blocks take turns.
template <int N>
struct F32x2
{
    using element = float;
    F32<N> low, high;

    static UTILS_SSE_INLINE F32x2 load(const float* p)
    {
        typename Registers<N>::si low, high;
        load_in_turn(p, low, high);
        return {{mm::as_ps(low)}, {mm::as_ps(high)}};
    }
    static UTILS_SSE_INLINE void store(float* p, F32x2 x) { store_in_turn(p, mm::as_si(x.low.v), mm::as_si(x.high.v)); }
    static UTILS_SSE_INLINE F32x2 broadcast(float x) { return {F32<N>::broadcast(x), F32<N>::broadcast(x)}; }
};

template <int N>
struct I32x2
{
    using element = int;
    I32<N> low, high;

    static UTILS_SSE_INLINE void store(int* p, I32x2 x) { store_in_turn(p, x.low.v, x.high.v); }
};

template <int N>
struct I16x2
{
    using element = short;
    I16<N> low, high;

    static UTILS_SSE_INLINE I16x2 load(const short* p)
    {
        I16x2 x;
        load_in_turn(p, x.low.v, x.high.v);
        return x;
    }
    static UTILS_SSE_INLINE void store(short* p, I16x2 x) { store_in_turn(p, x.low.v, x.high.v); }
};

// Two vectors that follow each other in memory.
template <class V>
struct InOrder
{
    using element = typename V::element;
    V first, second;

    static UTILS_SSE_INLINE InOrder load(const element* p) { return {V::load(p), V::load(p + V::blocks * V::lanes)}; }
    static UTILS_SSE_INLINE void store(element* p, InOrder x)
    {
        V::store(p, x.first);
        V::store(p + V::blocks * V::lanes, x.second);
    }
};

template <int N>
UTILS_SSE_INLINE I16x2<N> in_turn(I16<N> low, I16<N> high)
{
    return {low, high};
}

template <int N>
UTILS_SSE_INLINE F32x2<N> in_turn(F32<N> low, F32<N> high)
{
    return {low, high};
}

// One block.
using f32 = F32<1>;
using i32 = I32<1>;
using i64 = I64<1>;
using i16 = I16<1>;
using u8 = U8<1>;
using f32x2 = F32x2<1>;
using i32x2 = I32x2<1>;

// --- load and store ------------------------------------------------------------------------------------------------
// load<V>(p) reads one V, or one element when V is an element type. Any address.

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
template <class V>
struct Memory : std::conditional_t<std::is_arithmetic<V>::value, ElementMemory<V>, V>
{
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

// What a body computes with: vectors of N blocks each, of whatever elements a pointer leads to.
template <class T, int N>
struct VectorOf;
template <int N>
struct VectorOf<float, N>
{
    using type = F32<N>;
    using twice = F32x2<N>;
};
template <int N>
struct VectorOf<int, N>
{
    using type = I32<N>;
};
template <int N>
struct VectorOf<short, N>
{
    using type = I16<N>;
    using twice = I16x2<N>;
};
template <int N>
struct VectorOf<unsigned char, N>
{
    using type = U8<N>;
};

template <int N>
struct Blocks
{
    static constexpr int count = N;

    template <class T>
    static UTILS_SSE_INLINE auto load(const T* p)
    {
        return VectorOf<T, N>::type::load(p);
    }
    // Two vectors, which belong to one of elements half as wide.
    template <class T>
    static UTILS_SSE_INLINE auto load_two(const T* p)
    {
        return VectorOf<T, N>::twice::load(p);
    }
    // Two vectors that follow each other.
    template <class T>
    static UTILS_SSE_INLINE auto load_in_order(const T* p)
    {
        return InOrder<typename VectorOf<T, N>::type>::load(p);
    }
    template <class T, class V>
    static UTILS_SSE_INLINE void store(T* p, V x)
    {
        V::store(p, x);
    }
    // x in every lane of vectors of such elements.
    template <class T>
    static UTILS_SSE_INLINE auto broadcast(T x)
    {
        return VectorOf<T, N>::type::broadcast(x);
    }
};

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
// x in every block.
template <int N>
UTILS_SSE_INLINE I16<N> in_every_block(i16 x)
{
    if constexpr (N == 1)
        return x;
#if UTILS_SSE_MOST_BLOCKS >= 2
    if constexpr (N == 2)
        return {_mm256_broadcastsi128_si256(x.v)};
#endif
#if UTILS_SSE_MOST_BLOCKS >= 4
    if constexpr (N == 4)
        return {_mm512_broadcast_i32x4(x.v)};
#endif
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

} // namespace UTILS_SSE_TIER
} // namespace simd
