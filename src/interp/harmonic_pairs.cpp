// Pulse-inversion harmonic lines: the two firings of each pair summed, and lines interpolated between neighbouring sums.
#include "interp/clip_mask.h"
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

constexpr int kGroup = sizeof(void*) == 8 ? 4 : 1; // blocks at a time; 32-bit code has registers for one

// Columns of a pass: the sum of its pair, that of the next pair, and the clip mask of its pair.
template <class V>
struct Sums
{
    V now, next, flags;
};

template <class V>
UTILS_SSE_INLINE Sums<V> saturated_sums(const short* pair, std::ptrdiff_t n)
{
    const V a = V::load(pair);
    const V b = V::load(pair + n);
    return {add_saturate(a, b), add_saturate(V::load(pair + 2 * n), V::load(pair + 3 * n)), clip_flags(a, b)};
}

// Lines between x and y, at a half and at both quarters of the way, rounded towards minus infinity.
template <class V>
UTILS_SSE_INLINE V half(V x, V y)
{
    return average_down(x, y);
}
template <class V>
UTILS_SSE_INLINE V quarter(V x, V y)
{
    return average_down(x, average_down(x, y)); // (3x + y) >> 2: rounding down twice is rounding down once
}

// Blocks of the body. All loads come before all stores, and each 64-byte line is filled without a break.
template <int Lines, int Blocks>
UTILS_SSE_INLINE void interpolate_blocks(short* dst, short* clip, const short* pair, std::ptrdiff_t n)
{
    constexpr int wide = Blocks < UTILS_SSE_MOST_BLOCKS ? Blocks : UTILS_SSE_MOST_BLOCKS;
    using Vector = I16<wide>;
    Sums<Vector> sums[Blocks / wide];
    repeat<Blocks / wide>([&](auto v) UTILS_SSE_LAMBDA { sums[v] = saturated_sums<Vector>(pair + v * wide * 8, n); });
    const auto fill = [&](short* line, const auto& result) UTILS_SSE_LAMBDA {
        repeat<Blocks / wide>([&](auto v) UTILS_SSE_LAMBDA { store(line + v * wide * 8, result(sums[v])); });
    };
    fill(clip, [](const auto& s) UTILS_SSE_LAMBDA { return s.flags; });
    fill(dst, [](const auto& s) UTILS_SSE_LAMBDA { return s.now; });
    if constexpr (Lines == 2) {
        fill(dst + n, [](const auto& s) UTILS_SSE_LAMBDA { return half(s.now, s.next); });
    } else {
        fill(dst + n, [](const auto& s) UTILS_SSE_LAMBDA { return quarter(s.now, s.next); });
        fill(dst + 2 * n, [](const auto& s) UTILS_SSE_LAMBDA { return half(s.now, s.next); });
        fill(dst + 3 * n, [](const auto& s) UTILS_SSE_LAMBDA { return quarter(s.next, s.now); });
        for (int line = 1; line < 4; ++line)
            fill(clip + line * n, [](const auto& s) UTILS_SSE_LAMBDA { return s.flags; });
    }
}

// Up to four columns of the tail. On purpose it differs from the body: sums wrap, four lines interpolate between the two
// firings of the pair instead of between sums, and no clip flag is computed: four lines share what is found in the mask.
template <int Lines, class Columns>
UTILS_SSE_INLINE void interpolate_tail(Columns, short* dst, short* clip, const short* pair, std::ptrdiff_t n)
{
    const i16 a = Columns::load(pair);
    const i16 b = Columns::load(pair + n);
    Columns::store(dst, add_wrap(a, b));
    if constexpr (Lines == 2) {
        // Low 16 bits of (a + b + c + d) >> 1: the halves of both sums, and 1 when both lost a half.
        const i16 c = Columns::load(pair + 2 * n);
        const i16 d = Columns::load(pair + 3 * n);
        const i16 lost = bit_and(bit_and(bit_xor(a, b), bit_xor(c, d)), broadcast_short(1));
        Columns::store(dst + n, add_wrap(add_wrap(half(a, b), half(c, d)), lost));
    } else {
        Columns::store(dst + n, quarter(a, b));
        Columns::store(dst + 2 * n, half(a, b));
        Columns::store(dst + 3 * n, quarter(b, a));
        const i16 flags = Columns::load(clip);
        for (int line = 1; line < 4; ++line)
            Columns::store(clip + line * n, flags);
    }
}

template <int Lines>
UTILS_SSE_INLINE void interpolate_pairs(short* dst, const short* src, short* clip, int lines, int n)
{
    const std::ptrdiff_t stride = n;
    if (n <= 0)
        return;
    for (int pairs = lines >> 1; pairs > 0; --pairs, src += 2 * stride, dst += Lines * stride, clip += Lines * stride) {
        Rest rest{0, n};
        const auto step = [&](auto blocks) UTILS_SSE_LAMBDA {
            interpolate_blocks<Lines, blocks()>(dst + rest.i, clip + rest.i, src + rest.i, stride);
            rest.i += blocks * 8;
            rest.count -= blocks * 8;
        };
        while (rest.count >= kGroup * 8)
            step(std::integral_constant<int, kGroup>());
        if constexpr (kGroup > 1)
            while (rest.count >= 8)
                step(std::integral_constant<int, 1>());
        cover<4>(rest, [=](auto count, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            interpolate_tail<Lines>(Part<i16, 2 * count()>(), dst + i, clip + i, src + i, stride);
        });
    }
}

} // namespace

void CUtils_SSE::InterpRFHarm2(short* dst, const short* src, short* clip, int lines, int n)
{
    interpolate_pairs<2>(dst, src, clip, lines, n);
}

void CUtils_SSE::InterpRFHarm4(short* dst, const short* src, short* clip, int lines, int n)
{
    interpolate_pairs<4>(dst, src, clip, lines, n);
}
