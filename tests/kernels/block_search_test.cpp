// The block-matching searches against their plain loops, bit for bit. UTILS_SSE_SEED in the environment chooses other numbers.
#include "block_search_trial.h"

#include <gtest/gtest.h>

namespace {

class BlockSearch : public testing::TestWithParam<bool>
{
};

TEST_P(BlockSearch, EqualsThePlainLoop)
{
    Random random(seed_of_tests() * 1000u + GetParam());
    BlockSearchTrial trial(GetParam());
    const int cases = GetParam() ? 600 : 4000;
    int filled = 0;
    for (int i = 0; i < cases; ++i) {
        const Failure failure = trial.any(random, i % (cases / 2) == 1);
        ASSERT_FALSE(failure) << *failure << "\n  case " << i << ", UTILS_SSE_SEED=" << seed_of_tests();
        filled += trial.clusters() > 1;
    }
    EXPECT_GT(filled, cases / 50) << "too few cases with several clusters to mean much";
}

INSTANTIATE_TEST_SUITE_P(Kernels, BlockSearch, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& test) { return test.param ? "Fine" : "Rough"; });

} // namespace
