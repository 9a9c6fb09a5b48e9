// Conversions between floats and integers, 16-bit samples and bytes.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

void CUtils_SSE::ApplyGain(const float* x, const float* gain, int* dst, int n)
{
    const std::ptrdiff_t rest = for_whole_blocks<4, 4>(
        n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store(dst + i, round_to_int(load<f32>(x + i) * load<f32>(gain + i))); },
        ahead<64>(x), ahead<64>(gain));
    // Body rounds to nearest even, tail truncates.
    for_rest(rest, n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        store(dst + i, truncate_to_int(load<float>(x + i) * load<float>(gain + i)));
    });
}

void CUtils_SSE::ShortToFloat(float* dst, const short* src, const float* gain, int n)
{
    const std::ptrdiff_t rest = for_whole_blocks<8, 4>(
        n,
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const i32x2 samples = widen(load<i16>(src + i));
            store(dst + i, to_float(samples.low) * load<f32>(gain + i));
            store(dst + i + 4, to_float(samples.high) * load<f32>(gain + i + 4));
        },
        ahead<64>(src), ahead<64>(gain));
    for_rest(rest, n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store(dst + i, to_float(src[i]) * load<float>(gain + i)); });
}

void CUtils_SSE::FloatToByte(unsigned char* dst, const float* src, float scale, int n)
{
    const f32 factor = broadcast<f32>(scale);
    const auto eight = [=](const float* p) UTILS_SSE_LAMBDA {
        const i32 low = round_to_int(load<f32>(p) * factor);
        const i32 high = round_to_int(load<f32>(p + 4) * factor);
        return absolute_wrap(narrow_saturate(low, high));
    };
    const std::ptrdiff_t rest = for_whole_blocks<16, 1>(
        n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { store(dst + i, narrow_saturate(eight(src + i), eight(src + i + 8))); },
        ahead<64>(src));
    // Body rounds and saturates to 16 bits before the absolute value, tail truncates and keeps 32 bits.
    for_rest(rest, n, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        const int magnitude = absolute_wrap(truncate_to_int(src[i] * scale));
        dst[i] = static_cast<unsigned char>(magnitude <= 0 ? 0 : magnitude > 254 ? 255 : magnitude);
    });
}

void CUtils_SSE::FloatToByte(unsigned char* dst, const float* src, const unsigned char* table, int n)
{
    const auto eight = [=](unsigned char* out, const float* in) UTILS_SSE_LAMBDA {
        const i16 index = narrow_saturate(round_to_int(load<f32>(in)), round_to_int(load<f32>(in + 4)));
        for_each_unsigned_lane(index, [=](int lane, int value) UTILS_SSE_LAMBDA { out[lane] = table[value]; });
    };
    const std::ptrdiff_t rest = for_whole_blocks<16, 1>(
        n,
        [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            eight(dst + i, src + i);
            eight(dst + i + 8, src + i + 8);
        },
        ahead<64>(src));
    // Body rounds and saturates the index, tail truncates and keeps its low 16 bits.
    for_rest(rest, n,
             [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA { dst[i] = table[static_cast<unsigned short>(truncate_to_int(src[i]))]; });
}
