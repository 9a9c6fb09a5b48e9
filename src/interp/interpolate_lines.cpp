// More lines for a frame: two or four out of each, by linear interpolation between neighbours.
//
// Averages that round down make all of it, without wider lanes: rounding down twice is rounding down once, so
// (3a + b) >> 2 = floor((a + floor((a + b) / 2)) / 2).
#include "simd/streams.h"
#include "utils_sse.h"

#include <algorithm>
#include <cstring>

using namespace simd;

namespace {

// One column of two neighbouring source lines.
template <class V>
struct Pair
{
    V a, b;
};

// ... of three.
template <class V>
struct Triple
{
    V a, b, c;
    UTILS_SSE_INLINE Pair<V> second_pair() const { return {b, c}; }
};

// What the output lines are made of.
constexpr auto kItself = [](const auto& x) UTILS_SSE_LAMBDA { return x; };
constexpr auto kZero = [](const auto& x) UTILS_SSE_LAMBDA { return std::decay_t<decltype(x)>{}; };
constexpr auto kFirst = [](const auto& x) UTILS_SSE_LAMBDA { return x.a; };
constexpr auto kQuarter = [](const auto& x) UTILS_SSE_LAMBDA { return average_down(x.a, average_down(x.a, x.b)); };
constexpr auto kHalf = [](const auto& x) UTILS_SSE_LAMBDA { return average_down(x.a, x.b); };
constexpr auto kThreeQuarters = [](const auto& x) UTILS_SSE_LAMBDA { return average_down(x.b, average_down(x.a, x.b)); };

template <class T>
UTILS_SSE_INLINE auto two_lines(const T* a, std::ptrdiff_t width)
{
    return [=](auto part, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        return Pair<typename decltype(part)::Vector>{part.load(a + i), part.load(a + width + i)};
    };
}

template <class T>
UTILS_SSE_INLINE auto three_lines(const T* a, std::ptrdiff_t width)
{
    return [=](auto part, std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        return Triple<typename decltype(part)::Vector>{part.load(a + i), part.load(a + width + i),
                                                       part.load(a + 2 * width + i)};
    };
}

template <class T>
UTILS_SSE_INLINE void copy_long(T* dst, const T* src, std::ptrdiff_t n)
{
    std::memcpy(dst, src, static_cast<std::size_t>(n) * sizeof *dst);
}

template <class T>
UTILS_SSE_INLINE auto one_line(const T* a)
{
    return [=](auto part, std::ptrdiff_t i) UTILS_SSE_LAMBDA { return part.load(a + i); };
}

template <class V, class T, class... Copies>
UTILS_SSE_INLINE void copy_to_all(std::ptrdiff_t n, const T* a, Copies... copies)
{
    if (n < kLongRun<V>)
        map_together<V>(n, one_line(a), output(copies, kItself)...);
    else
        (copy_long(copies, a, n), ...);
}

// One source line a of `n` columns: its copy, and the interpolated lines.
template <class V, class T, class Load, class... Outputs>
UTILS_SSE_INLINE void copy_and_interpolate(T* out, const T* a, std::ptrdiff_t n, const Load& load, const Outputs&... outputs)
{
    if (n < kLongRun<V>)
        map_together<V>(n, load, output(out, kFirst), outputs...);
    else {
        copy_long(out, a, n);
        map_streams<V>(n, load, outputs...);
    }
}

// pass(out, a, column, count) for the columns from `column` on of each source line a of the first `passes`. Lines far longer
// than a probe's are cut into stretches, so that a line is still in the cache when it becomes the neighbour of the next
// (10 to 20 % for lines of megabytes).
template <int Factor, class T, class Pass>
UTILS_SSE_INLINE void for_passes(T* dst, const T* src, int passes, std::ptrdiff_t width, const Pass& pass)
{
    constexpr std::ptrdiff_t stretch = 16384 / static_cast<std::ptrdiff_t>(sizeof(T));
    for (std::ptrdiff_t column = 0; column < width; column += stretch)
        for (std::ptrdiff_t l = 0; l < passes; ++l)
            pass(dst + Factor * l * width + column, src + l * width + column, column, std::min(stretch, width - column));
}

// The passes of factor 2; returns where the output of the last source line begins.
template <class V, class T>
UTILS_SSE_INLINE T* interpolate2(T* dst, const T* src, int lines, std::ptrdiff_t width)
{
    for_passes<2>(dst, src, lines - 1, width, [=](T* out, const T* a, std::ptrdiff_t, std::ptrdiff_t count) UTILS_SSE_LAMBDA {
        copy_and_interpolate<V>(out, a, count, two_lines(a, width), output(out + width, kHalf));
    });
    return dst + (lines - std::ptrdiff_t{1}) * 2 * width;
}

// The factor-4 passes of bytes take floor(width / 8) steps of 16 pixels each on purpose, about twice the line: every
// interpolated line runs on into the next one. Since the later store wins, the leading columns of lines 4l + 2 and 4l + 3
// end up with what runs on from lines 4l + 1 and 4l + 2, one source line further on; what runs on into line 4l + 4 is
// replaced by its copy. Below 16 columns there is one step at most, and in a step each line is stored after the one that
// runs into it. Here each pixel is computed once, as it ends up; nothing outside the frames is touched.
UTILS_SSE_APART void interpolate4_running_on(unsigned char* dst, const unsigned char* src, int passes, std::ptrdiff_t width)
{
    const auto near_next = [](const auto& x) UTILS_SSE_LAMBDA { return kQuarter(x.second_pair()); };
    const auto middle_next = [](const auto& x) UTILS_SSE_LAMBDA { return kHalf(x.second_pair()); };
    const std::ptrdiff_t ahead_columns = width < 16 ? 0 : width / 8 * 16 - width;
    for_passes<4>(dst, src, passes, width,
                  [=](unsigned char* out, const unsigned char* a, std::ptrdiff_t column, std::ptrdiff_t count)
                      UTILS_SSE_LAMBDA {
                          const std::ptrdiff_t next = std::clamp(ahead_columns - column, std::ptrdiff_t{0}, count);
                          copy_and_interpolate<u8>(out, a, next, three_lines(a, width), output(out + width, kQuarter),
                                                   output(out + 2 * width, near_next), output(out + 3 * width, middle_next));
                          out += next;
                          a += next;
                          copy_and_interpolate<u8>(out, a, count - next, two_lines(a, width), output(out + width, kQuarter),
                                                   output(out + 2 * width, kHalf), output(out + 3 * width, kThreeQuarters));
                      });
}

} // namespace

void CUtils_SSE::Interpolate2(short* dst, const short* src, int lines, int n)
{
    if (lines <= 0 || n <= 0)
        return;
    short* const out = interpolate2<i16>(dst, src, lines, n);
    const short* const last = src + (lines - std::ptrdiff_t{1}) * n;
    if (n < kLongRun<i16>)
        map_together<i16>(n, one_line(last), output(out, kItself), output(out + n, kZero));
    else {
        copy_long(out, last, n);
        std::memset(out + n, 0, static_cast<std::size_t>(n) * sizeof *out);
    }
}

void CUtils_SSE::Interpolate4(short* dst, const short* src, int lines, int n)
{
    if (lines <= 0 || n <= 0)
        return;
    const std::ptrdiff_t width = n;
    for_passes<4>(dst, src, lines - 1, width,
                  [=](short* out, const short* a, std::ptrdiff_t column, std::ptrdiff_t count) UTILS_SSE_LAMBDA {
                      // As many bytes of the line as it has samples, on purpose.
                      copy_to_all<u8>(std::min(width - 2 * column, 2 * count), reinterpret_cast<const unsigned char*>(a),
                                      reinterpret_cast<unsigned char*>(out));
                      map_streams<i16>(count, two_lines(a, width), output(out + width, kQuarter),
                                       output(out + 2 * width, kHalf), output(out + 3 * width, kThreeQuarters));
                  });
    short* const out = dst + (lines - std::ptrdiff_t{1}) * 4 * width;
    copy_to_all<i16>(width, src + (lines - std::ptrdiff_t{1}) * width, out, out + width, out + 2 * width, out + 3 * width);
}

void CUtils_SSE::Interpolate2_8bit(unsigned char* dst, const unsigned char* src, int lines, int n)
{
    if (lines <= 0 || n <= 0)
        return;
    unsigned char* const out = interpolate2<u8>(dst, src, lines, n);
    copy_to_all<u8>(n, src + (lines - std::ptrdiff_t{1}) * n, out, out + n); // doubled, not blanked
}

void CUtils_SSE::Interpolate4_8bit(unsigned char* dst, const unsigned char* src, int lines, int n)
{
    if (lines <= 0 || n <= 0)
        return;
    if (UTILS_SSE_OUT_OF_LINE(lines > 2))
        interpolate4_running_on(dst, src, lines - 2, n);
    // The last eight lines are blanked: the last pass and the copies of the last line, whatever was in them.
    const std::ptrdiff_t blank = std::min(2, lines);
    std::memset(dst + 4 * (lines - blank) * n, 0, static_cast<std::size_t>(4 * blank * n));
}

void CUtils_SSE::Interpolate_8bit(unsigned char* dst, const unsigned char* src, int lines, int n, int level)
{
    if (level > 1)
        Interpolate4_8bit(dst, src, lines, n);
    else if (level == 1)
        Interpolate2_8bit(dst, src, lines, n);
    else if (lines > 0 && n > 0)
        std::memcpy(dst, src, static_cast<std::size_t>(lines) * static_cast<std::size_t>(n));
}
