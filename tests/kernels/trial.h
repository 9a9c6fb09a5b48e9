/** @file
 *  Trials: calls of one operation next to its plain loop, which must give the same bits. Arrays lie between inaccessible
 *  pages at any misalignment the contract allows, outputs are poisoned, arguments share memory where they may.
 */
#ifndef UTILS_SSE_TRIAL_H
#define UTILS_SSE_TRIAL_H

#include "guarded_buffer.h"
#include "operations.h"
#include "test_data.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

using Failure = std::optional<std::string>; ///< what went wrong, in several lines

class Trial
{
public:
    Trial(const operations::Operation& operation, operations::AnyFunction plain);

    /** How many ways there are to choose the counts besides the length. */
    std::size_t combinations() const;
    /** The combination with this number, or any, more often one that does something. */
    void choose_counts(long long length, std::optional<std::size_t> combination, Random& random);
    /** Data for these counts and what the plain loop makes of them. `shared`: one of operation.equal, or nothing. */
    void make_data(const std::vector<std::size_t>* shared, bool tame, Random& random);

    enum class Places
    {
        ends,   // every array ends at an inaccessible page
        starts, // or starts there
        any     // either, and up to 15 bytes off
    };
    /** Places the data, calls the library's function and compares. */
    Failure call(Places places, Random& random);

    /** All of it, chosen at random, lengths mostly of a few blocks. */
    Failure any(Random& random);

private:
    using Bytes = std::vector<unsigned char>;
    struct Position
    {
        GuardedBuffer::Against side = GuardedBuffer::Against::end;
        std::size_t offset = 0; // bytes
    };
    struct Listed // one array of a list
    {
        Bytes content;
        GuardedBuffer buffer;
        bool is_shared = false; // lies where the other shared arguments do
    };

    long long any_length(Random& random) const;
    bool is_shared(std::size_t index) const;
    std::size_t home(std::size_t index) const;
    void make_list(std::size_t index, bool tame, Random& random);
    void compute_expected();
    void place(std::size_t index, Random& random);
    void place_list(std::size_t index, Random& random);
    Failure check_result(operations::Value result) const;
    Failure check_array(std::size_t index) const;
    std::string describe() const;
    std::string describe_fault(std::uintptr_t address) const;

    const operations::Operation& operation_;
    const std::vector<operations::Argument>& arguments_;
    operations::AnyFunction plain_;
    std::vector<GuardedBuffer> buffers_;
    std::vector<std::vector<Listed>> lists_; // of arguments that are one

    // The call under test; one entry for each argument.
    operations::Counts counts_;
    const std::vector<std::size_t>* shared_ = nullptr;
    unsigned char poison_ = 0;
    std::vector<Bytes> before_;
    std::vector<Bytes> expected_;
    std::vector<Position> positions_;
    std::vector<operations::Value> values_;
    operations::Value expected_result_;
};

/** Trial::any() for every operation of the table, in its order; those with cases of their own have them here, too. Not to
 *  be shared by threads. `expected`: what results are compared with, in the same order, instead of the plain loops. */
std::vector<std::function<Failure(Random&)>> trials_of_all(const operations::AnyFunction* expected = nullptr);

/** Says how calls were chosen, for failures to be repeated: UTILS_SSE_SEED in the environment, 1 without it. */
unsigned seed_of_tests();

#endif
