// The processor's registers of one, two and four blocks, and its instructions under one name for all of them.
//
// mm::add_ps(x, y) adds floats in registers of any width. Nothing here crosses the border between two blocks: instructions that
// do have no business in a kernel, whose results must not depend on how many blocks are computed side by side.
#pragma once

#include "simd/config.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

#if UTILS_SSE_MOST_BLOCKS >= 2
#define UTILS_SSE_IF_2(...) __VA_ARGS__
#else
#define UTILS_SSE_IF_2(...)
#endif
#if UTILS_SSE_MOST_BLOCKS >= 4
#define UTILS_SSE_IF_4(...) __VA_ARGS__
#else
#define UTILS_SSE_IF_4(...)
#endif

namespace mm {

// clang-format off

// Instructions whose names differ in the width only: of two registers, of one, of one and a constant.
#define UTILS_SSE_BINARY(op, R1, R2, R4)                                                                                  \
    UTILS_SSE_INLINE R1 op(R1 x, R1 y) { return _mm_##op(x, y); }                                                         \
    UTILS_SSE_IF_2(UTILS_SSE_INLINE R2 op(R2 x, R2 y) { return _mm256_##op(x, y); })                                      \
    UTILS_SSE_IF_4(UTILS_SSE_INLINE R4 op(R4 x, R4 y) { return _mm512_##op(x, y); })
#define UTILS_SSE_UNARY(op, R1, R2, R4, T1, T2, T4)                                                                       \
    UTILS_SSE_INLINE R1 op(T1 x) { return _mm_##op(x); }                                                                  \
    UTILS_SSE_IF_2(UTILS_SSE_INLINE R2 op(T2 x) { return _mm256_##op(x); })                                               \
    UTILS_SSE_IF_4(UTILS_SSE_INLINE R4 op(T4 x) { return _mm512_##op(x); })
#define UTILS_SSE_WITH_CONSTANT(op)                                                                                       \
    template <int Constant> UTILS_SSE_INLINE __m128i op(__m128i x) { return _mm_##op(x, Constant); }                      \
    UTILS_SSE_IF_2(template <int Constant> UTILS_SSE_INLINE __m256i op(__m256i x) { return _mm256_##op(x, Constant); })   \
    UTILS_SSE_IF_4(template <int Constant> UTILS_SSE_INLINE __m512i op(__m512i x) { return _mm512_##op(x, Constant); })
#define UTILS_SSE_FLOATS(op) UTILS_SSE_BINARY(op, __m128, __m256, __m512)
#define UTILS_SSE_INTEGERS(op) UTILS_SSE_BINARY(op, __m128i, __m256i, __m512i)
// Bits of whole registers have the width in their names twice.
#define UTILS_SSE_BITS(op)                                                                                                \
    UTILS_SSE_INLINE __m128i op##_si(__m128i x, __m128i y) { return _mm_##op##_si128(x, y); }                             \
    UTILS_SSE_IF_2(UTILS_SSE_INLINE __m256i op##_si(__m256i x, __m256i y) { return _mm256_##op##_si256(x, y); })               \
    UTILS_SSE_IF_4(UTILS_SSE_INLINE __m512i op##_si(__m512i x, __m512i y) { return _mm512_##op##_si512(x, y); })
// Comparisons make masks of all bits of a lane, which the widest registers have no instruction for.
#define UTILS_SSE_COMPARE_FLOATS(op, predicate)                                                                           \
    UTILS_SSE_INLINE __m128 op(__m128 x, __m128 y) { return _mm_##op(x, y); }                                             \
    UTILS_SSE_IF_2(UTILS_SSE_INLINE __m256 op(__m256 x, __m256 y) { return _mm256_cmp_ps(x, y, predicate); })             \
    UTILS_SSE_IF_4(UTILS_SSE_INLINE __m512 op(__m512 x, __m512 y)                                                         \
                   { return _mm512_castsi512_ps(_mm512_movm_epi32(_mm512_cmp_ps_mask(x, y, predicate))); })
#define UTILS_SSE_COMPARE_INTEGERS(op, lane)                                                                              \
    UTILS_SSE_INLINE __m128i op##_##lane(__m128i x, __m128i y) { return _mm_##op##_##lane(x, y); }                        \
    UTILS_SSE_IF_2(UTILS_SSE_INLINE __m256i op##_##lane(__m256i x, __m256i y) { return _mm256_##op##_##lane(x, y); })     \
    UTILS_SSE_IF_4(UTILS_SSE_INLINE __m512i op##_##lane(__m512i x, __m512i y)                                             \
                   { return _mm512_movm_##lane(_mm512_##op##_##lane##_mask(x, y)); })

UTILS_SSE_FLOATS(add_ps) UTILS_SSE_FLOATS(sub_ps) UTILS_SSE_FLOATS(mul_ps) UTILS_SSE_FLOATS(div_ps)
UTILS_SSE_FLOATS(min_ps) UTILS_SSE_FLOATS(max_ps)
UTILS_SSE_FLOATS(and_ps) UTILS_SSE_FLOATS(or_ps) UTILS_SSE_FLOATS(xor_ps) UTILS_SSE_FLOATS(andnot_ps)
UTILS_SSE_FLOATS(unpacklo_ps) UTILS_SSE_FLOATS(unpackhi_ps)
UTILS_SSE_COMPARE_FLOATS(cmplt_ps, _CMP_LT_OS) UTILS_SSE_COMPARE_FLOATS(cmple_ps, _CMP_LE_OS)
UTILS_SSE_COMPARE_FLOATS(cmpgt_ps, _CMP_GT_OS) UTILS_SSE_COMPARE_FLOATS(cmpge_ps, _CMP_GE_OS)
UTILS_SSE_COMPARE_FLOATS(cmpeq_ps, _CMP_EQ_OQ) UTILS_SSE_COMPARE_FLOATS(cmpnlt_ps, _CMP_NLT_US)
UTILS_SSE_COMPARE_FLOATS(cmpnge_ps, _CMP_NGE_US)
UTILS_SSE_UNARY(sqrt_ps, __m128, __m256, __m512, __m128, __m256, __m512)
UTILS_SSE_UNARY(cvtps_epi32, __m128i, __m256i, __m512i, __m128, __m256, __m512)
UTILS_SSE_UNARY(cvttps_epi32, __m128i, __m256i, __m512i, __m128, __m256, __m512)
UTILS_SSE_UNARY(cvtepi32_ps, __m128, __m256, __m512, __m128i, __m256i, __m512i)

UTILS_SSE_BITS(and) UTILS_SSE_BITS(or) UTILS_SSE_BITS(xor) UTILS_SSE_BITS(andnot)
UTILS_SSE_INTEGERS(add_epi8) UTILS_SSE_INTEGERS(add_epi16) UTILS_SSE_INTEGERS(add_epi32) UTILS_SSE_INTEGERS(add_epi64)
UTILS_SSE_INTEGERS(sub_epi8) UTILS_SSE_INTEGERS(sub_epi16) UTILS_SSE_INTEGERS(sub_epi32)
UTILS_SSE_INTEGERS(adds_epi16) UTILS_SSE_INTEGERS(adds_epu8) UTILS_SSE_INTEGERS(subs_epi16) UTILS_SSE_INTEGERS(subs_epu8)
UTILS_SSE_INTEGERS(mullo_epi16) UTILS_SSE_INTEGERS(mulhi_epi16) UTILS_SSE_INTEGERS(mulhi_epu16)
UTILS_SSE_INTEGERS(mul_epu32) UTILS_SSE_INTEGERS(madd_epi16)
UTILS_SSE_INTEGERS(min_epu8) UTILS_SSE_INTEGERS(max_epu8) UTILS_SSE_INTEGERS(min_epi16) UTILS_SSE_INTEGERS(max_epi16)
UTILS_SSE_INTEGERS(avg_epu8) UTILS_SSE_INTEGERS(avg_epu16) UTILS_SSE_INTEGERS(sad_epu8)
UTILS_SSE_INTEGERS(packs_epi32) UTILS_SSE_INTEGERS(packs_epi16) UTILS_SSE_INTEGERS(packus_epi16)
UTILS_SSE_INTEGERS(unpacklo_epi8) UTILS_SSE_INTEGERS(unpackhi_epi8)
UTILS_SSE_INTEGERS(unpacklo_epi16) UTILS_SSE_INTEGERS(unpackhi_epi16)
UTILS_SSE_INTEGERS(unpacklo_epi32) UTILS_SSE_INTEGERS(unpackhi_epi32)
UTILS_SSE_INTEGERS(unpacklo_epi64) UTILS_SSE_INTEGERS(unpackhi_epi64)
UTILS_SSE_COMPARE_INTEGERS(cmpeq, epi8) UTILS_SSE_COMPARE_INTEGERS(cmpeq, epi16) UTILS_SSE_COMPARE_INTEGERS(cmpeq, epi32)
UTILS_SSE_COMPARE_INTEGERS(cmpgt, epi8) UTILS_SSE_COMPARE_INTEGERS(cmpgt, epi16) UTILS_SSE_COMPARE_INTEGERS(cmpgt, epi32)
UTILS_SSE_WITH_CONSTANT(srai_epi16) UTILS_SSE_WITH_CONSTANT(srli_epi16) UTILS_SSE_WITH_CONSTANT(slli_epi16)
UTILS_SSE_WITH_CONSTANT(srai_epi32) UTILS_SSE_WITH_CONSTANT(srli_epi32) UTILS_SSE_WITH_CONSTANT(slli_epi32)
UTILS_SSE_WITH_CONSTANT(srli_epi64)

// The same bits as floats or as integers.
UTILS_SSE_INLINE __m128 as_ps(__m128i x) { return _mm_castsi128_ps(x); }
UTILS_SSE_INLINE __m128i as_si(__m128 x) { return _mm_castps_si128(x); }
UTILS_SSE_IF_2(UTILS_SSE_INLINE __m256 as_ps(__m256i x) { return _mm256_castsi256_ps(x); })
UTILS_SSE_IF_2(UTILS_SSE_INLINE __m256i as_si(__m256 x) { return _mm256_castps_si256(x); })
UTILS_SSE_IF_4(UTILS_SSE_INLINE __m512 as_ps(__m512i x) { return _mm512_castsi512_ps(x); })
UTILS_SSE_IF_4(UTILS_SSE_INLINE __m512i as_si(__m512 x) { return _mm512_castps_si512(x); })

// Two lanes of x, then two of y; inside each block. _MM_SHUFFLE names them from right to left.
template <int Lanes> UTILS_SSE_INLINE __m128 shuffle_ps(__m128 x, __m128 y) { return _mm_shuffle_ps(x, y, Lanes); }
UTILS_SSE_IF_2(template <int Lanes> UTILS_SSE_INLINE __m256 shuffle_ps(__m256 x, __m256 y)
               { return _mm256_shuffle_ps(x, y, Lanes); })
UTILS_SSE_IF_4(template <int Lanes> UTILS_SSE_INLINE __m512 shuffle_ps(__m512 x, __m512 y)
               { return _mm512_shuffle_ps(x, y, Lanes); })

// Bytes moved up and down inside each block; zeros follow.
template <int Bytes> UTILS_SSE_INLINE __m128i move_up(__m128i x) { return _mm_slli_si128(x, Bytes); }
template <int Bytes> UTILS_SSE_INLINE __m128i move_down(__m128i x) { return _mm_srli_si128(x, Bytes); }
UTILS_SSE_IF_2(template <int Bytes> UTILS_SSE_INLINE __m256i move_up(__m256i x) { return _mm256_bslli_epi128(x, Bytes); })
UTILS_SSE_IF_2(template <int Bytes> UTILS_SSE_INLINE __m256i move_down(__m256i x) { return _mm256_bsrli_epi128(x, Bytes); })
UTILS_SSE_IF_4(template <int Bytes> UTILS_SSE_INLINE __m512i move_up(__m512i x) { return _mm512_bslli_epi128(x, Bytes); })
UTILS_SSE_IF_4(template <int Bytes> UTILS_SSE_INLINE __m512i move_down(__m512i x) { return _mm512_bsrli_epi128(x, Bytes); })

#undef UTILS_SSE_BINARY
#undef UTILS_SSE_UNARY
#undef UTILS_SSE_WITH_CONSTANT
#undef UTILS_SSE_FLOATS
#undef UTILS_SSE_INTEGERS
#undef UTILS_SSE_BITS
#undef UTILS_SSE_COMPARE_FLOATS
#undef UTILS_SSE_COMPARE_INTEGERS

} // namespace mm

// The registers that hold `Blocks` blocks, and how they are filled.
template <int Blocks> struct Registers;

template <> struct Registers<1>
{
    using ps = __m128;
    using si = __m128i;
    static UTILS_SSE_INLINE ps load(const float* p) { return _mm_loadu_ps(p); }
    static UTILS_SSE_INLINE si load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
    static UTILS_SSE_INLINE void store(float* p, ps x) { _mm_storeu_ps(p, x); }
    static UTILS_SSE_INLINE void store(void* p, si x) { _mm_storeu_si128(static_cast<__m128i*>(p), x); }
    static UTILS_SSE_INLINE ps zero_ps() { return _mm_setzero_ps(); }
    static UTILS_SSE_INLINE si zero_si() { return _mm_setzero_si128(); }
    static UTILS_SSE_INLINE ps set1(float x) { return _mm_set1_ps(x); }
    static UTILS_SSE_INLINE si set1(int x) { return _mm_set1_epi32(x); }
    static UTILS_SSE_INLINE si set1(short x) { return _mm_set1_epi16(x); }
    static UTILS_SSE_INLINE si set1(unsigned char x) { return _mm_set1_epi8(static_cast<char>(x)); }
};

#if UTILS_SSE_MOST_BLOCKS >= 2
template <> struct Registers<2>
{
    using ps = __m256;
    using si = __m256i;
    static UTILS_SSE_INLINE ps load(const float* p) { return _mm256_loadu_ps(p); }
    static UTILS_SSE_INLINE si load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
    static UTILS_SSE_INLINE void store(float* p, ps x) { _mm256_storeu_ps(p, x); }
    static UTILS_SSE_INLINE void store(void* p, si x) { _mm256_storeu_si256(static_cast<__m256i*>(p), x); }
    static UTILS_SSE_INLINE ps zero_ps() { return _mm256_setzero_ps(); }
    static UTILS_SSE_INLINE si zero_si() { return _mm256_setzero_si256(); }
    static UTILS_SSE_INLINE ps set1(float x) { return _mm256_set1_ps(x); }
    static UTILS_SSE_INLINE si set1(int x) { return _mm256_set1_epi32(x); }
    static UTILS_SSE_INLINE si set1(short x) { return _mm256_set1_epi16(x); }
    static UTILS_SSE_INLINE si set1(unsigned char x) { return _mm256_set1_epi8(static_cast<char>(x)); }
};
#endif

#if UTILS_SSE_MOST_BLOCKS >= 4
template <> struct Registers<4>
{
    using ps = __m512;
    using si = __m512i;
    static UTILS_SSE_INLINE ps load(const float* p) { return _mm512_loadu_ps(p); }
    static UTILS_SSE_INLINE si load(const void* p) { return _mm512_loadu_si512(p); }
    static UTILS_SSE_INLINE void store(float* p, ps x) { _mm512_storeu_ps(p, x); }
    static UTILS_SSE_INLINE void store(void* p, si x) { _mm512_storeu_si512(p, x); }
    static UTILS_SSE_INLINE ps zero_ps() { return _mm512_setzero_ps(); }
    static UTILS_SSE_INLINE si zero_si() { return _mm512_setzero_si512(); }
    static UTILS_SSE_INLINE ps set1(float x) { return _mm512_set1_ps(x); }
    static UTILS_SSE_INLINE si set1(int x) { return _mm512_set1_epi32(x); }
    static UTILS_SSE_INLINE si set1(short x) { return _mm512_set1_epi16(x); }
    static UTILS_SSE_INLINE si set1(unsigned char x) { return _mm512_set1_epi8(static_cast<char>(x)); }
};
#endif

// clang-format on

// Two vectors whose blocks lie in memory in turn: low block 0, high block 0, low block 1, high block 1, ..
UTILS_SSE_INLINE void store_in_turn(void* p, __m128i low, __m128i high)
{
    Registers<1>::store(p, low);
    Registers<1>::store(static_cast<char*>(p) + 16, high);
}
UTILS_SSE_INLINE void load_in_turn(const void* p, __m128i& low, __m128i& high)
{
    low = Registers<1>::load(p);
    high = Registers<1>::load(static_cast<const char*>(p) + 16);
}
#if UTILS_SSE_MOST_BLOCKS >= 2
UTILS_SSE_INLINE void store_in_turn(void* p, __m256i low, __m256i high)
{
    Registers<2>::store(p, _mm256_permute2x128_si256(low, high, 0x20));
    Registers<2>::store(static_cast<char*>(p) + 32, _mm256_permute2x128_si256(low, high, 0x31));
}
UTILS_SSE_INLINE void load_in_turn(const void* p, __m256i& low, __m256i& high)
{
    const __m256i first = Registers<2>::load(p);
    const __m256i second = Registers<2>::load(static_cast<const char*>(p) + 32);
    low = _mm256_permute2x128_si256(first, second, 0x20);
    high = _mm256_permute2x128_si256(first, second, 0x31);
}
#endif
#if UTILS_SSE_MOST_BLOCKS >= 4
UTILS_SSE_INLINE void store_in_turn(void* p, __m512i low, __m512i high)
{
    const __m512i first = _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11);
    const __m512i second = _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15);
    Registers<4>::store(p, _mm512_permutex2var_epi64(low, first, high));
    Registers<4>::store(static_cast<char*>(p) + 64, _mm512_permutex2var_epi64(low, second, high));
}
UTILS_SSE_INLINE void load_in_turn(const void* p, __m512i& low, __m512i& high)
{
    const __m512i first = Registers<4>::load(p);
    const __m512i second = Registers<4>::load(static_cast<const char*>(p) + 64);
    low = _mm512_permutex2var_epi64(first, _mm512_setr_epi64(0, 1, 4, 5, 8, 9, 12, 13), second);
    high = _mm512_permutex2var_epi64(first, _mm512_setr_epi64(2, 3, 6, 7, 10, 11, 14, 15), second);
}
#endif

template <class R>
UTILS_SSE_INLINE auto store_in_turn(void* p, R low, R high) -> decltype(mm::as_si(low), void())
{
    store_in_turn(p, mm::as_si(low), mm::as_si(high));
}
template <class R>
UTILS_SSE_INLINE auto load_in_turn(const void* p, R& low, R& high) -> decltype(mm::as_si(low), void())
{
    decltype(mm::as_si(low)) first, second;
    load_in_turn(p, first, second);
    low = mm::as_ps(first);
    high = mm::as_ps(second);
}

// The lower halves of all blocks, in their order, then the upper halves.
UTILS_SSE_INLINE __m128i lower_halves_first(__m128i x)
{
    return x;
}
#if UTILS_SSE_MOST_BLOCKS >= 2
UTILS_SSE_INLINE __m256i lower_halves_first(__m256i x)
{
    return _mm256_permute4x64_epi64(x, _MM_SHUFFLE(3, 1, 2, 0));
}
#endif
#if UTILS_SSE_MOST_BLOCKS >= 4
UTILS_SSE_INLINE __m512i lower_halves_first(__m512i x)
{
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), x);
}
#endif

} // namespace UTILS_SSE_TIER
} // namespace simd
