// Several outputs of the same inputs.
//
// A group loads the inputs of a whole line, then fills that line of one output after the other: storing block by block to
// all of them takes up to twice as long (two and four outputs, arrays in L2). There is no tail: what is left of whole blocks
// is covered by a last block that ends with the run and overlaps the one before. So no output may be an input.
#pragma once

#include "simd/loops.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

// One output: result(inputs) is what is stored at `at`.
template <class T, class Result>
struct Output
{
    T* at;
    Result result;

    template <class Part, class Inputs, int... B>
    UTILS_SSE_INLINE void put(std::ptrdiff_t i, const Inputs* inputs, std::integer_sequence<int, B...>) const
    {
        (Part::store(at + i + B * Part::elements, result(inputs[B])), ...);
    }
};

template <class T, class Result>
UTILS_SSE_INLINE Output<T, Result> output(T* at, const Result& result)
{
    return {at, result};
}

template <class Part, class Load, int... B, class... Outputs>
UTILS_SSE_INLINE void stream_group(std::ptrdiff_t i, std::integer_sequence<int, B...> blocks, const Load& load,
                                   const Outputs&... outputs)
{
    const decltype(load(Part(), i)) inputs[] = {load(Part(), i + B * Part::elements)...};
    (outputs.template put<Part>(i, inputs, blocks), ...);
}

// A run shorter than twice `Bytes`: its first and its last `Bytes`, or in smaller parts.
template <class V, int Bytes, class Load, class... Outputs>
UTILS_SSE_INLINE void map_short_run(std::ptrdiff_t n, const Load& load, const Outputs&... outputs)
{
    using Low = Part<V, Bytes>;
    if (n >= Low::elements) {
        stream_group<Low>(0, std::integer_sequence<int, 0>(), load, outputs...);
        if constexpr (Low::elements > 1)
            stream_group<Low>(n - Low::elements, std::integer_sequence<int, 0>(), load, outputs...);
    } else if constexpr (Low::elements > 1)
        map_short_run<V, Bytes / 2>(n, load, outputs...);
}

// load(part, i) returns the inputs from element i on, which it reads with part.load(); every output makes its own result of
// them.
template <class V, class Load, class... Outputs>
UTILS_SSE_INLINE void map_together(std::ptrdiff_t n, const Load& load, const Outputs&... outputs)
{
    constexpr int whole_bytes = 16 * UTILS_SSE_MOST_BLOCKS;
    using Whole = Part<V, whole_bytes>;
    // 32-bit code has registers for one vector; those of four blocks fill a line each.
    constexpr int group = sizeof(void*) == 8 && UTILS_SSE_MOST_BLOCKS < 4 ? 4 : 1;
    constexpr std::ptrdiff_t block = Whole::elements;
    if (n < block) {
        map_short_run<V, whole_bytes / 2>(n, load, outputs...);
        return;
    }
    std::ptrdiff_t i = 0;
    for (; n - i >= group * block; i += group * block)
        stream_group<Whole>(i, std::make_integer_sequence<int, group>(), load, outputs...);
    if constexpr (group > 1)
        for (; n - i >= block; i += block)
            stream_group<Whole>(i, std::integer_sequence<int, 0>(), load, outputs...);
    if (i < n)
        stream_group<Whole>(n - block, std::integer_sequence<int, 0>(), load, outputs...);
}

// From here on calls of memcpy pay, and so does the care of map_streams.
template <class V>
constexpr std::ptrdiff_t kLongRun = 24 * V::lanes;

// The same for long runs. Where blocks straddle the lines of the cache, every group would leave half-filled lines behind; it
// is faster (1.4 times at 500 bytes) to make one whole output after the other, though what they have in common is then read
// and computed again.
template <class V, class Load, class... Outputs>
UTILS_SSE_INLINE void map_streams(std::ptrdiff_t n, const Load& load, const Outputs&... outputs)
{
    if (sizeof...(outputs) > 1 && n >= kLongRun<V> &&
        ((reinterpret_cast<std::uintptr_t>(outputs.at) | ...) & (kLineBytes - 1)) != 0)
        (map_together<V>(n, load, outputs), ...);
    else
        map_together<V>(n, load, outputs...);
}

} // namespace UTILS_SSE_TIER
} // namespace simd
