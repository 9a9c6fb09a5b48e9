#include "limits.h"

#include <immintrin.h>

namespace limits {

namespace {

// Eight registers a step, so that nothing waits for anything.
#define UTILS_SSE_LOOPS(bits, isa, R, load_register, store_register, zero, add)                                                \
    __attribute__((target(isa))) void read_##bits(unsigned char*, const unsigned char* src, std::size_t bytes)                 \
    {                                                                                                                          \
        R sums[8];                                                                                                             \
        for (R & sum : sums)                                                                                                   \
            sum = zero();                                                                                                      \
        for (std::size_t i = 0; i < bytes; i += sizeof sums)                                                                   \
            _Pragma("GCC unroll 8") for (std::size_t k = 0; k < 8; ++k) sums[k] =                                              \
                add(sums[k], load_register(reinterpret_cast<const R*>(src + i + k * sizeof(R))));                              \
        for (R & sum : sums)                                                                                                   \
            __asm__ volatile("" : : "x"(sum));                                                                                 \
    }                                                                                                                          \
    __attribute__((target(isa))) void write_##bits(unsigned char* dst, const unsigned char*, std::size_t bytes)                \
    {                                                                                                                          \
        R value = zero();                                                                                                      \
        __asm__ volatile("" : "+x"(value)); /* or the compiler calls memset */                                                 \
        for (std::size_t i = 0; i < bytes; i += 8 * sizeof(R))                                                                 \
            for (std::size_t k = 0; k < 8; ++k)                                                                                \
                store_register(reinterpret_cast<R*>(dst + i + k * sizeof(R)), value);                                          \
    }                                                                                                                          \
    __attribute__((target(isa))) void copy_##bits(unsigned char* dst, const unsigned char* src, std::size_t bytes)             \
    {                                                                                                                          \
        for (std::size_t i = 0; i < bytes; i += 8 * sizeof(R)) {                                                               \
            R values[8];                                                                                                       \
            for (std::size_t k = 0; k < 8; ++k)                                                                                \
                values[k] = load_register(reinterpret_cast<const R*>(src + i + k * sizeof(R)));                                \
            for (std::size_t k = 0; k < 8; ++k) {                                                                              \
                __asm__ volatile("" : "+x"(values[k])); /* or it calls memcpy */                                               \
                store_register(reinterpret_cast<R*>(dst + i + k * sizeof(R)), values[k]);                                      \
            }                                                                                                                  \
        }                                                                                                                      \
    }
UTILS_SSE_LOOPS(128, "sse2", __m128i, _mm_loadu_si128, _mm_storeu_si128, _mm_setzero_si128, _mm_add_epi32)
UTILS_SSE_LOOPS(256, "avx2", __m256i, _mm256_loadu_si256, _mm256_storeu_si256, _mm256_setzero_si256, _mm256_add_epi32)
UTILS_SSE_LOOPS(512, "avx512f", __m512i, _mm512_loadu_si512, _mm512_storeu_si512, _mm512_setzero_si512, _mm512_add_epi32)
#undef UTILS_SSE_LOOPS

} // namespace

std::vector<Loop> all()
{
    std::vector<Loop> loops = {{"read", "128", read_128, 1}, {"write", "128", write_128, 1}, {"copy", "128", copy_128, 2}};
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2"))
        loops.insert(loops.end(), {{"read", "256", read_256, 1}, {"write", "256", write_256, 1}, {"copy", "256", copy_256, 2}});
    if (__builtin_cpu_supports("avx512f"))
        loops.insert(loops.end(), {{"read", "512", read_512, 1}, {"write", "512", write_512, 1}, {"copy", "512", copy_512, 2}});
    return loops;
}

} // namespace limits
