// Quadrature demodulation of colour lines to 32-bit integers, compiled for SSE4.1.
#include "simd/loops.h"
#include "utils_sse.h"

using namespace simd;

void CUtils_SSE::DemodulateColorNew(const short* rf, const short* table1, const short* table2, int* out1, int* out2, int n)
{
    map_products(n, rf, table1, table2, out1, out2, [](auto products) UTILS_SSE_LAMBDA { return shift_right<7>(products); });
}
