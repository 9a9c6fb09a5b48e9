// 32-bit Linux: that functions are entered with the stack where the helper says, and the functions that no sweep drives.
// Sweep and BlockSearch enter all others in the same way.
#include "stack_positions.h"
#include "utils_sse.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <vector>

namespace {

using stack_positions::entered;
using stack_positions::fewest_calls;

// Returns its stack pointer, which points to the return address.
[[gnu::naked]] std::uintptr_t stack_pointer()
{
    asm("mov %esp, %eax; ret");
}

double digits(int a, unsigned short b, float c, int d, int e, int f, int g, int h, int i, int j, int k, int l, int m, int n,
              int o, int p, int q, int r, unsigned char s)
{
    double result = 0;
    for (const double digit :
         {double(a), double(b), double(c), double(d), double(e), double(f), double(g), double(h), double(i), double(j),
          double(k), double(l), double(m), double(n), double(o), double(p), double(q), double(r)})
        result = (result + digit) / 2;
    return result + s;
}

TEST(StackPositions, AllFourAreSeenAndArgumentsArrive)
{
    fewest_calls();
    std::set<std::uintptr_t> positions;
    for (int i = 0; i < 16; ++i)
        positions.insert((entered(&stack_pointer)() + 4) % 16);
    EXPECT_EQ(positions, (std::set<std::uintptr_t>{0, 4, 8, 12}));
    EXPECT_EQ(fewest_calls(), 4u);
    const double expected = digits(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 200);
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(entered(&digits)(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 200), expected);
}

TEST(StackPositions, MemoryAndTables)
{
    const float* const wanted = CUtils_SSE::CreateFFTCoeffs(64);
    fewest_calls();
    for (int i = 0; i < 12; ++i) {
        void* const block = entered(&CUtils_SSE::aligned_malloc)(100, 48);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 48, 0u);
        float* const table = entered(&CUtils_SSE::CreateFFTCoeffs)(64);
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(std::memcmp(table, wanted, 128 * sizeof(float)), 0);
        entered (&CUtils_SSE::aligned_free)(block);
        CUtils_SSE::aligned_free(table);
    }
    EXPECT_GE(fewest_calls(), 8u);
    CUtils_SSE::aligned_free(const_cast<float*>(wanted));
}

} // namespace
