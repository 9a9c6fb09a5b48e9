/** @file
 *  Numbers that find faults: ordinary ones, ties, limits of every conversion, infinities, NaN, denormals, and runs of them.
 */
#ifndef UTILS_SSE_TEST_DATA_H
#define UTILS_SSE_TEST_DATA_H

#include "operations.h"

#include <cstddef>
#include <random>

using Random = std::mt19937; // the same numbers on every platform, unlike the distributions of <random>

inline std::size_t below(Random& random, std::size_t limit)
{
    return random() % limit;
}

/** Fills an array with one of several mixtures; `tame` asks for finite numbers of moderate size. */
void fill(operations::Element element, void* data, std::size_t count, bool tame, Random& random);

#endif
