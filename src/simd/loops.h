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

// --- loops -----------------------------------------------------------------------------------------------------------
//
// A loop over n elements has three stretches: groups of blocks, single blocks, and the rest one at a time. Each returns, or
// starts from, the index of its first element; with n <= 0 none of them does anything.
//
// Why groups: one iteration should read and write whole 64-byte lines, with all of its loads before all of its stores. On a
// recent Intel server core (arrays in L1, 128 floats, a + b) one vector per iteration takes 20.2 ns, four vectors each
// loaded, added and stored in turn 21.6 ns, four vectors loaded and added before the first store 10.5 ns: stores to one line
// are merged only when nothing comes between them. In place this is safe, since a group is read whole before it is written.
//
// Why short calls skip straight to the single blocks, and the rest is straight-line code: for 7 floats 2.9 ns, with a loop
// for the rest and its index arithmetic 4.5 ns, the plain loop 3.5 ns. The compiler is told not to vectorise or unroll
// kernels by itself (cmake/UtilsSseFlags.cmake); it would do so with these stretches, for nothing.

// 32-bit code has eight registers, half as many, and groups half as large.
constexpr int group_size(int wanted)
{
    return sizeof(void*) == 8 || wanted == 1 ? wanted : wanted / 2;
}

template <int Block, class Compute, class Put, int... B>
UTILS_SSE_INLINE void map_group(std::ptrdiff_t i, const Compute& compute, const Put& put, std::integer_sequence<int, B...>)
{
    decltype(compute(i)) results[sizeof...(B)] = {compute(i + B * Block)...};
    (put(i + B * Block, results[B]), ...);
}

// compute(i) reads the Block elements from i on and returns results, put(i, results) writes them.
template <int Block, int Group, class Compute, class Put, class... Streams>
UTILS_SSE_INLINE std::ptrdiff_t map_blocks(int n, const Compute& compute, const Put& put, Streams... streams)
{
    constexpr int group = group_size(Group);
    std::ptrdiff_t i = 0;
    int rest = n;
    for (; rest >= group * Block; rest -= group * Block, i += group * Block) {
        (streams.template hint<group * Block>(i), ...);
        map_group<Block>(i, compute, put, std::make_integer_sequence<int, group>());
    }
    if constexpr (group > 1)
        for (; rest >= Block; rest -= Block, i += Block)
            put(i, compute(i));
    return i;
}

template <int Block, class Body, int... B>
UTILS_SSE_INLINE void read_group(std::ptrdiff_t i, const Body& body, std::integer_sequence<int, B...>)
{
    (body(i + B * Block), ...);
}

// body(i) reads the Block elements from i on and keeps what it makes of them, in order.
template <int Block, int Group, class Body, class... Streams>
UTILS_SSE_INLINE std::ptrdiff_t read_blocks(int n, const Body& body, Streams... streams)
{
    std::ptrdiff_t i = 0;
    int rest = n;
    for (; rest >= Group * Block; rest -= Group * Block, i += Group * Block) {
        (streams.template hint<Group * Block>(i), ...);
        read_group<Block>(i, body, std::make_integer_sequence<int, Group>());
    }
    for (; rest >= Block; rest -= Block, i += Block)
        body(i);
    return i;
}

template <int Most, class Tail>
UTILS_SSE_INLINE void for_up_to(std::ptrdiff_t i, int n, const Tail& tail)
{
    if constexpr (Most > 0)
        if (i < n) {
            tail(i);
            for_up_to<Most - 1>(i + 1, n, tail);
        }
}

// tail(i) computes element i; at most Block - 1 elements are left.
template <int Block, class Tail>
UTILS_SSE_INLINE void for_rest(std::ptrdiff_t i, int n, const Tail& tail)
{
    if constexpr (Block > 4)
        for (; n - i >= 4; i += 4) {
            tail(i);
            tail(i + 1);
            tail(i + 2);
            tail(i + 3);
        }
    for_up_to<3>(i, n, tail);
}

// For kernels whose body and tail agree and whose blocks are large: four(i) computes elements i .. i + 3.
template <class Four, class Tail>
UTILS_SSE_INLINE void for_rest_by_four(std::ptrdiff_t i, int n, const Four& four, const Tail& tail)
{
    for (; n - i >= 4; i += 4)
        four(i);
    for_up_to<3>(i, n, tail);
}

// dst[i] = f(src[i]...) over floats: one generic function of values is body and tail. dst may equal any src.
template <class Function, class... Source>
UTILS_SSE_INLINE void map_floats(int n, float* dst, const Function& f, const Source*... src)
{
    const std::ptrdiff_t rest = map_blocks<4, 4>(
        n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { return f(load<f32>(src + i)...); },
        [=](std::ptrdiff_t i, f32 result) UTILS_SSE_LAMBDA { store(dst + i, result); }, ahead<64>(src)...);
    for_rest<4>(rest, n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store(dst + i, f(load<float>(src + i)...)); });
}

} // namespace UTILS_SSE_TIER
} // namespace simd
