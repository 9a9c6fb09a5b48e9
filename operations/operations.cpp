#include "operations.h"

#include "describe.h"

namespace operations {
namespace {

struct Table
{
    std::vector<Operation> operations;
    std::vector<Export> others;
};

// Entries are made in functions of their own: all of them in one, compilers take minutes.
#if defined(_MSC_VER)
#define OPERATIONS_APART __declspec(noinline)
#else
#define OPERATIONS_APART __attribute__((noinline))
#endif
template <class Make>
OPERATIONS_APART void add(std::vector<Operation>& operations, const std::string& section, const std::string& room,
                          const Make& make)
{
    operations.push_back(make());
    operations.back().section = section;
    operations.back().room = room;
}

Table read_table()
{
    using namespace describe;
    Table table;
    std::string section;
    std::string room;
    const auto add_other = [&](Export entry) {
        entry.section = section;
        table.others.push_back(std::move(entry));
    };
#define GROUP(section_, room_)                                                                                                 \
    section = section_;                                                                                                        \
    room = room_;
#define OPERATION(name, overload, result, parameters, ...)                                                                     \
    add(table.operations, section, room, [] {                                                                                  \
        return operation(#name, overload, static_cast<result(UTILS_SSE_CALL*) parameters>(&CUtils_SSE::name), __VA_ARGS__);    \
    });
#define EXPORTED(name, result, parameters)                                                                                     \
    add_other(exported(#name, static_cast<result(UTILS_SSE_CALL*) parameters>(&CUtils_SSE::name)));
#define EXPORTED_MEMBER(name, result, parameters)                                                                              \
    add_other(exported(#name, static_cast<result(CUtils_SSE::*) parameters>(&CUtils_SSE::name)));
#include "table.inc"
    return table;
}

const Table& table()
{
    static const Table the_table = read_table();
    return the_table;
}

} // namespace

const std::vector<Operation>& all()
{
    return table().operations;
}

const std::vector<Export>& other_exports()
{
    return table().others;
}

std::size_t Extent::operator()(const Counts& counts) const
{
    return formula ? static_cast<std::size_t>(std::max(formula(counts), 0LL)) : 0;
}

std::string Operation::title() const
{
    return overload.empty() ? name : name + " (" + overload + ")";
}

std::string Operation::signature() const
{
    std::string text;
    for (const Argument& argument : arguments)
        text += (text.empty() ? "" : ", ") + argument.type;
    return "CUtils_SSE::" + name + "(" + text + ")";
}

const Argument& Operation::length() const
{
    for (const Argument& argument : arguments)
        if (argument.is_length)
            return argument;
    throw std::logic_error(title() + ": no LENGTH in the table");
}

Value Operation::call(AnyFunction implementation, const std::vector<Value>& values) const
{
    return invoke(implementation, values.data());
}

Counts Operation::typical_counts(long long length_value) const
{
    Counts counts;
    for (const Argument& argument : arguments)
        if (argument.member)
            counts.*argument.member = argument.is_length ? length_value : static_cast<long long>(argument.typical);
    place_relative_counts(counts, std::vector<long long>(arguments.size(), 0));
    return counts;
}

void Operation::place_relative_counts(Counts& counts, const std::vector<long long>& offsets) const
{
    for (std::size_t i = 0; i < arguments.size(); ++i)
        if (arguments[i].member && arguments[i].swept_from.formula) {
            const long long natural = static_cast<long long>(arguments[i].swept_from(counts));
            counts.*arguments[i].member = std::max(natural + offsets[i], 0LL);
        }
}

} // namespace operations
