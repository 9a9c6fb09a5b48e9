// What is left of whole blocks, or a call that is shorter than one.
#pragma once

#include "simd/vectors.h"

#include <type_traits>
#include <utility>

namespace simd {
inline namespace UTILS_SSE_TIER {

// What is left of a loop: `count` elements from i on; none when count <= 0.
struct Rest
{
    std::ptrdiff_t i;
    int count;
};

// What is left of whole blocks of n elements, from n alone: compilers know less of what loops have counted. n is not negative.
template <int Block>
UTILS_SSE_INLINE Rest behind_blocks(int n)
{
    return {n & -Block, n & (Block - 1)};
}

template <class Tail>
UTILS_SSE_INLINE void for_up_to_three(Rest rest, const Tail& tail)
{
    if (rest.count > 0) {
        tail(rest.i);
        if (rest.count > 1) {
            tail(rest.i + 1);
            if (rest.count > 2)
                tail(rest.i + 2);
        }
    }
}

// one(0), one(1), one(2) for calls of at most three elements; a single one runs straight through.
template <class One>
UTILS_SSE_INLINE void for_few(int n, const One& one)
{
    if (n > 0) {
        one(0);
        if (UTILS_SSE_OUT_OF_LINE(n > 1)) {
            one(1);
            if (n > 2)
                one(2);
        }
    }
}

// four(i) computes elements i .. i + 3, tail(i) element i: for kernels whose blocks are large.
template <class Four, class Tail>
UTILS_SSE_INLINE void for_rest(Rest rest, const Four& four, const Tail& tail)
{
    if (UTILS_SSE_OUT_OF_LINE(rest.count >= 4))
        do {
            four(rest.i);
            rest.count -= 4;
            rest.i += 4;
        } while (rest.count >= 4);
    for_up_to_three(rest, tail);
}

// tail(i) computes element i.
template <class Tail>
UTILS_SSE_INLINE void for_rest(Rest rest, const Tail& tail)
{
    for_rest(
        rest, [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { tail(i), tail(i + 1), tail(i + 2), tail(i + 3); }, tail);
}

// body(i) computes the Block elements from i on; n is Block at least. There is no tail: the last block is moved back to end
// with element n - 1, so that some elements are computed twice. Not for work in place.
template <int Block, class Body>
UTILS_SSE_INLINE void cover_blocks(int n, const Body& body)
{
    const std::ptrdiff_t last = n - Block;
    for (std::ptrdiff_t i = 0; i < last; i += Block)
        body(i);
    body(last);
}

// f(size), where size, a constant, is the largest power of two from Low to High that is not above count (Low at least is not).
template <int Low, int High, class Function>
UTILS_SSE_INLINE void with_part(int count, const Function& f)
{
    if constexpr (Low == High) {
        f(std::integral_constant<int, Low>());
    } else {
        constexpr int upper = Low * Low * 4 > High ? Low * 2 : Low * 4; // of up to four sizes two stay on either side
        if (count >= upper)
            with_part<upper, High>(count, f);
        else
            with_part<Low, upper / 2>(count, f);
    }
}

// handle(count, i) computes `count` elements from i on; count is a constant, Most or a smaller power of two. What is left is
// covered by runs that overlap, so that some elements are computed twice. Not for work in place. Fewer than Least elements
// are not handled.
template <int Most, int Least = 1, class Handle>
UTILS_SSE_INLINE void cover(Rest rest, const Handle& handle)
{
    constexpr std::integral_constant<int, Most> most;
    if (rest.count >= Most) {
        for (; rest.count > Most; rest.count -= Most, rest.i += Most)
            handle(most, rest.i);
        handle(most, rest.i + rest.count - Most);
    } else if constexpr (Most > Least) {
        cover<Most / 2, Least>(rest, handle);
    }
}

// The same for work in place: compute(count, i) returns the results of `count` elements from i on, put(count, i, results)
// writes them, and everything is read before anything is written. At most 2 * Most - 1 elements.
template <int Most, class Compute, class Put>
UTILS_SSE_INLINE void cover_in_place(Rest rest, const Compute& compute, const Put& put)
{
    if (rest.count <= 0)
        return;
    with_part<1, Most>(rest.count, [&](auto part) UTILS_SSE_LAMBDA {
        const auto first_results = compute(part, rest.i);
        if constexpr (part() > 1) {
            const std::ptrdiff_t last = rest.i + rest.count - part;
            const auto last_results = compute(part, last);
            put(part, rest.i, first_results);
            put(part, last, last_results);
        } else
            put(part, rest.i, first_results);
    });
}

// handle(count, i) as in cover(), but in runs that do not overlap. At most 2 * Most - 1 elements.
template <int Most, class Handle>
UTILS_SSE_INLINE void for_parts(Rest rest, const Handle& handle)
{
    if (rest.count < 2) {
        if (rest.count == 1)
            handle(std::integral_constant<int, 1>(), rest.i);
        return;
    }
    if (rest.count & Most) {
        handle(std::integral_constant<int, Most>(), rest.i);
        rest.i += Most;
    }
    if constexpr (Most > 1)
        for_parts<Most / 2>(Rest{rest.i, rest.count & (Most - 1)}, handle);
}

} // namespace UTILS_SSE_TIER
} // namespace simd
