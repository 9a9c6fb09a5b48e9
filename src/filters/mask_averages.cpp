// Averages of a list of frames with a divisor for each pixel.
#include "filters/frame_sums.h"
#include "utils_sse.h"

using namespace simd;

namespace {

constexpr unsigned char kBlack = 0;

// min(255, p >> 8) of the 32-bit products p = s * m, both read as signed and p then as unsigned: a negative product gives 255.
template <int N>
UTILS_SSE_INLINE U8<N> divide_saturating(PixelSums<N> s, I16x2<N> m)
{
    const U8<N> middle = narrow_saturate(divide_wrapping(s.low, m.low), divide_wrapping(s.high, m.high)); // bits 8 .. 15
    const U8<N> beyond = narrow_saturate_signed(multiply_high(s.low, m.low), multiply_high(s.high, m.high));
    const U8<N> fits = equal(beyond, zero<U8<N>>());
    return bit_or(middle, bit_without(U8<N>::broadcast(255), fits));
}

// Frame weights in sixteenths. In the body of a frame's products the low 16 bits count, in the tail all of them, on purpose.
struct WrappingWeights
{
    struct Weight
    {
        short w;
        template <int N>
        UTILS_SSE_INLINE I16<N> operator()(I16<N> pixels) const
        {
            return shift_right_unsigned<4>(multiply_low(pixels, I16<N>::broadcast(w)));
        }
    };
    const short* weights;
    UTILS_SSE_INLINE Weight of(std::ptrdiff_t j) const { return {weights[j]}; }
};

struct FullWeights
{
    struct Weight
    {
        short w;
        UTILS_SSE_INLINE i16 operator()(i16 pixels) const // bits 4 .. 19 of the product
        {
            const i16 factors = broadcast_short(w);
            return bit_or(shift_right_unsigned<4>(multiply_low(pixels, factors)),
                          shift_left<12>(multiply_high_unsigned(pixels, factors)));
        }
        UTILS_SSE_INLINE unsigned operator()(unsigned pixel) const { return pixel * static_cast<unsigned short>(w) >> 4; }
    };
    const short* weights;
    UTILS_SSE_INLINE Weight of(std::ptrdiff_t j) const { return {weights[j]}; }
};

// The tail divides by 256 once more, on purpose.
struct UpperByte
{
    template <class Count, class S>
    UTILS_SSE_INLINE S operator()(Count, S s, std::ptrdiff_t) const
    {
        return upper_byte(s);
    }
};

UTILS_SSE_APART void mask_average(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                  const unsigned short* mask, int n)
{
    const Frames list{frames, frameCount};
    const short* m = lanes_of(mask);
    // Body and tail keep bits 8 .. 15 of the product; nothing saturates.
    map_frame_sums(
        n, dst, list, Unweighted(),
        [=](auto run, auto s, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const auto factors = run.load_two(m + i);
            return narrow_saturate(divide_wrapping(s.low, factors.low), divide_wrapping(s.high, factors.high));
        },
        list, Unweighted(), divided_by(mask));
}

UTILS_SSE_APART void weighted_mask_average(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                           const unsigned short* mask, int n, unsigned short* weights)
{
    const Frames list{frames, frameCount};
    const short* m = lanes_of(mask);
    const short* w = lanes_of(weights);
    map_frame_sums(
        n, dst, list, WrappingWeights{w},
        [=](auto run, auto s, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return divide_saturating(s, run.load_two(m + i)); }, list,
        FullWeights{w}, divided_by(mask)); // the tail does not saturate, on purpose
}

UTILS_SSE_APART void weighted_sum(unsigned char* dst, const unsigned char* const* frames, int frameCount, int n,
                                  unsigned short* weights)
{
    const Frames list{frames, frameCount};
    const short* w = lanes_of(weights);
    map_frame_sums(
        n, dst, list, WrappingWeights{w},
        [](auto, auto s, std::ptrdiff_t) UTILS_SSE_LAMBDA { return narrow_saturate(s.low, s.high); }, list, FullWeights{w},
        UpperByte());
}

} // namespace

void CUtils_SSE::MaskAverage(unsigned char* dst, const unsigned char* const* frames, int frameCount, const unsigned short* mask,
                             int n)
{
    if (n >= 16)
        mask_average(dst, frames, frameCount, mask, n);
    else
        cover_frame_sums<8>(Rest{0, n}, dst, Frames{frames, frameCount}, Unweighted(), divided_by(mask));
}

void CUtils_SSE::MaskAverage(unsigned char* dst, const unsigned char* const* frames, int frameCount, const unsigned short* mask,
                             int n, unsigned short* weights)
{
    if (n >= 16)
        weighted_mask_average(dst, frames, frameCount, mask, n, weights);
    else
        cover_frame_sums<8>(Rest{0, n}, dst, Frames{frames, frameCount}, FullWeights{lanes_of(weights)}, divided_by(mask));
}

void CUtils_SSE::MaskAverageWithDifferentDivisors(unsigned char* dst, const unsigned char* const* frames, int frameCount, int n,
                                                  unsigned short* weights)
{
    if (n >= 16)
        weighted_sum(dst, frames, frameCount, n, weights);
    else
        cover_frame_sums<8>(Rest{0, n}, dst, Frames{frames, frameCount}, FullWeights{lanes_of(weights)}, UpperByte());
}

void CUtils_SSE::ApplyDivisorMask(unsigned char* dst, const unsigned char* src, const unsigned short* mask, int n)
{
    const short* m = lanes_of(mask);
    map_with_tail<16, 4>(
        n,
        [=](auto run, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const auto pixels = run.load(src + i);
            const auto [m_low, m_high] = run.load_two(m + i);
            // Factors from 32768 on are negative, on purpose: they give 255, and 0 only for black.
            const auto saturated =
                bit_without(top_bit(narrow_saturate_signed(m_low, m_high)), equal(pixels, run.broadcast(kBlack)));
            return in_order(
                bit_or(narrow_saturate(multiply_high_unsigned(widen_low_to_top(pixels), m_low), // (p * 256 * m) >> 16
                                       multiply_high_unsigned(widen_high_to_top(pixels), m_high)),
                       saturated));
        },
        [=](std::ptrdiff_t i, auto pixels) UTILS_SSE_LAMBDA { store(dst + i, pixels); },
        // The tail keeps the low 8 bits and reads the factor as unsigned, on purpose.
        [=](Rest rest) UTILS_SSE_LAMBDA {
            cover_in_place<8>(
                rest,
                [=](auto count, std::ptrdiff_t i)
                    UTILS_SSE_LAMBDA { return divide_wrapping<count()>(load_lanes<count()>(src + i), m, i); },
                [=](auto count, std::ptrdiff_t i, i16 pixels) UTILS_SSE_LAMBDA { store_lanes<count()>(dst + i, pixels); });
        },
        ahead<1024>(src), ahead<1024>(m));
}
