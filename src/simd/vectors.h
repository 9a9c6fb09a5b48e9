// Typed 128-bit vectors and their scalar twins: the words in which kernels are written.
//
// A vector type wraps one register and says what its lanes are. Every verb has, where a tail needs it, a scalar twin of the
// same name with the same result for every input, NaN and out-of-range values included, so that one generic lambda can be
// both body and tail. Floats use + - * (contraction is off); integers use named verbs, because there wrapping, saturating
// and rounding must be said.
#pragma once

#include "simd/config.h"

#include <cmath>
#include <utility>

namespace simd {
inline namespace UTILS_SSE_TIER {

struct f32
{
    static constexpr int lanes = 4;
    using element = float;
    __m128 v;
};

struct i32
{
    static constexpr int lanes = 4;
    using element = int;
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

// Parts of a vector, from its low end; the other lanes are zero.
UTILS_SSE_INLINE i16 load_four(const short* p)
{
    return {_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))};
}
UTILS_SSE_INLINE u8 load_four(const unsigned char* p)
{
    return {_mm_cvtsi32_si128(Memory<int>::load(p))};
}
UTILS_SSE_INLINE void store_four(unsigned char* p, u8 x)
{
    Memory<int>::store(p, _mm_cvtsi128_si32(x.v));
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

// --- floats --------------------------------------------------------------------------------------------------------

UTILS_SSE_INLINE f32 operator+(f32 x, f32 y)
{
    return {_mm_add_ps(x.v, y.v)};
}
UTILS_SSE_INLINE f32 operator-(f32 x, f32 y)
{
    return {_mm_sub_ps(x.v, y.v)};
}
UTILS_SSE_INLINE f32 operator*(f32 x, f32 y)
{
    return {_mm_mul_ps(x.v, y.v)};
}

UTILS_SSE_INLINE f32x2 operator*(f32x2 x, f32x2 y)
{
    return {x.low * y.low, x.high * y.high};
}

// broadcast<V>(x): x in every lane; x itself when V is float. Do it before the loop.
template <class V>
UTILS_SSE_INLINE V broadcast(float x);
template <>
UTILS_SSE_INLINE f32 broadcast<f32>(float x)
{
    return {_mm_set1_ps(x)};
}
template <>
UTILS_SSE_INLINE float broadcast<float>(float x)
{
    return x;
}

UTILS_SSE_INLINE f32x2 operator+(f32x2 x, f32x2 y)
{
    return {x.low + y.low, x.high + y.high};
}
UTILS_SSE_INLINE f32x2 operator-(f32x2 x, f32x2 y)
{
    return {x.low - y.low, x.high - y.high};
}
UTILS_SSE_INLINE f32x2 broadcast_twice(float x)
{
    return {{_mm_set1_ps(x)}, {_mm_set1_ps(x)}};
}

// Correctly rounded. A root taken in double and rounded to single is the same number, since 53 >= 2 * 24 + 2 bits.
UTILS_SSE_INLINE f32 square_root(f32 x)
{
    return {_mm_sqrt_ps(x.v)};
}
UTILS_SSE_INLINE float square_root(float x)
{
    return std::sqrt(x);
}

// (lane 0 + lane 1) + (lane 2 + lane 3)
UTILS_SSE_INLINE float fold(f32 x)
{
    const __m128 swapped = _mm_shuffle_ps(x.v, x.v, _MM_SHUFFLE(2, 3, 0, 1)); // 1 0 3 2
    const __m128 pairs = _mm_add_ps(x.v, swapped);                            // 0+1 . 2+3 .
    return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_movehl_ps(pairs, pairs)));
}

UTILS_SSE_INLINE f32 add_to_lane_0(f32 x, float y)
{
    return {_mm_add_ss(x.v, _mm_set_ss(y))};
}

// --- between floats and 32-bit integers ----------------------------------------------------------------------------
// NaN and values outside the 32-bit range give -2147483648. The scalar twins use the instruction too: as a C++ cast such
// values are undefined, and compilers fold them to whatever they like.

UTILS_SSE_INLINE i32 round_to_int(f32 x)
{
    return {_mm_cvtps_epi32(x.v)};
}
UTILS_SSE_INLINE int round_to_int(float x)
{
    return _mm_cvtss_si32(_mm_set_ss(x));
}
UTILS_SSE_INLINE i32 truncate_to_int(f32 x)
{
    return {_mm_cvttps_epi32(x.v)};
}
UTILS_SSE_INLINE int truncate_to_int(float x)
{
    return _mm_cvttss_si32(_mm_set_ss(x));
}

UTILS_SSE_INLINE f32 to_float(i32 x)
{
    return {_mm_cvtepi32_ps(x.v)};
}
UTILS_SSE_INLINE f32x2 to_float(i32x2 x)
{
    return {to_float(x.low), to_float(x.high)};
}
UTILS_SSE_INLINE float to_float(int x)
{
    return static_cast<float>(x);
}
UTILS_SSE_INLINE float to_float(short x)
{
    return static_cast<float>(x);
}

// --- 16-bit integers -----------------------------------------------------------------------------------------------

// Sign-extended to 32 bits: each sample is interleaved with its sign.
UTILS_SSE_INLINE i32x2 widen(i16 x)
{
    const __m128i sign = _mm_srai_epi16(x.v, 15);
    return {{_mm_unpacklo_epi16(x.v, sign)}, {_mm_unpackhi_epi16(x.v, sign)}};
}

// Exact 32-bit products of 16-bit values.
UTILS_SSE_INLINE i32x2 multiply_exact(i16 x, i16 y)
{
    const __m128i low = _mm_mullo_epi16(x.v, y.v);
    const __m128i high = _mm_mulhi_epi16(x.v, y.v);
    return {{_mm_unpacklo_epi16(low, high)}, {_mm_unpackhi_epi16(low, high)}};
}
UTILS_SSE_INLINE int multiply_exact(short x, short y)
{
    return x * y;
}

// saturate16((x * y) >> 15), the product of two Q15 numbers, rounded towards minus infinity.
// With the product as high * 65536 + low this is (2 * high) | (low >> 15). Doubling the high half overflows for one
// product only, 2^30 of -32768 * -32768 (high = 16384, low = 0), and the saturating addition gives its 32767.
UTILS_SSE_INLINE i16 multiply_q15(i16 x, i16 y)
{
    const __m128i low = _mm_mullo_epi16(x.v, y.v);
    const __m128i high = _mm_mulhi_epi16(x.v, y.v);
    return {_mm_or_si128(_mm_adds_epi16(high, high), _mm_srli_epi16(low, 15))};
}

UTILS_SSE_INLINE i16 narrow_saturate(i32 low, i32 high)
{
    return {_mm_packs_epi32(low.v, high.v)};
}
UTILS_SSE_INLINE u8 narrow_saturate(i16 low, i16 high)
{
    return {_mm_packus_epi16(low.v, high.v)};
}

UTILS_SSE_INLINE i16 broadcast_short(short x)
{
    return {_mm_set1_epi16(x)};
}
// x y x y x y x y
UTILS_SSE_INLINE i16 broadcast_pair(short x, short y)
{
    return {_mm_set_epi16(y, x, y, x, y, x, y, x)};
}
UTILS_SSE_INLINE i16 add_wrap(i16 x, i16 y)
{
    return {_mm_add_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i16 subtract_wrap(i16 x, i16 y)
{
    return {_mm_sub_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i16 add_saturate(i16 x, i16 y)
{
    return {_mm_adds_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i16 bit_and(i16 x, i16 y)
{
    return {_mm_and_si128(x.v, y.v)};
}
UTILS_SSE_INLINE i16 bit_or(i16 x, i16 y)
{
    return {_mm_or_si128(x.v, y.v)};
}
UTILS_SSE_INLINE i16 bit_xor(i16 x, i16 y)
{
    return {_mm_xor_si128(x.v, y.v)};
}
// All bits set where x = y, none elsewhere.
UTILS_SSE_INLINE i16 equal(i16 x, i16 y)
{
    return {_mm_cmpeq_epi16(x.v, y.v)};
}
// Arithmetic: rounds towards minus infinity.
template <int Bits>
UTILS_SSE_INLINE i16 shift_right(i16 x)
{
    return {_mm_srai_epi16(x.v, Bits)};
}
// Values read as unsigned, 0 .. 65535.
template <int Bits>
UTILS_SSE_INLINE i16 shift_right_unsigned(i16 x)
{
    return {_mm_srli_epi16(x.v, Bits)};
}
template <int Bits>
UTILS_SSE_INLINE i16 shift_left(i16 x)
{
    return {_mm_slli_epi16(x.v, Bits)};
}
// Values read as unsigned, 0 .. 65535, halved; halves are rounded up.
UTILS_SSE_INLINE i16 halve_unsigned_up(i16 x)
{
    return {_mm_avg_epu16(x.v, _mm_setzero_si128())};
}
// The low 16 bits of each.
UTILS_SSE_INLINE i16 narrow_wrap(i32 low, i32 high)
{
    const auto sign_extend = [](__m128i x) UTILS_SSE_LAMBDA { return _mm_srai_epi32(_mm_slli_epi32(x, 16), 16); };
    return {_mm_packs_epi32(sign_extend(low.v), sign_extend(high.v))};
}
// x0 y0 x1 y1 x2 y2 x3 y3, and the same of the upper halves.
UTILS_SSE_INLINE i16 interleave_low(i16 x, i16 y)
{
    return {_mm_unpacklo_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i16 interleave_high(i16 x, i16 y)
{
    return {_mm_unpackhi_epi16(x.v, y.v)};
}
// Lane k becomes lane k + Lanes of x; lanes that x does not have are zero.
template <int Lanes>
UTILS_SSE_INLINE i16 move_down(i16 x)
{
    if constexpr (Lanes < 0)
        return {_mm_slli_si128(x.v, -2 * Lanes)};
    else
        return {_mm_srli_si128(x.v, 2 * Lanes)};
}

// f(lane, value) for the eight lanes in order; values are read as unsigned, 0 .. 65535.
template <class Function, int... Lane>
UTILS_SSE_INLINE void for_each_unsigned_lane(i16 x, const Function& f, std::integer_sequence<int, Lane...>)
{
    (f(Lane, _mm_extract_epi16(x.v, Lane)), ...);
}
template <class Function>
UTILS_SSE_INLINE void for_each_unsigned_lane(i16 x, const Function& f)
{
    for_each_unsigned_lane(x, f, std::make_integer_sequence<int, i16::lanes>());
}

// Absolute value in 16-bit two's complement: -32768 stays -32768.
UTILS_SSE_INLINE i16 absolute_wrap(i16 x)
{
    const __m128i sign = _mm_srai_epi16(x.v, 15);
    return {_mm_sub_epi16(_mm_xor_si128(x.v, sign), sign)};
}
// The same in 32 bits: -2147483648 stays.
UTILS_SSE_INLINE i32 absolute_wrap(i32 x)
{
    const __m128i sign = _mm_srai_epi32(x.v, 31);
    return {_mm_sub_epi32(_mm_xor_si128(x.v, sign), sign)};
}
UTILS_SSE_INLINE int absolute_wrap(int x)
{
    const auto bits = static_cast<std::uint32_t>(x);
    return static_cast<int>(x < 0 ? 0u - bits : bits);
}

// floor((x + y) / 2) of exact sums. The processor averages unsigned numbers and rounds up; seen from above, with every value
// replaced by its distance from the largest one, up is down. Distances average to distances, so chains need one change
// each way, which compilers find.
UTILS_SSE_INLINE i16 average_down(i16 x, i16 y)
{
    const __m128i largest = _mm_set1_epi16(32767);
    const __m128i distance = _mm_avg_epu16(_mm_xor_si128(x.v, largest), _mm_xor_si128(y.v, largest));
    return {_mm_xor_si128(distance, largest)};
}

// --- 32-bit integers -----------------------------------------------------------------------------------------------

// x0 * y0 + x1 * y1, x2 * y2 + x3 * y3, .. with exact products; a sum of 2^31 (-32768 four times) wraps.
UTILS_SSE_INLINE i32 multiply_add_pairs(i16 x, i16 y)
{
    return {_mm_madd_epi16(x.v, y.v)};
}
UTILS_SSE_INLINE i32 add_wrap(i32 x, i32 y)
{
    return {_mm_add_epi32(x.v, y.v)};
}
// Arithmetic: rounds towards minus infinity.
template <int Bits>
UTILS_SSE_INLINE i32 shift_right(i32 x)
{
    return {_mm_srai_epi32(x.v, Bits)};
}

// --- bytes ---------------------------------------------------------------------------------------------------------

UTILS_SSE_INLINE u8 broadcast_byte(unsigned char x)
{
    return {_mm_set1_epi8(static_cast<char>(x))};
}

// The lower eight bytes, zero-extended, and the upper eight.
UTILS_SSE_INLINE i16 widen_low(u8 x)
{
    return {_mm_unpacklo_epi8(x.v, _mm_setzero_si128())};
}
UTILS_SSE_INLINE i16 widen_high(u8 x)
{
    return {_mm_unpackhi_epi8(x.v, _mm_setzero_si128())};
}

} // namespace UTILS_SSE_TIER
} // namespace simd
