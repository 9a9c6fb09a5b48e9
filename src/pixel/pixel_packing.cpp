// Grey images and colour planes to packed pixels (blue, green, red, fill) and back.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

namespace {

// Interleaves four planes of 16 bytes into 16 packed pixels. With letters for planes and digits for pixels:
//   blue b, green g -> b0 g0 b1 g1 ..;  red r, fill f -> r0 f0 r1 f1 ..;  pairs of both -> b0 g0 r0 f0 b1 g1 r1 f1 ..
UTILS_SSE_INLINE void store_packed(unsigned char* packed, u8 blue, u8 green, u8 red, u8 fill)
{
    const __m128i bg_low = _mm_unpacklo_epi8(blue.v, green.v);
    const __m128i bg_high = _mm_unpackhi_epi8(blue.v, green.v);
    const __m128i rf_low = _mm_unpacklo_epi8(red.v, fill.v);
    const __m128i rf_high = _mm_unpackhi_epi8(red.v, fill.v);
    store(packed, u8{_mm_unpacklo_epi16(bg_low, rf_low)});
    store(packed + 16, u8{_mm_unpackhi_epi16(bg_low, rf_low)});
    store(packed + 32, u8{_mm_unpacklo_epi16(bg_high, rf_high)});
    store(packed + 48, u8{_mm_unpackhi_epi16(bg_high, rf_high)});
}

UTILS_SSE_INLINE void store_packed_one(unsigned char* packed, unsigned char blue, unsigned char green, unsigned char red,
                                       unsigned char fill)
{
    packed[0] = blue;
    packed[1] = green;
    packed[2] = red;
    packed[3] = fill;
}

// Sixteen packed pixels, four to a vector, and one plane of them.
struct Packed16
{
    u8 quarter[4];
};

UTILS_SSE_INLINE Packed16 load_packed(const unsigned char* packed)
{
    return {{load<u8>(packed), load<u8>(packed + 16), load<u8>(packed + 32), load<u8>(packed + 48)}};
}

// The byte at Byte of every pixel. Masked values are 0 .. 255, so both saturating packs only narrow.
template <int Byte>
UTILS_SSE_INLINE u8 plane(const Packed16& pixels)
{
    const __m128i mask = _mm_set1_epi32(255);
    __m128i word[4];
    for (int q = 0; q < 4; ++q)
        word[q] = _mm_and_si128(_mm_srli_epi32(pixels.quarter[q].v, 8 * Byte), mask);
    return narrow_saturate(i16{_mm_packs_epi32(word[0], word[1])}, i16{_mm_packs_epi32(word[2], word[3])});
}

} // namespace

void CUtils_SSE::BWToColour(unsigned char* packed, const unsigned char* grey, int n, unsigned char fill)
{
    const u8 fills = broadcast_byte(fill);
    const std::ptrdiff_t rest = for_whole_blocks<16, 4>(
        n,
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const u8 value = load<u8>(grey + i);
            store_packed(packed + 4 * i, value, value, value, fills);
        },
        ahead<1024>(grey));
    for_rest(rest, n,
             [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store_packed_one(packed + 4 * i, grey[i], grey[i], grey[i], fill); });
}

void CUtils_SSE::RGBToColour(unsigned char* packed, const unsigned char* red, const unsigned char* green,
                             const unsigned char* blue, int n, unsigned char fill)
{
    const u8 fills = broadcast_byte(fill);
    const std::ptrdiff_t rest = for_whole_blocks<16, 4>(
        n,
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            store_packed(packed + 4 * i, load<u8>(blue + i), load<u8>(green + i), load<u8>(red + i), fills);
        },
        ahead<1024>(red), ahead<1024>(green), ahead<1024>(blue));
    for_rest(rest, n,
             [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store_packed_one(packed + 4 * i, blue[i], green[i], red[i], fill); });
}

void CUtils_SSE::ColourToBW(unsigned char* grey, const unsigned char* packed, int n)
{
    const std::ptrdiff_t rest = for_whole_blocks<16, 1>(
        n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store(grey + i, plane<0>(load_packed(packed + 4 * i))); });
    for_rest(rest, n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { grey[i] = packed[4 * i]; });
}

void CUtils_SSE::ColourToRGB(unsigned char* red, unsigned char* green, unsigned char* blue, const unsigned char* packed, int n)
{
    const std::ptrdiff_t rest = for_whole_blocks<16, 1>(n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        const Packed16 pixels = load_packed(packed + 4 * i);
        store(red + i, plane<2>(pixels));
        store(green + i, plane<1>(pixels));
        store(blue + i, plane<0>(pixels));
    });
    for_rest(rest, n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        red[i] = packed[4 * i + 2];
        green[i] = packed[4 * i + 1];
        blue[i] = packed[4 * i];
    });
}
