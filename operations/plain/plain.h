/** @file
 *  What each operation means: the loop a user would write, with exactly the results that utils_sse.h promises. The tests
 *  compare the library with these loops, and the benchmarks race it against them. Nothing here is tuned, and nothing
 *  depends on the order in which a compiler evaluates what the contract leaves open.
 *
 *  The includer names the struct with PLAIN_LIBRARY.
 */
#ifndef PLAIN_LIBRARY
#error "PLAIN_LIBRARY must name the struct that holds the loops"
#endif

#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

struct PLAIN_LIBRARY
{
#include "numbers.inc"

#include "vector.inc"

#include "integer_vectors.inc"

#include "envelope.inc"

#include "envelope_fixed.inc"

#include "envelope_sums.inc"

#include "envelope_smoothing.inc"

#include "interpolation.inc"

#include "harmonic_pairs.inc"

#include "upsample.inc"

#include "bands.inc"

#include "medians.inc"

#include "mask_averages.inc"

#include "frame_averages.inc"

#include "small_filters.inc"

#include "ensembles.inc"

#include "colour_lines.inc"

#include "fft.inc"

#include "similarity.inc"

#include "block_search.inc"

#include "centroid.inc"

#include "pixel.inc"
};
