// Loop drivers: block counts, stepping, prefetch. A kernel hands in its body and its tail.
#pragma once

#include "simd/vectors.h"

#include <utility>

namespace simd {
inline namespace UTILS_SSE_TIER {

constexpr int kLineBytes = 64; // of a cache line

// An input stream of a loop, hinted `Distance` bytes ahead of the current position.
template <int Distance, class T>
struct Ahead
{
    const T* p;

    // One hint for each 64-byte line of the Elements elements from i on.
    template <int Elements>
    UTILS_SSE_INLINE void hint(std::ptrdiff_t i) const
    {
#if UTILS_SSE_PREFETCH
        // The address may lie beyond the array; it is computed as a number, since a pointer may not leave its array.
        const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(p + i) + Distance;
        constexpr int bytes = Elements * static_cast<int>(sizeof(T));
        _mm_prefetch(reinterpret_cast<const char*>(address), _MM_HINT_NTA);
        if constexpr (bytes > kLineBytes)
            Ahead{p}.template hint<Elements - kLineBytes / static_cast<int>(sizeof(T))>(
                i + kLineBytes / static_cast<std::ptrdiff_t>(sizeof(T)));
#else
        (void)i;
#endif
    }
};

template <int Distance, class T>
UTILS_SSE_INLINE Ahead<Distance, T> ahead(const T* p)
{
    return {p};
}

template <int Block, class Body, int... B>
UTILS_SSE_INLINE void unrolled(std::ptrdiff_t i, const Body& body, std::integer_sequence<int, B...>)
{
    (body(i + B * Block), ...);
}

// body(i) computes the Block elements from i on. Blocks run in groups of Group with one round of hints per group, which
// should cover at least one 64-byte line of each hinted stream; the last blocks run singly and without hints, so a short
// call pays for none. Returns the index of the first element that is not in a whole block, 0 for n <= 0.
template <int Block, int Group, class Body, class... Streams>
UTILS_SSE_INLINE std::ptrdiff_t for_whole_blocks(int n, const Body& body, Streams... streams)
{
    static_assert((Block & (Block - 1)) == 0 && (Group & (Group - 1)) == 0, "powers of two");
    if (n <= 0)
        return 0;
    const std::ptrdiff_t whole = n & -Block;
    const std::ptrdiff_t grouped = n & -(Block * Group);
    std::ptrdiff_t i = 0;
    for (; i < grouped; i += Block * Group) {
        (streams.template hint<Block * Group>(i), ...);
        unrolled<Block>(i, body, std::make_integer_sequence<int, Group>());
    }
    if constexpr (Group > 1)
        for (; i < whole; i += Block)
            body(i);
    return whole;
}

// tail(i) computes element i.
template <class Tail>
UTILS_SSE_INLINE void for_rest(std::ptrdiff_t i, int n, const Tail& tail)
{
    for (; i < n; ++i)
        tail(i);
}

// dst[i] = f(src[i]...) over floats: one generic function of values is body and tail. dst may equal any src.
template <class Function, class... Source>
UTILS_SSE_INLINE void map_floats(int n, float* dst, const Function& f, const Source*... src)
{
    const std::ptrdiff_t rest = for_whole_blocks<4, 4>(
        n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store(dst + i, f(load<f32>(src + i)...)); }, ahead<64>(src)...);
    for_rest(rest, n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store(dst + i, f(load<float>(src + i)...)); });
}

} // namespace UTILS_SSE_TIER
} // namespace simd
