// What memory gives: loops that only read, only write or copy, with registers of 16, 32 and 64 bytes.
#ifndef UTILS_SSE_BENCH_LIMITS_H
#define UTILS_SSE_BENCH_LIMITS_H

#include <cstddef>
#include <string>
#include <vector>

namespace limits {

struct Loop
{
    std::string name;  // "read", "write" or "copy"
    std::string width; // "128", "256" or "512"
    // `bytes` of each array, a multiple of 512
    void (*run)(unsigned char* dst, const unsigned char* src, std::size_t bytes);
    int arrays; // 1, or 2 for a copy
};

// Those that this machine can run.
std::vector<Loop> all();

} // namespace limits

#endif
