#include "utils_sse.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#ifdef __GLIBC__
#include <malloc.h>
#endif
#ifndef _WIN32
#include <sys/resource.h>
#endif

// The address sanitizer brings a heap of its own, which ends the process when it is full.
#if defined(__SANITIZE_ADDRESS__)
#define OWN_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define OWN_HEAP 1
#endif
#endif

#if defined(__GLIBC__) && !defined(OWN_HEAP)
#if __GLIBC_PREREQ(2, 33) // has mallinfo2
#define COUNTS_HEAP_BYTES 1
#endif
#endif

namespace {

// The heap block that the 4 bytes in front of an aligned block stand for.
void* heap_block(const void* block)
{
    std::uint32_t stored = 0;
    std::memcpy(&stored, static_cast<const char*>(block) - 4, 4);
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    return reinterpret_cast<void*>(address - static_cast<std::uint32_t>(static_cast<std::uint32_t>(address) - stored));
}

TEST(AlignedMemory, BlockLiesInItsHeapBlockAtTheNextMultiple)
{
    for (const unsigned alignment : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 12u, 16u, 24u, 64u, 100u, 4096u, 65537u, 1u << 20})
        for (const unsigned size : {0u, 1u, 15u, 16u, 100u, 4099u, 1u << 20}) {
            SCOPED_TRACE(testing::Message() << "size " << size << ", alignment " << alignment);
            void* const block = CUtils_SSE::aligned_malloc(size, alignment);
            ASSERT_NE(block, nullptr);
            const auto address = reinterpret_cast<std::uintptr_t>(block);
            EXPECT_EQ(address % alignment, 0u);
            const std::uintptr_t gap = address - reinterpret_cast<std::uintptr_t>(heap_block(block));
            EXPECT_GE(gap, 5u);
            EXPECT_LE(gap, 4u + alignment);
            std::memset(block, 0xa5, size);
#ifdef __GLIBC__
            EXPECT_GE(malloc_usable_size(heap_block(block)), size + 4u + alignment);
#endif
            CUtils_SSE::aligned_free(block);
        }
}

#ifdef COUNTS_HEAP_BYTES
TEST(AlignedMemory, FreeReleasesTheHeapBlock)
{
    CUtils_SSE::aligned_free(nullptr);
    const auto in_use = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    for (const unsigned size : {5000u, 200000u, 3u << 20}) { // glibc keeps smaller blocks in its caches
        const std::size_t before = in_use();
        void* const block = CUtils_SSE::aligned_malloc(size, 48);
        const std::size_t during = in_use();
        CUtils_SSE::aligned_free(block);
        const std::size_t after = in_use();
        EXPECT_GE(during, before + size);
        EXPECT_EQ(after, before) << "size " << size;
    }
}
#endif

#if !defined(_WIN32) && !defined(OWN_HEAP)
TEST(AlignedMemory, FullHeapGivesNull)
{
    rlimit old = {};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &old), 0);
    rlimit tight = old;
    tight.rlim_cur = 1u << 20;
    ASSERT_EQ(setrlimit(RLIMIT_AS, &tight), 0);
    void* const block = CUtils_SSE::aligned_malloc(0xe0000000u, 16);
    setrlimit(RLIMIT_AS, &old);
    EXPECT_EQ(block, nullptr);
    CUtils_SSE::aligned_free(block);
}
#endif

#if UINTPTR_MAX > 0xffffffffu
TEST(AlignedMemory, LargestAlignment)
{
    void* const block = CUtils_SSE::aligned_malloc(16, 1u << 31);
    if (!block)
        GTEST_SKIP() << "the heap has no 2 GiB";
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    EXPECT_EQ(address % (1u << 31), 0u);
    EXPECT_LE(address - reinterpret_cast<std::uintptr_t>(heap_block(block)), 4u + (1u << 31));
    CUtils_SSE::aligned_free(block);
}
#endif

TEST(Class, AssignmentReturnsTheObject)
{
    CUtils_SSE a;
    const CUtils_SSE b;
    EXPECT_EQ(&(a = b), &a);
}

} // namespace
