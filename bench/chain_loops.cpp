// Loops that a host without the library writes for a chain, where those of operations/plain mean something else. Compiled as
// those are; MEDIAN_OF_FIVE is the function's name.
namespace bench {

namespace {

unsigned char lesser(unsigned char a, unsigned char b)
{
    return a < b ? a : b;
}
unsigned char greater(unsigned char a, unsigned char b)
{
    return a > b ? a : b;
}

} // namespace

void MEDIAN_OF_FIVE(unsigned char* __restrict to, const unsigned char* a, const unsigned char* b, const unsigned char* c,
                    const unsigned char* d, const unsigned char* e, int n);
void MEDIAN_OF_FIVE(unsigned char* __restrict to, const unsigned char* a, const unsigned char* b, const unsigned char* c,
                    const unsigned char* d, const unsigned char* e, int n)
{
    for (int i = 0; i < n; ++i) {
        const unsigned char low = greater(lesser(a[i], b[i]), lesser(c[i], d[i]));
        const unsigned char high = lesser(greater(a[i], b[i]), greater(c[i], d[i]));
        to[i] = greater(lesser(low, high), lesser(greater(low, high), e[i]));
    }
}

} // namespace bench
