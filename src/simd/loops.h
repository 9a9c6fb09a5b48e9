// Loop drivers: block counts, stepping, prefetch. A kernel hands in its body and its tail.
#pragma once

#include "simd/rest.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

constexpr int kLineBytes = 64; // of a cache line

// An input stream of a loop, hinted `Distance` bytes ahead of the current position. Hints are compiled in with the build
// option UTILS_SSE_PREFETCH only: where they were measured (docs/performance.md) they gain nothing and cost up to 2.6 times
// in memory, since the processor's own prefetch is ahead of them.
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

// f(0), f(1), .. f(Count - 1) with the numbers as constants: a short loop that is unrolled without asking the compiler.
template <class Function, int... I>
UTILS_SSE_INLINE void repeat(const Function& f, std::integer_sequence<int, I...>)
{
    (f(std::integral_constant<int, I>()), ...);
}
template <int Count, class Function>
UTILS_SSE_INLINE void repeat(const Function& f)
{
    repeat(f, std::make_integer_sequence<int, Count>());
}

// --- loops -----------------------------------------------------------------------------------------------------------
//
// A loop over n elements has groups of blocks, single blocks, and what is left of them (rest.h). With n <= 0 nothing is done.
//
// Why groups: one iteration should read and write whole 64-byte lines, with all of its loads before all of its stores. On a
// recent Intel server core (arrays in L1, 128 floats, a + b) one vector per iteration takes 20.2 ns, four vectors each
// loaded, added and stored in turn 21.6 ns, four vectors loaded and added before the first store 10.5 ns: stores to one line
// are merged only when nothing comes between them. In place this is safe, since a group is read whole before it is written.
//
// Why short calls come first and the rest out of line: jumps that are taken, and scalars of a tail, cost tenths of a nanosecond
// each. Calls shorter than a block fall straight through, and where whole blocks compute what the tail computes, overlapping
// groups take its place (docs/performance.md has the figures).
// The compiler is told not to vectorise or unroll kernels by itself (cmake/UtilsSseFlags.cmake); it would do so with these
// stretches, for nothing.

// A group should fill a 64-byte line of each output (a second line costs up to 1.7 times in L2), and all its results wait in
// registers to be stored: half of sixteen at most, two of the eight that 32-bit code has. In vectors; wide ones fill as many
// lines as they are blocks.
template <class Results>
constexpr int group_size(int line)
{
    constexpr int vectors = static_cast<int>(sizeof(Results) / sizeof(__m128i));
    constexpr int registers = sizeof(void*) == 8 ? 8 : 2;
    while (line > 1 && line * vectors > registers)
        line /= 2;
    return line;
}

// What `Count` runs of Wide blocks each make of the elements from i on, all of it computed before any is written.
template <int Block, int Wide, class Results, int Count>
struct Group
{
    Results results[Count];

    template <class Put>
    UTILS_SSE_INLINE void put(std::ptrdiff_t i, const Put& put_run) const
    {
        put_all(i, put_run, std::make_integer_sequence<int, Count>());
    }

private:
    template <class Put, int... B>
    UTILS_SSE_INLINE void put_all(std::ptrdiff_t i, const Put& put_run, std::integer_sequence<int, B...>) const
    {
        (put_run(i + B * Wide * Block, results[B]), ...);
    }
};

template <int Block, int Wide, class Compute, int... B>
UTILS_SSE_INLINE auto compute_group(std::ptrdiff_t i, const Compute& compute, std::integer_sequence<int, B...>)
{
    constexpr Blocks<Wide> run;
    return Group<Block, Wide, decltype(compute(run, i)), sizeof...(B)>{{compute(run, i + B * Wide * Block)...}};
}

// The same for `Count` blocks, in runs of Widest where there are as many.
template <int Block, int Count, int Widest = UTILS_SSE_MOST_BLOCKS, class Compute>
UTILS_SSE_INLINE auto compute_group(std::ptrdiff_t i, const Compute& compute)
{
    constexpr int wide = Count < Widest ? Count : Widest;
    return compute_group<Block, wide>(i, compute, std::make_integer_sequence<int, Count / wide>());
}

// compute(run, i) reads the elements from i on, as many as fill the blocks of `run`, a Blocks<1>, <2> or <4>, of Block
// elements each, and returns results; put(i, results) writes them. Line: how many blocks fill a line of output; 1, 2 or 4.
// Widest: how many blocks are computed side by side where registers hold them; fewer for kernels that gain nothing by it.
template <int Block, int Line, int Widest = UTILS_SSE_MOST_BLOCKS, class Compute, class Put, class... Streams>
UTILS_SSE_INLINE Rest map_blocks(int n, const Compute& compute, const Put& put, Streams... streams)
{
    constexpr int widest = Widest < UTILS_SSE_MOST_BLOCKS ? Widest : UTILS_SSE_MOST_BLOCKS;
    constexpr int group = widest * group_size<decltype(compute(Blocks<1>(), 0))>(Line);
    Rest rest{0, n};
    const auto step = [&](auto blocks) UTILS_SSE_LAMBDA {
        compute_group<Block, blocks(), widest>(rest.i, compute).put(rest.i, put);
        rest.i += blocks * Block;
        rest.count -= blocks * Block;
    };
    if (UTILS_SSE_OUT_OF_LINE(rest.count >= group * Block)) {
        do {
            (streams.template hint<group * Block>(rest.i), ...);
            step(std::integral_constant<int, group>());
        } while (rest.count >= group * Block);
        if (rest.count < Block)
            return rest;
    }
    const auto once = [&](auto blocks) UTILS_SSE_LAMBDA {
        if constexpr (group > blocks())
            if (rest.count >= blocks * Block)
                step(blocks);
    };
    if constexpr (group > 2)
        if (rest.count >= 2 * Block) { // one question for short calls, not three
            once(std::integral_constant<int, 8>());
            once(std::integral_constant<int, 4>());
            once(std::integral_constant<int, 2>());
        }
    once(std::integral_constant<int, 1>());
    return rest;
}

// The first and the last Count blocks, which overlap or meet. n: Count to 2 * Count blocks.
template <int Block, int Count, class Compute, class Put>
UTILS_SSE_INLINE void map_both_ends(std::ptrdiff_t n, const Compute& compute, const Put& put)
{
    const std::ptrdiff_t last = n - Count * Block;
    const auto first_results = compute_group<Block, Count>(0, compute);
    const auto last_results = compute_group<Block, Count>(last, compute);
    first_results.put(0, put);
    last_results.put(last, put);
}

template <int Block, int Count, int Most, class Compute, class Put>
UTILS_SSE_INLINE void map_fewer_blocks(std::ptrdiff_t n, const Compute& compute, const Put& put)
{
    if constexpr (2 * Count < Most)
        if (n > 2 * Count * Block) {
            map_fewer_blocks<Block, 2 * Count, Most>(n, compute, put);
            return;
        }
    map_both_ends<Block, Count>(n, compute, put);
}

// put(i, compute(run, i)) over n elements, at least a block, without a tail: the last group ends with element n - 1. It is
// read before anything is written, so an output may be an input; what it shares with the group before is written twice, with
// the same values.
template <int Block, int Line, class Compute, class Put, class... Streams>
UTILS_SSE_INLINE void cover_with_groups(std::ptrdiff_t n, const Compute& compute, const Put& put, Streams... streams)
{
    constexpr int line = group_size<decltype(compute(Blocks<1>(), 0))>(Line);
    constexpr int group = UTILS_SSE_MOST_BLOCKS * line;
    if constexpr (group > 1)
        if (n < group * Block) {
            map_fewer_blocks<Block, 1, group>(n, compute, put);
            return;
        }
    const std::ptrdiff_t last = n - group * Block;
    const auto last_results = compute_group<Block, group>(last, compute);
    for (std::ptrdiff_t i = 0; i < last; i += group * Block) {
        (streams.template hint<group * Block>(i), ...);
        compute_group<Block, group>(i, compute).put(i, put);
    }
    last_results.put(last, put);
}

// For kernels whose tail computes what whole blocks compute. less(n) does calls shorter than a block.
template <int Block, int Line, class Compute, class Put, class Less, class... Streams>
UTILS_SSE_INLINE void map_to_the_end(int n, const Compute& compute, const Put& put, const Less& less, Streams... streams)
{
    if (UTILS_SSE_IN_LINE(n < Block))
        less(n);
    else
        cover_with_groups<Block, Line>(n, compute, put, streams...);
}

// For kernels whose tail computes something else: tail(rest) does what is left of whole blocks.
template <int Block, int Line, class Compute, class Put, class Tail, class... Streams>
UTILS_SSE_INLINE void map_with_tail(int n, const Compute& compute, const Put& put, const Tail& tail, Streams... streams)
{
    if (UTILS_SSE_IN_LINE(n < Block)) {
        tail(Rest{0, n});
        return;
    }
    if (n < 2 * Block) {
        put(0, compute(Blocks<1>(), 0));
        tail(Rest{Block, n - Block});
        return;
    }
    const int rest = n % Block;
    cover_with_groups<Block, Line>(n - rest, compute, put, streams...);
    tail(Rest{n - rest, rest});
}

// For outputs that are inputs as well, of the next call too: that would have to wait for runs that were stored across each
// other (7 pixels: 9.3 ns instead of 6.7). So nothing overlaps here.
template <int Block, int Line, class Compute, class Put, class Tail, class... Streams>
UTILS_SSE_INLINE void map_into(int n, const Compute& compute, const Put& put, const Tail& tail, Streams... streams)
{
    if (UTILS_SSE_IN_LINE(n < Block))
        tail(Rest{0, n});
    else
        tail(map_blocks<Block, Line>(n, compute, put, streams...));
}

template <int Block, class Body, int... B>
UTILS_SSE_INLINE void read_group(std::ptrdiff_t i, const Body& body, std::integer_sequence<int, B...>)
{
    (body(i + B * Block), ...);
}

// body(i) reads the Block elements, a power of two, from i on and keeps what it makes of them, in order.
template <int Block, int Group, class Body, class... Streams>
UTILS_SSE_INLINE Rest read_blocks(int n, const Body& body, Streams... streams)
{
    Rest rest{0, n};
    if (UTILS_SSE_OUT_OF_LINE(rest.count >= Group * Block))
        do {
            (streams.template hint<Group * Block>(rest.i), ...);
            read_group<Block>(rest.i, body, std::make_integer_sequence<int, Group>());
            rest.i += Group * Block;
            rest.count -= Group * Block;
        } while (rest.count >= Group * Block);
    for (; rest.count >= Block; rest.count -= Block, rest.i += Block)
        body(rest.i);
    if (n < 0)
        return {0, 0};
    return behind_blocks<Block>(n);
}

// dst[i] = f(src[i]...) over floats: one generic function of values is body and tail. dst may equal any src.
template <class Function, class... Source>
UTILS_SSE_INLINE void map_floats(int n, float* dst, const Function& f, const Source*... src)
{
    const auto one = [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store(dst + i, f(load<float>(src + i)...)); };
    map_to_the_end<4, 4>(
        n, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return f(run.load(src + i)...); },
        [=](std::ptrdiff_t i, auto result) UTILS_SSE_LAMBDA { store(dst + i, result); },
        [=](int count) UTILS_SSE_LAMBDA { for_few(count, one); }, ahead<64>(src)...);
}

// The same for dst among the sources: dst[i] = f(dst[i], src[i]...).
template <class Function, class... Source>
UTILS_SSE_INLINE void map_floats_into(int n, float* dst, const Function& f, const Source*... src)
{
    const auto one = [=](std::ptrdiff_t i)
                         UTILS_SSE_LAMBDA { store(dst + i, f(load<float>(dst + i), load<float>(src + i)...)); };
    map_into<4, 4>(
        n,
        [=](auto run, std::ptrdiff_t i)
            UTILS_SSE_LAMBDA { return f(run.load(static_cast<const float*>(dst) + i), run.load(src + i)...); },
        [=](std::ptrdiff_t i, auto result) UTILS_SSE_LAMBDA { store(dst + i, result); },
        [=](Rest rest) UTILS_SSE_LAMBDA { for_up_to_three(rest, one); }, ahead<64>(dst), ahead<64>(src)...);
}

template <class Results>
struct Both
{
    Results a, b;
};

// x times a and x times b, element by element. finish() turns exact products, of eight elements, of four or of one, into what
// is stored. What is left of whole blocks is covered by a last block that ends with the arrays: no output may be an input.
template <class T, class Finish, class... Streams>
UTILS_SSE_INLINE void map_products(int n, const short* x, const short* a, const short* b, T* outA, T* outB,
                                   const Finish& finish, Streams... streams)
{
    const auto compute = [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        const auto common = run.load(x + i);
        using Results = decltype(finish(multiply_exact(common, common)));
        return Both<Results>{finish(multiply_exact(common, run.load(a + i))), finish(multiply_exact(common, run.load(b + i)))};
    };
    const auto put = [=](std::ptrdiff_t i, const auto& results) UTILS_SSE_LAMBDA {
        store(outA + i, results.a);
        store(outB + i, results.b);
    };
    const auto four = [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        const i16 common = load_four(x + i);
        store(outA + i, finish(multiply_exact(common, load_four(a + i)).low));
        store(outB + i, finish(multiply_exact(common, load_four(b + i)).low));
    };
    const auto one = [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        store(outA + i, finish(multiply_exact(x[i], a[i])));
        store(outB + i, finish(multiply_exact(x[i], b[i])));
    };
    if (UTILS_SSE_OUT_OF_LINE(n >= 8)) {
        const Rest rest = map_blocks<8, 2>(n, compute, put, streams...);
        if (rest.count > 0)
            put(rest.i + rest.count - 8, compute(Blocks<1>(), rest.i + rest.count - 8));
    } else if (UTILS_SSE_OUT_OF_LINE(n >= 4)) {
        four(0);
        four(n - 4);
    } else
        for_few(n, one);
}

// A sum of floats: four lanes, folded, then the tail elements one by one. term(V, i) is the lane vector or the single value
// to add.
template <class Term, class... Streams>
UTILS_SSE_INLINE float sum_in_lanes(int n, const Term& term, Streams... streams)
{
    float sum = 0.0f;
    const auto one = [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { sum = sum + term(float(), i); };
    if (UTILS_SSE_OUT_OF_LINE(n >= 4)) {
        f32 lanes = broadcast<f32>(0.0f);
        const Rest rest = read_blocks<4, 4>(
            n, [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { lanes = lanes + term(f32(), i); }, streams...);
        sum = fold(lanes);
        for_up_to_three(rest, one);
        return sum;
    }
    for_few(n, one); // empty lanes fold to 0
    return sum;
}

} // namespace UTILS_SSE_TIER
} // namespace simd
