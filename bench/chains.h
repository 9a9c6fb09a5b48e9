// Whole chains from echoes to pixels, done by the library, by plain loops and by other libraries.
#ifndef UTILS_SSE_BENCH_CHAINS_H
#define UTILS_SSE_BENCH_CHAINS_H

#include "tasks.h"

#include <functional>
#include <string>
#include <vector>

namespace bench {

/** Lines of a frame that one thread works on. */
struct Piece
{
    int part; ///< the thread, 0 or 1: each has intermediate results of its own where lines do not tell them apart
    int first;
    int end;
    int frame; ///< counted from 0 since the last reset
};

struct Stage
{
    std::string name;
    std::function<void(const Piece&)> work;
    /** It reads lines of other threads: all of them have finished the stages before, and it gets all its lines at once. */
    bool reads_neighbours = false;
};

/** One way through the chain. */
struct Candidate
{
    std::string name;
    int block = 1; ///< lines that go through the stages together, so that they stay in the cache
    std::vector<Stage> stages;
    std::function<void()> reset; ///< forgets earlier frames; null where there are none to forget
    std::function<std::vector<unsigned char>()> picture;
    /** What still counts as the library's picture: bytes may be off by so many levels, but for this share of them. */
    int levels = 0;
    double share_beyond = 0;
};

struct Chain
{
    std::string name;
    int lines;
    double samples;                    ///< in a frame: RF samples, pixels
    std::vector<Candidate> candidates; ///< the library first
    /** Arrays that another program needs to do the same work, and its parameters: written to FOLDER/name-*.npy. */
    std::string short_name;
    std::function<void(const std::string& prefix)> write_inputs;
};

void add_rf_chains(std::vector<Chain>& chains);
void add_colour_chains(std::vector<Chain>& chains);
void add_cine_chains(std::vector<Chain>& chains);

/** Writes an array as a NumPy file. `type`: "<i2", "<f4", "|u1", "<f8". */
void write_npy(const std::string& file, const char* type, const std::vector<int>& shape, const void* values, std::size_t bytes);
template <class T>
void write_npy(const std::string& file, const char* type, const std::vector<int>& shape, const Array<T>& values)
{
    write_npy(file, type, shape, values.data(), values.size() * sizeof(T));
}

} // namespace bench

#endif
