// Grey images and colour planes to packed pixels (blue, green, red, fill) and back.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

// Sixteen packed pixels, four to a vector.
struct Packed
{
    u8 quarter[4];
};

// Interleaves pairs of bytes: b0 g0 b1 g1 .. with r0 f0 r1 f1 .. gives b0 g0 r0 f0 b1 g1 r1 f1 ..
UTILS_SSE_INLINE Packed interleave_pairs(u8 bg_low, u8 bg_high, u8 rf_low, u8 rf_high)
{
    return {{{_mm_unpacklo_epi16(bg_low.v, rf_low.v)},
             {_mm_unpackhi_epi16(bg_low.v, rf_low.v)},
             {_mm_unpacklo_epi16(bg_high.v, rf_high.v)},
             {_mm_unpackhi_epi16(bg_high.v, rf_high.v)}}};
}

UTILS_SSE_INLINE Packed pack(u8 blue, u8 green, u8 red, u8 fill)
{
    return interleave_pairs({_mm_unpacklo_epi8(blue.v, green.v)}, {_mm_unpackhi_epi8(blue.v, green.v)},
                            {_mm_unpacklo_epi8(red.v, fill.v)}, {_mm_unpackhi_epi8(red.v, fill.v)});
}

// The same for three equal planes: grey doubled serves as blue and green, and with its second byte replaced by the fill as
// red and fill. `fills` holds the fill in its odd bytes and 0 in the even ones. Two shuffles less than pack().
UTILS_SSE_INLINE Packed pack_grey(u8 grey, u8 fills)
{
    const auto with_fill = [=](__m128i doubled) UTILS_SSE_LAMBDA {
        return u8{_mm_or_si128(_mm_and_si128(doubled, _mm_set1_epi16(255)), fills.v)};
    };
    const __m128i low = _mm_unpacklo_epi8(grey.v, grey.v);
    const __m128i high = _mm_unpackhi_epi8(grey.v, grey.v);
    return interleave_pairs({low}, {high}, with_fill(low), with_fill(high));
}

// The bytes at even places of two vectors, and those at odd places. Values stay below 256, so the saturating pack only
// narrows. b0 g0 r0 f0 b1 .. gives b0 r0 b1 r1 .. and g0 f0 g1 f1 ..
UTILS_SSE_INLINE u8 even_bytes(u8 low, u8 high)
{
    const __m128i mask = _mm_set1_epi16(255);
    return narrow_saturate(i16{_mm_and_si128(low.v, mask)}, i16{_mm_and_si128(high.v, mask)});
}
UTILS_SSE_INLINE u8 odd_bytes(u8 low, u8 high)
{
    return narrow_saturate(i16{_mm_srli_epi16(low.v, 8)}, i16{_mm_srli_epi16(high.v, 8)});
}

struct Planes
{
    u8 blue, green, red;
};

UTILS_SSE_INLINE Planes unpack(const Packed& pixels)
{
    const u8* q = pixels.quarter;
    const u8 blue_red_low = even_bytes(q[0], q[1]);
    const u8 blue_red_high = even_bytes(q[2], q[3]);
    return {even_bytes(blue_red_low, blue_red_high), even_bytes(odd_bytes(q[0], q[1]), odd_bytes(q[2], q[3])),
            odd_bytes(blue_red_low, blue_red_high)};
}

// Pixels are handled 16 or 4 at a time with the same arithmetic; a run of Pixels fills the low lanes.
template <int Pixels>
struct Run;

template <>
struct Run<16>
{
    static UTILS_SSE_INLINE u8 load_plane(const unsigned char* p) { return load<u8>(p); }
    static UTILS_SSE_INLINE void store_plane(unsigned char* p, u8 x) { store(p, x); }
    static UTILS_SSE_INLINE Packed load_packed(const unsigned char* p)
    {
        return {{load<u8>(p), load<u8>(p + 16), load<u8>(p + 32), load<u8>(p + 48)}};
    }
    static UTILS_SSE_INLINE void store_packed(unsigned char* p, const Packed& x)
    {
        for (int q = 0; q < 4; ++q)
            store(p + 16 * q, x.quarter[q]);
    }
};

template <>
struct Run<4>
{
    static UTILS_SSE_INLINE u8 load_plane(const unsigned char* p) { return load_four(p); }
    static UTILS_SSE_INLINE void store_plane(unsigned char* p, u8 x) { store_four(p, x); }
    static UTILS_SSE_INLINE Packed load_packed(const unsigned char* p)
    {
        const u8 pixels = load<u8>(p);
        return {{pixels, pixels, pixels, pixels}};
    }
    static UTILS_SSE_INLINE void store_packed(unsigned char* p, const Packed& x) { store(p, x.quarter[0]); }
};

// compute(run, i) reads the pixels of a run from i on, put(run, i, result) writes them, one(i) does both for one pixel.
template <int Line, class Compute, class Put, class One, class... Streams>
UTILS_SSE_INLINE void map_pixels(int n, const Compute& compute, const Put& put, const One& one, Streams... streams)
{
    const Rest rest = map_blocks<16, Line, 1>(
        n, [&](Blocks<1>, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return compute(Run<16>(), i); },
        [&](std::ptrdiff_t i, const auto& result) UTILS_SSE_LAMBDA { put(Run<16>(), i, result); }, streams...);
    for_rest(
        rest, [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA { put(Run<4>(), i, compute(Run<4>(), i)); }, one);
}

UTILS_SSE_INLINE void store_pixel(unsigned char* packed, unsigned blue, unsigned green, unsigned red, unsigned fill)
{
    Memory<unsigned>::store(packed, blue | green << 8 | red << 16 | fill << 24);
}

} // namespace

void CUtils_SSE::BWToColour(unsigned char* packed, const unsigned char* grey, int n, unsigned char fill)
{
    const u8 fills = {_mm_set1_epi16(static_cast<short>(fill << 8))};
    map_pixels<1>(
        n, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return pack_grey(run.load_plane(grey + i), fills); },
        [=](auto run, std::ptrdiff_t i, const Packed& pixels) UTILS_SSE_LAMBDA { run.store_packed(packed + 4 * i, pixels); },
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store_pixel(packed + 4 * i, grey[i], grey[i], grey[i], fill); },
        ahead<1024>(grey));
}

void CUtils_SSE::RGBToColour(unsigned char* packed, const unsigned char* red, const unsigned char* green,
                             const unsigned char* blue, int n, unsigned char fill)
{
    const u8 fills = broadcast_byte(fill);
    map_pixels<1>(
        n,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            return pack(run.load_plane(blue + i), run.load_plane(green + i), run.load_plane(red + i), fills);
        },
        [=](auto run, std::ptrdiff_t i, const Packed& pixels) UTILS_SSE_LAMBDA { run.store_packed(packed + 4 * i, pixels); },
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store_pixel(packed + 4 * i, blue[i], green[i], red[i], fill); },
        ahead<1024>(red), ahead<1024>(green), ahead<1024>(blue));
}

void CUtils_SSE::ColourToBW(unsigned char* grey, const unsigned char* packed, int n)
{
    map_pixels<4>(
        n, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return unpack(run.load_packed(packed + 4 * i)).blue; },
        [=](auto run, std::ptrdiff_t i, u8 blue) UTILS_SSE_LAMBDA { run.store_plane(grey + i, blue); },
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { grey[i] = packed[4 * i]; }, ahead<1024>(packed));
}

void CUtils_SSE::ColourToRGB(unsigned char* red, unsigned char* green, unsigned char* blue, const unsigned char* packed, int n)
{
    map_pixels<4>(
        n, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return unpack(run.load_packed(packed + 4 * i)); },
        [=](auto run, std::ptrdiff_t i, const Planes& planes) UTILS_SSE_LAMBDA {
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
