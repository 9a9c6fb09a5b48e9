// What utils_sse.h promises of the upsamplers, as numbers worked out by hand.
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Samples = std::vector<short>;
using Upsampler = void (*)(short*, const short*, int);

// The outputs of n samples; `before` stands in front of them, `rest` everywhere else but where `samples` begins the line.
Samples upsampled(Upsampler upsample, std::size_t n, short before, std::initializer_list<short> samples, short rest = 0)
{
    Samples line(n + 3, rest);
    std::fill_n(line.begin(), 3, before);
    std::copy(samples.begin(), samples.end(), line.begin() + 3);
    Samples out(2 * n, 77);
    upsample(out.data(), line.data() + 3, static_cast<int>(n));
    return out;
}

// The same from the other end: the last samples of a line of zeros.
Samples upsampled_end(Upsampler upsample, std::size_t n, std::initializer_list<short> last)
{
    Samples line(n + 3, 0);
    std::copy(last.begin(), last.end(), line.end() - static_cast<std::ptrdiff_t>(last.size()));
    Samples out(2 * n, 77);
    upsample(out.data(), line.data() + 3, static_cast<int>(n));
    return out;
}

const Upsampler eight = &CUtils_SSE::Upsample2;
const Upsampler four = &CUtils_SSE::Upsample2Fast;

TEST(Upsampling, TapsStandInTheirPlaces)
{
    // A single sample shows the filter, at every place of lines with all lengths of vector and scalar stage.
    const int taps8[8] = {-13, 61, -170, 634, 634, -170, 61, -13};
    const int taps4[4] = {-1, 9, 9, -1};
    for (int n = 16; n < 40; ++n)
        for (int at = 0; at < n; ++at) {
            Samples line(static_cast<std::size_t>(n), 0);
            line[static_cast<std::size_t>(at)] = 1024;
            Samples out8(line.size() * 2, 77);
            Samples out4(line.size() * 2, 77);
            eight(out8.data(), line.data(), n);
            four(out4.data(), line.data(), n);
            for (int i = 0; i < n; ++i) {
                const auto y = static_cast<std::size_t>(2 * i);
                const int from = i - at; // tap of the sample at i is [3] and [1]
                int expected8 = from >= -4 && from <= 3 ? taps8[3 - from] : 0;
                if (i == 1 && at >= 4)
                    expected8 = at == 4 ? 48 : 0; // x[4] counts for x[5] too
                EXPECT_EQ(out8[y], from == 0 ? 1024 : 0);
                EXPECT_EQ(out4[y], from == 0 ? 1024 : 0);
                EXPECT_EQ(out8[y + 1], expected8) << "n " << n << ", sample " << at << ", output " << y + 1;
                EXPECT_EQ(out4[y + 1], from >= -2 && from <= 1 ? 64 * taps4[1 - from] : 0)
                    << "n " << n << ", sample " << at << ", output " << y + 1;
            }
        }
}

TEST(Upsampling, ShortLines)
{
    EXPECT_EQ(upsampled(eight, 8, 0, {}, 9), Samples(16, 77));
    EXPECT_EQ(upsampled(four, 4, 0, {}, 9), Samples(8, 77));
    eight(nullptr, nullptr, -3);
    four(nullptr, nullptr, 0);

    // Without a vector stage what stands in front of the line takes part, and output 3 is like all others.
    EXPECT_EQ(upsampled(eight, 15, 0, {0, 0, 0, 0, 1024})[3], 61);
    EXPECT_EQ(upsampled(eight, 16, 0, {0, 0, 0, 0, 1024})[3], 48);
    const Samples below = upsampled(eight, 15, 1024, {});
    EXPECT_EQ(below[1], -13 + 61 - 170);
    EXPECT_EQ(below[3], -13 + 61);
    EXPECT_EQ(below[5], -13);
    EXPECT_EQ(upsampled(eight, 16, 1024, {}), Samples(32, 0));
    EXPECT_EQ(upsampled(four, 11, 1024, {})[1], -64);
    EXPECT_EQ(upsampled(four, 12, 1024, {}), Samples(24, 0));
}

TEST(Upsampling, EdgesAndRounding)
{
    const Samples flat = upsampled(four, 24, 16, {}, 16);
    EXPECT_EQ(flat[1], 17); // 272 >> 4
    EXPECT_EQ(flat[43], 16);
    EXPECT_EQ(flat[45], 17);
    EXPECT_EQ(flat[47], 8);
    EXPECT_EQ(upsampled(four, 24, 0, {0, 0, 0, 1}).at(3), -1); // -1 >> 4, not 0
    EXPECT_EQ(upsampled(four, 24, 0, {0, 0, 0, 1}).at(7), 0);
    EXPECT_EQ(upsampled(eight, 24, 0, {0, 0, 0, 1}).at(13), -1);
}

TEST(Upsampling, TheBodySaturatesAndTheRestWraps)
{
    // -32768 under all negative taps, 32767 under the others.
    for (int n = 20; n < 45; ++n)
        for (int at = 1; at + 1 < n; ++at) {
            Samples line(static_cast<std::size_t>(n), -32768);
            for (int i = 0; i < n; ++i)
                if (i == at || i == at + 1 || i == at - 2 || i == at + 3)
                    line[static_cast<std::size_t>(i)] = 32767;
            Samples out(line.size() * 2, 77);
            const auto y = static_cast<std::size_t>(2 * at + 1);
            if (at >= 3 && at < n - 4) { // (634 * 65534 + 170 * 65536 + 61 * 65534 + 13 * 65536) >> 10 = 56190
                eight(out.data(), line.data(), n);
                EXPECT_EQ(out[y], at < (n - 8) / 8 * 8 ? 32767 : 56190 - 65536) << n << " " << at;
            }
            if (at < n - 2) {
                four(out.data(), line.data(), n);
                EXPECT_EQ(out[y], at < (n - 4) / 8 * 8 ? 32767 : 40958 - 65536) << n << " " << at;
            }
        }
    EXPECT_EQ(upsampled(eight, 16, 0, {32767, 32767, -32768})[1], 46014 - 65536); // (634 * 65534 + 170 * 32768) >> 10
    EXPECT_EQ(upsampled(four, 12, 0, {32767, 32767, -32768})[1], 32767);
    EXPECT_EQ(upsampled(four, 11, 0, {32767, 32767, -32768})[1], 38910 - 65536); // (9 * 65534 + 32768) >> 4
    EXPECT_EQ(upsampled_end(four, 12, {-32768, 32767, 32767})[21], 38910 - 65536);
    EXPECT_EQ(upsampled_end(eight, 16, {-32768, 32767, 32767})[29], 46014 - 65536);
}

} // namespace
