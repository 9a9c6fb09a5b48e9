// Whole pieces of work as a scanner has them, done by the library, by plain loops and by other libraries.
#ifndef UTILS_SSE_BENCH_TASKS_H
#define UTILS_SSE_BENCH_TASKS_H

#include "operations.h"

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace bench {

/** One way to do a task. */
struct Contender
{
    std::string name; ///< in parentheses: a yardstick, not the same work
    std::function<void()> work;
    std::function<std::vector<double>()> result; ///< what the work left behind, as numbers; none of a yardstick
};

struct Task
{
    std::string name;
    std::string unit; ///< what is counted: "line", "frame", "pixel"
    double units = 1; ///< of them in one run of the work
    /** Largest difference between results, relative to the largest value, that still counts as the same work. */
    double tolerance = 0;
    std::vector<Contender> contenders; ///< the library first
};

/** The functions of the table by one maker: the library, or the plain loops by one compiler. */
struct Maker
{
    std::string name;
    const operations::AnyFunction* functions; ///< null: the library's own
    bool for_this_machine = false;            ///< compiled with -march=native, or a wider build

    /** The function with this title ("Average (weighted)"). */
    template <class Function>
    Function function(const std::string& title, Function) const
    {
        return reinterpret_cast<Function>(find(title));
    }
    operations::AnyFunction find(const std::string& title) const;
};

/** The library, every compiler's plain loops, and the library's wider builds that this machine runs ("v3", "v4"). */
const std::vector<Maker>& makers();

/** An array that starts at a multiple of 64 bytes. */
template <class T>
class Array
{
public:
    explicit Array(std::size_t size) : size_(size), data_(allocate(size), std::free)
    {
        for (std::size_t i = 0; i < size; ++i)
            data_.get()[i] = T();
    }
    T* data() const { return data_.get(); }
    std::size_t size() const { return size_; }
    T& operator[](std::size_t i) const { return data_.get()[i]; }
    T* begin() const { return data(); }
    T* end() const { return data() + size_; }
    std::vector<double> numbers() const { return std::vector<double>(begin(), end()); }

private:
    static T* allocate(std::size_t size)
    {
        void* p = std::aligned_alloc(64, (size * sizeof(T) + 64) / 64 * 64);
        if (!p)
            std::abort();
        return static_cast<T*>(p);
    }
    std::size_t size_;
    std::shared_ptr<T> data_; // contenders are copied about
};

/** One array of this size for everybody's results: where the system puts an array may decide more than who writes it. */
template <class T>
const Array<T>& results_of_all(std::size_t size)
{
    static std::map<std::size_t, Array<T>> arrays;
    return arrays.try_emplace(size, size).first->second;
}

/** Moves as many bytes as a task does: reads `bytes` / 2 and writes as many, 16 at a time, for comparison. */
Contender copy_of(std::size_t bytes);

/** Ordinary numbers, the same ones in each run: -1 .. 1. */
class Noise
{
public:
    double operator()()
    {
        state_ = state_ * 1664525u + 1013904223u;
        return static_cast<double>(state_ >> 8) / 8388608.0 - 1.0;
    }

private:
    unsigned state_ = 1;
};

void add_rf_tasks(std::vector<Task>& tasks);
void add_image_tasks(std::vector<Task>& tasks);
void add_doppler_tasks(std::vector<Task>& tasks);
void add_motion_tasks(std::vector<Task>& tasks);

} // namespace bench

#endif
