/** @file
 *  Benchmarks of the functions that take the ensemble of one pixel: a frame of many pixels in each run.
 */
#ifndef UTILS_SSE_BENCH_ENSEMBLES_H
#define UTILS_SSE_BENCH_ENSEMBLES_H

#include "operations.h"

#include <string>

/** Registers "<operation>/N=8/<candidate>" and so on; `functions` in the order of operations::all(), null for the library.
 *  @return false, with a message, when the results differ from the library's */
bool register_ensembles(const std::string& candidate, const operations::AnyFunction* functions);

#endif
