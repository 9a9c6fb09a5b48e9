// Similarity of two segments of RF samples: mean product, normalised correlation and normalised covariance, each with sums
// in double or in single precision. All six share one accumulation, which forms the sums that a score needs and no other.
#include "simd/loops.h"
#include "utils_sse.h"

#include <climits>

using namespace simd;

namespace {

// --- what is accumulated in ------------------------------------------------------------------------------------------
// add(pairs) takes the pair sums of `blocks` blocks, exact integers. fold() makes a total of the lanes, to which add_singly<Count>()
// adds the first Count of four integers, one after the other; the others are zero. At the end of a stretch of at most
// `stretch` samples comes settle().

// Two lanes: pair sums 0 and 2 go to lane 0, 1 and 3 to lane 1, in this order.
template <class Sum>
struct DoubleLanes
{
    using Number = double;
    static constexpr int blocks = 1;
    static constexpr int stretch = INT_MAX;
    f64 lanes = zero<f64>();
    double total = 0;

    UTILS_SSE_INLINE void add(i32 pairs)
    {
        lanes = lanes + low_to_double(pairs);
        lanes = lanes + high_to_double(pairs);
    }
    UTILS_SSE_INLINE void fold() { total = simd::fold(lanes); }

    template <int Count>
    UTILS_SSE_INLINE void add_singly(i32 terms)
    {
        const f64 low = low_to_double(terms);
        const f64 high = high_to_double(terms);
        total = total + lane<0>(low);
        if constexpr (Count > 1)
            total = total + lane<1>(low);
        if constexpr (Count > 2)
            total = total + lane<0>(high);
        if constexpr (Count > 3)
            total = total + lane<1>(high);
    }
    UTILS_SSE_INLINE void settle() {}
};

constexpr int kMostWhole = 1 << 23; // samples

alignas(16) constexpr double kHalfWeights[2] = {65536.0, 1.0};

// The totals of DoubleLanes in half the time, for as many samples as cannot make a double round: 2^23 of them have 2^22 pair
// sums of at most 2^31, and whole numbers up to 2^53 are added alike in any order. A pair sum is 65536 times its upper half
// plus its lower half, which is not negative; `sum`, which wraps, and `upper` tell the sums of both. Samples need no halves.
template <class Sum, int Blocks>
struct WholeNumbersIn
{
    using Number = double;
    static constexpr int blocks = Blocks;
    static constexpr int stretch = 1 << 15; // no sum of upper or of lower halves leaves 31 bits
    I32<blocks> many_sum = zero<I32<blocks>>();
    I32<blocks> many_upper = zero<I32<blocks>>();
    i32 sum = zero<i32>();
    i32 upper = zero<i32>();
    double total = 0;

    template <int N>
    static UTILS_SSE_INLINE void add_to(I32<N>& sum, I32<N>& upper, I32<N> pairs)
    {
        sum = in_order(add_wrap(sum, pairs));
        if constexpr (Sum::of_products)
            upper = in_order(add_wrap(upper, shift_right<16>(pairs)));
    }
    UTILS_SSE_INLINE void add(I32<blocks> pairs) { add_to(many_sum, many_upper, pairs); }
    UTILS_SSE_INLINE void fold()
    {
        sum = add_blocks_wrap(many_sum);
        upper = add_blocks_wrap(many_upper);
    }
    template <int Count>
    UTILS_SSE_INLINE void add_singly(i32 terms)
    {
        add_to(sum, upper, terms);
    }
    UTILS_SSE_INLINE void settle()
    {
        if constexpr (Sum::of_products) {
            const i32 lower = subtract_wrap(sum, shift_left<16>(upper));
            const i32 both = add_wrap(interleave_low(upper, lower), interleave_high(upper, lower));
            const f64 halves = low_to_double(add_wrap(both, high_halves(both, both))); // all of upper, all of lower
            total = total + simd::fold(halves * load<f64>(kHalfWeights));
        } else {
            total = total + static_cast<double>(fold_wrap(sum));
        }
        many_sum = many_upper = zero<I32<blocks>>();
        sum = upper = zero<i32>();
    }
};

template <class Sum>
using WholeNumbers = WholeNumbersIn<Sum, UTILS_SSE_MOST_BLOCKS>;

// Fewer samples than wide blocks hold would pay for their empty sums.
template <class Sum>
using FewWholeNumbers = WholeNumbersIn<Sum, 1>;
constexpr int kFewWhole = UTILS_SSE_MOST_BLOCKS > 1 ? 8 * UTILS_SSE_MOST_BLOCKS : 0;

// Four lanes; pair sums beyond 24 bits are rounded before they are added.
template <class Sum>
struct FloatLanes
{
    using Number = float;
    static constexpr int blocks = 1;
    static constexpr int stretch = INT_MAX;
    f32 lanes = zero<f32>();
    float total = 0;

    UTILS_SSE_INLINE void add(i32 pairs) { lanes = lanes + to_float(pairs); }
    UTILS_SSE_INLINE void fold() { total = simd::fold(lanes); }

    template <int Count>
    UTILS_SSE_INLINE void add_singly(i32 terms)
    {
        const f32 numbers = to_float(terms);
        repeat<Count>([&](auto k) UTILS_SSE_LAMBDA { total = total + lane<k()>(numbers); });
    }
    UTILS_SSE_INLINE void settle() {}
};

// --- what is summed --------------------------------------------------------------------------------------------------
// pairs(x, y): neighbouring terms of eight samples of each segment added; two products of (-32768)^2 wrap. term(x, y): of one.

struct SumA
{
    static constexpr bool of_products = false;
    static UTILS_SSE_INLINE int term(short x, short) { return x; }
    template <int N>
    static UTILS_SSE_INLINE I32<N> pairs(I16<N> x, I16<N>)
    {
        return multiply_add_pairs(x, I16<N>::broadcast(1));
    }
};
struct SumB
{
    static constexpr bool of_products = false;
    static UTILS_SSE_INLINE int term(short, short y) { return y; }
    template <int N>
    static UTILS_SSE_INLINE I32<N> pairs(I16<N>, I16<N> y)
    {
        return multiply_add_pairs(y, I16<N>::broadcast(1));
    }
};
struct SumAA
{
    static constexpr bool of_products = true;
    static UTILS_SSE_INLINE int term(short x, short) { return x * x; }
    template <int N>
    static UTILS_SSE_INLINE I32<N> pairs(I16<N> x, I16<N>)
    {
        return multiply_add_pairs(x, x);
    }
};
struct SumBB
{
    static constexpr bool of_products = true;
    static UTILS_SSE_INLINE int term(short, short y) { return y * y; }
    template <int N>
    static UTILS_SSE_INLINE I32<N> pairs(I16<N>, I16<N> y)
    {
        return multiply_add_pairs(y, y);
    }
};
struct SumAB
{
    static constexpr bool of_products = true;
    static UTILS_SSE_INLINE int term(short x, short y) { return x * y; }
    template <int N>
    static UTILS_SSE_INLINE I32<N> pairs(I16<N> x, I16<N> y)
    {
        return multiply_add_pairs(x, y);
    }
};

// The first `Count` samples, 1 to 4, each followed by a zero: a pair sum of these is the term of one sample.
template <int Count>
UTILS_SSE_INLINE i16 load_apart(const short* p)
{
    if constexpr (Count == 3)
        return interleave_low(bit_or(Part<i16, 4>::load(p), move_down<-2>(Part<i16, 2>::load(p + 2))), zero<i16>());
    else
        return interleave_low(Part<i16, 2 * Count>::load(p), zero<i16>());
}

template <class Number, class>
constexpr Number kNothing = 0; // a total for each kind of sum

// Fewer than four samples: no lanes, and their terms are added one after the other.
template <class Number, class... Sums, class Score>
UTILS_SSE_INLINE Number score_of_few(const short* a, const short* b, int n, const Score& score)
{
    return [&](auto... total) UTILS_SSE_LAMBDA {
        for_few(n, [&](std::ptrdiff_t i)
                       UTILS_SSE_LAMBDA { ((total = total + static_cast<Number>(Sums::term(a[i], b[i]))), ...); });
        return score(static_cast<Number>(maximum(n, 0)), total...);
    }(kNothing<Number, Sums>...);
}

// One pass over both segments; the score gets the count and the totals in the order of Sums.
template <template <class> class Lanes, class... Sums, class Score>
UTILS_SSE_INLINE auto score_of(const short* a, const short* b, int n, const Score& score)
{
    using Number = typename Lanes<SumAB>::Number;
    if (n < 4)
        return score_of_few<Number, Sums...>(a, b, n, score);
    constexpr int group = sizeof...(Sums) > 3 ? 1 : 2; // five sums fill the registers
    return [&](auto... lanes) UTILS_SSE_LAMBDA {
        std::ptrdiff_t done = 0;
        do {
            const short* const x = a + done;
            const short* const y = b + done;
            const int stretch = static_cast<int>(minimum<std::ptrdiff_t>(n - done, Lanes<SumAB>::stretch));
            constexpr Blocks<Lanes<SumAB>::blocks> wide;
            Rest rest{0, stretch};
            if (stretch >= 8 * wide.count) { // else nothing to fold
                rest = read_blocks<8 * wide.count, group>(
                    stretch,
                    [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
                        const auto some_x = wide.load(x + i);
                        const auto some_y = wide.load(y + i);
                        (lanes.add(Sums::pairs(some_x, some_y)), ...);
                    },
                    ahead<1024>(x), ahead<1024>(y));
                (lanes.fold(), ...);
            }
            // Integers of which several blocks were taken: terms of single blocks are added as those of single samples are.
            if constexpr (wide.count > 1)
                for (; rest.count >= 8; rest.count -= 8, rest.i += 8) {
                    const i16 eight_x = load<i16>(x + rest.i);
                    const i16 eight_y = load<i16>(y + rest.i);
                    (lanes.template add_singly<4>(Sums::pairs(eight_x, eight_y)), ...);
                }
            const auto add_singly = [&](auto count) UTILS_SSE_LAMBDA {
                const i16 few_x = load_apart<count()>(x + rest.i);
                const i16 few_y = load_apart<count()>(y + rest.i);
                (lanes.template add_singly<count()>(Sums::pairs(few_x, few_y)), ...);
            };
            if (rest.count >= 4) {
                add_singly(std::integral_constant<int, 4>());
                rest.i += 4;
                rest.count -= 4;
            }
            if (rest.count == 3)
                add_singly(std::integral_constant<int, 3>());
            else if (rest.count == 2)
                add_singly(std::integral_constant<int, 2>());
            else if (rest.count == 1)
                add_singly(std::integral_constant<int, 1>());
            (lanes.settle(), ...);
            done += stretch;
        } while (done < n);
        // Of no samples every mean is 0 / 0.
        return score(static_cast<Number>(maximum(n, 0)), lanes.total...);
    }(Lanes<Sums>()...);
}

// --- scores ----------------------------------------------------------------------------------------------------------

template <template <class> class Lanes>
UTILS_SSE_INLINE auto correlation(const short* a, const short* b, int n)
{
    return score_of<Lanes, SumAB>(a, b, n, [](auto count, auto ab) UTILS_SSE_LAMBDA { return ab / count; });
}

template <template <class> class Lanes>
UTILS_SSE_INLINE auto normalized_correlation(const short* a, const short* b, int n)
{
    return score_of<Lanes, SumAA, SumBB, SumAB>(
        a, b, n, [](auto, auto aa, auto bb, auto ab) UTILS_SSE_LAMBDA { return ab / square_root(aa * bb); });
}

// The grouping is the contract: it fixes the last bits.
template <template <class> class Lanes>
UTILS_SSE_INLINE auto normalized_covariance(const short* a, const short* b, int n)
{
    return score_of<Lanes, SumA, SumB, SumAA, SumBB, SumAB>(
        a, b, n, [](auto count, auto sa, auto sb, auto aa, auto bb, auto ab) UTILS_SSE_LAMBDA {
            const auto ma = sa / count;
            const auto mb = sb / count;
            const auto numerator = ((ab - mb * sa) - ma * sb) + (count * ma) * mb;
            const auto vb = (bb - (mb * 2) * sb) + (count * mb) * mb;
            const auto va = (aa - (ma * 2) * sa) + (count * ma) * ma;
            return numerator / (square_root(vb) * square_root(va));
        });
}

} // namespace

double CUtils_SSE::Correlation(const short* a, const short* b, int n)
{
    // For a single sum of a few samples it is not worth the while.
    if (UTILS_SSE_OUT_OF_LINE(n >= 32 && n <= kMostWhole))
        return correlation<WholeNumbers>(a, b, n);
    return correlation<DoubleLanes>(a, b, n);
}

float CUtils_SSE::CorrelationF(const short* a, const short* b, int n)
{
    return correlation<FloatLanes>(a, b, n);
}

double CUtils_SSE::NormalizedCorrelation(const short* a, const short* b, int n)
{
    if (n < kFewWhole)
        return normalized_correlation<FewWholeNumbers>(a, b, n);
    return n <= kMostWhole ? normalized_correlation<WholeNumbers>(a, b, n) : normalized_correlation<DoubleLanes>(a, b, n);
}

float CUtils_SSE::NormalizedCorrelationF(const short* a, const short* b, int n)
{
    return normalized_correlation<FloatLanes>(a, b, n);
}

double CUtils_SSE::NormalizedCovariance(const short* a, const short* b, int n)
{
    if (n < kFewWhole)
        return normalized_covariance<FewWholeNumbers>(a, b, n);
    return n <= kMostWhole ? normalized_covariance<WholeNumbers>(a, b, n) : normalized_covariance<DoubleLanes>(a, b, n);
}

float CUtils_SSE::NormalizedCovarianceF(const short* a, const short* b, int n)
{
    return normalized_covariance<FloatLanes>(a, b, n);
}
