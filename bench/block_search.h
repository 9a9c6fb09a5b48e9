// Benchmarks of the block-matching searches, whose positions must lie inside an image.
#pragma once

#include "operations.h"

#include <string>

// Adds the benchmarks of one implementation. False if its results differ from the library's.
bool add_block_search(const operations::Operation& op, const std::string& implementation, operations::AnyFunction function);
