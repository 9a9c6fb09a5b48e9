// Block matching: where in an 8-bit image a block looks like the reference block.
#include "correlation/block_score.h"
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;
using namespace simd::block_matching;

namespace {

constexpr bool kManyRegisters = sizeof(void*) == 8;
constexpr int kReach = 5; // of the fine search, in rows and columns
constexpr int kShifts = 2 * kReach + 1;

// Sums of `Count` candidates side by side, products over every second row.
template <int Count>
UTILS_SSE_INLINE Sums rough_sums(const Reference& reference, const Image& image, const Position* at)
{
    BlockRows rows[Count];
    WideInts pixels[4], squares[4], products[4];
    repeat<4>([&](auto c) UTILS_SSE_LAMBDA { pixels[c] = squares[c] = products[c] = zero<WideInts>(); });
    repeat<Count>([&](auto c) UTILS_SSE_LAMBDA { rows[c] = BlockRows(image, at[c]); });
    const auto add_row = [&](auto with_products, const unsigned char* reference_row) UTILS_SSE_LAMBDA {
        const unsigned char* row[Count];
        repeat<Count>([&](auto c) UTILS_SSE_LAMBDA { row[c] = rows[c].next(); });
        reference.for_each_block([&](std::ptrdiff_t column) UTILS_SSE_LAMBDA {
            Pixels q{};
            if constexpr (with_products)
                q = differences(load<WideBytes>(reference_row + column), reference.mean);
            repeat<Count>([&](auto c) UTILS_SSE_LAMBDA {
                const WideBytes x = load<WideBytes>(row[c] + column);
                const Pixels p = split(x);
                add_pixels(pixels[c], x);
                add_products(squares[c], p, p);
                if constexpr (with_products)
                    add_products(products[c], p, q);
            });
        });
    };
    for (int r = 0; r < reference.rows; ++r) {
        add_row(std::true_type(), reference.row(r));
        if (++r >= reference.rows)
            break;
        add_row(std::false_type(), nullptr);
    }
    const auto fold = [](const WideInts(&x)[4])
                          UTILS_SSE_LAMBDA { return add_blocks_wrap(fold_each_wrap(x[0], x[1], x[2], x[3])); };
    return {fold(pixels), fold(squares), fold(products)};
}

// --- the windows of the fine search ------------------------------------------------------------------------------------
// The candidates of one row lie side by side, from column 0 of `row` to column 10.

// Sums over the first window of one row of pixels, and by how much they change from each window to the next.
struct WindowSums
{
    static constexpr int kVectors = 3; // of steps: ten and two that are zero
    WideInts pixels, squares;
    i32 pixel_steps[kVectors], square_steps[kVectors];

    template <class Function>
    UTILS_SSE_INLINE void update(const WindowSums& other, const Function& f)
    {
        pixels = f(pixels, other.pixels);
        squares = f(squares, other.squares);
        repeat<kVectors>([&](auto i) UTILS_SSE_LAMBDA {
            pixel_steps[i] = f(pixel_steps[i], other.pixel_steps[i]);
            square_steps[i] = f(square_steps[i], other.square_steps[i]);
        });
    }
};

UTILS_SSE_INLINE WindowSums window_sums(const Reference& reference, const unsigned char* row)
{
    WindowSums sums{};
    reference.for_each_block([&](std::ptrdiff_t column) UTILS_SSE_LAMBDA {
        const WideBytes x = load<WideBytes>(row + column);
        const Pixels p = split(x);
        add_pixels(sums.pixels, x);
        add_products(sums.squares, p, p);
    });
    // A step to the right brings in a pixel on the right and drops one on the left.
    const unsigned char* const right = row + reference.counted;
    const u8 low = interleave_low(load_eight(right), load_eight(row));
    const u8 high = interleave_low(Part<u8, 2>::load(right + 8), Part<u8, 2>::load(row + 8));
    const i16 pairs[] = {widen_low(low), widen_high(low), widen_low(high)};
    const i16 signs = broadcast_pair<1>(1, -1);
    repeat<WindowSums::kVectors>([&](auto i) UTILS_SSE_LAMBDA {
        sums.pixel_steps[i] = multiply_add_pairs(pairs[i], signs);
        sums.square_steps[i] = multiply_add_pairs(pairs[i], multiply_low(pairs[i], signs));
    });
    return sums;
}

// Products with the reference of `Count` candidates side by side. The odd pixels of a candidate are the even ones of the
// next: each vector is used twice.
template <int Count>
UTILS_SSE_INLINE void fine_products(i32* sums, const Reference& reference, BlockRows rows, int first)
{
    static_assert(Count % 2 == 1, "an even count would read one pixel too many");
    WideInts products[Count];
    repeat<Count>([&](auto c) UTILS_SSE_LAMBDA { products[c] = zero<WideInts>(); });
    for (int r = 0; r < reference.rows; ++r) {
        const unsigned char* const row = rows.next() + first;
        const unsigned char* const reference_row = reference.row(r);
        reference.for_each_block([&](std::ptrdiff_t column) UTILS_SSE_LAMBDA {
            const Pixels q = differences(load<WideBytes>(reference_row + column), reference.mean);
            const auto add = [&](auto c, WideShorts p, WideShorts with) UTILS_SSE_LAMBDA {
                if constexpr (c >= 0 && c < Count)
                    products[c] = in_order(add_wrap(products[c], multiply_add_pairs(p, with)));
            };
            repeat<Count / 2 + 1>([&](auto pair) UTILS_SSE_LAMBDA {
                constexpr int c = 2 * pair;
                const WideBytes x = load<WideBytes>(row + column + c);
                const WideShorts even = widen_even(x);
                const WideShorts odd = widen_odd(x);
                add(std::integral_constant<int, c>(), even, q.even);
                add(std::integral_constant<int, c - 1>(), even, q.odd);
                add(std::integral_constant<int, c>(), odd, q.odd);
                add(std::integral_constant<int, c + 1>(), odd, q.even);
            });
        });
    }
    repeat<Count>([&](auto c) UTILS_SSE_LAMBDA { sums[first + c] = add_blocks_wrap(products[c]); });
}

// The eleven candidates of a row of the neighbourhood, row after row.
class Neighbours
{
public:
    static constexpr int kLanes = 12; // eleven, in whole vectors

    UTILS_SSE_INLINE void begin(const Reference& reference, const Image& image, Position corner)
    {
        entering_ = leaving_ = BlockRows(image, corner);
        windows_ = WindowSums{};
        for (int r = 1; r < reference.rows; ++r)
            enter(reference);
    }

    UTILS_SSE_INLINE void next_row(const Reference& reference, const Image& image, Position at)
    {
        enter(reference);
        slide(pixels_, windows_.pixels, windows_.pixel_steps);
        slide(squares_, windows_.squares, windows_.square_steps);
        windows_.update(window_sums(reference, leaving_.next()),
                        [](auto x, auto y) UTILS_SSE_LAMBDA { return subtract_wrap(x, y); });
        const BlockRows rows(image, at);
        if constexpr (kManyRegisters)
            fine_products<kShifts>(products_, reference, rows, 0);
        else
            for (const int first : {0, 3, 6, 8}) // what overlaps is computed twice
                fine_products<3>(products_, reference, rows, first);
    }

    // Of candidates c to c + 3.
    UTILS_SSE_INLINE Sums sums(int c) const
    {
        return {load<i32>(pixels_ + c), load<i32>(squares_ + c),
                fold_each_wrap(products_[c], products_[c + 1], products_[c + 2], products_[c + 3])};
    }

private:
    UTILS_SSE_INLINE void enter(const Reference& reference)
    {
        windows_.update(window_sums(reference, entering_.next()),
                        [](auto x, auto y) UTILS_SSE_LAMBDA { return add_wrap(x, y); });
    }
    static UTILS_SSE_INLINE void slide(int* sums, WideInts first, const i32 (&steps)[WindowSums::kVectors])
    {
        int step[kLanes];
        repeat<WindowSums::kVectors>([&](auto i) UTILS_SSE_LAMBDA { store(step + 4 * i, steps[i]); });
        auto sum = static_cast<unsigned>(fold_wrap(add_blocks_wrap(first)));
        for (int c = 0; c < kLanes; ++c) {
            sums[c] = static_cast<int>(sum);
            sum += static_cast<unsigned>(step[c]);
        }
    }

    BlockRows entering_, leaving_;
    WindowSums windows_;
    int pixels_[kLanes], squares_[kLanes];
    i32 products_[kLanes] = {};
};

// --- clusters ----------------------------------------------------------------------------------------------------------

class Clusters
{
public:
    UTILS_SSE_INLINE Clusters(unsigned short* rows, unsigned short* columns, unsigned char* best, int threshold)
        : rows_(rows), columns_(columns), best_(best), threshold_(threshold)
    {}

    // `out`: what is written for the candidate at `at`.
    UTILS_SSE_INLINE void visit(Position at, int any_score, Position out)
    {
        const auto score = static_cast<unsigned char>(any_score);
        if (score <= threshold_)
            return;
        // Both distances must be large; one is not enough.
        if (is_far(at.row, anchor_.row) && is_far(at.column, anchor_.column)) {
            ++slots_;
            anchor_ = at;
        }
        if (slots_ > 0 && score > best_[slots_]) { // there is no slot 0
            best_[slots_] = score;
            rows_[slots_] = static_cast<unsigned short>(out.row);
            columns_[slots_] = static_cast<unsigned short>(out.column);
        }
    }

    UTILS_SSE_INLINE int slots() const { return slots_; }

private:
    static UTILS_SSE_INLINE bool is_far(int x, int y) { return absolute_wrap(x - y) > 15; }

    unsigned short* rows_;
    unsigned short* columns_;
    unsigned char* best_;
    int threshold_;
    Position anchor_ = {-100, -100};
    int slots_ = 0;
};

UTILS_SSE_INLINE Position position(const unsigned short* rows, const unsigned short* columns, std::ptrdiff_t k)
{
    return {static_cast<short>(rows[k]), static_cast<short>(columns[k])};
}

// What a call leaves behind of its last candidate: the block, and the sums of its last 32 squares.
//
// Apart only in the standard build: behind a call of such a function GCC 12 takes the upper halves of wide registers for cleared
// and returns without clearing them, after which SSE code of the caller takes up to eight times as long.
#if UTILS_SSE_MOST_BLOCKS > 1
UTILS_SSE_INLINE
#else
UTILS_SSE_APART
#endif
void leave(unsigned char* work, int* scratch, const Reference& reference, const Image& image, Position at, int mean)
{
    BlockRows rows(image, at);
    unsigned char* copy = work;
    for (int r = 0; r < reference.rows; ++r, copy += reference.width) {
        const unsigned char* const row = rows.next();
        cover_blocks<32>(reference.width, [=](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const u8 low = load<u8>(row + i);
            const u8 high = load<u8>(row + i + 16);
            store(copy + i, low);
            store(copy + i + 16, high);
        });
    }
    const i16 m = broadcast_short(static_cast<short>(mean));
    const unsigned char* const step = copy - reference.width + reference.counted - 32;
    i32 sum = zero<i32>();
    for (const u8 x : {load<u8>(step), load<u8>(step + 16)})
        for (const i16 half : {widen_low(x), widen_high(x)}) {
            const i16 difference = subtract_wrap(half, m);
            sum = add_wrap(sum, multiply_add_pairs(difference, difference));
        }
    store(scratch, sum);
}

} // namespace

void CUtils_SSE::RoughCorrelation(unsigned char* image, unsigned short* rowIn, unsigned short* columnIn, unsigned short* rowOut,
                                  unsigned short* columnOut, int count, int* slots, unsigned char* work,
                                  unsigned char* reference, unsigned char* best, int half, int stride, int rows, int* scratch,
                                  int width, float deviation, float mean, int threshold)
{
    *slots = 0;
    if (count <= 0 || half < 0 || width < 32 || rows <= 0)
        return;
    const Image picture{image, stride, rows - 1};
    const Reference block(reference, mean, half, width);
    const Scoring scoring(block, 2, deviation);
    const f64 pairs = broadcast_double(scoring.area() * 0.5 - 1.0);
    const auto divide = [&](f32 x) UTILS_SSE_LAMBDA { return to_float(low_to_double(x) / pairs, high_to_double(x) / pairs); };
    Clusters clusters(rowOut, columnOut, best, threshold);
    int mean_of_last = 0;
    const auto search = [&](auto candidates, std::ptrdiff_t k) UTILS_SSE_LAMBDA {
        Position at[candidates];
        int score[4], means[4];
        repeat<candidates>([&](auto c) UTILS_SSE_LAMBDA { at[c] = position(rowIn, columnIn, k + c); });
        const Scores found = scoring(rough_sums<candidates>(block, picture, at), divide);
        store(score, found.score);
        store(means, found.mean);
        repeat<candidates>([&](auto c) UTILS_SSE_LAMBDA { clusters.visit(at[c], score[c], at[c]); });
        mean_of_last = means[candidates - 1];
    };
    constexpr int group = kManyRegisters ? 4 : 1;
    std::ptrdiff_t k = 0;
    for (; count - k >= group; k += group)
        search(std::integral_constant<int, group>(), k);
    if constexpr (group > 1)
        for (; k < count; ++k)
            search(std::integral_constant<int, 1>(), k);
    *slots = clusters.slots();
    leave(work, scratch, block, picture, position(rowIn, columnIn, count - 1), mean_of_last);
}

void CUtils_SSE::FineCorrelation(unsigned char* image, unsigned short* rowIn, unsigned short* columnIn, unsigned short* rowOut,
                                 unsigned short* columnOut, int count, int* slots, unsigned char* work,
                                 unsigned char* reference, unsigned char* best, int half, int stride, int rows, int* scratch,
                                 int width, float deviation, float mean, int threshold, int columnOffset)
{
    *slots = 0;
    if (count <= 0 || half < 0 || width < 32 || rows <= 0)
        return;
    const Image picture{image, stride, rows - 1};
    const Reference block(reference, mean, half, width);
    const Scoring scoring(block, 1, deviation);
    const f32 pixels = broadcast<f32>(scoring.area() - 1.0f);
    const auto divide = [&](f32 x) UTILS_SSE_LAMBDA { return x / pixels; };
    Clusters clusters(rowOut, columnOut, best, threshold);
    const int offset = static_cast<short>(columnOffset); // its low 16 bits are what can be seen
    Neighbours around;
    int score[Neighbours::kLanes], means[Neighbours::kLanes];
    for (std::ptrdiff_t k = 1; k <= count; ++k) {
        const Position start = position(rowIn, columnIn, k);
        around.begin(block, picture, {start.row - kReach, start.column - kReach});
        for (int row = start.row - kReach; row <= start.row + kReach; ++row) {
            around.next_row(block, picture, {row, start.column - kReach});
            for (int c = 0; c < Neighbours::kLanes; c += 4) {
                const Scores found = scoring(around.sums(c), divide);
                store(score + c, found.score);
                store(means + c, found.mean);
            }
            for (int c = 0; c < kShifts; ++c) {
                const int column = start.column - kReach + c;
                clusters.visit({row, column}, score[c], {row + half, column + 4 + offset});
            }
        }
    }
    *slots = clusters.slots();
    const Position last = position(rowIn, columnIn, count);
    leave(work, scratch, block, picture, {last.row + kReach, last.column + kReach}, means[kShifts - 1]);
}
