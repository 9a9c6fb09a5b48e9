// Logarithms of powers.
#pragma once

#include "simd/loops.h"

namespace simd {
inline namespace UTILS_SSE_TIER {

// For mantissas around 1 + i / 64: a number next to the inverse, and the common logarithm that belongs to it.
struct LogTable
{
    struct Entry
    {
        double inverse, log;
    } entry[64];

    constexpr LogTable() : entry()
    {
        for (int i = 0; i < 64; ++i) {
            // Sixteen bits: a mantissa of 24 bits times this is exact.
            const int inverse = ((1 << 22) / (64 + i) + 1) / 2;
            entry[i] = {inverse / 32768.0, -log_of(inverse / 32768.0)};
        }
    }

private:
    // Of 1/2 .. 1, by the series of the inverse hyperbolic tangent.
    static constexpr double log_of(double x)
    {
        const double z = (x - 1) / (x + 1);
        double sum = 0;
        for (int k = 37; k > 0; k -= 2)
            sum = sum * (z * z) + 1.0 / k;
        return 2 * z * sum * 0.43429448190325182765;
    }
};
constexpr LogTable kLogTable;

// Finds the common logarithm that a C library computes in double precision, rounded to single, in a third of the time: good
// to one part in 2^37, it is rounded as any better one unless it lies next to the middle between two floats. Then, once in
// 2,000 numbers, and where x is below 1, infinite or NaN, it finds nothing and the C library has to be asked.
UTILS_SSE_INLINE bool find_log10(float x, float& log)
{
    const auto bits = Memory<std::uint32_t>::load(&x);
    const std::uint32_t above_one = bits - 0x3f800000;
    const std::uint32_t rounded = above_one + 0x10000; // the exponent, and 6 bits behind it
    const LogTable::Entry& near = kLogTable.entry[rounded >> 17 & 63];
    const std::uint32_t exponent = rounded & 0xff800000;
    const std::uint64_t mantissa_bits = (std::uint64_t{bits - exponent} << 29) + 0x3800000000000000;
    const double mantissa = Memory<double>::load(&mantissa_bits); // 127/128 .. 255/128

    // log(1 + r), |r| < 1/127.
    constexpr double e = 0.43429448190325182765; // log10(e)
    const double r = mantissa * near.inverse - 1;
    const double r2 = r * r;
    const double series = r * ((e - e / 2 * r) + r2 * ((e / 3 - e / 4 * r) + e / 5 * r2));
    const double whole = static_cast<int>(exponent >> 23) * 0.30102999566398119521;
    const double sum = (whole + near.log) + series;
    log = static_cast<float>(sum);

    const std::uint32_t middle = 0x10000000; // of the 29 bits that rounding drops
    const std::uint32_t slack = 1 << 17;     // 2^-36 of the smallest mantissa
    const auto dropped = static_cast<std::uint32_t>(Memory<std::uint64_t>::load(&sum)) & (2 * middle - 1);
    return dropped - (middle - slack) > 2 * slack && above_one < 0x40000000;
}

} // namespace UTILS_SSE_TIER
} // namespace simd
