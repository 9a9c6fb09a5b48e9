// Aligned heap blocks, and the class's one member that is not static.
#include "utils_sse.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

CUtils_SSE& CUtils_SSE::operator=(const CUtils_SSE&)
{
    return *this;
}

// A block in its heap block:
//   | at least 1 byte | low 32 bits of the heap block's address | block: size bytes |
// The block starts at most 4 + alignment bytes behind the heap block, a distance of 32 bits, so the low halves of the two
// addresses are enough to find the way back on any word size.

void* CUtils_SSE::aligned_malloc(unsigned int size, unsigned int alignment)
{
    void* heap_block = std::malloc(size + 4u + alignment);
    if (heap_block == nullptr)
        return nullptr;
    const std::uintptr_t p = reinterpret_cast<std::uintptr_t>(heap_block) + 4u;
    // Always at least one step on, even where p is a multiple already.
    const std::uintptr_t gap = 4u + (alignment - p % alignment);
    unsigned char* block = static_cast<unsigned char*>(heap_block) + gap;
    const auto stored = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(heap_block));
    std::memcpy(block - sizeof stored, &stored, sizeof stored);
    return block;
}

void CUtils_SSE::aligned_free(void* block)
{
    if (block == nullptr)
        return;
    std::uint32_t stored;
    std::memcpy(&stored, static_cast<unsigned char*>(block) - sizeof stored, sizeof stored);
    const std::uint32_t gap = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(block)) - stored;
    std::free(static_cast<unsigned char*>(block) - gap);
}
