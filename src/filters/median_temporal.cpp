// Medians of short sequences of frames, pixel by pixel, and the filters that favour the extreme frame.
#include "filters/sorting.h"
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

// dst[i] = f(run, i) for the elements of a run from i on, of which run.load() reads one frame. dst may be a frame.
template <class V, class T, class Function>
UTILS_SSE_INLINE void map_few(T* dst, Rest rest, const Function& f)
{
    const auto compute = [=](auto count, std::ptrdiff_t i)
                             UTILS_SSE_LAMBDA { return f(Part<V, count() * static_cast<int>(sizeof(T))>(), i); };
    const auto put = [=](auto count, std::ptrdiff_t i, V result)
                         UTILS_SSE_LAMBDA { Part<V, count() * static_cast<int>(sizeof(T))>::store(dst + i, result); };
    constexpr std::integral_constant<int, 1> one;
    if (UTILS_SSE_IN_LINE(rest.count == one)) // straight through
        put(one, rest.i, compute(one, rest.i));
    else
        cover_in_place<V::lanes / 2>(rest, compute, put);
}

// The same with body(run, i) in whole blocks, and tail(run, i) behind them.
template <class V, int Line, class T, class Body, class Tail, class... Streams>
UTILS_SSE_INLINE void map_frames(T* dst, int n, const Body& body, const Tail& tail, Streams... streams)
{
    map_with_tail<V::lanes, Line>(
        n, body, [=](std::ptrdiff_t i, auto result) UTILS_SSE_LAMBDA { store(dst + i, result); },
        [=](Rest rest) UTILS_SSE_LAMBDA { map_few<V>(dst, rest, tail); }, streams...);
}

template <class V>
UTILS_SSE_INLINE V median_of_three(V a, V b, V c)
{
    return maximum(minimum(b, c), minimum(maximum(b, c), a));
}

// Not the median, and without a look at frame 1, on purpose: see MedianFilter() in utils_sse.h.
template <class V>
UTILS_SSE_INLINE V network_of_four(V f2, V f3, V f4, V f5)
{
    const V low = minimum(f5, f4);
    const V high = maximum(f5, f4);
    const V t = minimum(high, f3);
    const V u = minimum(maximum(high, f3), f2);
    const V p = minimum(maximum(t, u), f2);
    return maximum(maximum(minimum(low, t), minimum(t, u)), p);
}

template <class V>
UTILS_SSE_INLINE V median_of_five(V f1, V f2, V f3, V f4, V f5)
{
    V values[5] = {f5, f4, f3, f2, f1};
    SortFive(values);
    return values[2];
}

template <class V, class T>
UTILS_SSE_INLINE void median_of_frames(T* dst, const T* f1, const T* f2, const T* f3, int n)
{
    // In order: GCC would load again what it could copy (in L2 1.25 times as long).
    const auto median = [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        return median_of_three(run.load(f1 + i), in_order(run.load(f2 + i)), in_order(run.load(f3 + i)));
    };
    map_to_the_end<V::lanes, 4>(
        n, median, [=](std::ptrdiff_t i, auto result) UTILS_SSE_LAMBDA { store(dst + i, result); },
        [=](int count) UTILS_SSE_LAMBDA {
            map_few<V>(dst, Rest{0, count}, median);
        },
        ahead<1024>(f1), ahead<1024>(f2), ahead<1024>(f3));
}

template <class T>
UTILS_SSE_INLINE auto true_median(const T* f1, const T* f2, const T* f3, const T* f4, const T* f5)
{
    return [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        return median_of_five(run.load(f1 + i), run.load(f2 + i), run.load(f3 + i), run.load(f4 + i), run.load(f5 + i));
    };
}

template <class V, class T>
UTILS_SSE_INLINE void median_of_frames(T* dst, const T* f1, const T* f2, const T* f3, const T* f4, const T* f5, int n)
{
    // The body is the network of four, the tail the median of five.
    map_frames<V, 4>(
        dst, n,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            return network_of_four(run.load(f2 + i), run.load(f3 + i), run.load(f4 + i), run.load(f5 + i));
        },
        true_median(f1, f2, f3, f4, f5), ahead<1024>(f1), ahead<1024>(f2), ahead<1024>(f3), ahead<1024>(f4), ahead<1024>(f5));
}

// The magnitude of a byte read as signed, 0 .. 128: the smaller one of x and 256 - x.
template <class V>
UTILS_SSE_INLINE V signed_magnitude(V x)
{
    return minimum(x, subtract_wrap(zero<V>(), x));
}

template <class V>
UTILS_SSE_INLINE V distance_from_mid_grey(V x)
{
    return absolute_difference(x, V::broadcast(127));
}

template <class V>
struct Farthest
{
    V magnitude, value;
};

template <class V>
UTILS_SSE_INLINE Farthest<V> rated(V magnitude, V value)
{
    return {magnitude, value};
}

// The first of the values whose magnitude is the largest; callers name the latest frame first.
template <class V, class... More>
UTILS_SSE_INLINE Farthest<V> farthest(Farthest<V> first, More... more)
{
    if constexpr (sizeof...(more) == 0) {
        return first;
    } else {
        const Farthest<V> other = farthest(more...);
        const V magnitude = maximum(first.magnitude, other.magnitude);
        return {magnitude, select(equal(first.magnitude, magnitude), first.value, other.value)};
    }
}

// (O * (128 - A) + V * A) >> 8 with O the mean of the two others, rounded down. Here and below the weighted sum fits 16
// unsigned bits, so that it may be taken with a difference that wraps: O * 128 + (V - O) * A.
template <class V>
UTILS_SSE_INLINE V blend_with_two(V sum, V value, V magnitude)
{
    const V others = shift_right_unsigned<1>(subtract_wrap(sum, value));
    const V weighted = multiply_low(subtract_wrap(value, others), magnitude);
    return shift_right_unsigned<8>(add_wrap(shift_left<7>(others), weighted));
}

// (O * (255 - A) + V * A) >> 7 with O the mean of the four others, rounded down.
template <class V>
UTILS_SSE_INLINE V blend_with_four(V sum, V value, V magnitude)
{
    const V others = shift_right_unsigned<2>(subtract_wrap(sum, value));
    const V weighted = multiply_low(subtract_wrap(value, others), magnitude);
    return shift_right_unsigned<7>(add_wrap(subtract_wrap(shift_left<8>(others), others), weighted));
}

template <class V, class... More>
UTILS_SSE_INLINE auto sum_low(V first, More... more)
{
    if constexpr (sizeof...(more) == 0)
        return widen_low(first);
    else
        return add_wrap(widen_low(first), sum_low(more...));
}

template <class V, class... More>
UTILS_SSE_INLINE auto sum_high(V first, More... more)
{
    if constexpr (sizeof...(more) == 0)
        return widen_high(first);
    else
        return add_wrap(widen_high(first), sum_high(more...));
}

} // namespace

void CUtils_SSE::MedianFilter(unsigned char* dst, const unsigned char* f1, const unsigned char* f2, const unsigned char* f3,
                              int n)
{
    median_of_frames<u8>(dst, f1, f2, f3, n);
}

void CUtils_SSE::MedianFilter(unsigned char* dst, const unsigned char* f1, const unsigned char* f2, const unsigned char* f3,
                              const unsigned char* f4, const unsigned char* f5, int n)
{
    median_of_frames<u8>(dst, f1, f2, f3, f4, f5, n);
}

void CUtils_SSE::MedianFilter(short* dst, const short* f1, const short* f2, const short* f3, int n)
{
    median_of_frames<i16>(dst, f1, f2, f3, n);
}

void CUtils_SSE::MedianFilter(short* dst, const short* f1, const short* f2, const short* f3, const short* f4, const short* f5,
                              int n)
{
    median_of_frames<i16>(dst, f1, f2, f3, f4, f5, n);
}

void CUtils_SSE::ExtremumFilter(unsigned char* dst, const unsigned char* f1, const unsigned char* f2, const unsigned char* f3,
                                int n)
{
    // The body blends by magnitude about 0, the tail selects by distance from 127.
    map_frames<u8, 2>(
        dst, n,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const auto a = run.load(f1 + i), b = run.load(f2 + i), c = run.load(f3 + i);
            const auto far =
                farthest(rated(signed_magnitude(c), c), rated(signed_magnitude(b), b), rated(signed_magnitude(a), a));
            return narrow_saturate(blend_with_two(sum_low(a, b, c), widen_low(far.value), widen_low(far.magnitude)),
                                   blend_with_two(sum_high(a, b, c), widen_high(far.value), widen_high(far.magnitude)));
        },
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const auto a = run.load(f1 + i), b = run.load(f2 + i), c = run.load(f3 + i);
            return farthest(rated(distance_from_mid_grey(c), c), rated(distance_from_mid_grey(b), b),
                            rated(distance_from_mid_grey(a), a))
                .value;
        },
        ahead<1024>(f1), ahead<1024>(f2), ahead<1024>(f3));
}

void CUtils_SSE::ExtremumFilter(unsigned char* dst, const unsigned char* f1, const unsigned char* f2, const unsigned char* f3,
                                const unsigned char* f4, const unsigned char* f5, int n)
{
    // The body blends by distance from 127, the tail is the median of five.
    map_frames<u8, 1>(
        dst, n,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const auto a = run.load(f1 + i), b = run.load(f2 + i), c = run.load(f3 + i), d = run.load(f4 + i),
                       e = run.load(f5 + i);
            const auto far = farthest(rated(distance_from_mid_grey(e), e), rated(distance_from_mid_grey(d), d),
                                      rated(distance_from_mid_grey(c), c), rated(distance_from_mid_grey(b), b),
                                      rated(distance_from_mid_grey(a), a));
            return narrow_saturate(blend_with_four(sum_low(a, b, c, d, e), widen_low(far.value), widen_low(far.magnitude)),
                                   blend_with_four(sum_high(a, b, c, d, e), widen_high(far.value), widen_high(far.magnitude)));
        },
        true_median(f1, f2, f3, f4, f5), ahead<1024>(f1), ahead<1024>(f2), ahead<1024>(f3), ahead<1024>(f4), ahead<1024>(f5));
}
