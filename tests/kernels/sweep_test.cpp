// Every operation of the table against its plain loop, bit for bit: every length past several blocks and some long ones,
// inaccessible pages at both ends of every array, all misalignments, every allowed sharing of memory, poisoned outputs.
// UTILS_SSE_SEED in the environment chooses other numbers; UTILS_SSE_EFFORT=quick runs every third length beyond 20 with fewer
// counts and data sets, for emulated processors: still body, groups and tail of every function.
#include "stack_positions.h"
#include "trial.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>

namespace operations {
extern void (*const plain_reference_functions[])();
}

namespace {

using operations::Operation;
using Places = Trial::Places;

// How much is run.
struct Effort
{
    int step;                 // from one length to the next, from 20 on
    std::size_t combinations; // of other counts, with each length up to several blocks
    int data_sets;
    std::size_t long_combinations; // with each of the long lengths
    int long_data_sets;
};

Effort effort()
{
    const char* const text = std::getenv("UTILS_SSE_EFFORT");
    return text && std::strcmp(text, "quick") == 0 ? Effort{3, 4, 2, 1, 1} : Effort{1, 16, 6, 4, 2};
}

Operation operation_under_test(std::size_t number)
{
    Operation operation = operations::all()[number];
#ifdef UTILS_SSE_STACK_POSITIONS
    operation.function = stack_positions::entered(operation.function);
    stack_positions::fewest_calls();
#endif
    return operation;
}

class Sweeper
{
public:
    explicit Sweeper(std::size_t number)
        : operation_(operation_under_test(number)), trial_(operation_, operations::plain_reference_functions[number]),
          random_(seed_of_tests() * 1000u + static_cast<unsigned>(number))
    {}

    Failure run()
    {
        const Effort e = effort();
        const int all_up_to = std::max(70, 9 * operation_.block);
        for (int length = 0; length <= all_up_to; length += length < 20 ? 1 : e.step)
            if (Failure failure = run_length(length, e.combinations, e.data_sets))
                return failure;
        for (const long long length : {INT_MIN, -17, -5, -1, 255, 256, 257, 300, 1023, 4099})
            if (length > 300 && operation_.takes_ensemble)
                break; // the matrix of 4099 firings fills 64 MB
            else if (Failure failure = run_length(length, e.long_combinations, e.long_data_sets))
                return failure;
        for (const long long length : operation_.length().swept)
            if (Failure failure = run_length(length, e.long_combinations, e.long_data_sets))
                return failure;
        return std::nullopt;
    }

private:
    Failure run_length(long long length, std::size_t most_combinations, int data_sets)
    {
        if (!operation_.length().allows(length))
            return std::nullopt;
        const std::size_t combinations = trial_.combinations();
        for (std::size_t c = 0; c < std::min(combinations, most_combinations); ++c) {
            trial_.choose_counts(length, combinations <= most_combinations ? std::optional(c) : std::nullopt, random_);
            if (Failure failure = run_data(nullptr, data_sets))
                return failure;
            for (const auto& shared : operation_.equal)
                if (Failure failure = run_data(&shared, 2))
                    return failure;
        }
        return std::nullopt;
    }

    Failure run_data(const std::vector<std::size_t>* shared, int data_sets)
    {
        for (int i = 0; i < data_sets; ++i) {
            trial_.make_data(shared, i == 0, random_);
            for (const Places places : {Places::ends, Places::starts, Places::any, Places::any})
                if (Failure failure = trial_.call(places, random_))
                    return failure;
        }
        return std::nullopt;
    }

    const Operation operation_;
    Trial trial_;
    Random random_;
};

class Sweep : public testing::TestWithParam<std::size_t>
{
};

TEST_P(Sweep, EqualsThePlainLoop)
{
    if (const Failure failure = Sweeper(GetParam()).run())
        FAIL() << *failure << "\n  UTILS_SSE_SEED=" << seed_of_tests();
#ifdef UTILS_SSE_STACK_POSITIONS
    EXPECT_GE(stack_positions::fewest_calls(), 10u) << "calls with each position of the stack";
#endif
}

std::string test_name(const testing::TestParamInfo<std::size_t>& test)
{
    std::string name = operations::all()[test.param].title();
    std::replace(name.begin(), name.end(), ' ', '_');
    name.erase(std::remove_if(name.begin(), name.end(), [](char c) { return c == '(' || c == ')'; }), name.end());
    return name;
}

std::vector<std::size_t> swept()
{
    std::vector<std::size_t> indices;
    for (std::size_t i = 0; i < operations::all().size(); ++i)
        if (operations::all()[i].own_cases.empty())
            indices.push_back(i);
    return indices;
}

INSTANTIATE_TEST_SUITE_P(Kernels, Sweep, testing::ValuesIn(swept()), test_name);

} // namespace
