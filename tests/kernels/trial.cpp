#include "trial.h"

#include "fault.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <sstream>
#include <xmmintrin.h>

using operations::AnyFunction;
using operations::Argument;
using operations::Element;
using operations::Operation;
using operations::Role;
using operations::Value;
using Against = GuardedBuffer::Against;

namespace {

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

std::string describe_difference(const Argument& argument, const std::vector<unsigned char>& expected,
                                const unsigned char* found, std::size_t index)
{
    const std::size_t count = expected.size() / argument.element_size;
    std::ostringstream text;
    text << "\n  first difference at " << argument.name << "[" << index << "] of " << count;
    for (std::size_t i = index < 3 ? 0 : index - 3; i < std::min(count, index + 4); ++i)
        text << "\n    [" << i << "] expected " << shown(argument.element, &expected[i * argument.element_size]) << ", found "
             << shown(argument.element, found + i * argument.element_size);
    return text.str();
}

// Writes the addresses of a list's arrays into its table of pointers.
template <class Listed, class Address>
void point_to(std::vector<unsigned char>& table, std::vector<Listed>& list, const Address& address)
{
    for (std::size_t i = 0; i < list.size(); ++i) {
        const unsigned char* const pointer = address(list[i]);
        std::memcpy(table.data() + i * sizeof pointer, &pointer, sizeof pointer);
    }
}

} // namespace

Trial::Trial(const Operation& operation, AnyFunction plain)
    : operation_(operation), arguments_(operation.arguments), plain_(plain), buffers_(arguments_.size()),
      lists_(arguments_.size()), before_(arguments_.size()), expected_(arguments_.size()), positions_(arguments_.size()),
      values_(arguments_.size())
{}

std::size_t Trial::combinations() const
{
    std::size_t combinations = 1;
    for (const Argument& argument : arguments_)
        combinations *= argument.is_length ? 1 : std::max<std::size_t>(argument.swept.size(), 1);
    return combinations;
}

void Trial::choose_counts(long long length, std::optional<std::size_t> combination, Random& random)
{
    std::vector<long long> chosen(arguments_.size(), 0);
    for (std::size_t i = 0; i < arguments_.size(); ++i) {
        const Argument& argument = arguments_[i];
        const std::size_t values = argument.swept.size();
        if (argument.is_length)
            chosen[i] = length;
        else if (values && combination) {
            chosen[i] = argument.swept[*combination % values];
            *combination /= values;
        } else if (values) {
            for (int tries = 0; tries == 0 || (tries < 3 && chosen[i] < 0); ++tries)
                chosen[i] = argument.swept[below(random, values)];
        }
        if (argument.member)
            counts_.*argument.member = chosen[i];
    }
    operation_.place_relative_counts(counts_, chosen);
}

bool Trial::is_shared(std::size_t index) const
{
    return shared_ && std::find(shared_->begin(), shared_->end(), index) != shared_->end();
}

// The argument whose memory this one uses.
std::size_t Trial::home(std::size_t index) const
{
    return is_shared(index) && !arguments_[index].is_list() ? shared_->front() : index;
}

void Trial::make_data(const std::vector<std::size_t>* shared, bool all_tame, Random& random)
{
    shared_ = shared;
    poison_ = below(random, 2) ? 0x5a : 0xa5;
    constexpr auto npos = static_cast<std::size_t>(-1);
    std::size_t source = npos; // of what shared arguments have in common
    for (std::size_t i = 0; i < arguments_.size(); ++i) {
        const Argument& argument = arguments_[i];
        const bool tame = all_tame || argument.is_finite;
        if (argument.role == Role::count)
            values_[i] = Value(static_cast<int>(counts_.*argument.member));
        if (argument.role == Role::scalar) {
            unsigned char bytes[8] = {};
            fill(argument.element, bytes, 1, tame, random);
            std::memcpy(&values_[i], bytes, sizeof bytes);
        }
        before_[i].assign(argument.bytes_before(counts_) + argument.bytes(counts_) + argument.bytes_beyond(counts_), poison_);
        if (argument.is_list()) {
            make_list(i, tame, random);
        } else if (argument.role == Role::in || argument.role == Role::inout) {
            fill(argument.element, before_[i].data(), before_[i].size() / argument.element_size, tame, random);
            if (is_shared(i))
                source = i;
        }
    }
    if (shared_ && source != npos)
        for (const std::size_t i : *shared_)
            before_[i] = before_[source];
    if (shared_)
        for (const std::size_t i : *shared_)
            for (const Listed& listed : lists_[i])
                if (listed.is_shared)
                    before_[home(shared_->front())] = listed.content;
    compute_expected();
}

// The arrays of a list; of a shared one, one of them is.
void Trial::make_list(std::size_t index, bool tame, Random& random)
{
    const Argument& argument = arguments_[index];
    std::vector<Listed>& list = lists_[index];
    list.resize(argument.extent(counts_));
    for (Listed& listed : list) {
        listed.content.assign(argument.listed_bytes(counts_), poison_);
        fill(argument.element, listed.content.data(), listed.content.size() / argument.listed_element_size, tame, random);
        listed.is_shared = false;
    }
    if (is_shared(index) && !list.empty())
        list[below(random, list.size())].is_shared = true;
}

void Trial::place_list(std::size_t index, Random& random)
{
    point_to(before_[index], lists_[index], [&](Listed& listed) -> const unsigned char* {
        if (listed.is_shared)
            return buffers_[shared_->front()].data();
        const Against side = below(random, 2) ? Against::end : Against::start;
        const std::size_t size = arguments_[index].listed_element_size;
        listed.buffer.place(listed.content.size(), size, side, below(random, 16) / size * size, poison_);
        if (!listed.content.empty())
            std::memcpy(listed.buffer.data(), listed.content.data(), listed.content.size());
        return listed.buffer.data();
    });
}

// Without sharing: what it is like in place follows from what it is like out of place.
void Trial::compute_expected()
{
    expected_ = before_;
    for (std::size_t i = 0; i < arguments_.size(); ++i)
        point_to(expected_[i], lists_[i], [](const Listed& listed) { return listed.content.data(); });
    for (std::size_t i = 0; i < arguments_.size(); ++i)
        if (arguments_[i].is_array())
            values_[i] = Value(expected_[i].data() + arguments_[i].bytes_before(counts_));
    expected_result_ = operation_.call(plain_, values_);
}

Failure Trial::call(Places places, Random& random)
{
    for (Position& position : positions_) {
        const bool any = places == Places::any;
        position.side = places == Places::ends || (any && below(random, 2)) ? Against::end : Against::start;
        position.offset = any ? below(random, 16) : 0;
    }
    for (const bool lists : {false, true}) // a list may point to an array that is placed as another argument
        for (std::size_t i = 0; i < arguments_.size(); ++i)
            if (arguments_[i].is_array() && arguments_[i].is_list() == lists && home(i) == i)
                place(i, random);
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
    if (Failure failure = check_result(result))
        return failure;
    for (std::size_t i = 0; i < arguments_.size(); ++i)
        if (arguments_[i].is_array())
            if (Failure failure = check_array(i))
                return failure;
    return std::nullopt;
}

Failure Trial::any(Random& random)
{
    choose_counts(any_length(random), std::nullopt, random);
    const auto& sets = operation_.equal;
    const std::size_t set = below(random, 2 * sets.size() + 1);
    make_data(set < sets.size() ? &sets[set] : nullptr, below(random, 6) == 0, random);
    return call(one_of({Places::ends, Places::starts, Places::any, Places::any}, random), random);
}

long long Trial::any_length(Random& random) const
{
    const Argument& argument = operation_.length();
    const std::size_t kind = below(random, 32);
    if (kind > 3 && !argument.swept.empty())
        return argument.swept[below(random, below(random, argument.swept.size()) + 1)]; // rather the small ones
    if (kind == 0)
        return one_of({INT_MIN, -17, -5, -1}, random);
    const std::size_t most =
        kind == 1 ? (operation_.takes_ensemble ? 300 : 4100) : static_cast<std::size_t>(std::max(70, 9 * operation_.block));
    const auto length = static_cast<long long>(below(random, most));
    return argument.allows(length) ? length : argument.most;
}

Failure Trial::check_result(Value result) const
{
    unsigned char found[8];
    unsigned char wanted[8];
    std::memcpy(found, &result, sizeof found);
    std::memcpy(wanted, &expected_result_, sizeof wanted);
    if (operation_.result_element == Element::none || same(operation_.result_element, wanted, found, sizeof found))
        return std::nullopt;
    return describe() + "\n  result: expected " + shown(operation_.result_element, wanted) + ", found " +
           shown(operation_.result_element, found);
}

void Trial::place(std::size_t index, Random& random)
{
    place_list(index, random);
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

Failure Trial::check_array(std::size_t index) const
{
    const Argument& argument = arguments_[index];
    const GuardedBuffer& buffer = buffers_[home(index)];
    if (home(index) == index)
        if (const auto where = buffer.stray_write())
            return describe() + "\n  written outside " + argument.name + ", at byte " + std::to_string(*where) + " of " +
                   std::to_string(buffer.bytes());
    for (std::size_t i = 0; i < lists_[index].size(); ++i) {
        const Listed& listed = lists_[index][i];
        if (!listed.is_shared &&
            (listed.buffer.stray_write() || !std::equal(listed.content.begin(), listed.content.end(), listed.buffer.data())))
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

std::string Trial::describe() const
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
    return text.str();
}

std::string Trial::describe_fault(std::uintptr_t address) const
{
    std::ostringstream text;
    text << describe() << "\n  fault at address 0x" << std::hex << address << std::dec;
    const auto from = [address](const unsigned char* start) {
        return static_cast<std::ptrdiff_t>(address - reinterpret_cast<std::uintptr_t>(start));
    };
    for (std::size_t i = 0; i < arguments_.size(); ++i)
        if (arguments_[i].is_array() && home(i) == i && buffers_[i].owns(address))
            text << ": byte " << from(buffers_[i].data() + arguments_[i].bytes_before(counts_)) << " of " << arguments_[i].name
                 << ", which has " << buffers_[i].bytes();
    for (std::size_t i = 0; i < arguments_.size(); ++i)
        for (std::size_t k = 0; k < lists_[i].size(); ++k)
            if (!lists_[i][k].is_shared && lists_[i][k].buffer.owns(address))
                text << ": " << arguments_[i].name << "[" << k << "], at byte " << from(lists_[i][k].buffer.data()) << " of "
                     << lists_[i][k].buffer.bytes();
    return text.str();
}
