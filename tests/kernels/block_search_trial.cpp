#include "block_search_trial.h"

#include "fault.h"

#include <climits>
#include <cmath>
#include <limits>
#include <sstream>

#define PLAIN_LIBRARY plain_block_search
#include "plain/plain.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Against = GuardedBuffer::Against;

int between(Random& random, int low, int high)
{
    return low + static_cast<int>(below(random, static_cast<std::size_t>(high - low + 1)));
}

enum Array
{
    image,
    row_in,
    column_in,
    row_out,
    column_out,
    slots,
    work,
    reference,
    best,
    scratch,
    arrays
};
const char* const names[] = {"image", "rowIn", "columnIn",  "rowOut", "columnOut",
                             "slots", "work",  "reference", "best",   "scratch"};
const std::size_t alignments[] = {1, 2, 2, 2, 2, 4, 16, 16, 1, 16};

struct Case
{
    bool fine = false;
    int half = 0, width = 32, stride = 0, rows = 0, count = 0, threshold = 0, column_offset = 0;
    float deviation = 0, mean = 0;
    std::vector<Bytes> before = std::vector<Bytes>(arrays);

    void call(const Searches& searches, unsigned char* const* at) const
    {
        const auto list = [&](Array a) { return reinterpret_cast<unsigned short*>(at[a]); };
        const auto ints = [&](Array a) { return reinterpret_cast<int*>(at[a]); };
        if (fine)
            searches.FineCorrelation(at[image], list(row_in), list(column_in), list(row_out), list(column_out), count,
                                     ints(slots), at[work], at[reference], at[best], half, stride, rows, ints(scratch), width,
                                     deviation, mean, threshold, column_offset);
        else
            searches.RoughCorrelation(at[image], list(row_in), list(column_in), list(row_out), list(column_out), count,
                                      ints(slots), at[work], at[reference], at[best], half, stride, rows, ints(scratch), width,
                                      deviation, mean, threshold);
    }

    std::string describe() const
    {
        std::ostringstream text;
        text << (fine ? "fine" : "rough") << ": half " << half << ", width " << width << ", stride " << stride << ", rows "
             << rows << ", count " << count << ", threshold " << threshold << ", offset " << column_offset << ", deviation "
             << deviation << ", mean " << mean;
        return text.str();
    }
};

void paint(Bytes& pixels, Random& random)
{
    const int kind = between(random, 0, 4);
    const int low = kind == 0 ? 0 : between(random, 0, 255); // of all pixels; kind 1: flat
    const int high = kind == 0 ? 255 : kind == 1 ? low : between(random, low, 255);
    for (unsigned char& pixel : pixels)
        pixel = static_cast<unsigned char>(kind == 2 ? (below(random, 2) ? 255 : 0) : between(random, low, high));
}

Case random_case(Random& random, bool fine, bool wrapping)
{
    Case c;
    c.fine = fine;
    c.half = wrapping ? 1100 : between(random, 0, fine ? 6 : 12); // 140 000 squares pass 2^31
    c.width = wrapping ? 64 : one_of({32, 32, 32, 64, 96, 33, 50}, random);
    c.rows = between(random, 1, 50);
    c.count = wrapping ? 1 : one_of({-1, 0, 1, 2, 3, 4, 5, 7, 8, 13}, random) / (fine ? 2 : 1);
    c.threshold = one_of({-1, 0, 0, 20, 60, 254, 255, INT_MIN, INT_MAX}, random);
    c.column_offset = one_of({0, 3, -20, 70000, INT_MAX - 40000}, random);

    const int reach = fine ? 5 : 0;
    const int span = c.width + 2 * reach + between(random, 0, 60);
    c.stride = span + between(random, 0, 9);
    const int used = std::max(c.count, 0);
    const auto entries = static_cast<std::size_t>(used + 1);
    c.before[image].resize(static_cast<std::size_t>((c.rows - 1) * c.stride + span));
    paint(c.before[image], random);
    if (wrapping)
        for (std::size_t i = 0; i < c.before[image].size(); ++i) // the block lies below the image: one row over and over
            c.before[image][i] = static_cast<unsigned char>(i % 2 ? 255 : 0);

    std::vector<unsigned short> positions[2];
    const int centre = between(random, -30, c.rows + 10);
    for (std::size_t k = 0; k < (fine ? entries : entries - 1); ++k) {
        const int row = wrapping           ? c.rows
                        : below(random, 3) ? centre + between(random, -12, 12)
                                           : between(random, -130, c.rows + 40);
        positions[0].push_back(static_cast<unsigned short>(row));
        positions[1].push_back(static_cast<unsigned short>(between(random, reach, span - c.width - reach)));
    }
    for (const Array a : {row_in, column_in}) {
        const std::vector<unsigned short>& list = positions[a == column_in];
        c.before[a].resize(2 * list.size());
        if (!list.empty())
            std::memcpy(c.before[a].data(), list.data(), c.before[a].size());
    }

    const auto block = static_cast<std::size_t>((2 * c.half + 1) * c.width);
    c.before[reference].resize(block);
    paint(c.before[reference], random);
    if (below(random, 2) && !positions[0].empty()) // a perfect match
        for (int r = 0; r < 2 * c.half + 1; ++r) {
            const int row = std::min(std::max(static_cast<short>(positions[0].back()) + r, 0), c.rows - 1);
            const unsigned char* from = c.before[image].data() + row * c.stride + positions[1].back();
            std::copy(from, from + c.width, c.before[reference].begin() + r * c.width);
        }
    double sum = 0, squares = 0;
    for (const unsigned char pixel : c.before[reference])
        sum += pixel, squares += pixel * pixel;
    const double mean = sum / static_cast<double>(block);
    c.mean = static_cast<float>(mean);
    c.deviation = static_cast<float>(std::sqrt(std::max(squares / static_cast<double>(block) - mean * mean, 0.0)));
    c.deviation *= one_of({1.0f, 1.02f, 1.02f, 0.3f, 4.0f}, random);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    if (below(random, 6) == 0)
        c.deviation = one_of({0.0f, -0.0f, -30.0f, 1e-30f, 1e38f, HUGE_VALF, nan}, random);
    if (below(random, 6) == 0)
        c.mean = one_of({0.0f, 255.9f, -0.9f, 300.0f, -32600.0f, -32768.0f, 32768.0f, 1e6f, 3e9f, nan}, random);

    c.before[row_out].resize(2 * entries);
    c.before[column_out].resize(2 * entries);
    c.before[best].resize(entries);
    for (const Array a : {row_out, column_out, best})
        for (unsigned char& byte : c.before[a])
            byte = static_cast<unsigned char>(a == best && below(random, 3) ? 0 : random() >> 24);
    c.before[slots].resize(sizeof(int));
    c.before[work].resize(block);
    c.before[scratch].resize(4 * sizeof(int));
    return c;
}

Failure difference(const Case& c, const Searches& tested, const Searches& plain, std::vector<GuardedBuffer>& buffers,
                   Random& random)
{
    std::vector<Bytes> expected = c.before;
    unsigned char* at[arrays];
    for (int a = 0; a < arrays; ++a)
        at[a] = expected[static_cast<std::size_t>(a)].data();
    c.call(plain, at);
    for (std::size_t a = 0; a < arrays; ++a) {
        const Bytes& bytes = c.before[a];
        buffers[a].place(bytes.size(), alignments[a], below(random, 2) ? Against::end : Against::start, 0, 0xa5);
        at[a] = buffers[a].data();
        if (!bytes.empty())
            std::memcpy(at[a], bytes.data(), bytes.size());
    }
    const auto fault =
        fault_of([&] { c.call(tested, at); },
                 [&](std::uintptr_t address) {
                     std::ostringstream text;
                     text << "fault";
                     for (std::size_t a = 0; a < arrays; ++a)
                         if (buffers[a].owns(address))
                             text << " at byte "
                                  << static_cast<std::ptrdiff_t>(address - reinterpret_cast<std::uintptr_t>(at[a])) << " of "
                                  << names[a] << ", which has " << c.before[a].size();
                     return text.str();
                 });
    if (fault)
        return fault;
    for (std::size_t a = 0; a < arrays; ++a) {
        if (buffers[a].stray_write())
            return std::string("written outside ") + names[a];
        for (std::size_t i = 0; i < expected[a].size(); ++i)
            if (at[a][i] != expected[a][i])
                return std::string(names[a]) + ", byte " + std::to_string(i) + ": expected " + std::to_string(expected[a][i]) +
                       ", found " + std::to_string(at[a][i]);
    }
    return std::nullopt;
}

} // namespace

const Searches plain_searches = {&plain_block_search::RoughCorrelation, &plain_block_search::FineCorrelation};

BlockSearchTrial::BlockSearchTrial(bool fine, const Searches& tested, const Searches& expected)
    : fine_(fine), tested_(tested), expected_(expected), buffers_(arrays)
{}

Failure BlockSearchTrial::any(Random& random, bool wrapping)
{
    const Case c = random_case(random, fine_, wrapping);
    Failure failure = difference(c, tested_, expected_, buffers_, random);
    if (failure)
        *failure += "\n  " + c.describe();
    return failure;
}

int BlockSearchTrial::clusters() const
{
    int count = 0;
    std::memcpy(&count, buffers_[slots].data(), sizeof count);
    return count;
}
