/** @file
 *  Trials of the block-matching searches, which need positions within their image: random blocks, positions above and below
 *  the image, flat, saturated and matching blocks, sums that wrap, absurd parameters.
 */
#ifndef UTILS_SSE_BLOCK_SEARCH_TRIAL_H
#define UTILS_SSE_BLOCK_SEARCH_TRIAL_H

#include "trial.h"
#include "utils_sse.h"

struct Searches
{
    decltype(&CUtils_SSE::RoughCorrelation) RoughCorrelation;
    decltype(&CUtils_SSE::FineCorrelation) FineCorrelation;
};

/** The library's. */
constexpr Searches kTestedSearches = {&CUtils_SSE::RoughCorrelation, &CUtils_SSE::FineCorrelation};
/** The plain loops. */
extern const Searches plain_searches;

class BlockSearchTrial
{
public:
    BlockSearchTrial(bool fine, const Searches& tested, const Searches& expected);

    /** As Trial::any(); `wrapping` makes a large block whose sums of squares pass 2^31. */
    Failure any(Random& random, bool wrapping);
    /** What the last call found. */
    int clusters() const;

private:
    bool fine_;
    Searches tested_;
    Searches expected_;
    std::vector<GuardedBuffer> buffers_;
};

#endif
