#include "portable_math.h"

#include <cmath>
#include <limits>

// std::floor, std::frexp, std::ldexp, std::fabs and std::copysign are exact, hence the same everywhere.

namespace echo2image::portable {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

// Constants in two parts: the high part is so short that whole multiples of it, as large as the reductions below need
// them, are exact.
constexpr double half_pi_high = 0x1.921fb544p+0;
constexpr double half_pi_low = 0x1.0b4611a626331p-34;
constexpr double ln2_high = 0x1.62e42fefa2p-1;
constexpr double ln2_low = 0x1.9ef35793c7673p-41;
constexpr double ln10 = 2.30258509299404568402;

// Taylor polynomials; the first term left out is below 1e-18 on the intervals in use, |r| <= pi / 4.
double sin_near_zero(double r)
{
    const double z = r * r;
    double sum = 0;
    for (int n = 18; n >= 2; n -= 2)
        sum = (1.0 + sum) * -z / (n * (n + 1));
    return r + r * sum;
}

double cos_near_zero(double r)
{
    const double z = r * r;
    double sum = 0;
    for (int n = 19; n >= 3; n -= 2)
        sum = (1.0 + sum) * -z / (n * (n + 1));
    return 1.0 - (z * 0.5) * (1.0 + sum);
}

// Takes whole quarter turns off x; `quadrant` is their number modulo 4.
double reduce_quarter_turns(double x, int& quadrant)
{
    const double turns = std::floor(x * (2.0 / pi) + 0.5);
    quadrant = static_cast<int>(turns - 4.0 * std::floor(turns * 0.25));
    return (x - turns * half_pi_high) - turns * half_pi_low;
}

// exp for |r| <= ln(10) / 2.
double exp_near_zero(double r)
{
    double sum = 1.0;
    for (int n = 24; n >= 2; --n)
        sum = 1.0 + sum * r / n;
    return 1.0 + r * sum;
}

} // namespace

double sin(double x)
{
    if (!std::isfinite(x))
        return not_a_number;
    if (x == 0)
        return x; // keeps the sign
    int quadrant = 0;
    const double r = reduce_quarter_turns(x, quadrant);
    const double value = quadrant % 2 == 0 ? sin_near_zero(r) : cos_near_zero(r);
    return quadrant < 2 ? value : -value;
}

double cos(double x)
{
    if (!std::isfinite(x))
        return not_a_number;
    int quadrant = 0;
    const double r = reduce_quarter_turns(x, quadrant);
    const double value = quadrant % 2 == 0 ? cos_near_zero(r) : sin_near_zero(r);
    return quadrant == 0 || quadrant == 3 ? value : -value;
}

double atan2(double y, double x)
{
    if (std::isnan(x) || std::isnan(y))
        return not_a_number;
    double width = std::fabs(x);
    double height = std::fabs(y);
    if (std::isinf(width) && std::isinf(height))
        width = height = 1.0;

    // The angle within an octant, then mirrored into place.
    const double longer = width > height ? width : height;
    const double shorter = width > height ? height : width;
    double angle = 0;
    if (longer == shorter && longer != 0) {
        angle = pi / 4;
    } else if (shorter != 0) {
        // Two halvings bring the tangent below 0.2, where atan's power series is short.
        double t = shorter / longer;
        t = t / (1.0 + std::sqrt(1.0 + t * t));
        t = t / (1.0 + std::sqrt(1.0 + t * t));
        const double z = t * t;
        double sum = 0;
        for (int n = 25; n >= 3; n -= 2)
            sum = z * (1.0 / n - sum);
        angle = 4.0 * (t - t * sum);
    }
    if (height > width)
        angle = pi / 2 - angle;
    if (std::signbit(x))
        angle = pi - angle;
    return std::copysign(angle, y);
}

double exp(double x)
{
    if (std::isnan(x))
        return not_a_number;
    if (x > 709.8)
        return infinity;
    if (x < -746.0)
        return 0.0;
    const double twos = std::floor(x / (ln2_high + ln2_low) + 0.5);
    const double r = (x - twos * ln2_high) - twos * ln2_low;
    return std::ldexp(exp_near_zero(r), static_cast<int>(twos));
}

double log(double x)
{
    if (std::isnan(x) || x < 0)
        return not_a_number;
    if (x == 0)
        return -infinity;
    if (std::isinf(x))
        return x;
    int twos = 0;
    double m = std::frexp(x, &twos);
    if (m < 0.70710678118654752440) {
        m *= 2.0;
        --twos;
    }
    // log m = 2 artanh f with |f| < 0.172
    const double f = (m - 1.0) / (m + 1.0);
    const double z = f * f;
    double sum = 0;
    for (int n = 23; n >= 3; n -= 2)
        sum = z * (1.0 / n + sum);
    const double log_m = 2.0 * (f + f * sum);
    return twos * ln2_high + (twos * ln2_low + log_m);
}

double pow10(double x)
{
    if (std::isnan(x))
        return not_a_number;
    if (x > 308.3)
        return infinity;
    if (x < -324.0)
        return 0.0;
    const double whole = std::floor(x + 0.5);
    const int exponent = static_cast<int>(std::fabs(whole));
    constexpr double powers[] = {1e1, 1e2, 1e4, 1e8, 1e16, 1e32, 1e64, 1e128};
    double power = 1.0;
    for (int bit = 0; bit < 8; ++bit)
        if ((exponent >> bit & 1) != 0)
            power *= powers[bit];
    const double fraction = exp_near_zero((x - whole) * ln10);
    const double last = exponent >= 256 ? 1e256 : 1.0;
    return whole < 0 ? fraction / last / power : fraction * power * last;
}

} // namespace echo2image::portable
