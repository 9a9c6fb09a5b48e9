// Grey images and colour planes to packed pixels (blue, green, red, fill) and back.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

// Packed pixels, four to a block: vectors that follow each other in memory.
template <class V>
struct Packed
{
    V quarter[4];
};

// Interleaves pairs of bytes: b0 g0 b1 g1 .. with r0 f0 r1 f1 .. gives b0 g0 r0 f0 b1 g1 r1 f1 ..
template <int N>
UTILS_SSE_INLINE Packed<U8<N>> interleave_pairs(U8<N> bg_low, U8<N> bg_high, U8<N> rf_low, U8<N> rf_high)
{
    const auto low = [](U8<N> x, U8<N> y) UTILS_SSE_LAMBDA { return U8<N>{interleave_low(I16<N>{x.v}, I16<N>{y.v}).v}; };
    const auto high = [](U8<N> x, U8<N> y) UTILS_SSE_LAMBDA { return U8<N>{interleave_high(I16<N>{x.v}, I16<N>{y.v}).v}; };
    return {{low(bg_low, rf_low), high(bg_low, rf_low), low(bg_high, rf_high), high(bg_high, rf_high)}};
}

template <class V>
UTILS_SSE_INLINE Packed<V> pack(V blue, V green, V red, V fill)
{
    return interleave_pairs(interleave_low(blue, green), interleave_high(blue, green), interleave_low(red, fill),
                            interleave_high(red, fill));
}

// The same for three equal planes: grey doubled serves as blue and green. As red and fill serves grey interleaved with the
// fill, or grey doubled with the fill in place of its second bytes: one more operation, but none of the shuffles, for which
// there are two ports where others have three. So one half of a block is made in each way, and of the widest vectors, whose
// shuffles have one port, both in the second.
template <int N>
UTILS_SSE_INLINE Packed<U8<N>> pack_grey(U8<N> grey, unsigned char fill)
{
    const U8<N> mask{I16<N>::broadcast(255).v};
    const U8<N> fills{I32<N>::broadcast(static_cast<int>(fill * 0x01010101u)).v};
    const auto with_fill = [=](U8<N> doubled)
                               UTILS_SSE_LAMBDA { return bit_or(bit_and(doubled, mask), bit_without(fills, mask)); };
    const U8<N> low = interleave_low(grey, grey);
    const U8<N> high = interleave_high(grey, grey);
    const U8<N> low_with_fill = N < 4 ? interleave_low(grey, fills) : with_fill(low);
    return interleave_pairs(low, high, low_with_fill, with_fill(high));
}

template <class V>
struct Planes
{
    V blue, green, red;
};

// b0 g0 r0 f0 b1 .. gives b0 r0 b1 r1 .. and g0 f0 g1 f1 .. first.
template <class V>
UTILS_SSE_INLINE Planes<V> unpack(const Packed<V>& pixels)
{
    const V* q = pixels.quarter;
    const V blue_red_low = even_lanes(q[0], q[1]);
    const V blue_red_high = even_lanes(q[2], q[3]);
    return {even_lanes(blue_red_low, blue_red_high), even_lanes(odd_lanes(q[0], q[1]), odd_lanes(q[2], q[3])),
            odd_lanes(blue_red_low, blue_red_high)};
}

// Pixels of a plane are handled by whole blocks, or a few of them in the low lanes, with the same arithmetic. Quarter
// q of the packed pixels is made of the q-th four of each block; for these to follow each other, the fours of a plane are
// dealt out to the blocks in turn.
template <int N>
struct Run
{
    static UTILS_SSE_INLINE U8<N> load_plane(const unsigned char* p) { return deal_fours(U8<N>::load(p)); }
    static UTILS_SSE_INLINE void store_plane(unsigned char* p, U8<N> x) { U8<N>::store(p, collect_fours(x)); }
    static UTILS_SSE_INLINE Packed<U8<N>> load_packed(const unsigned char* p)
    {
        return {{U8<N>::load(p), U8<N>::load(p + N * 16), U8<N>::load(p + N * 32), U8<N>::load(p + N * 48)}};
    }
    static UTILS_SSE_INLINE void store_packed(unsigned char* p, const Packed<U8<N>>& x)
    {
        for (int q = 0; q < 4; ++q)
            store(p + N * 16 * q, x.quarter[q]);
    }
};

// The same for a part of a block, 4 or 8 pixels in its low lanes.
template <int Pixels>
struct FewPixels
{
    using Plane = Part<u8, Pixels>;

    static UTILS_SSE_INLINE u8 load_plane(const unsigned char* p) { return Plane::load(p); }
    static UTILS_SSE_INLINE void store_plane(unsigned char* p, u8 x) { Plane::store(p, x); }
    static UTILS_SSE_INLINE Packed<u8> load_packed(const unsigned char* p)
    {
        const u8 first = load<u8>(p);
        const u8 last = load<u8>(p + 4 * (Pixels - 4));
        return {{first, last, first, last}};
    }
    static UTILS_SSE_INLINE void store_packed(unsigned char* p, const Packed<u8>& x)
    {
        store(p, x.quarter[0]);
        if constexpr (Pixels == 8)
            store(p + 16, x.quarter[1]);
    }
};

template <class V>
constexpr Run<V::blocks> run_of(const V&)
{
    return {};
}
template <class V>
constexpr Run<V::blocks> run_of(const Packed<V>&)
{
    return {};
}
template <class V>
constexpr Run<V::blocks> run_of(const Planes<V>&)
{
    return {};
}

// compute(run, i) reads the pixels of a run from i on, put(run, i, result) writes them.
template <int Pixels, class Compute, class Put>
UTILS_SSE_INLINE void map_run(std::ptrdiff_t i, const Compute& compute, const Put& put)
{
    if constexpr (Pixels < 16) {
        constexpr FewPixels<Pixels> run;
        put(run, i, compute(run, i));
    } else {
        const auto results = compute_group<16, Pixels / 16>(
            i, [&](auto blocks, std::ptrdiff_t k) UTILS_SSE_LAMBDA { return compute(Run<blocks.count>(), k); });
        results.put(i, [&](std::ptrdiff_t k, const auto& result) UTILS_SSE_LAMBDA { put(run_of(result), k, result); });
    }
}

// Fewer than 2 * Pixels, at least 8: the first and the last `Pixels`, or half as many; they may overlap.
template <int Pixels, class Compute, class Put>
UTILS_SSE_INLINE void map_ends(int n, const Compute& compute, const Put& put)
{
    if (Pixels == 8 || n >= Pixels) {
        map_run<Pixels>(0, compute, put);
        if (n > Pixels)
            map_run<Pixels>(n - Pixels, compute, put);
    } else if constexpr (Pixels > 8) {
        map_ends<Pixels / 2>(n, compute, put);
    }
}

// All pixels; one(i) does one of them. Line: see map_blocks(). What is left of whole groups is covered by a group that ends
// with the last pixel, so that some pixels are computed twice.
template <int Line, class Compute, class Put, class One, class... Streams>
UTILS_SSE_INLINE void map_pixels(int n, const Compute& compute, const Put& put, const One& one, Streams... streams)
{
    constexpr int group = 16 * UTILS_SSE_MOST_BLOCKS * group_size<decltype(compute(Run<1>(), 0))>(Line);
    if (UTILS_SSE_OUT_OF_LINE(n >= 8)) {
        if (n >= group) {
            const std::ptrdiff_t last = n - group;
            std::ptrdiff_t i = 0;
            do {
                (streams.template hint<group>(i), ...);
                map_run<group>(i, compute, put);
                i += group;
            } while (i <= last);
            if (i < n)
                map_run<group>(last, compute, put);
        } else {
            map_ends<group / 2>(n, compute, put);
        }
    } else if (UTILS_SSE_OUT_OF_LINE(n >= 4)) {
        map_run<4>(0, compute, put);
        map_run<4>(n - 4, compute, put);
    } else {
        for_few(n, one);
    }
}

UTILS_SSE_INLINE void store_pixel(unsigned char* packed, unsigned blue, unsigned green, unsigned red, unsigned fill)
{
    Memory<unsigned>::store(packed, blue | green << 8 | red << 16 | fill << 24);
}

} // namespace

void CUtils_SSE::BWToColour(unsigned char* packed, const unsigned char* grey, int n, unsigned char fill)
{
    map_pixels<2>(
        n, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return pack_grey(run.load_plane(grey + i), fill); },
        [=](auto run, std::ptrdiff_t i, const auto& pixels) UTILS_SSE_LAMBDA { run.store_packed(packed + 4 * i, pixels); },
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store_pixel(packed + 4 * i, grey[i], grey[i], grey[i], fill); },
        ahead<1024>(grey));
}

void CUtils_SSE::RGBToColour(unsigned char* packed, const unsigned char* red, const unsigned char* green,
                             const unsigned char* blue, int n, unsigned char fill)
{
    map_pixels<1>(
        n,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const auto pixels = run.load_plane(blue + i);
            return pack(pixels, run.load_plane(green + i), run.load_plane(red + i), decltype(pixels)::broadcast(fill));
        },
        [=](auto run, std::ptrdiff_t i, const auto& pixels) UTILS_SSE_LAMBDA { run.store_packed(packed + 4 * i, pixels); },
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store_pixel(packed + 4 * i, blue[i], green[i], red[i], fill); },
        ahead<1024>(red), ahead<1024>(green), ahead<1024>(blue));
}

void CUtils_SSE::ColourToBW(unsigned char* grey, const unsigned char* packed, int n)
{
    map_pixels<4>(
        n, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return unpack(run.load_packed(packed + 4 * i)).blue; },
        [=](auto run, std::ptrdiff_t i, auto blue) UTILS_SSE_LAMBDA { run.store_plane(grey + i, blue); },
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { grey[i] = packed[4 * i]; }, ahead<1024>(packed));
}

void CUtils_SSE::ColourToRGB(unsigned char* red, unsigned char* green, unsigned char* blue, const unsigned char* packed, int n)
{
    map_pixels<4>(
        n, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return unpack(run.load_packed(packed + 4 * i)); },
        [=](auto run, std::ptrdiff_t i, const auto& planes) UTILS_SSE_LAMBDA {
            run.store_plane(red + i, planes.red);
            run.store_plane(green + i, planes.green);
            run.store_plane(blue + i, planes.blue);
        },
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            red[i] = packed[4 * i + 2];
            green[i] = packed[4 * i + 1];
            blue[i] = packed[4 * i];
        },
        ahead<1024>(packed));
}
