#include "test_data.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <limits>
#include <stdexcept>

using operations::Element;

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();

const float float_edges[] = {0.0f,          -0.0f,
                             0.5f,          -0.5f,
                             1.0f,          -1.0f,
                             1.5f,          2.5f,
                             -2.5f,         2.6f,
                             3.5f,          127.5f,
                             254.5f,        255.5f,
                             255.49998f,    256.0f,
                             -254.5f,       -255.5f,
                             -300.0f,       32766.5f,
                             32767.0f,      32767.5f,
                             32768.0f,      40000.0f,
                             -32767.0f,     -32767.498f,
                             -32767.5f,     -32768.0f,
                             -32768.5f,     -32769.0f,
                             65535.0f,      65536.0f,
                             70000.0f,      -70000.0f,
                             8388607.5f,    16777216.0f,
                             2147483520.f,  2147483648.f,
                             -2147483520.f, -2147483648.f,
                             -2147483904.f, 4294967296.f,
                             1e8f,          -1e8f,
                             1.9e19f,       1e-23f,
                             1e30f,         -1e30f,
                             FLT_MAX,       -FLT_MAX,
                             FLT_MIN,       -FLT_MIN,
                             FLT_MIN / 3,   1.4e-45f,
                             -1.4e-45f,     infinity,
                             -infinity,     std::numeric_limits<float>::quiet_NaN()};
const float float_units[] = {1.0f, 1.0f, 1.0f, -1.0f, 0.5f, 2.0f};
const short short_edges[] = {-32768, -32767, -16384, -1, 0, 1, 2, 255, 256, 16384, 32766, 32767};
const unsigned short unsigned_short_edges[] = {0, 1, 2, 16, 64, 85, 255, 256, 257, 512, 4096, 32767, 32768, 65280, 65535};
const int int_edges[] = {0, 0, 0, 0, 1, 2, -1, INT_MIN, INT_MAX}; // flags: mostly off
const unsigned char byte_edges[] = {0, 1, 15, 16, 127, 128, 240, 254, 255};

float any_bits(Random& random)
{
    return operations::Value(static_cast<std::uint32_t>(random())).as<float>();
}

// Magnitudes far enough apart that another order of additions gives another sum.
float tame_float(Random& random)
{
    const float mantissa = static_cast<float>(random() >> 8) * 0x1p-23f - 1.0f;
    return std::ldexp(mantissa, static_cast<int>(below(random, 18)) - 6);
}

float tie(Random& random)
{
    const float centre = below(random, 4) ? 0.0f : one_of({255.0f, 32767.0f, -32768.0f, 65536.0f}, random);
    return centre + (static_cast<float>(below(random, 2400)) - 1200.0f) * 0.25f;
}

// Runs of 1 to 9 values: whole blocks of one edge as well as neighbours of different kinds.
template <class T, class Next>
void fill_runs(T* data, std::size_t count, Random& random, Next next)
{
    for (std::size_t i = 0; i < count;) {
        const T value = next();
        for (std::size_t end = std::min(count, i + 1 + below(random, 9)); i < end; ++i)
            data[i] = value;
    }
}

template <class T, class Next>
void fill_each(T* data, std::size_t count, Next next)
{
    for (std::size_t i = 0; i < count; ++i)
        data[i] = next();
}

void fill_floats(float* data, std::size_t count, bool tame, Random& random)
{
    switch (tame ? 0 : below(random, 7)) {
    case 0:
        return fill_each(data, count, [&] { return tame_float(random); });
    case 1:
        return fill_each(data, count, [&] { return tie(random); });
    case 2:
        return fill_each(data, count, [&] { return one_of(float_edges, random); });
    case 3:
        return fill_runs(data, count, random,
                         [&] { return below(random, 4) ? one_of(float_edges, random) : any_bits(random); });
    case 4:
        return fill_each(data, count, [&] { return one_of(float_units, random); });
    case 5: // mostly ordinary, so that one special value stands alone in its block
        return fill_each(data, count, [&] { return below(random, 16) ? tame_float(random) : one_of(float_edges, random); });
    default: {
        const float value = one_of(float_edges, random);
        return fill_each(data, count, [&] { return value; });
    }
    }
}

template <class T, std::size_t N>
void fill_integers(T* data, std::size_t count, bool tame, const T (&edges)[N], Random& random)
{
    switch (tame ? 0 : below(random, 4)) {
    case 0:
        return fill_each(data, count, [&] { return static_cast<T>(random() >> 16); });
    case 1:
        return fill_each(data, count, [&] { return one_of(edges, random); });
    case 2:
        return fill_runs(data, count, random, [&] { return one_of(edges, random); });
    default: {
        const T value = one_of(edges, random);
        return fill_each(data, count, [&] { return value; });
    }
    }
}

} // namespace

void fill(Element element, void* data, std::size_t count, bool tame, Random& random)
{
    switch (element) {
    case Element::float32:
        return fill_floats(static_cast<float*>(data), count, tame, random);
    case Element::int16:
        return fill_integers(static_cast<short*>(data), count, tame, short_edges, random);
    case Element::uint16:
        return fill_integers(static_cast<unsigned short*>(data), count, tame, unsigned_short_edges, random);
    case Element::uint8:
        return fill_integers(static_cast<unsigned char*>(data), count, tame, byte_edges, random);
    case Element::int32:
        return fill_integers(static_cast<int*>(data), count, tame, int_edges, random);
    case Element::float64:
    case Element::int64:
    case Element::none:
        break;
    }
    throw std::logic_error("no test data for this type of element");
}
