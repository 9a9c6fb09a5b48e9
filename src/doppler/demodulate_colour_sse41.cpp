// Quadrature demodulation of colour lines to 32-bit integers, compiled for SSE4.1.
//
// The exact products are put together from their 16-bit halves all the same: eight samples and two tables take 12 vector
// instructions, where widening first takes 14 (pmovzxwd, pmaddwd) or more (pmovsxwd, pmulld: two steps each on many
// processors). On a recent Intel server core the others are 3 to 50 % slower.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

void CUtils_SSE::DemodulateColorNew(const short* rf, const short* table1, const short* table2, int* out1, int* out2, int n)
{
    map_products(n, rf, table1, table2, out1, out2, [](auto products) UTILS_SSE_LAMBDA { return shift_right<7>(products); });
}
