#include <utils_sse.h>

int main()
{
    const float a[5] = {3, 3, 3, 3, 3};
    float b[5] = {4, 4, 4, 4, 4};
    CUtils_SSE::Distance(b, a, 5);
    return CUtils_SSE::SumFloats(b, 5) == 25.0f ? 0 : 1;
}
