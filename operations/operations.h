/** @file
 *  The table of operations (table.inc) as C++ objects: what each function of the library takes, touches and allows, and a
 *  way to call any of them without knowing its type. Tests, benchmarks and the reference page work from this list.
 */
#ifndef UTILS_SSE_OPERATIONS_H
#define UTILS_SSE_OPERATIONS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

namespace operations {

// The counts that functions take, by the names they have in utils_sse.h. Formulas of the table are written in these words.
// clang-format off
#define UTILS_SSE_COUNTS(X)                                                                    \
    X(n) X(lines) X(inStride) X(outStride) X(count) X(taps) X(decimation) X(rows) X(cols)      \
    X(level) X(width) X(height) X(rampStart) X(rampEnd) X(percent) X(pitch) X(half) X(stride)  \
    X(first) X(frameCount) X(weightA) X(weightB)
// clang-format on

struct Counts
{
#define UTILS_SSE_MEMBER(name) long long name = 0;
    UTILS_SSE_COUNTS(UTILS_SSE_MEMBER)
#undef UTILS_SSE_MEMBER
};

using CountMember = long long Counts::*;

/** A number of elements, as a formula over counts: its text and its value. */
struct Extent
{
    std::string text;
    long long (*formula)(const Counts&) = nullptr;

    std::size_t operator()(const Counts& counts) const;
};

/** Any argument or result of a function. */
class Value
{
public:
    Value() = default;
    template <class T>
    explicit Value(T value)
    {
        static_assert(sizeof(T) <= sizeof bytes_ && std::is_trivially_copyable<T>::value, "");
        std::memcpy(bytes_, &value, sizeof value);
    }
    template <class T>
    T as() const
    {
        T value;
        std::memcpy(&value, bytes_, sizeof value);
        return value;
    }

private:
    unsigned char bytes_[8] = {};
};

/** Any function; to be called through Operation::invoke() only. */
using AnyFunction = void (*)();

enum class Role
{
    in,
    out,
    inout,
    count,
    scalar
};
enum class Element
{
    none,
    float32,
    int32,
    int16,
    uint16,
    uint8,
    float64, // results only
    int64
};

struct Argument
{
    std::string name;
    Role role = Role::in;
    std::string type;                ///< of the parameter, as demanglers print it
    Element element = Element::none; ///< of a list of arrays: that of its arrays
    std::size_t element_size = 0;    ///< of a list of arrays: that of a pointer

    // Arrays
    Extent extent;             ///< elements read or written at most
    Extent reads_beyond;       ///< elements behind them that may be read and do not matter
    Extent reads_before;       ///< elements in front of the first one that are read
    std::size_t alignment = 0; ///< in bytes, what the contract demands beyond the element's own; 0: nothing
    bool is_finite = false;    ///< what NaN, infinities and zeros of both signs give is not promised to the bit
    Extent aligned_where;      ///< if set, it demands this only where the formula is not 0

    // Lists: arrays of pointers to input arrays of one extent
    Extent listed;                       ///< elements read of each array; not set if this is no list
    std::size_t listed_element_size = 0; ///< of these arrays

    // Counts
    CountMember member = nullptr;
    bool is_length = false;       ///< the count that grows; every other one takes a few values
    std::vector<long long> swept; ///< values worth testing, some without an effect; of a length: all that have one
    Extent swept_from;            ///< if set, the values are relative to this (a line stride to the line)
    long long most = 0;           ///< the largest value that the contract allows, if there is one
    double typical = 0;           ///< count or scalar in everyday use; of an input: its largest float, 0 if that is no matter

    bool is_array() const { return role == Role::in || role == Role::out || role == Role::inout; }
    bool is_written() const { return role == Role::out || role == Role::inout; }
    std::size_t alignment_at(const Counts& counts) const
    {
        return std::max(element_size, aligned_where.formula && aligned_where(counts) == 0 ? 0 : alignment);
    }
    bool is_list() const { return listed.formula != nullptr; }
    bool allows(long long value) const { return most == 0 || value <= most; }
    std::size_t bytes(const Counts& counts) const { return extent(counts) * element_size; }
    std::size_t bytes_before(const Counts& counts) const { return reads_before(counts) * element_size; }
    std::size_t bytes_beyond(const Counts& counts) const { return reads_beyond(counts) * element_size; }
    std::size_t listed_bytes(const Counts& counts) const { return listed(counts) * listed_element_size; }
};

struct Operation
{
    std::string name;
    std::string overload; ///< tells functions of one name apart; empty if there is only one
    std::string section;  ///< of utils_sse.h
    std::string room;     ///< directory in src
    std::string result;   ///< type
    Element result_element = Element::none;
    std::vector<Argument> arguments;
    int block = 1;                               ///< elements in one step of the body
    std::vector<std::vector<std::size_t>> equal; ///< sets of arguments that may be one and the same array (or of a list: one
                                                 ///< of its arrays)
    std::string equal_sometimes;                 ///< sharing that only some counts allow, in words; tests do not drive it
    bool takes_ensemble = false;                 ///< a call handles the few samples of one pixel
    std::string body_and_tail;                   ///< how they differ; empty if they agree
    std::string writes_beyond;                   ///< what is written besides the results; empty if nothing
    std::string instruction_set = "SSE2";
    std::string own_cases;          ///< why the general tests and benchmarks cannot drive it; empty if they do
    AnyFunction function = nullptr; ///< the library's
    Value (*invoke)(AnyFunction, const Value*) = nullptr;

    std::string title() const;      ///< "Average (weighted)"
    std::string signature() const;  ///< "CUtils_SSE::SumFloats(float const*, int)"
    const Argument& length() const; ///< the count that grows

    /** Calls a function of this operation's type with one value for each argument. */
    Value call(AnyFunction implementation, const std::vector<Value>& values) const;

    /** Everyday counts for a main length: lines lie one behind the other, filters have a usual size. */
    Counts typical_counts(long long length) const;

    /** Sets the relative counts (strides) after the absolute ones are set in `counts`; `offsets` has one value for each
     *  argument, of which the relative counts' are used. */
    void place_relative_counts(Counts& counts, const std::vector<long long>& offsets) const;
};

/** All operations, in the order of the table. */
const std::vector<Operation>& all();

/** What the library exports besides. */
struct Export
{
    std::string section;
    std::string result;
    std::string signature;
};
const std::vector<Export>& other_exports();

} // namespace operations

#endif
