// Conversions between floats and integers, 16-bit samples and bytes.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

void CUtils_SSE::ApplyGain(const float* x, const float* gain, int* dst, int n)
{
    // Body rounds to nearest even, tail truncates.
    const auto one = [=](std::ptrdiff_t i)
                         UTILS_SSE_LAMBDA { store(dst + i, truncate_to_int(load<float>(x + i) * load<float>(gain + i))); };
    map_with_tail<4, 4>(
        n, [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return round_to_int(run.load(x + i) * run.load(gain + i)); },
        [=](std::ptrdiff_t i, auto result) UTILS_SSE_LAMBDA { store(dst + i, result); },
        [=](Rest rest) UTILS_SSE_LAMBDA { for_up_to_three(rest, one); }, ahead<64>(x), ahead<64>(gain));
}

void CUtils_SSE::ShortToFloat(float* dst, const short* src, const float* gain, int n)
{
    map_to_the_end<8, 2>(
        n,
        [=](auto run, std::ptrdiff_t i)
            UTILS_SSE_LAMBDA { return to_float(load_widened(run, src + i)) * run.load_in_order(gain + i); },
        [=](std::ptrdiff_t i, auto result) UTILS_SSE_LAMBDA { store(dst + i, result); },
        [=](int count) UTILS_SSE_LAMBDA {
            const auto four = [=](std::ptrdiff_t i)
                                  UTILS_SSE_LAMBDA { return to_float(widen(load_four(src + i)).low) * load<f32>(gain + i); };
            const auto one = [=](std::ptrdiff_t i)
                                 UTILS_SSE_LAMBDA { store(dst + i, to_float(src[i]) * load<float>(gain + i)); };
            if (UTILS_SSE_IN_LINE(count < 4)) {
                for_few(count, one);
                return;
            }
            const f32 last = four(count - 4);
            store(dst, four(0));
            store(dst + count - 4, last);
        },
        ahead<64>(src), ahead<64>(gain));
}

void CUtils_SSE::FloatToByte(unsigned char* dst, const float* src, float scale, int n)
{
    const f32 factor = broadcast<f32>(scale);
    // Body rounds and saturates to 16 bits before the absolute value, tail truncates and keeps 32 bits. The tail goes four at
    // a time where it can: saturating twice makes of a magnitude what its two comparisons make of it.
    const auto four = [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        const i32 magnitude = absolute_wrap(truncate_to_int(load<f32>(src + i) * factor));
        const i16 narrow = narrow_saturate(magnitude, magnitude);
        store_four(dst + i, narrow_saturate(narrow, narrow));
    };
    const auto one = [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        const int magnitude = absolute_wrap(truncate_to_int(src[i] * scale));
        dst[i] = static_cast<unsigned char>(magnitude <= 0 ? 0 : magnitude > 254 ? 255 : magnitude);
    };
    map_with_tail<16, 4>(
        n,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            constexpr int lanes = run.count * 4;
            const auto number = [=](std::ptrdiff_t k)
                                    UTILS_SSE_LAMBDA { return round_to_int(run.load(src + k) * run.broadcast(scale)); };
            const auto half = [=](std::ptrdiff_t k)
                                  UTILS_SSE_LAMBDA { return absolute_wrap(narrow_in_order(number(k), number(k + lanes))); };
            return narrow_in_order(half(i), half(i + 2 * lanes));
        },
        [=](std::ptrdiff_t i, auto result) UTILS_SSE_LAMBDA { store(dst + i, result); },
        [=](Rest rest) UTILS_SSE_LAMBDA { for_rest(rest, four, one); }, ahead<64>(src));
}

void CUtils_SSE::FloatToByte(unsigned char* dst, const float* src, const unsigned char* table, int n)
{
    const auto eight = [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        return narrow_saturate(round_to_int(load<f32>(src + i)), round_to_int(load<f32>(src + i + 4)));
    };
    const auto look_up_eight = [=](std::ptrdiff_t i, i16 index) UTILS_SSE_LAMBDA {
        for_each_unsigned_lane(index, [=](int lane, int value) UTILS_SSE_LAMBDA { dst[i + lane] = table[value]; });
    };
    // Body rounds and saturates the index, tail truncates and keeps its low 16 bits.
    const auto one = [=](std::ptrdiff_t i)
                         UTILS_SSE_LAMBDA { dst[i] = table[static_cast<unsigned short>(truncate_to_int(src[i]))]; };
    if (UTILS_SSE_IN_LINE(n < 16)) {
        for_rest(Rest{0, n}, one);
        return;
    }
    for_rest(read_blocks<16, 1>(
                 n,
                 [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
                     look_up_eight(i, eight(i));
                     look_up_eight(i + 8, eight(i + 8));
                 },
                 ahead<64>(src)),
             one);
}
