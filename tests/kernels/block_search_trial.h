/** @file
 *  Trials of the block-matching searches, which need positions within their image: random blocks, positions above and below
 *  the image, flat, saturated and matching blocks, sums that wrap, absurd parameters.
 */
#ifndef UTILS_SSE_BLOCK_SEARCH_TRIAL_H
#define UTILS_SSE_BLOCK_SEARCH_TRIAL_H

#include "trial.h"
#include "utils_sse.h"

/** What is tested: the library's searches. */
struct Searches
{
    decltype(&CUtils_SSE::RoughCorrelation) RoughCorrelation = &CUtils_SSE::RoughCorrelation;
    decltype(&CUtils_SSE::FineCorrelation) FineCorrelation = &CUtils_SSE::FineCorrelation;
};

class BlockSearchTrial
{
public:
    explicit BlockSearchTrial(bool fine, const Searches& searches = Searches());

    /** As Trial::any(); `wrapping` makes a large block whose sums of squares pass 2^31. */
    Failure any(Random& random, bool wrapping);
    /** What the last call found. */
    int clusters() const;

private:
    bool fine_;
    Searches searches_;
    std::vector<GuardedBuffer> buffers_;
};

#endif
