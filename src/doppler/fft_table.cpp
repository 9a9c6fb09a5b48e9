// The table of cosines and sines for a transform length.
#include "utils_sse.h"

#include <climits>
#include <cstddef>
#include <initializer_list>

namespace {

struct Point
{
    double cosine, sine;
};

// Cosine and sine of x, 0 <= x < 2 pi, to the last bit of a double or nearly so. C libraries do not agree on them: near the
// zeros, where the table of every length that is a multiple of four has entries, some are wrong in the fifth digit.
Point point_at(double x)
{
    // x less the nearest multiple of pi / 2, which is split so that the first two products and differences are exact.
    const auto quarters = static_cast<int>(x * 0.6366197723675814 + 0.5);
    const double r = ((x - quarters * 0x1.921fb544p+0) - quarters * 0x1.0b4611a6p-34) - quarters * 0x1.3198a2e037073p-69;

    // Taylor series; what is left out is below 1e-17 of the value for |r| <= pi / 4.
    const double z = r * r;
    double sine = 1.0 / 355687428096000;
    for (const double factor :
         {1.0 / 1307674368000, 1.0 / 6227020800, 1.0 / 39916800, 1.0 / 362880, 1.0 / 5040, 1.0 / 120, 1.0 / 6})
        sine = factor - z * sine;
    sine = r - r * z * sine;
    double cosine = 1.0 / 20922789888000;
    for (const double factor : {1.0 / 87178291200, 1.0 / 479001600, 1.0 / 3628800, 1.0 / 40320, 1.0 / 720, 1.0 / 24, 1.0 / 2})
        cosine = factor - z * cosine;
    cosine = 1.0 - z * cosine;

    switch (quarters % 4) {
    case 0:
        return {cosine, sine};
    case 1:
        return {-sine, cosine};
    case 2:
        return {-cosine, -sine};
    default:
        return {sine, -cosine};
    }
}

} // namespace

float* CUtils_SSE::CreateFFTCoeffs(int n)
{
    // A size that does not fit aligned_malloc()'s 32 bits would wrap and give a block that is too small.
    constexpr unsigned alignment = 16;
    if (n > static_cast<int>((UINT_MAX - 4 - alignment) / (2 * sizeof(float))))
        return nullptr;
    const int length = n > 0 ? n : 0;
    auto* const table = static_cast<float*>(
        aligned_malloc(static_cast<unsigned>(2 * sizeof(float)) * static_cast<unsigned>(length), alignment));
    if (table == nullptr)
        return nullptr;
    for (std::ptrdiff_t k = 0; k < length; ++k) {
        const Point point = point_at(static_cast<double>(k) * 6.283185307179586 / length);
        table[k] = static_cast<float>(point.cosine);
        table[length + k] = static_cast<float>(point.sine);
    }
    return table;
}
