/** @file
 *  The words of the table: what may stand in arguments() and behind it. Roles are checked against the parameter types of
 *  the function while compiling.
 */
#ifndef UTILS_SSE_OPERATIONS_DESCRIBE_H
#define UTILS_SSE_OPERATIONS_DESCRIBE_H

#include "operations.h"
#include "utils_sse.h"

#include <algorithm>
#include <climits>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace operations {
namespace describe {

// ---- Formulas -------------------------------------------------------------------------------------------------------

inline long long span(long long repeats, long long step, long long length)
{
    return repeats > 0 && length > 0 ? (repeats - 1) * step + length : 0;
}

inline long long max(long long x, long long y)
{
    return std::max(x, y);
}

inline long long min(long long x, long long y)
{
    return std::min(x, y);
}

inline long long equal(long long x, long long y)
{
    return x == y ? 1 : 0;
}

#define UTILS_SSE_LOCAL(name) [[maybe_unused]] const long long name = std::max(given.name, 0LL);
#define EXTENT(formula_)                                                                                                       \
    operations::Extent                                                                                                         \
    {                                                                                                                          \
#formula_, [](const operations::Counts& given) -> long long {                                                    \
            UTILS_SSE_COUNTS(UTILS_SSE_LOCAL)                                                                             \
            return formula_;                                                                                              \
        }             \
    }

// ---- Types as demanglers print them ---------------------------------------------------------------------------------

template <class T>
struct Type;

#define UTILS_SSE_TYPE(type, element_)                                                                                         \
    template <>                                                                                                                \
    struct Type<type>                                                                                                          \
    {                                                                                                                          \
        static std::string name() { return #type; }                                                                            \
        static constexpr Element element = Element::element_;                                                                  \
    };
UTILS_SSE_TYPE(void, none)
UTILS_SSE_TYPE(unsigned int, none)
UTILS_SSE_TYPE(CUtils_SSE, none)
UTILS_SSE_TYPE(float, float32)
UTILS_SSE_TYPE(int, int32)
UTILS_SSE_TYPE(short, int16)
UTILS_SSE_TYPE(unsigned short, uint16)
UTILS_SSE_TYPE(unsigned char, uint8)
UTILS_SSE_TYPE(double, float64)
UTILS_SSE_TYPE(long long, int64)
#undef UTILS_SSE_TYPE

template <class T>
struct Type<const T> : Type<T>
{
    static std::string name() { return Type<T>::name() + " const"; }
};
template <class T>
struct Type<T*> : Type<T>
{
    static std::string name() { return Type<T>::name() + "*"; }
};
template <class T>
struct Type<T&> : Type<T>
{
    static std::string name() { return Type<T>::name() + "&"; }
};

template <class... P>
std::string type_list()
{
    std::string text;
    ((text += (text.empty() ? "" : ", ") + Type<P>::name()), ...);
    return "(" + text + ")";
}

// ---- Arguments ------------------------------------------------------------------------------------------------------

template <Role ROLE, bool CONST = ROLE == Role::in>
struct TypedArgument : Argument
{
    template <class P>
    static constexpr bool fits()
    {
        if constexpr (ROLE == Role::count)
            return std::is_same_v<P, int>;
        else if constexpr (ROLE == Role::scalar)
            return std::is_arithmetic_v<P>;
        else
            return !std::is_arithmetic_v<P> && std::is_const_v<std::remove_pointer_t<std::remove_reference_t<P>>> == CONST;
    }

    TypedArgument&& aligned(std::size_t bytes, Extent where = {}) &&
    {
        alignment = bytes;
        aligned_where = std::move(where);
        return std::move(*this);
    }
    TypedArgument&& may_read_beyond(Extent slack) &&
    {
        reads_beyond = std::move(slack);
        return std::move(*this);
    }
    TypedArgument&& reads_in_front(Extent elements) &&
    {
        reads_before = std::move(elements);
        return std::move(*this);
    }
    TypedArgument&& finite() &&
    {
        is_finite = true;
        return std::move(*this);
    }
    TypedArgument&& each(Extent elements) &&
    {
        listed = std::move(elements);
        return std::move(*this);
    }
    TypedArgument&& at_most(long long value) &&
    {
        most = value;
        return std::move(*this);
    }
    template <class... V>
    TypedArgument&& sweep(V... values) &&
    {
        swept = {values...};
        return std::move(*this);
    }
    template <class... V>
    TypedArgument&& sweep_above(Extent base, V... values) &&
    {
        swept_from = std::move(base);
        return std::move(*this).sweep(values...);
    }
    TypedArgument&& typical(double value) &&
    {
        Argument::typical = value;
        return std::move(*this);
    }
};

template <Role ROLE, bool CONST = ROLE == Role::in>
TypedArgument<ROLE, CONST> array(const char* name, Extent extent)
{
    TypedArgument<ROLE, CONST> argument;
    argument.name = name;
    argument.role = ROLE;
    argument.extent = std::move(extent);
    return argument;
}

inline auto in(const char* name, Extent extent)
{
    return array<Role::in>(name, std::move(extent));
}
/** An input whose declaration forgets to say so: its pointer is not one to const. */
inline auto in_not_const(const char* name, Extent extent)
{
    return array<Role::in, false>(name, std::move(extent));
}
/** Pointers to input arrays; each() says what is read of every one of these. */
inline auto list(const char* name, Extent pointers)
{
    return in(name, std::move(pointers));
}
inline auto out(const char* name, Extent extent)
{
    return array<Role::out>(name, std::move(extent));
}
inline auto inout(const char* name, Extent extent)
{
    return array<Role::inout>(name, std::move(extent));
}

inline auto scalar(const char* name, double typical)
{
    return array<Role::scalar>(name, {}).typical(typical);
}

inline auto number(const char* name, CountMember member, bool is_length)
{
    TypedArgument<Role::count> argument = array<Role::count>(name, {});
    argument.member = member;
    argument.is_length = is_length;
    return argument;
}
#define COUNT(name) number(#name, &operations::Counts::name, false)
#define LENGTH(name) number(#name, &operations::Counts::name, true)

template <class... A>
std::tuple<A...> arguments(A... list)
{
    return {std::move(list)...};
}

// ---- Facts ----------------------------------------------------------------------------------------------------------

using Fact = std::function<void(Operation&)>;

inline Fact block(int elements)
{
    return [=](Operation& operation) { operation.block = elements; };
}

inline Fact ensembles()
{
    return [=](Operation& operation) { operation.takes_ensemble = true; };
}

inline Fact body_and_tail(const char* difference)
{
    return [=](Operation& operation) { operation.body_and_tail = difference; };
}

/** Sharing that only some counts allow: known answers test it. */
inline Fact may_equal_sometimes(const char* which)
{
    return [=](Operation& operation) { operation.equal_sometimes = which; };
}

/** What is written besides the results, within the extents of the outputs. */
inline Fact writes_beyond(const char* what)
{
    return [=](Operation& operation) { operation.writes_beyond = what; };
}

inline Fact instruction_set(const char* name)
{
    return [=](Operation& operation) { operation.instruction_set = name; };
}

/** Arrays of arbitrary values will not do, for this reason: tests and benchmarks of their own drive the function. */
inline Fact own_cases(const char* reason)
{
    return [=](Operation& operation) { operation.own_cases = reason; };
}

/** Sets of arguments that may be the same memory, such as "dst=a". Inputs may always equal inputs and are not listed. */
template <class... Sets>
Fact may_equal(Sets... sets)
{
    return [list = std::vector<std::string>{sets...}](Operation& operation) {
        for (const std::string& set : list) {
            std::vector<std::size_t> indices;
            for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
                end = set.find('=', begin);
                const std::string name = set.substr(begin, end == std::string::npos ? end : end - begin);
                const auto found = std::find_if(operation.arguments.begin(), operation.arguments.end(),
                                                [&](const Argument& argument) { return argument.name == name; });
                if (found == operation.arguments.end())
                    throw std::logic_error(operation.title() + ": may_equal names no argument: " + name);
                indices.push_back(static_cast<std::size_t>(found - operation.arguments.begin()));
            }
            operation.equal.push_back(std::move(indices));
        }
    };
}

// ---- Functions ------------------------------------------------------------------------------------------------------

template <class R, class... P>
struct Invoker
{
    // A reference is an array of one element and stands in the list of values as its address.
    template <class T>
    static T argument(const Value& value)
    {
        if constexpr (std::is_lvalue_reference_v<T>)
            return *value.as<std::remove_reference_t<T>*>();
        else
            return value.as<T>();
    }
    template <std::size_t... I>
    static Value call(AnyFunction function, const Value* values, std::index_sequence<I...>)
    {
        const auto typed = reinterpret_cast<R(UTILS_SSE_CALL*)(P...)>(function);
        if constexpr (std::is_void_v<R>) {
            typed(argument<P>(values[I])...);
            return Value();
        } else {
            return Value(typed(argument<P>(values[I])...));
        }
    }
    static Value invoke(AnyFunction function, const Value* values)
    {
        return call(function, values, std::index_sequence_for<P...>());
    }
};

template <class P, Role ROLE, bool CONST>
Argument bind(TypedArgument<ROLE, CONST> argument)
{
    static_assert(TypedArgument<ROLE, CONST>::template fits<P>(), "the role does not suit the type of the parameter");
    using Plain = std::remove_cv_t<std::remove_pointer_t<std::remove_reference_t<P>>>;
    argument.type = Type<P>::name();
    argument.element = Type<P>::element;
    argument.element_size = sizeof(Plain);
    if constexpr (std::is_pointer_v<Plain>) {
        static_assert(std::is_const_v<std::remove_pointer_t<Plain>>, "the arrays of a list are inputs");
        argument.listed_element_size = sizeof(std::remove_pointer_t<Plain>);
    }
    if (std::is_pointer_v<Plain> != argument.is_list())
        throw std::logic_error(argument.name + ": each() belongs to lists of arrays, and to all of them");
    return std::move(argument);
}

template <class R, class... P, class... A, class... Facts>
Operation operation(const char* name, const char* overload, R(UTILS_SSE_CALL* function)(P...), std::tuple<A...> list,
                    const Facts&... facts)
{
    static_assert(sizeof...(P) == sizeof...(A), "one entry in arguments() for each parameter");
    Operation result;
    result.name = name;
    result.overload = overload;
    result.result = Type<R>::name();
    result.result_element = Type<R>::element;
    result.function = reinterpret_cast<AnyFunction>(function);
    result.invoke = &Invoker<R, P...>::invoke;
    result.arguments =
        std::apply([](auto&... argument) { return std::vector<Argument>{bind<P>(std::move(argument))...}; }, list);
    (facts(result), ...);
    return result;
}

template <class R, class... P>
Export exported(const char* name, R(UTILS_SSE_CALL*)(P...))
{
    return {"", Type<R>::name(), "CUtils_SSE::" + std::string(name) + type_list<P...>()};
}

template <class R, class... P>
Export exported(const char* name, R (CUtils_SSE::*)(P...))
{
    return {"", Type<R>::name(), "CUtils_SSE::" + std::string(name) + type_list<P...>()};
}

} // namespace describe
} // namespace operations

#endif
