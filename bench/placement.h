// Arguments for a call of any operation of the table: how many elements, and arrays for them.
#ifndef UTILS_SSE_BENCH_PLACEMENT_H
#define UTILS_SSE_BENCH_PLACEMENT_H

#include "operations.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace placement {

using operations::Argument;
using operations::Counts;
using operations::Element;
using operations::Operation;
using operations::Role;
using operations::Value;

struct Size
{
    std::string name;
    long long length;  // elements; 0: as many as fit
    std::size_t bytes; // of all arrays together
};

// Half of what the usual caches hold (32 KB, 512 KB), and far more than any of them: the memory size stays beyond the share
// of a last-level cache that one core of a server can claim.
constexpr std::size_t kKiB = 1024;
inline const Size kSizes[] = {{"1", 1, 0},     {"7", 7, 0},          {"23", 23, 0},         {"64", 64, 0},
                              {"128", 128, 0}, {"L1", 0, 16 * kKiB}, {"L2", 0, 256 * kKiB}, {"memory", 0, 512 * kKiB* kKiB}};

// A function that works with few lengths is timed with all of them.
inline std::vector<Size> sizes_for(const Operation& op)
{
    std::vector<Size> sizes;
    for (const long long length : op.length().swept)
        sizes.push_back({std::to_string(length), length, 0});
    return sizes.empty() ? std::vector<Size>(std::begin(kSizes), std::end(kSizes)) : sizes;
}

// One block of memory for all runs, filled once: numbers that are ordinary as floats, as samples and as bytes. Outputs go
// to a second one, so that no loop reads another's results (integers read as floats would be slow denormals).
struct Memory
{
    std::unique_ptr<unsigned char, void (*)(void*)> block{nullptr, std::free};
    std::size_t size = 0;

    void reserve(std::size_t bytes)
    {
        if (bytes <= size)
            return;
        size = bytes;
        block.reset(static_cast<unsigned char*>(std::aligned_alloc(4096, (bytes + 4095) / 4096 * 4096)));
        if (!block) {
            std::fprintf(stderr, "no memory for %zu bytes\n", bytes);
            std::exit(1);
        }
        fill(block.get(), size);
    }

    static void fill(unsigned char* p, std::size_t bytes, double largest = 30000)
    {
        unsigned state = 1;
        for (std::size_t i = 0; i < bytes; i += sizeof(float)) {
            state = state * 1664525u + 1013904223u;
            const float value = (static_cast<float>(state >> 8) / 8388608.0f - 1.0f) * static_cast<float>(largest);
            std::memcpy(p + i, &value, std::min(sizeof value, bytes - i));
        }
    }
};

inline Memory input_memory;
inline Memory output_memory;

// Arrays start 16-byte aligned, each a few lines further from a page's start than the one before, as separate allocations
// would; equal distances from page starts make loads wait for stores that merely look like conflicts.
constexpr std::size_t kStagger = 5 * 64;
constexpr std::size_t kFront = 64; // readable in front of the first array

inline Counts counts_for(const Operation& op, long long length, bool short_call)
{
    Counts counts = op.typical_counts(length);
    if (short_call && counts.lines > 2)
        counts.lines = 2; // the fewest with which every operation on lines does something
    op.place_relative_counts(counts, std::vector<long long>(op.arguments.size(), 0));
    return counts;
}

// Of the arrays that grow with the length (a table of bytes does not).
inline std::size_t bytes_of(const Operation& op, const Counts& counts)
{
    std::size_t bytes = 0;
    for (const Argument& argument : op.arguments)
        if (argument.is_list())
            bytes += argument.extent(counts) * argument.listed_bytes(counts);
        else if (argument.is_array() && argument.bytes(counts) != argument.bytes(Counts()))
            bytes += argument.bytes(counts);
    return bytes;
}

// Nothing where what the operation allows does not come near the size.
inline std::optional<Counts> fitting_counts(const Operation& op, const Size& size)
{
    if (size.length > 0)
        return counts_for(op, size.length, true);
    const long long most = op.length().most > 0 ? op.length().most : (1ll << 29) - 1;
    if (bytes_of(op, counts_for(op, 1, false)) > size.bytes || bytes_of(op, counts_for(op, most, false)) < size.bytes / 2)
        return std::nullopt;
    long long low = 1;
    long long high = most + 1;
    while (high - low > 1) {
        const long long middle = (low + high) / 2;
        (bytes_of(op, counts_for(op, middle, false)) <= size.bytes ? low : high) = middle;
    }
    const long long whole = low > 256 ? low / 64 * 64 : low;
    return counts_for(op, whole, false);
}

// Values for a call: arrays laid out in the two memories, counts and scalars as usual.
struct Placement
{
    std::vector<Value> values;
    std::vector<std::vector<const void*>> lists; // of pointers
};

inline Placement place(const Operation& op, const Counts& counts)
{
    std::size_t needed = 0;
    for (const Argument& argument : op.arguments)
        if (argument.is_list())
            needed += argument.extent(counts) * (argument.listed_bytes(counts) + kStagger + 64);
        else if (argument.is_array())
            needed += kFront + argument.bytes(counts) + kStagger + 64;
    input_memory.reserve(needed);
    output_memory.reserve(needed);

    Placement placement;
    std::vector<Value>& values = placement.values;
    std::size_t in = kFront;
    std::size_t out = kFront;
    const auto distance = [](std::size_t bytes) { return (bytes + 15) / 16 * 16 + kStagger; };
    for (const Argument& argument : op.arguments) {
        if (argument.is_list()) {
            std::vector<const void*> list;
            for (std::size_t i = 0; i < argument.extent(counts); ++i, in += distance(argument.listed_bytes(counts)))
                list.push_back(input_memory.block.get() + in);
            values.emplace_back(static_cast<const void*>(list.data()));
            placement.lists.push_back(std::move(list));
        } else if (argument.is_array()) {
            const bool own_values = argument.role == Role::in && argument.typical > 0;
            const bool with_outputs = argument.is_written() || own_values;
            std::size_t& offset = with_outputs ? out : in;
            unsigned char* p = (with_outputs ? output_memory : input_memory).block.get() + offset;
            if (argument.role == Role::inout)
                Memory::fill(p, argument.bytes(counts));
            if (own_values)
                Memory::fill(p, argument.bytes(counts), argument.typical);
            values.emplace_back(static_cast<void*>(p));
            offset += distance(argument.bytes(counts));
        } else if (argument.member != nullptr) {
            values.emplace_back(static_cast<int>(counts.*argument.member));
        } else if (argument.element == Element::float32) {
            values.emplace_back(static_cast<float>(argument.typical));
        } else if (argument.element == Element::int32) {
            values.emplace_back(static_cast<int>(argument.typical));
        } else {
            values.emplace_back(static_cast<unsigned char>(argument.typical));
        }
    }
    return placement;
}

} // namespace placement

#endif
