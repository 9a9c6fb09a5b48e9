/** @file
 *  Numbers that find faults: ordinary ones, ties, limits of every conversion, infinities, NaN, denormals, and runs of them.
 */
#ifndef UTILS_SSE_TEST_DATA_H
#define UTILS_SSE_TEST_DATA_H

#include "operations.h"

#include <cstddef>
#include <random>

/** Where tests take their choices from: a generator with the same numbers on every platform (unlike the distributions of
 *  <random>), or given bytes, which a fuzzer varies, and that generator when they are used up. */
class Random
{
public:
    explicit Random(std::uint32_t seed) : generator_(seed) {}
    Random(const unsigned char* bytes, std::size_t count)
        : bytes_(bytes), count_(count), generator_(static_cast<std::uint32_t>(count))
    {}

    std::uint32_t operator()() { return next(4); }
    std::size_t below(std::size_t limit) { return next(limit <= 256 ? 1 : 4) % limit; }

private:
    std::uint32_t next(std::size_t bytes)
    {
        if (count_ < bytes) {
            count_ = 0;
            return static_cast<std::uint32_t>(generator_());
        }
        std::uint32_t number = 0;
        for (std::size_t i = 0; i < bytes; ++i)
            number = number << 8 | *bytes_++;
        count_ -= bytes;
        return number;
    }

    const unsigned char* bytes_ = nullptr;
    std::size_t count_ = 0;
    std::mt19937 generator_;
};

inline std::size_t below(Random& random, std::size_t limit)
{
    return random.below(limit);
}

/** Fills an array with one of several mixtures; `tame` asks for finite numbers of moderate size. */
void fill(operations::Element element, void* data, std::size_t count, bool tame, Random& random);

template <class T, std::size_t N>
T one_of(const T (&list)[N], Random& random)
{
    return list[below(random, N)];
}

#endif
