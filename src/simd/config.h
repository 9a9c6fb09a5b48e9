// Ground rules of every kernel source: compiler switches, inlining, and the namespace of the instruction set.
#pragma once

#if defined(__AVX__)
#include <immintrin.h>
#else
#include <emmintrin.h>
#endif

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__FAST_MATH__)
#error "utils_sse promises results to the last bit: it cannot be compiled with -ffast-math or -Ofast"
#endif
#if defined(__i386__) && defined(__FLT_EVAL_METHOD__) && __FLT_EVAL_METHOD__ != 0
#error "utils_sse needs single-precision floats in SSE registers: compile with -msse2 -mfpmath=sse"
#endif

#if !defined(UTILS_SSE_PREFETCH)
#define UTILS_SSE_PREFETCH 0
#endif

#if defined(_MSC_VER) && !defined(__clang__)
#define UTILS_SSE_INLINE __forceinline
#define UTILS_SSE_LAMBDA
#define UTILS_SSE_APART __declspec(noinline)
#define UTILS_SSE_OUT_OF_LINE(condition) (condition)
#define UTILS_SSE_IN_LINE(condition) (condition)
#else
#define UTILS_SSE_INLINE __attribute__((always_inline)) inline
#define UTILS_SSE_LAMBDA __attribute__((always_inline))
// A function of its own, so that its caller need not save registers for it.
#define UTILS_SSE_APART __attribute__((noinline))
// The compiler keeps what follows out of the straight path, at the price of one jump when the condition holds.
#define UTILS_SSE_OUT_OF_LINE(condition) __builtin_expect_with_probability((condition), 0, 0.55)
#define UTILS_SSE_IN_LINE(condition) __builtin_expect_with_probability((condition), 1, 0.55)
#endif

// Inline functions live in a namespace named after the instruction set they are compiled for. Of an inline function that
// two files compile with different flags the linker keeps either one; with different names it cannot mix them up.
#if defined(__AVX512F__)
#define UTILS_SSE_TIER avx512
#elif defined(__AVX2__)
#define UTILS_SSE_TIER avx2
#elif defined(__AVX__)
#define UTILS_SSE_TIER avx
#elif defined(__SSE4_1__)
#define UTILS_SSE_TIER sse41
#else
#define UTILS_SSE_TIER sse2
#endif

// How many 128-bit blocks the widest register holds. On Windows one, whatever the flags: GCC may spill wider registers to a
// stack that is aligned to 16 bytes only (GCC bug 54412).
#if defined(_WIN32)
#define UTILS_SSE_MOST_BLOCKS 1
#elif defined(__AVX512BW__) && defined(__AVX512DQ__)
#define UTILS_SSE_MOST_BLOCKS 4
#elif defined(__AVX2__)
#define UTILS_SSE_MOST_BLOCKS 2
#else
#define UTILS_SSE_MOST_BLOCKS 1
#endif
