// The block-matching searches against their plain loops, bit for bit. UTILS_SSE_SEED in the environment chooses other numbers.
#include "block_search_trial.h"
#include "stack_positions.h"

#include <gtest/gtest.h>

namespace {

class BlockSearch : public testing::TestWithParam<bool>
{
};

TEST_P(BlockSearch, EqualsThePlainLoop)
{
    Random random(seed_of_tests() * 1000u + GetParam());
    Searches searches = kTestedSearches;
#ifdef UTILS_SSE_STACK_POSITIONS
    if (GetParam())
        searches.FineCorrelation = stack_positions::entered(searches.FineCorrelation);
    else
        searches.RoughCorrelation = stack_positions::entered(searches.RoughCorrelation);
    stack_positions::fewest_calls();
#endif
    BlockSearchTrial trial(GetParam(), searches, plain_searches);
    const int cases = GetParam() ? 600 : 4000;
    int filled = 0;
    for (int i = 0; i < cases; ++i) {
        const Failure failure = trial.any(random, i % (cases / 2) == 1);
        ASSERT_FALSE(failure) << *failure << "\n  case " << i << ", UTILS_SSE_SEED=" << seed_of_tests();
        filled += trial.clusters() > 1;
    }
    EXPECT_GT(filled, cases / 50) << "too few cases with several clusters to mean much";
#ifdef UTILS_SSE_STACK_POSITIONS
    EXPECT_GE(stack_positions::fewest_calls(), 10u) << "calls with each position of the stack";
#endif
}

INSTANTIATE_TEST_SUITE_P(Kernels, BlockSearch, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& test) { return test.param ? "Fine" : "Rough"; });

} // namespace
