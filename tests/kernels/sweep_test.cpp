// Every operation of the table against its plain loop, bit for bit: every length past several blocks and some long ones,
// inaccessible pages at both ends of every array, all misalignments, every allowed sharing of memory, poisoned outputs.
// UTILS_SSE_SEED in the environment chooses other numbers; UTILS_SSE_EFFORT=quick runs every third length beyond 20 with fewer
// counts and data sets, for emulated processors: still body, groups and tail of every function.
#include "fault.h"
#include "guarded_buffer.h"
#include "operations.h"
#include "stack_positions.h"
#include "test_data.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <sstream>
#include <xmmintrin.h>

namespace operations {
extern void (*const plain_reference_functions[])();
}

namespace {

using operations::AnyFunction;
using operations::Argument;
using operations::Counts;
using operations::Element;
using operations::Operation;
using operations::Role;
using operations::Value;
using Against = GuardedBuffer::Against;
using Bytes = std::vector<unsigned char>;
using Failure = std::optional<std::string>;

unsigned seed()
{
    static const char* const text = std::getenv("UTILS_SSE_SEED");
    static const auto value = text ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : 1u;
    return value;
}

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

unsigned control_bits()
{
    return _mm_getcsr() & 0xffc0u; // without the sticky exception flags
}

bool same(Element element, const unsigned char* a, const unsigned char* b, std::size_t size)
{
    if (std::memcmp(a, b, size) == 0)
        return true;
    const auto both_nan = [&](auto x, auto y) {
        std::memcpy(&x, a, sizeof x);
        std::memcpy(&y, b, sizeof y);
        return std::isnan(x) && std::isnan(y);
    };
    return (element == Element::float32 && both_nan(0.0f, 0.0f)) || (element == Element::float64 && both_nan(0.0, 0.0));
}

std::string shown(Element element, const unsigned char* value)
{
    std::ostringstream text;
    std::uint32_t bits = 0;
    switch (element) {
    case Element::float32:
        std::memcpy(&bits, value, 4);
        text << std::setprecision(9) << Value(bits).as<float>() << " (0x" << std::hex << bits << ")";
        break;
    case Element::int32:
        std::memcpy(&bits, value, 4);
        text << static_cast<std::int32_t>(bits);
        break;
    case Element::int16:
        std::memcpy(&bits, value, 2);
        text << static_cast<std::int16_t>(bits);
        break;
    case Element::float64: {
        double number = 0;
        std::memcpy(&number, value, sizeof number);
        text << std::setprecision(17) << number;
        break;
    }
    case Element::int64: {
        long long number = 0;
        std::memcpy(&number, value, sizeof number);
        text << number;
        break;
    }
    case Element::uint16:
        std::memcpy(&bits, value, 2);
        text << bits;
        break;
    case Element::uint8:
    case Element::none:
        text << static_cast<int>(*value);
        break;
    }
    return text.str();
}

// Where an argument lies.
struct Position
{
    Against side = Against::end;
    std::size_t offset = 0; // bytes
};

class Sweeper
{
public:
    Sweeper(const Operation& operation, AnyFunction plain, unsigned number)
        : operation_(operation), arguments_(operation.arguments), plain_(plain), random_(seed() * 1000u + number),
          buffers_(arguments_.size()), lists_(arguments_.size()), before_(arguments_.size()), expected_(arguments_.size()),
          positions_(arguments_.size()), values_(arguments_.size())
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
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    // One array of a list.
    struct Listed
    {
        Bytes content;
        GuardedBuffer buffer;
        bool is_shared = false; // lies where the other shared arguments do
    };

    Failure run_length(long long length, std::size_t most_combinations, int data_sets)
    {
        if (!operation_.length().allows(length))
            return std::nullopt;
        std::size_t combinations = 1;
        for (const Argument& argument : arguments_)
            combinations *= argument.is_length ? 1 : std::max<std::size_t>(argument.swept.size(), 1);
        const bool enumerate = combinations <= most_combinations;
        for (std::size_t c = 0; c < std::min(combinations, most_combinations); ++c) {
            choose_counts(length, enumerate ? c : npos);
            for (int i = 0; i < data_sets; ++i)
                if (Failure failure = run_data(nullptr, i))
                    return failure;
            for (const auto& shared : operation_.equal)
                for (int i = 0; i < 2; ++i)
                    if (Failure failure = run_data(&shared, i))
                        return failure;
        }
        return std::nullopt;
    }

    // The combination of the other counts' values with this number, or any, more often one that does something.
    void choose_counts(long long length, std::size_t number)
    {
        std::vector<long long> chosen(arguments_.size(), 0);
        for (std::size_t i = 0; i < arguments_.size(); ++i) {
            const Argument& argument = arguments_[i];
            const std::size_t values = argument.swept.size();
            if (argument.is_length)
                chosen[i] = length;
            else if (values && number != npos) {
                chosen[i] = argument.swept[number % values];
                number /= values;
            } else if (values) {
                for (int tries = 0; tries == 0 || (tries < 3 && chosen[i] < 0); ++tries)
                    chosen[i] = argument.swept[below(random_, values)];
            }
            if (argument.member)
                counts_.*argument.member = chosen[i];
        }
        operation_.place_relative_counts(counts_, chosen);
    }

    Failure run_data(const std::vector<std::size_t>* shared, int data_set)
    {
        shared_ = shared;
        data_set_ = data_set;
        poison_ = data_set % 2 ? 0x5a : 0xa5;
        make_data();
        compute_expected();
        for (const int placement : {0, 1, 2, 3}) {
            for (Position& position : positions_) {
                position.side = placement == 0 || (placement > 1 && below(random_, 2)) ? Against::end : Against::start;
                position.offset = placement < 2 ? 0 : below(random_, 16);
            }
            if (Failure failure = check_call())
                return failure;
        }
        return std::nullopt;
    }

    bool is_shared(std::size_t index) const
    {
        return shared_ && std::find(shared_->begin(), shared_->end(), index) != shared_->end();
    }

    // The argument whose memory this one uses.
    std::size_t home(std::size_t index) const
    {
        return is_shared(index) && !arguments_[index].is_list() ? shared_->front() : index;
    }

    void make_data()
    {
        std::size_t source = npos; // of what shared arguments have in common
        for (std::size_t i = 0; i < arguments_.size(); ++i) {
            const Argument& argument = arguments_[i];
            const bool tame = data_set_ == 0 || argument.is_finite;
            if (argument.role == Role::count)
                values_[i] = Value(static_cast<int>(counts_.*argument.member));
            if (argument.role == Role::scalar) {
                unsigned char bytes[8] = {};
                fill(argument.element, bytes, 1, tame, random_);
                std::memcpy(&values_[i], bytes, sizeof bytes);
            }
            before_[i].assign(argument.bytes_before(counts_) + argument.bytes(counts_) + argument.bytes_beyond(counts_),
                              poison_);
            if (argument.is_list()) {
                make_list(i, tame);
            } else if (argument.role == Role::in || argument.role == Role::inout) {
                fill(argument.element, before_[i].data(), before_[i].size() / argument.element_size, tame, random_);
                if (is_shared(i))
                    source = i;
            }
        }
        if (!shared_)
            return;
        if (source != npos)
            for (const std::size_t i : *shared_)
                before_[i] = before_[source];
        for (const std::size_t i : *shared_)
            for (const Listed& listed : lists_[i])
                if (listed.is_shared)
                    before_[home(shared_->front())] = listed.content;
    }

    // The arrays of a list; of a shared one, one of them is.
    void make_list(std::size_t index, bool tame)
    {
        const Argument& argument = arguments_[index];
        std::vector<Listed>& list = lists_[index];
        list.resize(argument.extent(counts_));
        for (Listed& listed : list) {
            listed.content.assign(argument.listed_bytes(counts_), poison_);
            fill(argument.element, listed.content.data(), listed.content.size() / argument.listed_element_size, tame, random_);
            listed.is_shared = false;
        }
        if (is_shared(index) && !list.empty())
            list[below(random_, list.size())].is_shared = true;
    }

    // Writes the addresses of a list's arrays into its table of pointers.
    template <class Address>
    void point_to(Bytes& table, std::vector<Listed>& list, const Address& address)
    {
        for (std::size_t i = 0; i < list.size(); ++i) {
            const unsigned char* const pointer = address(list[i]);
            std::memcpy(table.data() + i * sizeof pointer, &pointer, sizeof pointer);
        }
    }

    void place_list(std::size_t index)
    {
        point_to(before_[index], lists_[index], [&](Listed& listed) -> const unsigned char* {
            if (listed.is_shared)
                return buffers_[shared_->front()].data();
            const Against side = below(random_, 2) ? Against::end : Against::start;
            const std::size_t size = arguments_[index].listed_element_size;
            listed.buffer.place(listed.content.size(), size, side, below(random_, 16) / size * size, poison_);
            if (!listed.content.empty())
                std::memcpy(listed.buffer.data(), listed.content.data(), listed.content.size());
            return listed.buffer.data();
        });
    }

    // Without sharing: what it is like in place follows from what it is like out of place.
    void compute_expected()
    {
        expected_ = before_;
        for (std::size_t i = 0; i < arguments_.size(); ++i)
            point_to(expected_[i], lists_[i], [](const Listed& listed) { return listed.content.data(); });
        for (std::size_t i = 0; i < arguments_.size(); ++i)
            if (arguments_[i].is_array())
                values_[i] = Value(expected_[i].data() + arguments_[i].bytes_before(counts_));
        expected_result_ = operation_.call(plain_, values_);
    }

    Failure check_call()
    {
        for (const bool lists : {false, true}) // a list may point to an array that is placed as another argument
            for (std::size_t i = 0; i < arguments_.size(); ++i)
                if (arguments_[i].is_array() && arguments_[i].is_list() == lists && home(i) == i)
                    place(i);
        for (std::size_t i = 0; i < arguments_.size(); ++i)
            if (arguments_[i].is_array())
                values_[i] = Value(buffers_[home(i)].data() + arguments_[i].bytes_before(counts_));

        const unsigned control = control_bits();
        Value result;
        if (Failure fault = fault_of([&] { result = operation_.call(operation_.function, values_); },
                                     [&](std::uintptr_t address) { return describe_fault(address); }))
            return fault;
        if (control_bits() != control)
            return describe() + "\n  the control bits of MXCSR changed";

        unsigned char found[8];
        unsigned char wanted[8];
        std::memcpy(found, &result, sizeof found);
        std::memcpy(wanted, &expected_result_, sizeof wanted);
        if (operation_.result_element != Element::none && !same(operation_.result_element, wanted, found, sizeof found))
            return describe() + "\n  result: expected " + shown(operation_.result_element, wanted) + ", found " +
                   shown(operation_.result_element, found);
        for (std::size_t i = 0; i < arguments_.size(); ++i)
            if (arguments_[i].is_array())
                if (Failure failure = check_array(i))
                    return failure;
        return std::nullopt;
    }

    void place(std::size_t index)
    {
        place_list(index);
        std::size_t alignment = arguments_[index].alignment_at(counts_);
        for (std::size_t i = 0; i < arguments_.size(); ++i)
            if (home(i) == index)
                alignment = std::max(alignment, arguments_[i].alignment_at(counts_));
        Position& position = positions_[index];
        position.offset -= position.offset % alignment;
        const Bytes& content = before_[index];
        buffers_[index].place(content.size(), alignment, position.side, position.offset, poison_);
        if (!content.empty())
            std::memcpy(buffers_[index].data(), content.data(), content.size());
    }

    Failure check_array(std::size_t index) const
    {
        const Argument& argument = arguments_[index];
        const GuardedBuffer& buffer = buffers_[home(index)];
        if (home(index) == index)
            if (const auto where = buffer.stray_write())
                return describe() + "\n  written outside " + argument.name + ", at byte " + std::to_string(*where) + " of " +
                       std::to_string(buffer.bytes());
        for (std::size_t i = 0; i < lists_[index].size(); ++i) {
            const Listed& listed = lists_[index][i];
            if (!listed.is_shared && (listed.buffer.stray_write() ||
                                      !std::equal(listed.content.begin(), listed.content.end(), listed.buffer.data())))
                return describe() + "\n  written to or around " + argument.name + "[" + std::to_string(i) + "]";
        }
        if (home(index) != index && !argument.is_written())
            return std::nullopt;
        const Bytes& expected = argument.is_written() ? expected_[index] : before_[index];
        const std::size_t size = argument.element_size;
        if (expected.empty() || std::memcmp(expected.data(), buffer.data(), expected.size()) == 0)
            return std::nullopt;
        for (std::size_t i = 0; i < expected.size() / size; ++i)
            if (!same(argument.is_written() ? argument.element : Element::none, &expected[i * size], buffer.data() + i * size,
                      size))
                return describe() + describe_difference(argument, expected, buffer.data(), i);
        return std::nullopt;
    }

    std::string describe() const
    {
        std::ostringstream text;
        text << operation_.title() << ":";
        for (const Argument& argument : arguments_)
            if (argument.member)
                text << " " << argument.name << "=" << counts_.*argument.member;
        for (std::size_t i = 0; i < arguments_.size(); ++i)
            if (arguments_[i].role == Role::scalar) {
                unsigned char bytes[8];
                std::memcpy(bytes, &values_[i], sizeof bytes);
                text << " " << arguments_[i].name << "=" << shown(arguments_[i].element, bytes);
            }
        text << "\n  bytes between array and inaccessible page:";
        for (std::size_t i = 0; i < arguments_.size(); ++i)
            if (arguments_[i].is_array() && home(i) == i)
                text << " " << arguments_[i].name << " " << positions_[i].offset
                     << (positions_[i].side == Against::end ? " (behind)" : " (before)");
        if (shared_) {
            text << "\n  one array:";
            for (const std::size_t i : *shared_)
                text << " " << arguments_[i].name;
        }
        text << "\n  data set " << data_set_ << ", UTILS_SSE_SEED=" << seed();
        return text.str();
    }

    std::uintptr_t start_of(std::size_t index) const
    {
        return reinterpret_cast<std::uintptr_t>(buffers_[index].data() + arguments_[index].bytes_before(counts_));
    }

    std::string describe_fault(std::uintptr_t address) const
    {
        std::ostringstream text;
        text << describe() << "\n  fault at address 0x" << std::hex << address << std::dec;
        for (std::size_t i = 0; i < arguments_.size(); ++i)
            if (arguments_[i].is_array() && home(i) == i && buffers_[i].owns(address))
                text << ": byte " << static_cast<std::ptrdiff_t>(address - start_of(i)) << " of " << arguments_[i].name
                     << ", which has " << buffers_[i].bytes();
        for (std::size_t i = 0; i < arguments_.size(); ++i)
            for (std::size_t k = 0; k < lists_[i].size(); ++k)
                if (!lists_[i][k].is_shared && lists_[i][k].buffer.owns(address))
                    text << ": " << arguments_[i].name << "[" << k << "], at byte "
                         << static_cast<std::ptrdiff_t>(address - reinterpret_cast<std::uintptr_t>(lists_[i][k].buffer.data()))
                         << " of " << lists_[i][k].buffer.bytes();
        return text.str();
    }

    static std::string describe_difference(const Argument& argument, const Bytes& expected, const unsigned char* found,
                                           std::size_t index)
    {
        const std::size_t count = expected.size() / argument.element_size;
        std::ostringstream text;
        text << "\n  first difference at " << argument.name << "[" << index << "] of " << count;
        for (std::size_t i = index < 3 ? 0 : index - 3; i < std::min(count, index + 4); ++i)
            text << "\n    [" << i << "] expected " << shown(argument.element, &expected[i * argument.element_size])
                 << ", found " << shown(argument.element, found + i * argument.element_size);
        return text.str();
    }

    const Operation& operation_;
    const std::vector<Argument>& arguments_;
    AnyFunction plain_;
    Random random_;
    std::vector<GuardedBuffer> buffers_;
    std::vector<std::vector<Listed>> lists_; // of arguments that are one

    // The call under test; one entry for each argument.
    Counts counts_;
    const std::vector<std::size_t>* shared_ = nullptr;
    int data_set_ = 0;
    unsigned char poison_ = 0;
    std::vector<Bytes> before_;
    std::vector<Bytes> expected_;
    std::vector<Position> positions_;
    std::vector<Value> values_;
    Value expected_result_;
};

class Sweep : public testing::TestWithParam<std::size_t>
{
};

TEST_P(Sweep, EqualsThePlainLoop)
{
    Operation operation = operations::all()[GetParam()];
#ifdef UTILS_SSE_STACK_POSITIONS
    operation.function = stack_positions::entered(operation.function);
    stack_positions::fewest_calls();
#endif
    Sweeper sweeper(operation, operations::plain_reference_functions[GetParam()], static_cast<unsigned>(GetParam()));
    if (const Failure failure = sweeper.run())
        FAIL() << *failure;
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
