// Sorts of a few values. T is an element or a vector; of vectors every lane is sorted by itself.
#pragma once

#include "simd/loops.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

// Puts the smaller value first. Values are only ever exchanged: equal ones stay where they are (zeros of both signs are equal),
// and so does an unordered pair, one of them NaN.
template <class T>
UTILS_SSE_INLINE void compare_exchange(T& x, T& y)
{
    const T smaller = minimum(y, x);
    y = maximum(x, y);
    x = smaller;
}

template <class T>
UTILS_SSE_INLINE void SortThree(T* x)
{
    compare_exchange(x[0], x[1]);
    compare_exchange(x[1], x[2]);
    compare_exchange(x[0], x[1]);
}

// The largest value rises to the end, then the largest of the others, and so on.
template <class T>
UTILS_SSE_INLINE void SortFive(T* x)
{
    repeat<4>([=](auto pass) UTILS_SSE_LAMBDA {
        repeat<4 - pass()>([=](auto i) UTILS_SSE_LAMBDA { compare_exchange(x[i()], x[i() + 1]); });
    });
}

// All but the last of `Count` elements are sorted; the last one moves down past every element that is greater, but not past
// one that is equal or unordered.
template <int Count, class T>
UTILS_SSE_INLINE void insert_last(T* x)
{
    const T last = x[Count - 1];
    int place = 0;
    while (place < Count - 1 && !(x[place] > last))
        ++place;
    for (int i = Count - 1; i > place; --i)
        x[i] = x[i - 1];
    x[place] = last;
}

template <class T>
UTILS_SSE_INLINE void InsertLastOfThree(T* x)
{
    insert_last<3>(x);
}
template <class T>
UTILS_SSE_INLINE void InsertLastOfSix(T* x)
{
    insert_last<6>(x);
}
template <class T>
UTILS_SSE_INLINE void InsertLastOfNine(T* x)
{
    insert_last<9>(x);
}

// The first when they are equal.
UTILS_SSE_INLINE const int* LargerOf(const int* first, const int* second)
{
    return *second > *first ? second : first;
}

// --- sorted lists ----------------------------------------------------------------------------------------------------

// Count values in ascending order.
template <class V, int Count>
struct Sorted
{
    V at[Count];
};

template <int From, int Step, int Count, class V, int Length>
UTILS_SSE_INLINE Sorted<V, Count> every(const Sorted<V, Length>& x)
{
    Sorted<V, Count> taken;
    repeat<Count>([&](auto i) UTILS_SSE_LAMBDA { taken.at[i()] = x.at[From + Step * i()]; });
    return taken;
}

// Two sorted lists become one by odd-even merging (Batcher, "Sorting Networks and Their Applications", 1968): the elements at
// even places are merged, those at odd places too, and then one exchange for each pair of neighbours is all that is missing.
// What a caller does not use of the result, the compiler leaves out, and with it the minima and maxima that lead nowhere else.
template <class V, int M, int N>
UTILS_SSE_INLINE Sorted<V, M + N> merge(const Sorted<V, M>& x, const Sorted<V, N>& y)
{
    Sorted<V, M + N> result;
    if constexpr (M + N == 2) {
        result = {{x.at[0], y.at[0]}};
        compare_exchange(result.at[0], result.at[1]);
    } else {
        constexpr int evens = (M + 1) / 2 + (N + 1) / 2;
        constexpr int odds = M / 2 + N / 2;
        const Sorted<V, evens> even = merge(every<0, 2, (M + 1) / 2>(x), every<0, 2, (N + 1) / 2>(y));
        Sorted<V, odds> odd;
        if constexpr (M == 1)
            odd = every<1, 2, N / 2>(y);
        else if constexpr (N == 1)
            odd = every<1, 2, M / 2>(x);
        else
            odd = merge(every<1, 2, M / 2>(x), every<1, 2, N / 2>(y));
        constexpr int pairs = odds < evens ? odds : evens - 1;
        result.at[0] = even.at[0];
        repeat<pairs>([&](auto i) UTILS_SSE_LAMBDA {
            V& low = result.at[2 * i() + 1];
            V& high = result.at[2 * i() + 2];
            low = odd.at[i()];
            high = even.at[i() + 1];
            compare_exchange(low, high);
        });
        if constexpr (odds == evens)
            result.at[M + N - 1] = odd.at[odds - 1];
        else if constexpr (evens == odds + 2)
            result.at[M + N - 1] = even.at[evens - 1];
    }
    return result;
}

template <class V>
UTILS_SSE_INLINE Sorted<V, 2> sorted(V x, V y)
{
    return merge(Sorted<V, 1>{{x}}, Sorted<V, 1>{{y}});
}

} // namespace UTILS_SSE_TIER
} // namespace simd
