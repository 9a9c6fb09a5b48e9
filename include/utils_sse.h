/** @file
 *  utils_sse: numeric kernels that turn ultrasound echoes into pictures.
 *
 *  One class, CUtils_SSE, of public static functions. There is nothing to initialise, no state, no thread, no log and no
 *  error code; any thread may call any function at any time. The header is plain C++98 and needs no other header.
 *
 *  @section rules Rules that hold for every function
 *
 *  Each function's own text states what it computes and where it departs from these rules.
 *
 *  - **Arguments.** As a rule destinations first, then sources, then counts, then scalar parameters; the declarations show
 *    the exceptions. Counts are numbers of elements, never of bytes. The words rf, line, frame, ensemble and pixel are used
 *    as in the field; lines of a frame are stored one after the other.
 *  - **Body and tail.** A function over n elements works on whole 128-bit blocks first (the *body*, "block" below is its
 *    size in elements) and on the remaining n mod block elements one at a time (the *tail*). Unless said otherwise both
 *    compute the same function, bit for bit.
 *  - **Extent.** Elements 0 .. n-1 are read and written, nothing else, unless said otherwise. Prefetch hints may name
 *    addresses beyond; they never touch the caller's memory in a way that can be seen.
 *  - **Alignment.** Any address that suits the element type, unless an argument is said to be 16-byte aligned.
 *  - **In place.** A destination may equal a source where said so ("may equal"). Any other overlap of a destination with
 *    another array is outside the contract. Sources may overlap each other in any way.
 *  - **Counts of zero or below** write nothing, and a sum gives 0, unless said otherwise. Null pointers and arrays shorter
 *    than stated are the caller's fault; nothing is checked and nothing is reported.
 *  - **Floats** are IEEE single precision. Every product and every sum is rounded once, in the grouping that the formula
 *    shows; nothing is fused or reassociated. Denormals are computed as denormals (and are slow on many processors), the
 *    rounding mode is expected to be to-nearest, and the control register is left alone. Which payload a NaN result carries
 *    is not promised.
 *  - **Float to integer** rounds to nearest, ties to even, unless "truncates" is said. NaN and values outside the 32-bit
 *    range give -2147483648. Narrowing saturates unless said otherwise.
 *  - **Sums of floats** use four lanes, each starting at +0: lane k adds the elements 4j + k in increasing j, the lanes are
 *    folded as (lane 0 + lane 1) + (lane 2 + lane 3), then the tail elements are added one by one in increasing index
 *    order. The order is part of the result.
 *  - **Instruction set.** SSE2 unless said otherwise.
 *
 *  The results are the same bits on every compiler, word size, operating system and processor.
 */
#ifndef UTILS_SSE_H
#define UTILS_SSE_H

#if defined(UTILS_SSE_STATIC)
#define UTILS_SSE_API
#elif defined(_WIN32)
#if defined(UTILS_SSE_BUILDING)
#define UTILS_SSE_API __declspec(dllexport)
#else
#define UTILS_SSE_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define UTILS_SSE_API __attribute__((visibility("default")))
#else
#define UTILS_SSE_API
#endif

/* The C calling convention, also for hosts whose compiler was told another default. */
#if defined(_WIN32) && !defined(_WIN64)
#define UTILS_SSE_CALL __cdecl
#else
#define UTILS_SSE_CALL
#endif

/** The kernels. The class has no data and is never instantiated by a host; it is a home for static functions. */
class UTILS_SSE_API CUtils_SSE
{
public:
    /** Copies nothing (there is nothing to copy) and returns this object. */
    CUtils_SSE& operator=(const CUtils_SSE& other);

    /** @name Aligned memory
     *  @{ */

    /** Heap memory at a multiple of an alignment; released with aligned_free() and nothing else.
     *
     *  The block lies in one heap block of size + 4 + alignment bytes. That sum is computed in unsigned 32-bit arithmetic
     *  and wraps at 4 GiB; a caller keeps it below, because a wrapped sum gives a block that is too small. The block starts
     *  5 to 4 + alignment bytes behind the heap block's start, and the 4 bytes directly in front of it hold the low 32 bits
     *  of the heap block's address; they must not be overwritten.
     *
     *  @param size       bytes wanted; 0 gives a valid pointer to no bytes
     *  @param alignment  any value but 0, a power of two or not; 0 is outside the contract (it divides by zero)
     *  @return the address of size usable bytes, uninitialised, or null when the heap has no room
     */
    static void* UTILS_SSE_CALL aligned_malloc(unsigned int size, unsigned int alignment);

    /** Releases a block of aligned_malloc().
     *  @param block  what aligned_malloc() returned, or null (nothing happens); anything else is outside the contract
     */
    static void UTILS_SSE_CALL aligned_free(void* block);

    /** @}
     *  @name Float vectors
     *  @{ */

    /** dst[i] = a[i] + b[i].
     *  @param[out] dst  n floats; may equal a or b or both
     *  @param[in]  a    n floats
     *  @param[in]  b    n floats
     *  @param      n    number of floats; block 4
     */
    static void UTILS_SSE_CALL SumFloatArrays(float* dst, const float* a, const float* b, int n);

    /** dst[i] = src[i] * scale.
     *  @param[out] dst    n floats; may equal src
     *  @param[in]  src    n floats
     *  @param      scale  any float
     *  @param      n      number of floats; block 4
     */
    static void UTILS_SSE_CALL FScaleArray(float* dst, const float* src, float scale, int n);

    /** Mean of two arrays, in place: dst[i] = (dst[i] + src[i]) * 0.5.
     *  @param[in,out] dst  n floats; may equal src
     *  @param[in]     src  n floats
     *  @param         n    number of floats; block 4
     */
    static void UTILS_SSE_CALL Average(float* dst, const float* src, int n);

    /** Weighted mean of two arrays: dst[i] = b[i] * (1 - w) + a[i] * w. 1 - w is rounded once, before the loop.
     *  @param[out] dst  n floats; may equal a or b or both
     *  @param[in]  a    n floats, weighted by w
     *  @param[in]  b    n floats, weighted by 1 - w
     *  @param      n    number of floats; block 4
     *  @param      w    the weight, usually 0 .. 1; not limited to that range
     */
    static void UTILS_SSE_CALL Average(float* dst, const float* a, const float* b, int n, float w);

    /** Euclidean magnitude of two components, in place: dst[i] = sqrt(dst[i] * dst[i] + src[i] * src[i]).
     *
     *  The squares and their sum are rounded to single precision, then the root is correctly rounded. The squares are not
     *  guarded: magnitudes above about 1.8e19 give infinity, those below about 1e-19 lose precision, and below about 2.6e-23
     *  they give 0.
     *  @param[in,out] dst  n floats; may equal src
     *  @param[in]     src  n floats
     *  @param         n    number of floats; block 4
     */
    static void UTILS_SSE_CALL Distance(float* dst, const float* src, int n);

    /** The sum of an array, in four lanes (see the rules above).
     *  @param[in] a  n floats
     *  @param     n  number of floats; block 4
     *  @return sum of a[i]; 0 for n <= 0
     */
    static float UTILS_SSE_CALL SumFloats(const float* a, int n);

    /** Dot product of two arrays, in four lanes (see the rules above).
     *  @param[in] a  n floats
     *  @param[in] b  n floats
     *  @param     n  number of floats; block 4
     *  @return sum of a[i] * b[i]; 0 for n <= 0
     */
    static float UTILS_SSE_CALL FDotProduct(const float* a, const float* b, int n);

    /** Two dot products with one common array in one pass: *outA = sum of a[i] * c[i], *outB = sum of b[i] * c[i].
     *
     *  Four lanes each, but unlike in the other sums the tail products are first summed among themselves, from 0, in
     *  increasing index order; that sum is added into lane 0, and then the lanes are folded. The same numbers can
     *  therefore give another last bit than two calls with one pair. For n <= 0 both results are 0.
     *  @param[out] outA  one float; both results are written at the end, this one first
     *  @param[out] outB  one float; if it is outA's, outB's result stays
     *  @param[in]  a     n floats
     *  @param[in]  b     n floats
     *  @param[in]  c     n floats
     *  @param      n     number of floats; block 4
     */
    static void UTILS_SSE_CALL FDotProduct(float* outA, float* outB, const float* a, const float* b, const float* c, int n);

    /** Gain with conversion to integers: dst[i] = integer(x[i] * gain[i]).
     *
     *  **Body and tail differ:** the body rounds to nearest, ties to even; the tail truncates towards zero. A caller who
     *  wants one rounding pads to a multiple of 4. Products outside the 32-bit range and NaN give -2147483648 in both.
     *  @param[in]  x     n floats
     *  @param[in]  gain  n floats
     *  @param[out] dst   n ints; may be the memory of x or of gain
     *  @param      n     number of elements; block 4
     */
    static void UTILS_SSE_CALL ApplyGain(const float* x, const float* gain, int* dst, int n);

    /** 16-bit samples to floats with a gain each: dst[i] = float(src[i]) * gain[i].
     *  @param[out] dst   n floats; may equal gain
     *  @param[in]  src   n samples
     *  @param[in]  gain  n floats
     *  @param      n     number of elements; block 8. Arrays of n elements are enough
     */
    static void UTILS_SSE_CALL ShortToFloat(float* dst, const short* src, const float* gain, int n);

    /** Scaled magnitude as bytes: dst[i] = min(255, abs(integer(src[i] * scale))), for products within the 16-bit range.
     *
     *  **Body and tail differ.** The body rounds to nearest (ties to even), saturates to signed 16 bits, takes the
     *  absolute value (-32768 stays negative) and saturates to 0 .. 255: products at or below -32767.5 therefore give 0,
     *  as do products from 2147483648 on and NaN; other large positive ones give 255. The tail truncates towards zero and
     *  takes the absolute value in 32 bits: large products of either sign give 255, but those at or below -2147483648, from
     *  2147483648 on, and NaN give 0. A caller who wants one behaviour pads to a multiple of 16.
     *  @param[out] dst    n bytes
     *  @param[in]  src    n floats
     *  @param      scale  any float
     *  @param      n      number of elements; block 16
     */
    static void UTILS_SSE_CALL FloatToByte(unsigned char* dst, const float* src, float scale, int n);

    /** Floats through a table of bytes: dst[i] = table[index of src[i]].
     *
     *  **Body and tail differ.** The body rounds to nearest (ties to even) and saturates to -32768 .. 32767; negative
     *  values then index the upper half of the table, -1 its last entry. The tail truncates towards zero and keeps the
     *  low 16 bits (70000 indexes entry 4464). Values outside the 32-bit range and NaN index entry 32768 in the body and
     *  entry 0 in the tail. A caller who wants one behaviour pads to a multiple of 16. This is how a host compresses an
     *  envelope logarithmically: the table holds the curve.
     *  @param[out] dst    n bytes
     *  @param[in]  src    n floats
     *  @param[in]  table  65536 bytes, or as many as the caller's values can index; only the indexed entries are read
     *  @param      n      number of elements; block 16
     */
    static void UTILS_SSE_CALL FloatToByte(unsigned char* dst, const float* src, const unsigned char* table, int n);

    /** @}
     *  @name Quadrature demodulation
     *  Mixing of RF lines with carrier tables (quadrature demodulation without the low-pass). Tables are Q15: 32767 stands
     *  for +1.0; the caller builds them, usually 32767 cos(w t) and -32767 sin(w t) for mixing with exp(-j w t).
     *  @{ */

    /** One RF line times two carrier tables, as floats: out[i] = float(rf[i] * table[i]) * (1/32767).
     *
     *  The product is exact, converted to float (nearest even) and multiplied by the float nearest to 1/32767
     *  (0x38000100): a table entry of 32767 gives the RF sample back to within one unit in the last place.
     *
     *  **The wiring is crossed:** table1 feeds out2 and table2 feeds out1.
     *  @param[in]  rf      n samples
     *  @param[in]  table1  n entries, for out2
     *  @param[in]  table2  n entries, for out1
     *  @param[out] out1    n floats: rf times table2; must not overlap an input
     *  @param[out] out2    n floats: rf times table1; must not overlap an input
     *  @param      n       number of samples; block 8
     */
    static void UTILS_SSE_CALL Demodulate(const short* rf, const short* table1, const short* table2, float* out1, float* out2,
                                          int n);

    /** RF lines times two carrier tables, as Q15 samples: out[l][i] = saturate16((rf[l][i] * table[i]) >> 15).
     *
     *  The shift is arithmetic (towards minus infinity); only -32768 * -32768 saturates. The wiring is straight: table1
     *  feeds out1, table2 feeds out2. These are the inputs of every envelope detector.
     *
     *  **The tail is zeroed:** the last n mod 8 samples of every line are not computed; both outputs are 0 there. Pad
     *  lines to whole blocks of 8 to lose nothing.
     *  @param[in]  rf      [lines][n] samples; the last n mod 8 of a line are not read
     *  @param[out] out1    [lines][n] samples: rf times table1; must not overlap an input
     *  @param[out] out2    [lines][n] samples: rf times table2; must not overlap an input
     *  @param[in]  table1  n entries (the last n mod 8 are not read), 16-byte aligned, the same for each line
     *  @param[in]  table2  n entries (the last n mod 8 are not read), 16-byte aligned, the same for each line
     *  @param      lines   number of lines
     *  @param      n       samples per line, and the distance from line to line; block 8
     */
    static void UTILS_SSE_CALL DemodulateNew(const short* rf, short* out1, short* out2, const short* table1,
                                             const short* table2, int lines, int n);

    /** RF lines times four carrier tables in one pass, as Q15 samples; arithmetic as in DemodulateNew().
     *
     *  Two carrier pairs, (A, B) and (C, D), for example fundamental and second harmonic.
     *
     *  **The last line is never touched** and need not exist: lines 0 .. lines - 2 are processed, so lines <= 1 does nothing.
     *  **There is no tail:** the last n mod 8 samples of a processed line are neither read nor written.
     *  @param[in]  rf      [lines - 1][n] samples
     *  @param[in]  tableA  n entries (the last n mod 8 are not read), 16-byte aligned
     *  @param[in]  tableB  n entries, as tableA
     *  @param[out] outA    [lines - 1][n] samples: rf times tableA; must not overlap an input
     *  @param[out] outB    [lines - 1][n] samples: rf times tableB; must not overlap an input
     *  @param[out] outC    [lines - 1][n] samples: rf times tableC; must not overlap an input
     *  @param[out] outD    [lines - 1][n] samples: rf times tableD; must not overlap an input
     *  @param[in]  tableC  n entries, as tableA
     *  @param[in]  tableD  n entries, as tableA
     *  @param      lines   number of lines, one more than are processed
     *  @param      n       samples per line, and the distance from line to line; block 8
     */
    static void UTILS_SSE_CALL DemodulateHarmInterp(const short* rf, const short* tableA, const short* tableB, short* outA,
                                                    short* outB, short* outC, short* outD, const short* tableC,
                                                    const short* tableD, int lines, int n);

    /** @}
     *  @name Envelope detection
     *  Low-pass (FIR), decimation and magnitude of mixed RF lines: the step from echo to B-mode amplitude.
     *  @{ */

    /** Envelope of lines for any filter length and decimation.
     *
     *  For output j of a line, with s = j * decimation: sI = sum of float(inI[s + k]) * h[k] and sQ likewise over
     *  k = 0 .. taps - 1, strictly one after the other from +0, and out[j] = sqrt(sQ * sQ + sI * sI): both squares and
     *  their sum are rounded to single precision, then the root is correctly rounded. Squares that overflow give infinity.
     *  With taps that sum to 1 the output is in units of the inputs. There is no body and no tail; all outputs follow
     *  the formula. The method is the usual one: quadrature components, low-pass, magnitude.
     *  @param[in]  inI         lines of (count - 1) * decimation + taps samples; none are read when count or taps is <= 0
     *  @param[in]  inQ         as inI
     *  @param[out] out         lines of floats: count are written of each line, those up to outStride stay as they are;
     *                          must not overlap an input
     *  @param[in]  h           taps floats; h[0] meets the earliest sample
     *  @param      lines       number of lines; <= 0 does nothing
     *  @param      inStride    samples from one input line to the next, not negative
     *  @param      outStride   floats from one output line to the next, not negative
     *  @param      count       outputs per line; <= 0 does nothing
     *  @param      taps        filter length; <= 0 writes 0 to every output
     *  @param      decimation  input samples from one output to the next, not negative
     */
    static void UTILS_SSE_CALL EnvelopDetectGen(const short* inI, const short* inQ, float* out, const float* h, int lines,
                                                int inStride, int outStride, int count, int taps, int decimation);

    /** Envelope plus a filtered third signal (pulse inversion), for any filter length and decimation.
     *
     *  As EnvelopDetectGen(), with a third sum sC = sum of float(inC[s + k]) * h[k] in the same loop and
     *  out[j] = sqrt(sQ * sQ + sI * sI) + sC; the root is rounded before the addition. The third term keeps its sign:
     *  outputs may be negative.
     *  @param[in]  inI         lines of (count - 1) * decimation + taps samples; none are read when count or taps is <= 0
     *  @param[in]  inQ         as inI
     *  @param[in]  inC         as inI; the third signal
     *  @param[out] out         lines of floats: count are written of each line, those up to outStride stay as they are;
     *                          must not overlap an input
     *  @param[in]  h           taps floats; h[0] meets the earliest sample
     *  @param      lines       number of lines; <= 0 does nothing
     *  @param      inStride    samples from one input line to the next, not negative
     *  @param      outStride   floats from one output line to the next, not negative
     *  @param      count       outputs per line; <= 0 does nothing
     *  @param      taps        filter length; <= 0 writes 0 to every output
     *  @param      decimation  input samples from one output to the next, not negative
     */
    static void UTILS_SSE_CALL EnvelopDetectGenPI(const short* inI, const short* inQ, const short* inC, float* out,
                                                  const float* h, int lines, int inStride, int outStride, int count, int taps,
                                                  int decimation);

    /** The same operation as EnvelopDetectGenPI(), under the name that harmonic imaging uses; every bit is equal.
     *  @param[in]  inI         as there
     *  @param[in]  inQ         as there
     *  @param[in]  inC         as there
     *  @param[out] out         as there
     *  @param[in]  h           as there
     *  @param      lines       as there
     *  @param      inStride    as there
     *  @param      outStride   as there
     *  @param      count       as there
     *  @param      taps        as there
     *  @param      decimation  as there
     */
    static void UTILS_SSE_CALL EvelopDetectHarmGen(const short* inI, const short* inQ, const short* inC, float* out,
                                                   const float* h, int lines, int inStride, int outStride, int count, int taps,
                                                   int decimation);

    /** @}
     *  @name Envelope detection with Q15 taps
     *  The fast forms of EnvelopDetectGen(): filter length and decimation belong to the function, taps are Q15 integers. The
     *  method is the same; so is the chain: the inputs are the outputs of DemodulateNew().
     *
     *  **Tap tables**, 16-byte aligned, T taps, h[0] meets the earliest sample:
     *  - Decimation 4 (SSE4, Dec4 and D4 in the names): T / 4 vectors of 8 entries; vector g is h[4 g] .. h[4 g + 3] and the
     *    same four once more: h0 h1 h2 h3 h0 h1 h2 h3 h4 h5 h6 h7 h4 .. A table whose halves differ is outside the contract.
     *  - Decimation 8 (D8): the T taps in their order.
     *
     *  **Results.** With s = j * decimation: aI = sum of inI[s + k] * h[k] over k = 0 .. T - 1, exact products, in 32 bits that
     *  wrap; with a sum of |h| up to 65535 (twice unit gain) nothing does. Then fI = float(aI >> 15), the shift
     *  arithmetic (towards minus infinity), after the whole sum; aQ, fQ and, with a third signal, aC, fC likewise.
     *  out[j] = sqrt(fQ * fQ + fI * fI), rounded as in EnvelopDetectGen(), plus fC with a third signal. Taps that sum to 32768
     *  give the output in units of the input. Body and tail agree.
     *
     *  **The rest of the output line is zeroed:** out[count] .. out[outStride - 1], if count < outStride, of every line (the
     *  general detectors leave it as it is). count = 0 zeroes whole lines; count < 0 writes nothing.
     *
     *  **Reads beyond.** With decimation 4 and 16 or 32 taps the 4 samples behind the last window of each input line may be
     *  read, and a host keeps them readable; their values never matter. (At present nothing beyond the windows is read.)
     *
     *  The ignored arguments are there so that every detector can be called alike: their values never matter.
     *  @{ */

    /** Envelope of lines: 12 taps, decimation 4.
     *  @param[in]  inI         lines of (count - 1) * 4 + 12 samples; none are read when count is 0
     *  @param[in]  inQ         as inI
     *  @param[out] out         lines of floats, max(count, outStride) are written of each; must not overlap an input
     *  @param[in]  h           table of 24 entries, 16-byte aligned (layout above)
     *  @param      lines       number of lines; <= 0 does nothing
     *  @param      inStride    samples from one input line to the next, not negative
     *  @param      outStride   floats from one output line to the next, not negative
     *  @param      count       outputs per line; block 8
     *  @param      taps        ignored
     *  @param      decimation  ignored
     */
    static void UTILS_SSE_CALL EnvelopDetectGenSSE4(const short* inI, const short* inQ, float* out, const short* h, int lines,
                                                    int inStride, int outStride, int count, int taps, int decimation);

    /** The same operation as EnvelopDetectGenSSE4(), without the ignored arguments; every bit is equal.
     *  @param[in]  inI         as there
     *  @param[in]  inQ         as there
     *  @param[out] out         as there
     *  @param[in]  h           as there
     *  @param      lines       as there
     *  @param      inStride    as there
     *  @param      outStride   as there
     *  @param      count       as there
     */
    static void UTILS_SSE_CALL EvelopDetectDec4(const short* inI, const short* inQ, float* out, const short* h, int lines,
                                                int inStride, int outStride, int count);

    /** Envelope plus a filtered third signal (pulse inversion): 12 taps, decimation 4. The third term keeps its sign: outputs
     *  may be negative.
     *  @param[in]  inI         lines of (count - 1) * 4 + 12 samples; none are read when count is 0
     *  @param[in]  inQ         as inI
     *  @param[in]  inC         as inI; the third signal
     *  @param[out] out         lines of floats, max(count, outStride) are written of each; must not overlap an input
     *  @param[in]  h           table of 24 entries, 16-byte aligned (layout above)
     *  @param      lines       number of lines; <= 0 does nothing
     *  @param      inStride    samples from one input line to the next, not negative
     *  @param      outStride   floats from one output line to the next, not negative
     *  @param      count       outputs per line; block 8
     *  @param      taps        ignored
     *  @param      decimation  ignored
     */
    static void UTILS_SSE_CALL EnvelopDetectGenSSE4PI(const short* inI, const short* inQ, const short* inC, float* out,
                                                      const short* h, int lines, int inStride, int outStride, int count,
                                                      int taps, int decimation);

    /** The same operation as EnvelopDetectGenSSE4PI(), without the ignored arguments and under the name that harmonic
     *  imaging uses; every bit is equal.
     *  @param[in]  inI         as there
     *  @param[in]  inQ         as there
     *  @param[in]  inC         as there
     *  @param[out] out         as there
     *  @param[in]  h           as there
     *  @param      lines       as there
     *  @param      inStride    as there
     *  @param      outStride   as there
     *  @param      count       as there
     */
    static void UTILS_SSE_CALL EvelopDetectHarmDec4(const short* inI, const short* inQ, const short* inC, float* out,
                                                    const short* h, int lines, int inStride, int outStride, int count);

    /** As EnvelopDetectGenSSE4() with 16 taps: lines of (count - 1) * 4 + 16 samples, table of 32 entries.
     *  @param[in]  inI         as there
     *  @param[in]  inQ         as there
     *  @param[out] out         as there
     *  @param[in]  h           as there
     *  @param      lines       as there
     *  @param      inStride    as there
     *  @param      outStride   as there
     *  @param      count       as there
     *  @param      taps        ignored
     *  @param      decimation  ignored
     */
    static void UTILS_SSE_CALL EnvelopDetectGenSSED4F4(const short* inI, const short* inQ, float* out, const short* h,
                                                       int lines, int inStride, int outStride, int count, int taps,
                                                       int decimation);

    /** As EnvelopDetectGenSSE4PI() with 16 taps: lines of (count - 1) * 4 + 16 samples, table of 32 entries.
     *  @param[in]  inI         as there
     *  @param[in]  inQ         as there
     *  @param[in]  inC         as there
     *  @param[out] out         as there
     *  @param[in]  h           as there
     *  @param      lines       as there
     *  @param      inStride    as there
     *  @param      outStride   as there
     *  @param      count       as there
     *  @param      taps        ignored
     *  @param      decimation  ignored
     */
    static void UTILS_SSE_CALL EnvelopDetectGenSSED4F4PI(const short* inI, const short* inQ, const short* inC, float* out,
                                                         const short* h, int lines, int inStride, int outStride, int count,
                                                         int taps, int decimation);

    /** As EnvelopDetectGenSSE4() with 32 taps: lines of (count - 1) * 4 + 32 samples, table of 64 entries.
     *  @param[in]  inI         as there
     *  @param[in]  inQ         as there
     *  @param[out] out         as there
     *  @param[in]  h           as there
     *  @param      lines       as there
     *  @param      inStride    as there
     *  @param      outStride   as there
     *  @param      count       as there
     *  @param      taps        ignored
     *  @param      decimation  ignored
     */
    static void UTILS_SSE_CALL EnvelopDetectGenSSED4F8(const short* inI, const short* inQ, float* out, const short* h,
                                                       int lines, int inStride, int outStride, int count, int taps,
                                                       int decimation);

    /** As EnvelopDetectGenSSE4PI() with 32 taps: lines of (count - 1) * 4 + 32 samples, table of 64 entries.
     *  @param[in]  inI         as there
     *  @param[in]  inQ         as there
     *  @param[in]  inC         as there
     *  @param[out] out         as there
     *  @param[in]  h           as there
     *  @param      lines       as there
     *  @param      inStride    as there
     *  @param      outStride   as there
     *  @param      count       as there
     *  @param      taps        ignored
     *  @param      decimation  ignored
     */
    static void UTILS_SSE_CALL EnvelopDetectGenSSED4F8PI(const short* inI, const short* inQ, const short* inC, float* out,
                                                         const short* h, int lines, int inStride, int outStride, int count,
                                                         int taps, int decimation);

    /** As EnvelopDetectGenSSE4() with 32 taps and decimation 8: lines of (count - 1) * 8 + 32 samples, table of 32 entries in
     *  their order, block 4.
     *  @param[in]  inI         as there
     *  @param[in]  inQ         as there
     *  @param[out] out         as there
     *  @param[in]  h           as there
     *  @param      lines       as there
     *  @param      inStride    as there
     *  @param      outStride   as there
     *  @param      count       as there
     *  @param      taps        ignored
     *  @param      decimation  ignored
     */
    static void UTILS_SSE_CALL EnvelopDetectGenSSED8F4(const short* inI, const short* inQ, float* out, const short* h,
                                                       int lines, int inStride, int outStride, int count, int taps,
                                                       int decimation);

    /** As EnvelopDetectGenSSE4PI() with 32 taps and decimation 8: lines of (count - 1) * 8 + 32 samples, table of 32 entries
     *  in their order, block 4.
     *  @param[in]  inI         as there
     *  @param[in]  inQ         as there
     *  @param[in]  inC         as there
     *  @param[out] out         as there
     *  @param[in]  h           as there
     *  @param      lines       as there
     *  @param      inStride    as there
     *  @param      outStride   as there
     *  @param      count       as there
     *  @param      taps        ignored
     *  @param      decimation  ignored
     */
    static void UTILS_SSE_CALL EnvelopDetectGenSSED8F4PI(const short* inI, const short* inQ, const short* inC, float* out,
                                                         const short* h, int lines, int inStride, int outStride, int count,
                                                         int taps, int decimation);

    /** @}
     *  @name Envelope of one output
     *  Low-pass and magnitude of float signals: one output of an envelope detector, with the taps as weights.
     *  @{ */

    /** sqrt(sQ * sQ + sI * sI) with sI = sum of inI[i] * w[i], sQ = sum of inQ[i] * w[i].
     *
     *  Sums in four lanes as in FDotProduct() with two pairs: the tail products are first summed among themselves, from 0, in
     *  increasing index order, and that sum is added into lane 0 before the fold. Squares, their sum and the root are rounded
     *  to single precision one after the other.
     *  @param[in] inI  n floats
     *  @param[in] inQ  n floats
     *  @param[in] w    n floats, the weights
     *  @param     n    number of floats; block 4
     *  @return the magnitude; 0 for n <= 0
     */
    static float UTILS_SSE_CALL Envelope(const float* inI, const float* inQ, const float* w, int n);

    /** Envelope() plus sC = sum of inC[i] * w[i] with its sign; the root is rounded before the addition. The weights come
     *  fourth.
     *  @param[in] inI  n floats
     *  @param[in] inQ  n floats
     *  @param[in] inC  n floats, the third signal
     *  @param[in] w    n floats, the weights
     *  @param     n    number of floats; block 4
     *  @return the sum, which may be negative; 0 for n <= 0
     */
    static float UTILS_SSE_CALL EnvelopeSum(const float* inI, const float* inQ, const float* inC, const float* w, int n);

    /** @}
     *  @name Envelope smoothing
     *  Smoothing of 8-bit envelope images by the kernel (-1, 6, 22, 6, -1) / 32: unit gain, a slight overshoot at edges. Images
     *  are [rows][cols], rows one behind the other. Images below 5 rows are not smoothed across rows; rows or cols <= 0 does
     *  nothing.
     *  @{ */

    /** Smooths across rows and, if asked for, along rows, by way of floats.
     *
     *  First work[r][c] = K(in[r - 2][c], .., in[r + 2][c]) for r = 2 .. rows - 3, with K the kernel; rows 0, 1, rows - 2 and
     *  rows - 1 are float(in[r][c]). Nothing is rounded: all values are exact in single precision. Then
     *  - alongRows = 0: out[r][c] = work[r][c] clamped to 0 .. 255 and **truncated**.
     *  - else: with y = K(work[r][c - 2], .., work[r][c + 2]) for c = 2 .. cols - 3, out[r][c] = y + 0.5 truncated, and clamped
     *    to 0 .. 255. **Columns 0, 1, cols - 2 and cols - 1 are not clamped:** there out[r][c] is the low 8 bits of
     *    work[r][c] + 0.5 truncated towards zero, so that an overshoot to 270 gives 14 and one to -8 gives 249.
     *  @param[out] out        [rows][cols] pixels; must not overlap another array
     *  @param[in]  in         [rows][cols] pixels
     *  @param[out] work       [rows][cols] floats; left with the image smoothed across rows; must not overlap another array
     *  @param      rows       rows of the image
     *  @param      cols       pixels of a row; block 8
     *  @param      alongRows  0: across rows only; any other value: along rows, too
     */
    static void UTILS_SSE_CALL FilterTheEnvelop(unsigned char* out, const unsigned char* in, float* work, int rows, int cols,
                                                int alongRows);

    /** Smooths across rows only, in 16-bit integers.
     *
     *  out[r][c] = floor(K(in[r - 2][c], .., in[r + 2][c])) for r = 2 .. rows - 3, with K the kernel; rows 0, 1, rows - 2 and
     *  rows - 1 are copied. **Body and tail differ** above 255: the body clamps to 0 .. 255; the tail, the last cols mod 16
     *  pixels of a row, clamps to 0 but keeps the low 8 bits of what is too bright (270 gives 14).
     *  @param[out] out        [rows][cols] pixels; must not overlap in
     *  @param[in]  in         [rows][cols] pixels
     *  @param      work       ignored, may be null; there for hosts that call both alike
     *  @param      rows       rows of the image
     *  @param      cols       pixels of a row; block 16
     *  @param      alongRows  ignored
     */
    static void UTILS_SSE_CALL FilterTheEnvelopSSE(unsigned char* out, const unsigned char* in, float* work, int rows, int cols,
                                                   int alongRows);

    /** @}
     *  @name Line interpolation
     *  Two or four lines out of each line of a frame, before scan conversion. Every interpolated line is the linear
     *  interpolation between its neighbours a (line l) and b (line l + 1) in the same column, rounded towards minus
     *  infinity; columns are never mixed. The lines of a source and of its destination lie one directly behind the other,
     *  n elements each.
     *
     *  The five differ in what becomes of the source lines themselves and of the last output lines, which have no second
     *  neighbour. There is no body and no tail: all columns follow the formula. Destination and source must not overlap.
     *  @{ */

    /** Twice as many RF lines.
     *
     *  For l = 0 .. lines - 2: line 2l of dst is line l of src, and line 2l + 1 is (a + b) >> 1. **Ending:** line
     *  2 lines - 2 is the last source line, and line 2 lines - 1 is filled with zeros.
     *  @param[out] dst    [2 lines][n] samples
     *  @param[in]  src    [lines][n] samples
     *  @param      lines  number of source lines; <= 0 does nothing
     *  @param      n      samples per line; <= 0 does nothing
     */
    static void UTILS_SSE_CALL Interpolate2(short* dst, const short* src, int lines, int n);

    /** Four times as many RF lines.
     *
     *  For l = 0 .. lines - 2: line 4l + 1 of dst is (3a + b) >> 2, line 4l + 2 is (a + b) >> 1 and line 4l + 3 is
     *  (a + 3b) >> 2. **Of source line l only the first n bytes are copied to line 4l:** the first n / 2 samples and, when n
     *  is odd, the low byte of the next one; the rest of line 4l keeps what dst held. A host that wants the whole lines
     *  copies them itself, before or after. **Ending:** each of the last four lines is the last source line, whole.
     *  @param[in,out] dst    [4 lines][n] samples
     *  @param[in]     src    [lines][n] samples
     *  @param         lines  number of source lines; <= 0 does nothing
     *  @param         n      samples per line; <= 0 does nothing
     */
    static void UTILS_SSE_CALL Interpolate4(short* dst, const short* src, int lines, int n);

    /** Twice as many lines of pixels.
     *
     *  For l = 0 .. lines - 2: line 2l of dst is line l of src, and line 2l + 1 is (a + b) >> 1. **Ending:** each of the
     *  last two lines is the last source line; unlike in Interpolate2() it is doubled.
     *  @param[out] dst    [2 lines][n] pixels
     *  @param[in]  src    [lines][n] pixels
     *  @param      lines  number of source lines; <= 0 does nothing
     *  @param      n      pixels per line; <= 0 does nothing
     */
    static void UTILS_SSE_CALL Interpolate2_8bit(unsigned char* dst, const unsigned char* src, int lines, int n);

    /** Four times as many lines of pixels, two of every four shifted in part.
     *
     *  For l = 0 .. lines - 3, with c line l + 2: line 4l of dst is line l of src and line 4l + 1 is (3a + b) >> 2. With
     *  m = n / 8 * 16 - n for n >= 16 and m = 0 below, **columns 0 .. m - 1 of the next two lines are one source line
     *  ahead:**
     *
     *  | line   | columns 0 .. m - 1 | columns m .. n - 1 |
     *  |--------|--------------------|--------------------|
     *  | 4l + 2 | (3b + c) >> 2      | (a + b) >> 1       |
     *  | 4l + 3 | (b + c) >> 1       | (a + 3b) >> 2      |
     *
     *  When n is a multiple of 8, from 16 on, this is the whole line. **Ending:** the last eight lines are filled with
     *  zeros, or all four when lines is 1; the last two source lines therefore appear as neighbours only. Nothing behind
     *  src or dst is read or written: m are the columns to which interpolation in floor(n / 8) steps of 16 pixels, each line
     *  running on into the next, comes down.
     *  @param[out] dst    [4 lines][n] pixels
     *  @param[in]  src    [lines][n] pixels
     *  @param      lines  number of source lines; <= 0 does nothing
     *  @param      n      pixels per line; <= 0 does nothing
     */
    static void UTILS_SSE_CALL Interpolate4_8bit(unsigned char* dst, const unsigned char* src, int lines, int n);

    /** Lines of pixels at a level of interpolation that the host chooses at run time.
     *  @param[out] dst    [lines][n], [2 lines][n] or [4 lines][n] pixels, as the level says
     *  @param[in]  src    [lines][n] pixels
     *  @param      lines  number of source lines; <= 0 does nothing
     *  @param      n      pixels per line; <= 0 does nothing
     *  @param      level  0 or below: dst is a copy of src; 1: Interpolate2_8bit(); 2 or above: Interpolate4_8bit()
     */
    static void UTILS_SSE_CALL Interpolate_8bit(unsigned char* dst, const unsigned char* src, int lines, int n, int level);

    /** @}
     *  @name Harmonic line pairs
     *  Pulse inversion: every beam is fired twice with opposite polarity, and adding the two firings cancels the fundamental
     *  and keeps the even harmonics. A source frame holds the firings of a pair one line behind the other.
     *
     *  Beside the image these functions write a clip mask: 1023 where both firings of a pair are at full scale (each of them
     *  32767 or -32768), else 0.
     *  @{ */

    /** Harmonic lines and one line between each two: two output lines out of each pair.
     *
     *  For pair m, with a and b its lines 2m and 2m + 1 of src, and c and d the lines of the next pair, the body computes
     *  S = saturate16(a + b), S' = saturate16(c + d); line 2m of dst is S, line 2m + 1 is (S + S') >> 1, rounded towards
     *  minus infinity. Line 2m of the mask receives the flags of a and b. **Line 2m + 1 of the mask is left as it is.**
     *
     *  **The pair behind the last one is read**, though it makes no lines of its own: the last interpolated line leans on
     *  whatever the host keeps there.
     *
     *  **Body and tail differ.** In the last n mod 8 columns line 2m is the low 16 bits of a + b (20000 + 20000 gives
     *  -25536) and line 2m + 1 the low 16 bits of (a + b + c + d) >> 1; the mask is not written. Pad lines to whole blocks
     *  of 8 to avoid all that.
     *  @param[out] dst    [2 (lines / 2)][n] samples; must not overlap src
     *  @param[in]  src    [2 (lines / 2) + 2][n] samples, pair after pair; the last two lines are the pair behind
     *  @param[out] clip   [2 (lines / 2)][n] flags, of which the columns of the body of every other line are written
     *  @param      lines  source lines; an odd one at the end makes no pair; below 2 nothing is done
     *  @param      n      samples per line, and the distance from line to line; block 8
     */
    static void UTILS_SSE_CALL InterpRFHarm2(short* dst, const short* src, short* clip, int lines, int n);

    /** Harmonic lines and three lines between each two: four output lines out of each pair.
     *
     *  With S and S' as in InterpRFHarm2(), the body writes S to line 4m of dst, (3 S + S') >> 2 to line 4m + 1,
     *  (S + S') >> 1 to line 4m + 2 and (S + 3 S') >> 2 to line 4m + 3, all rounded towards minus infinity, and the flags of
     *  a and b to line 4m of the mask. **The pair behind the last one is read**, as there.
     *
     *  **Body and tail differ.** In the last n mod 8 columns line 4m is the low 16 bits of a + b, and the lines behind it lie
     *  between the two firings of the same pair: (3a + b) >> 2, (a + b) >> 1, (a + 3b) >> 2. No flags are computed there.
     *
     *  Each mask line 4m is then copied whole to the three lines behind it: in the columns of the tail they receive what
     *  line 4m held before the call.
     *  @param[out]    dst    [4 (lines / 2)][n] samples; must not overlap src
     *  @param[in]     src    [2 (lines / 2) + 2][n] samples, pair after pair; the last two lines are the pair behind
     *  @param[in,out] clip   [4 (lines / 2)][n] flags
     *  @param         lines  source lines; an odd one at the end makes no pair; below 2 nothing is done
     *  @param         n      samples per line, and the distance from line to line; block 8
     */
    static void UTILS_SSE_CALL InterpRFHarm4(short* dst, const short* src, short* clip, int lines, int n);

    /** The two firings of each pair blended into one line: summed in full near the probe, with less and less of the second
     *  firing across a ramp, and with a constant part of it beyond.
     *
     *  With x a sample of the second firing and y the same of the first, out = saturate16(saturate16(integer(v)) + y), where
     *  - before the ramp v = x;
     *  - on it v = (1 - float(j) * slope) * float(x), j = 0, 1, .. counted from its start;
     *  - from its end on v = float(x) * (1 - float(percent) / 100).
     *
     *  The ramp's ends are rounded down to multiples of 8, and slope = (float(percent) / float(end - start)) / 100. The mask
     *  of each line receives the flags of its pair. If the ramp ends at or before its start, there is none: what lies beyond
     *  begins at its end.
     *
     *  **There is no tail:** the last n mod 8 samples of a line and its mask are neither read nor written.
     *  @param[in]  rf         [lines][2][n] samples: first firing, then second
     *  @param[out] out        [lines][n] samples; must not overlap rf
     *  @param[out] clip       [lines][n] flags; must not overlap rf
     *  @param      lines      number of pairs, and of output lines
     *  @param      n          samples per line, up to 32767; block 8
     *  @param      rampStart  first sample of the ramp, not negative
     *  @param      rampEnd    first sample behind the ramp, not negative
     *  @param      percent    how much of the second firing is taken away beyond the ramp: 100 leaves the first firing alone
     */
    static void UTILS_SSE_CALL BlendTwoRF2D(const short* rf, short* out, short* clip, int lines, int n, int rampStart,
                                            int rampEnd, int percent);

    /** @}
     *  @name Upsampling
     *  Twice the sampling rate along one RF line, by a symmetric half-band filter: even outputs are the samples themselves,
     *  odd ones lie half-way between. A flat line stays flat but for the edges.
     *  @{ */

    /** Upsampling with eight taps: dst[2i] = x[i] and
     *  dst[2i + 1] = (-13 x[i-3] + 61 x[i-2] - 170 x[i-1] + 634 x[i] + 634 x[i+1] - 170 x[i+2] + 61 x[i+3] - 13 x[i+4]) >> 10.
     *
     *  Sums are exact and rounded towards minus infinity. Behind the line lie zeros. So they do in front of it when n >= 16,
     *  **but in output 3**, where x[4] stands in the place of x[5] as well:
     *  dst[3] = (634 (x[1] + x[2]) - 170 (x[0] + x[3]) + 48 x[4]) >> 10.
     *
     *  **Short lines read before their start.** With 9 <= n < 16 the three samples in front of src are read and take part as
     *  x[-3], x[-2] and x[-1]; output 3 follows the formula. **Below 9 samples nothing is written.**
     *
     *  **Body and tail differ** in sums that leave the 16-bit range: the body, samples 3 .. B - 1 with B = (n - 8) rounded
     *  down to a multiple of 8, saturates; all other odd outputs keep the low 16 bits.
     *  @param[out] dst  2n samples; must not overlap src
     *  @param[in]  src  n samples; below 16 also the three in front of them
     *  @param      n    samples of the line; block 8
     */
    static void UTILS_SSE_CALL Upsample2(short* dst, const short* src, int n);

    /** Upsampling with four taps: dst[2i] = x[i] and dst[2i + 1] = (-x[i-1] + 9 x[i] + 9 x[i+1] - x[i+2]) >> 4.
     *
     *  Sums are exact and rounded towards minus infinity. Behind the line lie zeros, and so they do in front of it when
     *  n >= 12.
     *
     *  **Short lines read before their start.** With 5 <= n < 12 the sample in front of src is read and takes part as x[-1].
     *  **Below 5 samples nothing is written.**
     *
     *  **Body and tail differ** in sums that leave the 16-bit range: the body, samples 0 .. B - 1 with B = (n - 4) rounded
     *  down to a multiple of 8, saturates; all other odd outputs keep the low 16 bits.
     *  @param[out] dst  2n samples; must not overlap src
     *  @param[in]  src  n samples; below 12 also the one in front of them
     *  @param      n    samples of the line; block 8
     */
    static void UTILS_SSE_CALL Upsample2Fast(short* dst, const short* src, int n);

    /** @}
     *  @name Frequency bands
     *  An image as the sum of a low and a high spatial frequency band, each held as 128 times its value in pixels, so that a
     *  host can treat the two in different ways.
     *  @{ */

    /** The image of two bands: dst[i] = clamp((low[i] + high[i]) >> 7, 0 .. 255), rounded towards minus infinity.
     *
     *  **Body and tail differ** in sums beyond 16 bits: in the body they wrap before the shift (20000 + 20000 gives 0), in
     *  the tail they do not (255).
     *  @param[out] dst   n bytes; must not overlap an input
     *  @param[in]  low   n values
     *  @param[in]  high  n values
     *  @param      n     number of pixels; block 16
     */
    static void UTILS_SSE_CALL CombineBands(unsigned char* dst, const short* low, const short* high, int n);

    /** The two bands of an image; CombineBands() gives the image back exactly.
     *
     *  low is the image smoothed along rows and columns by the binomial kernel (1 4 6 4 1) / 16, times 128 and rounded to
     *  nearest, ties up: (sum + 1) >> 1 with sum the exact sum of the 25 pixels times their integer weights, which add up to
     *  256. Beyond the borders the border pixels repeat. high = 128 * pixel - low.
     *
     *  The binomial kernel is the usual one of Laplacian pyramids (Burt and Adelson, "The Laplacian Pyramid as a Compact
     *  Image Code", 1983).
     *  @param[out] low     [height][width] values, 0 .. 32640; must not overlap src
     *  @param[out] high    [height][width] values, -32640 .. 32640; must not overlap src
     *  @param[in]  src     [height][width] pixels
     *  @param      width   pixels per row; <= 0 does nothing; block 8
     *  @param      height  rows; <= 0 does nothing
     */
    static void UTILS_SSE_CALL SeparateBands(short* low, short* high, const unsigned char* src, int width, int height);

    /** @}
     *  @name Phase and colour lines
     *  Colour flow: the lines of an ensemble are mixed down and low-passed; the phase of their lag-one autocorrelation is the
     *  mean Doppler shift.
     *  @{ */

    /** Four Doppler phases from autocorrelation values, limited, and the same phases negated.
     *
     *  For each of the four, with constants as single-precision bit patterns:
     *  - ay = abs(y) + 1e-10 (0x2edbe6ff), which keeps the ratio finite at the origin;
     *  - r = (x - ay) / (x + ay), base = pi/4 (0x3f490fdb) where x >= 0; r = (x + ay) / (ay - x), base = 3 pi/4 (0x4016cbe4)
     *    elsewhere. -0 counts as x >= 0;
     *  - a = (r * r * 0.1963 - 0.9817) * r + base (0x3e4902de, 0xbf7b50b1 for -0.9817), from left to right: atan2(|y|, x) to
     *    within 0.011.
     *
     *  **The sign does not follow the circle.** The phase is the bitwise OR of (a where y >= 0, else +0) and (-a where x < 0,
     *  else +0); the second mask is taken from x. So the phase is
     *
     *  |        | x < 0 | x >= 0 |
     *  |--------|-------|--------|
     *  | y >= 0 | -a    | a      |
     *  | y < 0  | -a    | +0     |
     *
     *  A host that wants the whole circle restores the other signs itself.
     *
     *  **Limits are ORed, not clamped.** With hi = bound * pi (0x40490fdb, in single precision) and lo = -hi the result is
     *  the bitwise OR of the phase p, of hi where p >= hi, and of lo where p <= lo. Phases strictly between the limits are
     *  unchanged. One that crosses them becomes a number at or beyond the limit, 0x3f69dfff (0.914) for pi/4 and a limit of
     *  pi/5 (0x3f20d97c), **or NaN,** where one of the two lies in 1 .. 2 and the other in 2 .. 4: a host with a bound from 1/pi
     *  to 2/pi keeps phases below 2, or tests for NaN. With bound = 1 only phases at -pi are affected.
     *
     *  The approximation misses the axes: y = 0 gives -1.8e-6 on the right, 7 units in the last place beyond pi on the left.
     *  At x = y = 0 the phase is pi/2 or just beside it. NaN in x or y gives NaN, and so do
     *  infinities in both, except on the lower right.
     *
     *  The method is the well-known rational argument with a cubic polynomial (R. Lyons, "Another contender in the
     *  arctangent race", IEEE Signal Processing Magazine, 2004, and earlier folklore).
     *  @param      n        not used: there are always four values
     *  @param[in]  y        4 floats, imaginary parts; not written
     *  @param[in]  x        4 floats, real parts; not written
     *  @param      bound    limit in units of pi, usually 0 .. 1; not checked
     *  @param[out] phase    4 floats, radians; may equal y or x
     *  @param[out] negated  4 floats: -phase; may equal y or x
     */
    static void UTILS_SSE_CALL ATan2Bound(int n, float* y, float* x, float bound, float* phase, float* negated);

    /** One output of a low-pass: samples times taps, summed up.
     *
     *  **The body reads samples without their sign:** in whole blocks of 8 a sample of -1 counts as 65535. Sums stand in four
     *  lanes; of each block the products 0 .. 3 join the lanes first, then the products 4 .. 7; then the lanes are folded
     *  (see the rules above).
     *
     *  **The tail counts half of the body again.** If n is a multiple of 8 the folded sum is the result. If not, float(
     *  samples[i]) * taps[i], now with the sign, is added for i = 4 (n / 8) .. n - 1, one by one in increasing order: with n
     *  = 12 the samples 0 .. 3 count once, 4 .. 7 twice and 8 .. 11 once. Below 8 samples the result is the ordinary sum. A
     *  host that wants the ordinary sum throughout calls it with up to 7 taps, or with non-negative samples and a multiple of 8.
     *  @param[in] samples  n samples
     *  @param[in] taps     n floats
     *  @param     n        number of taps; <= 0 gives 0; block 8
     *  @return the sum
     */
    static float UTILS_SSE_CALL ColorLowPass(const short* samples, const float* taps, int n);

    /** Demodulate() for colour lines: out[i] = float(rf[i] * table[i]) * 2^-15.
     *
     *  It differs from Demodulate() in the scale alone: exactly 1/32768 (0x38000000). The product is converted to nearest
     *  even; the scaling is exact.
     *
     *  **The wiring is crossed:** table1 feeds out2 and table2 feeds out1.
     *  @param[in]  rf      n samples
     *  @param[in]  table1  n entries, Q15, for out2
     *  @param[in]  table2  n entries, Q15, for out1
     *  @param[out] out1    n floats: rf times table2; must not overlap an input
     *  @param[out] out2    n floats: rf times table1; must not overlap an input
     *  @param      n       number of samples; block 8
     */
    static void UTILS_SSE_CALL DemodulateColor(const short* rf, const short* table1, const short* table2, float* out1,
                                               float* out2, int n);

    /** One RF line times two carrier tables, as integers: out[i] = (rf[i] * table[i]) >> 7.
     *
     *  The product is exact and the shift arithmetic (towards minus infinity): Q15 tables leave 8 fractional bits. The wiring
     *  is straight, unlike in DemodulateColor(): table1 feeds out1, table2 feeds out2. Unlike in DemodulateNew() the tail is
     *  computed.
     *
     *  **Needs SSE4.1.**
     *  @param[in]  rf      n samples, at any address
     *  @param[in]  table1  n entries, Q15, 16-byte aligned
     *  @param[in]  table2  n entries, Q15, 16-byte aligned
     *  @param[out] out1    n ints, 16-byte aligned: rf times table1; must not overlap an input
     *  @param[out] out2    n ints, 16-byte aligned: rf times table2; must not overlap an input
     *  @param      n       number of samples; block 8
     */
    static void UTILS_SSE_CALL DemodulateColorNew(const short* rf, const short* table1, const short* table2, int* out1,
                                                  int* out2, int n);

    /** @}
     *  @name FFT support
     *  @{ */

    /** The table of FFTmagnitude() for one length: with x = k * 6.283185307179586 / n in double precision (multiplied, then
     *  divided), table[k] = cos(x) and table[n + k] = sin(x), each rounded once to single precision.
     *
     *  Zeros of the functions that x misses by its rounding are not zeros of the table: with n = 16, table[4] = cos(x) is
     *  6.12323426e-17.
     *  @param n  the length, any; of 0 or less gives a table without entries
     *  @return 2 max(n, 0) floats, 16-byte aligned, to be released with aligned_free(); null when the heap has no room, or
     *          when they and their block would need 4 GiB or more
     */
    static float* UTILS_SSE_CALL CreateFFTCoeffs(int n);

    /** Magnitudes of n bins of n real samples by a radix-2 recursion, and the largest of them.
     *
     *  **This is not the discrete Fourier transform** but a combination of its own, kept as it is. With c[t] = table[t] and
     *  s[t] = table[n + t], a step with stride s and offset o has four lanes j = 0 .. 3, each with the index
     *  t = (o + (3 - j) * s) mod n:
     *  - if 4 s = n: re[j] = input[t], im[j] = 0;
     *  - else, with A the step of stride 2s and offset o, and B the step of stride 2s and offset o + s/2:
     *    re[j] = (c[t] * B.re[j] - s[t] * B.im[j]) + A.re[j], im[j] = (s[t] * B.re[j] + c[t] * B.im[j]) + A.re[j].
     *
     *  **A.re joins both parts, A.im none.** Bins 4k .. 4k + 3 are combined in the same way from A, the step of stride 2 and
     *  offset 4k, and B, the one of stride 2 and offset 4k + 1, with t = 4k + j (natural order). Then
     *  magnitude = sqrt(re * re + im * im). Every product, sum and root is rounded once, as written.
     *
     *  Steps that several bins have in common are computed once, which changes no bit: the time grows like n log n up to
     *  n = 4096, and like n^2 or worse from 8192 on. Uses 17 KB of stack.
     *  @param[out] magnitude  n floats; must not overlap an input
     *  @param[in]  input      n floats
     *  @param[in]  table      2n floats, of CreateFFTCoeffs(n)
     *  @param      n          a power of two from 16 on; with any other, nothing is written and 1 returned
     *  @return the largest magnitude, +0 if there is none above 0; NaN among the magnitudes is passed over
     */
    static float UTILS_SSE_CALL FFTmagnitude(float* magnitude, const float* input, const float* table, int n);

    /** @}
     *  @name Display pixels
     *  A packed colour pixel is 4 bytes in memory order blue, green, red, fill.
     *  @{ */

    /** Grey pixels to packed colour pixels: blue, green and red of pixel i are grey[i].
     *  @param[out] packed  4 n bytes
     *  @param[in]  grey    n bytes
     *  @param      n       number of pixels; block 16
     *  @param      fill    the fourth byte of every pixel
     */
    static void UTILS_SSE_CALL BWToColour(unsigned char* packed, const unsigned char* grey, int n, unsigned char fill);

    /** Packed colour pixels to grey pixels: grey[i] is the blue byte of pixel i (no luminance weighting), which undoes
     *  BWToColour().
     *  @param[out] grey    n bytes
     *  @param[in]  packed  4 n bytes
     *  @param      n       number of pixels; block 16
     */
    static void UTILS_SSE_CALL ColourToBW(unsigned char* grey, const unsigned char* packed, int n);

    /** Packed colour pixels to three planes; the fill bytes are dropped.
     *  @param[out] red     n bytes
     *  @param[out] green   n bytes
     *  @param[out] blue    n bytes
     *  @param[in]  packed  4 n bytes
     *  @param      n       number of pixels; block 16
     */
    static void UTILS_SSE_CALL ColourToRGB(unsigned char* red, unsigned char* green, unsigned char* blue,
                                           const unsigned char* packed, int n);

    /** Three planes to packed colour pixels.
     *  @param[out] packed  4 n bytes
     *  @param[in]  red     n bytes
     *  @param[in]  green   n bytes
     *  @param[in]  blue    n bytes
     *  @param      n       number of pixels; block 16
     *  @param      fill    the fourth byte of every pixel
     */
    static void UTILS_SSE_CALL RGBToColour(unsigned char* packed, const unsigned char* red, const unsigned char* green,
                                           const unsigned char* blue, int n, unsigned char fill);

    /** @} */
};

#endif
