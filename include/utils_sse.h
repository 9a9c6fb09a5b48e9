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
    /** Copies nothing (there is nothing to copy).
     *  @param other  any object
     *  @return this object
     */
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
     *  @name Integer vectors
     *  @{ */

    /** Dot product of samples in units of 2^15 (Q15 times Q15 gives Q15): sum of (a[i] * b[i]) >> 15, in four float lanes.
     *
     *  **Body and tail differ.** The body adds two neighbouring products in 32 bits, where only 2^30 + 2^30 (-32768 four
     *  times) wraps, shifts the sum (arithmetically) and converts it: of each block lane k adds
     *  float((a[2k] * b[2k] + a[2k+1] * b[2k+1]) >> 15). The tail shifts every single product and rounds down twice as often.
     *  @param[in] a  n samples
     *  @param[in] b  n samples
     *  @param     n  number of samples; block 8
     *  @return the sum, not divided by n; 0 for n <= 0
     */
    static float UTILS_SSE_CALL DotProduct(const short* a, const short* b, int n);

    /** Mean of integers over 256: (sum / float(n)) * (1/256).
     *
     *  **Body and tail differ.** The body is summed in 32-bit integers, which wrap, and that sum converted to float; then the
     *  tail elements are converted and added one by one.
     *  @param[in] a  n ints
     *  @param     n  number of elements; block 4
     *  @return the mean over 256; NaN for n <= 0
     */
    static float UTILS_SSE_CALL SumProduct(const int* a, int n);

    /** Mean of samples: sum / float(n).
     *
     *  **Body and tail differ.** The body is summed in 32-bit integers, which wrap (no sooner than behind 65536 samples), and
     *  that sum converted to float; then the tail samples are converted and added one by one.
     *  @param[in] a  n samples
     *  @param     n  number of samples; block 8
     *  @return the mean; NaN for n <= 0
     */
    static float UTILS_SSE_CALL SumProduct2(const short* a, int n);

    /** Mean of two arrays that are not negative: dst[i] = (a[i] + b[i]) >> 1.
     *
     *  **Body and tail differ.** The body shifts the exact 32-bit sum as an unsigned number and saturates: **every negative
     *  sum gives 32767.** The tail divides by 2 and truncates towards zero: -3 gives -1. For sums from 0 on both round down.
     *  @param[out] dst  n samples; may equal a or b or both
     *  @param[in]  a    n samples
     *  @param[in]  b    n samples
     *  @param      n    number of samples; block 8
     */
    static void UTILS_SSE_CALL Average2(short* dst, const short* a, const short* b, int n);

    /** Means of columns: dst[j] = integer(sum over r of src[r * stride + j] / rows).
     *
     *  The samples of a column are added as floats in increasing r (exact up to 512 rows, rounded where a sum leaves 24 bits),
     *  and the sum is divided by float(rows).
     *
     *  **Body and tail differ.** The body rounds to nearest (ties to even) and saturates to 16 bits, the last n mod 8 columns
     *  truncate towards zero: of 1 and 2 the mean is 2 in the body and 1 in the tail. With rows = 0 the body gives -32768
     *  (0 / 0 as an integer, saturated), the tail its low 16 bits, 0.
     *  @param[out] dst     n samples; must not overlap src
     *  @param[in]  src     [rows][stride] samples, of which the first n of each row are read
     *  @param      rows    number of rows; below 0 nothing is done
     *  @param      stride  samples from row to row, n at least. Beyond the stride a column's walk still ends in front of
     *                      src[rows * stride], so that blocks and tail columns that start there see a row less for each
     *                      stride they lie beyond; the sums are divided by rows all the same
     *  @param      n       number of columns; block 8
     */
    static void UTILS_SSE_CALL Average(short* dst, const short* src, int rows, int stride, int n);

    /** Largest magnitudes of columns: dst[j] = max over r of |src[r * stride + j]|, and 0 without rows.
     *
     *  **Body and tail differ** in columns that hold -32768: its magnitude is 32767 in the body; in the last n mod 8 columns
     *  it is 32768, of which the low 16 bits are stored: -32768.
     *  @param[out] dst     n samples; must not overlap src
     *  @param[in]  src     [rows][stride] samples, of which the first n of each row are read
     *  @param      rows    number of rows; below 0 nothing is done
     *  @param      stride  samples from row to row, n at least; beyond it as in Average() of columns
     *  @param      n       number of columns; block 8
     */
    static void UTILS_SSE_CALL MaxAbsoluteValue(short* dst, const short* src, int rows, int stride, int n);

    /** Sum of two arrays that saturates, with a flag where both samples are at full scale: dst[i] = saturate16(a[i] + b[i]);
     *  flags[i] = 1023 (32767 >> 5) where a[i] and b[i] are 32767 or -32768 each, else 0.
     *
     *  The flag tells clipped echoes, not a saturated sum: 32767 + 1 saturates without a flag, 32767 - 32768 is flagged.
     *  @param[out] dst    n samples; may equal a or b or both
     *  @param[out] flags  n floats, 16-byte aligned; must not overlap another array
     *  @param[in]  a      n samples
     *  @param[in]  b      n samples
     *  @param      n      number of samples; block 8
     */
    static void UTILS_SSE_CALL AddSaturate(short* dst, float* flags, const short* a, const short* b, int n);

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
     *  whatever the host keeps there. (With an odd number of lines the last of them is the first firing of that pair.)
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
     *  line 4m held before the call. All shifts round towards minus infinity.
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
     *  The ramp's ends are rounded down to multiples of 8, and with these slope = (float(percent) / float(end - start)) / 100;
     *  they may lie beyond the line. Products outside the 32-bit range (an absurd percentage) become -32768. The mask
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
     *  @param[out] dst   n bytes; may begin where an input begins
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
     *  @param[out] high    [height][width] values, -28050 .. 28050; must not overlap src
     *  @param[in]  src     [height][width] pixels
     *  @param      width   pixels per row; <= 0 does nothing; block 8
     *  @param      height  rows; <= 0 does nothing
     */
    static void UTILS_SSE_CALL SeparateBands(short* low, short* high, const unsigned char* src, int width, int height);

    /** @}
     *  @name Median filters
     *  Medians along time and in space, against impulses and speckle: an outlier vanishes, an edge stays.
     *
     *  The functions over frames know of no rows: a frame is n values one behind the other, a whole image or a part of it.
     *  The functions over images take height rows of width values, row r from element r * pitch on; source and destination
     *  have the same pitch, counted in elements, and what lies between width and pitch is neither read nor written. Their
     *  destination must not overlap the source.
     *  @{ */

    /** Median of three frames, pixel by pixel: dst = max(min(f2, f3), min(max(f2, f3), f1)).
     *  @param[out] dst  n values; may equal a frame
     *  @param[in]  f1   n values
     *  @param[in]  f2   n values
     *  @param[in]  f3   n values
     *  @param      n    number of pixels; block 16
     */
    static void UTILS_SSE_CALL MedianFilter(unsigned char* dst, const unsigned char* f1, const unsigned char* f2,
                                            const unsigned char* f3, int n);

    /** A smoothing of five frames, pixel by pixel. **It is not their median, but in the tail.**
     *
     *  **Body and tail differ.** The body leaves frame 1 out, and its result is one of the other four, chosen by
     *      lo = min(f5, f4), hi = max(f5, f4), t = min(hi, f3), u = min(max(hi, f3), f2),
     *      dst = max(max(min(lo, t), min(t, u)), min(max(t, u), f2)):
     *  of (f1 .. f5) = (9, 1, 2, 3, 4) it is 2, of (0, 4, 3, 2, 1) 3, of (0, 1, 1, 3, 3) 1. The tail takes the true median of
     *  all five. A caller who wants medians only passes the pixels in calls of fewer than a block; one who wants the body's
     *  choice only pads to whole blocks.
     *  @param[out] dst  n values; may equal a frame
     *  @param[in]  f1   n values, of which those of the body are not read
     *  @param[in]  f2   n values
     *  @param[in]  f3   n values
     *  @param[in]  f4   n values
     *  @param[in]  f5   n values
     *  @param      n    number of pixels; block 16
     */
    static void UTILS_SSE_CALL MedianFilter(unsigned char* dst, const unsigned char* f1, const unsigned char* f2,
                                            const unsigned char* f3, const unsigned char* f4, const unsigned char* f5, int n);

    /** Median of three frames of 16-bit values; as for bytes, but block 8.
     *  @param[out] dst  n values; may equal a frame
     *  @param[in]  f1   n values
     *  @param[in]  f2   n values
     *  @param[in]  f3   n values
     *  @param      n    number of values; block 8
     */
    static void UTILS_SSE_CALL MedianFilter(short* dst, const short* f1, const short* f2, const short* f3, int n);

    /** A smoothing of five frames of 16-bit values; as for bytes, but block 8. **Body and tail differ** in the same way.
     *  @param[out] dst  n values; may equal a frame
     *  @param[in]  f1   n values, of which those of the body are not read
     *  @param[in]  f2   n values
     *  @param[in]  f3   n values
     *  @param[in]  f4   n values
     *  @param[in]  f5   n values
     *  @param      n    number of values; block 8
     */
    static void UTILS_SSE_CALL MedianFilter(short* dst, const short* f1, const short* f2, const short* f3, const short* f4,
                                            const short* f5, int n);

    /** The extreme one of three frames, pixel by pixel, blended with the mean of the others.
     *
     *  **Body and tail differ.** In the body the magnitude of a pixel is that of the byte read as signed: x up to 127, else
     *  256 - x. With A the largest magnitude, V the value of the latest frame that has it, and O the sum of the two other
     *  values halved and rounded down, dst = (O * (128 - A) + V * A) >> 8: the weights add up to half the divisor, so that
     *  results lie in 0 .. 127. Three frames of 127 give 63.
     *
     *  The tail measures by |x - 127| instead and does not blend: dst is the value of the latest frame that is farthest from
     *  127. (0, 100, 255) gives 52 in the body and 255 in the tail.
     *  @param[out] dst  n pixels; may equal a frame
     *  @param[in]  f1   n pixels
     *  @param[in]  f2   n pixels
     *  @param[in]  f3   n pixels
     *  @param      n    number of pixels; block 16
     */
    static void UTILS_SSE_CALL ExtremumFilter(unsigned char* dst, const unsigned char* f1, const unsigned char* f2,
                                              const unsigned char* f3, int n);

    /** The extreme one of five frames, pixel by pixel, blended with the mean of the others.
     *
     *  **Body and tail differ.** In the body the magnitude of a pixel is |x - 127|, unlike with three frames. With A the
     *  largest magnitude, V the value of the latest frame that has it, and O a quarter of the sum of the four other values,
     *  rounded down, dst = min(255, (O * (255 - A) + V * A) >> 7): the weights add up to about twice the divisor, so that
     *  bright results saturate. Five frames of 127 give 253.
     *
     *  **The tail is no extremum:** it takes the median of the five.
     *  @param[out] dst  n pixels; may equal a frame
     *  @param[in]  f1   n pixels
     *  @param[in]  f2   n pixels
     *  @param[in]  f3   n pixels
     *  @param[in]  f4   n pixels
     *  @param[in]  f5   n pixels
     *  @param      n    number of pixels; block 16
     */
    static void UTILS_SSE_CALL ExtremumFilter(unsigned char* dst, const unsigned char* f1, const unsigned char* f2,
                                              const unsigned char* f3, const unsigned char* f4, const unsigned char* f5, int n);

    /** Exact median of the 3x3 neighbourhood.
     *
     *  Every pixel but those of the first and last row and column is filtered; these are copied. **With a width below 16 or a
     *  height below 3 the image is only copied.**
     *  @param[out] dst     height rows of width pixels
     *  @param[in]  src     height rows of width pixels
     *  @param      pitch   pixels from row to row, width at least
     *  @param      width   pixels per row; <= 0 does nothing; block 16
     *  @param      height  rows; <= 0 does nothing
     */
    static void UTILS_SSE_CALL MedianFilter2DWin3(unsigned char* dst, const unsigned char* src, int pitch, int width,
                                                  int height);

    /** Exact median of the 3x3 neighbourhood, for floats.
     *
     *  With an odd width, from 3 on, every pixel but those of the first and last row and column is filtered. **With an even
     *  width columns width - 3 and width - 2 are not filtered either.** What is not filtered is copied. A width or height below
     *  3 gives a copy.
     *
     *  With min(x, y) = x < y ? x : y and max(x, y) = x > y ? x : y the steps are, for a column of three values a, b, c from
     *  top to bottom: lo = min(a, b), hi = max(a, b), t = min(hi, c); lowest min(lo, t), middle max(lo, t), highest
     *  max(hi, c). Then, from left to right, P is the largest of the lowest, max(max(., .), .), R the smallest of the
     *  highest, and Q the middle one of the middles x, y, z after exchanging x and y if x > y, y and z if y > z, x and y if
     *  x > y. The result is max(min(P, Q), min(max(P, Q), R)). This settles what becomes of NaN, which is in no order, and of
     *  zeros of both signs; of other numbers it is the median.
     *  @param[out] dst     height rows of width floats
     *  @param[in]  src     height rows of width floats
     *  @param      pitch   floats from row to row, width at least
     *  @param      width   floats per row; <= 0 does nothing; block 4
     *  @param      height  rows; <= 0 does nothing
     */
    static void UTILS_SSE_CALL MedianFilter2DWin3(float* dst, const float* src, int pitch, int width, int height);

    /** Exact median of the 3x3 neighbourhood, for 16-bit values.
     *
     *  **Of every row only the first width bytes are copied:** its first width / 2 values and, when width is odd, the low
     *  byte of the next one. All other values of dst, the right border among them, keep what they held unless they are
     *  filtered. With a width below 8 or a height below 3 this copy is all that happens.
     *
     *  **How far a row is filtered depends on its width:** inner rows are filtered from column 1 to column
     *  min(6 k + width mod 8, width - 2), where k = floor((width - 8) / 6) + 1. Width 16 ends with column 12, width 17 with
     *  column 13, width 18 with column 14, widths 8 to 15 with the last inner one.
     *  @param[in,out] dst     height rows of width values
     *  @param[in]     src     height rows of width values; not written
     *  @param         pitch   values from row to row, width at least
     *  @param         width   values per row; <= 0 does nothing; block 8
     *  @param         height  rows; <= 0 does nothing
     */
    static void UTILS_SSE_CALL MedianFilter2DWin3Short(short* dst, short* src, int pitch, int width, int height);

    /** Exact median of the 5x5 neighbourhood.
     *
     *  Every pixel at least two away from each border is filtered, at any width and height; the others are copied. A width or
     *  height below 5 gives a copy.
     *  @param[out] dst     height rows of width pixels
     *  @param[in]  src     height rows of width pixels
     *  @param      pitch   pixels from row to row, width at least
     *  @param      width   pixels per row; <= 0 does nothing
     *  @param      height  rows; <= 0 does nothing
     */
    static void UTILS_SSE_CALL MedianFilter2DWin5(unsigned char* dst, const unsigned char* src, int pitch, int width,
                                                  int height);

    /** Exact median of the 5x5 neighbourhood, for floats; as for bytes.
     *
     *  The result is always one of the 25 values, bit for bit. Which one is not promised where a NaN is among them; where the
     *  median is 0 and zeros of both signs are among them, it is one of these.
     *  @param[out] dst     height rows of width floats
     *  @param[in]  src     height rows of width floats
     *  @param      pitch   floats from row to row, width at least
     *  @param      width   floats per row; <= 0 does nothing
     *  @param      height  rows; <= 0 does nothing
     */
    static void UTILS_SSE_CALL MedianFilter2DWin5(float* dst, const float* src, int pitch, int width, int height);

    /** Exact median of the 5x5 neighbourhood, for 16-bit values; as for bytes. Whole rows are copied, unlike in
     *  MedianFilter2DWin3Short().
     *  @param[out] dst     height rows of width values
     *  @param[in]  src     height rows of width values; not written
     *  @param      pitch   values from row to row, width at least
     *  @param      width   values per row; <= 0 does nothing
     *  @param      height  rows; <= 0 does nothing
     */
    static void UTILS_SSE_CALL MedianFilter2DWin5Short(short* dst, short* src, int pitch, int width, int height);

    /** @}
     *  @name Mask averages
     *  The mean of a list of frames, pixel by pixel, where not every frame covers every pixel (spatial compounding): the sum
     *  over the frames times a factor of its own for each pixel. Factors are 8.8 fixed point, 256 stands for 1; the host fills
     *  them with about 256 / (frames that cover the pixel), and uncovered pixels of a frame with 0.
     *
     *  A list is an array of pointers to frames of n elements each; a frame may appear in it several times. Without frames
     *  the sums are 0 (but the last two functions copy frame 0). In place means that dst may equal any frame of the list.
     *  @{ */

    /** Mean of byte frames: dst[i] = bits 8 .. 15 of S * mask[i], with S the sum of frames[j][i] over all frames.
     *
     *  That is (S * mask[i]) >> 8 as long as this is below 256; beyond, nothing saturates: three frames of 255 with a factor
     *  of 256 give 253, the low byte of 765.
     *  @param[out] dst         n pixels; may equal a frame
     *  @param[in]  frames      frameCount pointers to n pixels each
     *  @param      frameCount  number of frames; <= 0 gives zeros
     *  @param[in]  mask        n factors
     *  @param      n           number of pixels; block 16
     */
    static void UTILS_SSE_CALL MaskAverage(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                           const unsigned short* mask, int n);

    /** Mean of byte frames with a weight for each frame, in sixteenths.
     *
     *  **Body and tail differ**; they agree while the weights are 257 at most, sums and factors 32767 at most and results 255
     *  at most. Each weighted pixel is rounded down before it is added.
     *
     *  Body: S = the sum of ((frames[j][i] * weights[j]) mod 65536) >> 4, wrapping to a signed 16-bit number. The factor is
     *  read as signed, too, and dst[i] = min(255, P >> 8) with P = S * mask[i], exact, read as unsigned 32 bits: a negative
     *  product gives 255. A factor of 32768 or more is negative, and so is a sum of 32768 or more.
     *
     *  Tail: S = the sum of (frames[j][i] * weights[j]) >> 4 with all bits of the products, and dst[i] = bits 8 .. 15 of
     *  S * mask[i]; nothing saturates and nothing is negative.
     *  @param[out] dst         n pixels; may equal a frame
     *  @param[in]  frames      frameCount pointers to n pixels each
     *  @param      frameCount  number of frames; <= 0 gives zeros
     *  @param[in]  mask        n factors
     *  @param      n           number of pixels; block 16
     *  @param[in]  weights     frameCount weights, 16 stands for 1; not written
     */
    static void UTILS_SSE_CALL MaskAverage(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                           const unsigned short* mask, int n, unsigned short* weights);

    /** Mean of 16-bit frames.
     *
     *  **Body and tail differ in three ways.** Body: dst[i] = saturate16(S >> 8), rounded towards minus infinity, with S the
     *  sum of frames[j][i] * m over all frames, wrapping in 32 bits. **Factors are used twice:** m is the factor of element
     *  i for the elements 0 .. 3 of each block of 8 and that of element i - 4 for the elements 4 .. 7, whose own factors are
     *  not read. Factors are signed: 32768 stands for -128.
     *
     *  Tail: every element has its own factor, which is unsigned, and dst[i] = bits 8 .. 15 of S * mask[i], with S the sum of
     *  the elements: 0 .. 255, also for negative sums.
     *  @param[out] dst         n elements; may equal a frame
     *  @param[in]  frames      frameCount pointers to n elements each
     *  @param      frameCount  number of frames; <= 0 gives zeros
     *  @param[in]  mask        n factors
     *  @param      n           number of elements; block 8
     */
    static void UTILS_SSE_CALL MaskAverage(short* dst, const short* const* frames, int frameCount, const unsigned short* mask,
                                           int n);

    /** Sum of byte frames with a weight for each frame, in sixteenths, and no factors: the weights add up to 16 for a mean.
     *
     *  **Body and tail differ, and only the body gives a mean.** Body: dst[i] = S saturated to 0 .. 255, with S the signed
     *  16-bit sum of the weighted MaskAverage(): sums from 32768 on are negative and give 0. **The tail divides by 256 once
     *  more:** dst[i] = bits 8 .. 15 of the S of that function's tail, so means below 256 give 0. A caller who wants means
     *  pads to a multiple of 16.
     *  @param[out] dst         n pixels; may equal a frame
     *  @param[in]  frames      frameCount pointers to n pixels each
     *  @param      frameCount  number of frames; <= 0 gives zeros
     *  @param      n           number of pixels; block 16
     *  @param[in]  weights     frameCount weights, 16 stands for 1; not written
     */
    static void UTILS_SSE_CALL MaskAverageWithDifferentDivisors(unsigned char* dst, const unsigned char* const* frames,
                                                                int frameCount, int n, unsigned short* weights);

    /** One frame times its factors: (src[i] * mask[i]) >> 8.
     *
     *  **Body and tail differ** in results above 255 and in factors from 32768 on. The body gives 255 for either, but 0 for a
     *  black pixel; the tail keeps the low 8 bits of the result (200 times a factor of 512 gives 144).
     *  @param[out] dst   n pixels; may equal src
     *  @param[in]  src   n pixels
     *  @param[in]  mask  n factors
     *  @param      n     number of pixels; block 16
     */
    static void UTILS_SSE_CALL ApplyDivisorMask(unsigned char* dst, const unsigned char* src, const unsigned short* mask,
                                                int n);

    /** Mean of the inner frames of a sequence, blended with the brighter of its outer ones as far as that is bright: bright
     *  structures persist, dark ones are averaged.
     *
     *  With A = bits 8 .. 15 of S * mask[i], S the sum of frames 1 .. frameCount - 2, and
     *  E = max(frames[0][i], frames[4][i]) & gate[i], the body computes dst[i] = (A * (255 - E) + E * E) >> 8. The weights add
     *  up to 255/256, so a gate of 0 gives one less than A, but 0 for 0.
     *
     *  **Frames 0 and 4 are the bright ones whatever frameCount is:** the function is made for five frames. From two frames on
     *  the list needs five pointers, and frame 4 is read even when frameCount is below 5.
     *
     *  **Body and tail differ:** the tail is MaskAverage() of all the frames, 0 and frameCount - 1 included, neither blended
     *  nor gated.
     *  @param[out] dst         n pixels; may equal a frame or gate
     *  @param[in]  frames      at least five pointers to n pixels each; one is enough when frameCount is 1 or below
     *  @param      frameCount  number of frames; 1 or below copies frame 0
     *  @param[in]  mask        n factors
     *  @param      n           number of pixels; block 16
     *  @param[in]  gate        n bytes: 255 lets the bright value through, 0 holds it back, others pass their bits; not
     *                          written
     */
    static void UTILS_SSE_CALL AdaptiveAverage(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                               const unsigned short* mask, int n, unsigned char* gate);

    /** AdaptiveAverage() with a constant weight: the body computes dst[i] = (A * (255 - k) + E * k) >> 8.
     *
     *  A, E, frames 0 and 4, the copy for one frame and the **tail, which is MaskAverage() of all frames,** are as there.
     *  @param[out] dst         n pixels; may equal a frame or gate
     *  @param[in]  frames      at least five pointers to n pixels each; one is enough when frameCount is 1 or below
     *  @param      frameCount  number of frames; 1 or below copies frame 0
     *  @param[in]  mask        n factors
     *  @param      n           number of pixels; block 16
     *  @param[in]  gate        n bytes, as there; not written
     *  @param      k           weight of the bright value in 256ths
     */
    static void UTILS_SSE_CALL WeightAdjustAverage(unsigned char* dst, const unsigned char* const* frames, int frameCount,
                                                   const unsigned short* mask, int n, unsigned char* gate, unsigned char k);

    /** @}
     *  @name Frame averages
     *  Two or four whole frames blended pixel by pixel: temporal smoothing of successive images, and persistence.
     *  @{ */

    /** Mean of two frames, in place. **Body and tail differ:** the body rounds up, dst[i] = (dst[i] + b[i] + 1) >> 1, the tail
     *  down, (dst[i] + b[i]) >> 1.
     *  @param[in,out] dst  n pixels; may equal b
     *  @param[in]     b    n pixels
     *  @param         n    number of pixels; block 16
     */
    static void UTILS_SSE_CALL TemporalAverage2(unsigned char* dst, const unsigned char* b, int n);

    /** Mean of four frames, in place, rounded down: dst[i] = (dst[i] + a[i] + b[i] + c[i]) >> 2.
     *  @param[in,out] dst  n pixels; may equal any source
     *  @param[in]     a    n pixels
     *  @param[in]     b    n pixels
     *  @param[in]     c    n pixels
     *  @param         n    number of pixels; block 16
     */
    static void UTILS_SSE_CALL TemporalAverage4(unsigned char* dst, const unsigned char* a, const unsigned char* b,
                                                const unsigned char* c, int n);

    /** Mean of four frames, in place, as a mean of means: dst[i] = up(up(c[i], b[i]), up(a[i], dst[i])) with
     *  up(x, y) = (x + y + 1) >> 1.
     *
     *  It is TemporalAverage4() or 1 more; 0, 0, 0 and 1 give 1. **Body and tail differ:** the tail is TemporalAverage4().
     *  @param[in,out] dst  n pixels; may equal any source
     *  @param[in]     a    n pixels
     *  @param[in]     b    n pixels
     *  @param[in]     c    n pixels
     *  @param         n    number of pixels; block 16
     */
    static void UTILS_SSE_CALL TemporalAverage4Fast(unsigned char* dst, const unsigned char* a, const unsigned char* b,
                                                    const unsigned char* c, int n);

    /** Blend of two frames: dst[i] = (a[i] * (256 - w) + b[i] * w) >> 8 with w = percent * 256 / 100, rounded down.
     *  @param[out] dst      n pixels; may equal a or b or both
     *  @param[in]  a        n pixels
     *  @param[in]  b        n pixels
     *  @param      n        number of pixels; block 16
     *  @param      percent  share of b; 0 or below copies a, 100 or above copies b
     */
    static void UTILS_SSE_CALL WeightedAverage(unsigned char* dst, const unsigned char* a, const unsigned char* b, int n,
                                               int percent);

    /** Persistence, one step of a recursive low-pass in time: dst[i] = (a[i] * weightA + b[i] * weightB) >> 4.
     *
     *  The host passes the picture shown last and the new one, and weights that are not negative and add up to 16. **The
     *  destination is the third argument.**
     *
     *  **Body and tail differ** for other weights: the body takes the low 16 bits of the weights and of the sum, as signed
     *  numbers, and saturates to 0 .. 255; the tail computes in 32 bits and keeps the low 8 bits (255 and 255 with weights 16
     *  and 16 give 255 in the body and 254 in the tail).
     *  @param[in]  a        n pixels
     *  @param[in]  b        n pixels
     *  @param[out] dst      n pixels; may equal a or b or both
     *  @param      weightA  weight of a in sixteenths
     *  @param      weightB  weight of b in sixteenths
     *  @param      n        number of pixels; block 16
     */
    static void UTILS_SSE_CALL PersistImage(const unsigned char* a, const unsigned char* b, unsigned char* dst, int weightA,
                                            int weightB, int n);

    /** @}
     *  @name Small filters
     *  Images are stored row after row without gaps.
     *  @{ */

    /** 2x2 box filter: dst[r][x] = (src[r][x] + src[r][x+1] + src[r+1][x] + src[r+1][x+1]) >> 2.
     *
     *  The last row and the last column of dst are 0; the filtered image lies half a pixel further up and left.
     *  @param[out] dst     [height][width] pixels; must not overlap src
     *  @param[in]  src     [height][width] pixels
     *  @param      width   pixels per row; <= 0 does nothing; block 16
     *  @param      height  rows; <= 0 does nothing, 1 gives zeros
     */
    static void UTILS_SSE_CALL Filter2x2(unsigned char* dst, const unsigned char* src, int width, int height);

    /** Transposition, in tiles of 16 x 16 pixels, by way of a staging buffer: result[c][r] = image[r][c].
     *
     *  Both buffers have a fixed distance from row to row: 1024 bytes in staging, 512 in result. The image is copied to
     *  staging first, row r to row r. **Whole tiles are transposed:** with width and height rounded up to multiples of 16,
     *  rows and columns of the result beyond the image show what staging held beyond it, and nothing else of either buffer is
     *  touched.
     *  @param[in]     image    [height][width] pixels; not written
     *  @param         width    pixels per row, 1024 at most; <= 0 does nothing
     *  @param         height   rows, 512 at most; <= 0 does nothing
     *  @param[in,out] staging  rows of 1024 bytes, as many as height rounded up; 16-byte aligned
     *  @param[in,out] result   rows of 512 bytes, as many as width rounded up; 16-byte aligned
     */
    static void UTILS_SSE_CALL TransposeImage(unsigned char* image, int width, int height, unsigned char* staging,
                                              unsigned char* result);

    /** @}
     *  @name Colour Doppler ensembles
     *  The ensemble of a pixel is the series of n complex samples z[k] = I[k] + j Q[k] that n firings in one direction give at
     *  one depth, in firing order. A call handles one ensemble. **Ensembles of 8, 10 and 12 firings are computed in four
     *  lanes, all others one sample after the other, and the two differ in more than speed**: each function says how.
     *  Constants are given with their single-precision bit patterns, because they fix the last bits of the results.
     *  @{ */

    /** The lag-zero and lag-one autocorrelation of an ensemble: spread and power, and the real and imaginary part whose
     *  phase is the mean Doppler shift per firing.
     *
     *  With sums over all pairs k = 0 .. n-2 and R0 = sum of I[k]^2 + Q[k]^2 over all n samples:
     *
     *      re     = sum of I[k] I[k+1] + Q[k] Q[k+1]
     *      im     = sum of Q[k+1] I[k] - I[k+1] Q[k]
     *      spread = 1 - sqrt(im^2 + re^2) / R0          (0 if R0 is 0)
     *      power  = 10 log10(R0 / n + 1)                in dB; 0 for a silent pixel
     *
     *  that is, (re, im) is the sum of conj(z[k]) z[k+1]: the phase is positive when the samples turn counter-clockwise. spread
     *  is 1/n for a pure tone and near 1 for noise; power is relative to a sample power of 1. The logarithm is that of the C
     *  library in double precision, rounded once to single, then multiplied by 10; everything else is single precision.
     *
     *  **n = 8, 10, 12.** Lane k of four sums the terms k, k + 4 and k + 8, each term (the sum or difference of its two
     *  products) rounded first; the lanes begin with their first term and are folded as (lane 0 + lane 1) + (lane 2 + lane 3).
     *  Where an ensemble ends, the next sample is 0: an infinite or NaN last sample makes re and im NaN. R0 / n is R0 times
     *  0.125 (0x3E000000), 0.1 (0x3DCCCCCD) or **0.0833332986 (0x3DAAAAA6), which is 0.0833333 and not 1/12** (0x3DAAAAAB).
     *  Each output is one float. re and im are stored first, then power, then spread.
     *
     *  **Any other n**, on purpose unlike these: terms are added in increasing k, starting from 0. **spread is relative to the power of the
     *  first n - 1 samples**, so that it is 0 for a pure tone. R0 is the last sample's power plus that of the others, and is
     *  divided by n. **Each output is four floats**, all of the same value, and **a null output is skipped**. For n = 1 no
     *  sample is read and everything is 0; for n = 0 power is NaN and the rest 0; below that everything is 0.
     *
     *  Estimator: Kasai, Namekawa, Koyano and Omoto, "Real-Time Two-Dimensional Blood Flow Imaging Using an Autocorrelation
     *  Technique", 1985.
     *  @param      n          firings
     *  @param[in]  ensembleI  n floats; for n = 8, 10 and 12 16-byte aligned; for n = 10 elements 10 and 11 must be readable
     *                         and do not matter
     *  @param[in]  ensembleQ  likewise
     *  @param[out] spread     1 float for n = 8, 10 and 12, otherwise 4 floats or null; so are all outputs. No output may
     *                         overlap an input
     *  @param[out] power      in dB
     *  @param[out] re         real part of the lag-one autocorrelation
     *  @param[out] im         imaginary part of it
     */
    static void UTILS_SSE_CALL AutoCorrelateSSE(int n, const float* ensembleI, const float* ensembleQ, float* spread,
                                                float* power, float* re, float* im);

    /** The clutter (wall) filter: out[r] = sum over c of matrix[r][c] * in[c], for I and for Q with the same real matrix. The
     *  host designs it: a recursive filter with its start-up, or a regression filter, is such a matrix.
     *
     *  **n = 8, 12.** Lane k of four sums the products k, k + 4 (and k + 8), beginning with the first product; the lanes are
     *  folded as (lane 0 + lane 1) + (lane 2 + lane 3).
     *
     *  **n = 10: row 2b of the matrix makes both outputs 2b and 2b + 1, and odd rows are not read.** The sums run as for 12,
     *  with zero products in the places 10 and 11. A host has to know: the filtered ensemble holds five different samples, each
     *  twice. Every second lag-one pair of AutoCorrelateSSE() is then a sample with itself, of phase 0, so that phase and
     *  spread come out too small. A host that wants all ten rows embeds the 10 x 10 matrix in a 12 x 12 one whose other entries
     *  are 0, puts two zero samples behind the ensemble and calls with n = 12: these are the same sums. Or it calls with
     *  n = 10 twice, the second time with a copy of the matrix that begins with row 1, and takes outputs 1, 3, .. 9 from places
     *  0, 2, .. 8 of the second result.
     *
     *  **Any other n.** Each row is summed in increasing c, starting from 0, in single precision. n <= 0 does nothing.
     *  @param      n       firings
     *  @param[in]  inI     n floats; for n = 10 16-byte aligned, with elements 10 and 11 readable, which do not matter
     *  @param[in]  inQ     likewise
     *  @param[out] outI    n floats; for n = 8, 10 and 12 may equal inI or inQ; must not overlap the matrix
     *  @param[out] outQ    likewise
     *  @param[in]  matrix  [n][n] floats; for n = 10 16-byte aligned
     */
    static void UTILS_SSE_CALL IIRPerformMatrix(int n, float* inI, float* inQ, float* outI, float* outQ, float* matrix);

    /** Turns sample k by k * theta, in place, which moves the whole Doppler spectrum by theta radians per firing:
     *  I'[k] = c I[k] - s Q[k] and Q'[k] = c Q[k] + s I[k] with c and s the cosine and sine of k * theta. With theta the
     *  negative phase step of moving tissue its clutter comes to rest, where a clutter filter removes it.
     *
     *  **n = 8, 10, 12: c and s are approximations** in single precision, off by 0.0011 for theta from -2 pi to 2 pi. Reduce larger
     *  steps: the error grows to 0.0023 at 1000 and 0.01 at 10,000 radians, and far beyond c and s are no longer bounded. With
     *  2 pi = 6.28318548 (0x40C90FDB), pi = 3.14159274 (0x40490FDB) and pi/2 = 1.57079637 (0x3FC90FDB):
     *
     *      x[0] = 0, x[k] = float(k) * theta
     *      x = x - float(truncated(x / (2 pi))) * (2 pi);  above pi: x = x - 2 pi;  below -pi: x = x + 2 pi
     *      y = 1.27323949 (0x3FA2F983) * x + (-0.405284733 (0xBECF817B) * x) * |x|
     *      s = y + 0.224999994 (0x3E666666) * (y * |y| - y)
     *
     *  and c is the same of x + pi/2, less 2 pi where that is not below pi. For theta = 0 s is 0 and **c is 0.99999988, one
     *  step below 1**, for sample 0 at any theta as well. x / (2 pi) beyond 32 bits counts as -2147483648. An infinite or NaN
     *  theta makes all samples NaN but the first.
     *
     *  **Any other n**: c and s are cosine and sine of float(k) * theta by the C library in double precision, rounded once, with
     *  no reduction to -pi .. pi before. n <= 0 does nothing.
     *  @param         n          firings
     *  @param[in,out] ensembleI  n floats; for n = 10 elements 10 and 11 may be read and written back with their values
     *  @param[in,out] ensembleQ  likewise; must not overlap ensembleI
     *  @param         theta      radians per firing
     */
    static void UTILS_SSE_CALL MixingClutter(int n, float* ensembleI, float* ensembleQ, float theta);

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
     *  to 2/pi keeps phases below 2, or tests for values that are not finite. With bound = 1 only phases at -pi are affected.
     *
     *  The approximation misses the axes: y = 0 gives -1.8e-6 on the right, 7 units in the last place beyond pi on the left.
     *  At x = y = 0 the phase is pi/2 or just beside it. Within 1e-10 of an axis or of the
     *  origin that small number bends the phase, and where |x| + |y| leaves the range of floats it is pi/4 or -3 pi/4. NaN in x
     *  or y gives NaN, and so does an infinity in either, except on the lower right, where the phase is 0.
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
     *  @name Motion search
     *  Block matching in 8-bit images: where does a reference block reappear? RoughCorrelation() scores a list of positions and
     *  gathers the good ones in clusters; FineCorrelation() takes the positions of these clusters, as they are, and searches
     *  around each. The score is the normalised cross-correlation (see Lewis, "Fast Normalized Cross-Correlation", 1995, for
     *  its use and its running sums), scaled to 255 and in integers where the formulas below say so.
     *
     *  **Blocks.** A block has H = 2 half + 1 rows of W = width pixels; its position is the (row, column) of its top left
     *  corner. Rows above or below the image are its first or last row; **columns are not clamped**: x .. x + W - 1 must lie
     *  in the row, and for the fine search 5 more on both sides. Positions are read as signed 16-bit numbers. A width that is
     *  no multiple of 32 is outside the contract but for this: pixels beyond the last whole 32 of a row enter no sum, while H
     *  and W below still count them.
     *
     *  **Score**, with p the pixels of the candidate and q those of the reference:
     *  - m = float(sum of p) / float(H W), truncated; mq = mean, truncated.
     *  - S = sum of (p - m)^2 over all rows; sigma = sqrt(float(S) / (float(H) float(W))); k = 255 / (sigma deviation).
     *  - C = sum of (p - m)(q - mq): over rows 0, 2, 4, .. (rough, half + 1 rows), over all rows (fine).
     *  - value = float(C) k / (float(H) float(W) / 2 - 1), the division in double (rough);
     *    value = float(C) k / (float(H) float(W) - 1) (fine).
     *  - The score is **the low 8 bits** of |value truncated to an integer|: values from 256 on wrap, so that a perfect match
     *    may score next to nothing. In the fine search it reaches 256 for blocks of up to 256 pixels or of little contrast; in the
     *  rough search it lies at about 255 (2 half + 2) / (2 half + 1), more where the even rows have more contrast. A host
     *  enlarges the deviation by that factor and some per cent.
     *    Opposite contrast scores like equal contrast. NaN and infinite values (flat blocks) score 0.
     *
     *  Differences wrap to 16 bits (a mean far outside 0 .. 255), sums to 32 bits, signed: S can wrap from about 130 000
     *  pixels on. A negative S makes a NaN, which scores 0.
     *
     *  **Clusters.** Candidates are visited in order. One whose score does not exceed the threshold is skipped. One that is
     *  more than 15 rows **and** more than 15 columns away from the anchor opens the next slot and becomes its anchor, others
     *  belong to the slot that was opened last, however far away they are in one direction. If the score exceeds best[slot],
     *  the slot takes score and position. Slots are numbered from 1; slot 0 is never written. At the start there is no slot
     *  and the anchor is (-100, -100); a candidate within 15 rows or columns of it does not open a slot and, as long as there
     *  is none, is dropped. With a threshold below 0 a slot may be opened that nothing is written to.
     *
     *  **Left behind.** After a call `work` holds the pixels of the last candidate visited and scratch[j] the sum of its
     *  (p - m)^2 over pixels 8 i + 2 j and 8 i + 2 j + 1 of the last 32 counted pixels of its last row. Neither is read.
     *  With count <= 0, and with half < 0, width < 32 or rows <= 0, *slots becomes 0 and nothing else is read or written.
     *
     *  Written arrays must overlap no other array. Unaligned blocks and scratch are accepted, though hosts should not rely on
     *  it.
     *  @{ */

    /** Scores a list of candidate positions and gathers the good ones in clusters.
     *  @param[in]     image      [rows][stride] pixels
     *  @param[in]     rowIn      count rows, candidates 0 .. count - 1
     *  @param[in]     columnIn   count columns
     *  @param[in,out] rowOut     rows of the slots' best candidates; up to count + 1 entries, the first unused
     *  @param[in,out] columnOut  their columns
     *  @param         count      number of candidates
     *  @param[out]    slots      number of slots opened
     *  @param[out]    work       H W bytes, 16-byte aligned
     *  @param[in]     reference  H W bytes, 16-byte aligned: row after row
     *  @param[in,out] best       best score of each slot; cleared by the caller
     *  @param         half       a block has 2 half + 1 rows
     *  @param         stride     bytes from one image row to the next
     *  @param         rows       rows of the image
     *  @param[out]    scratch    4 integers, 16-byte aligned
     *  @param         width      W, a multiple of 32; block 32
     *  @param         deviation  standard deviation of the reference block
     *  @param         mean       mean of the reference block
     *  @param         threshold  to be exceeded
     */
    static void UTILS_SSE_CALL RoughCorrelation(unsigned char* image, unsigned short* rowIn, unsigned short* columnIn,
                                                unsigned short* rowOut, unsigned short* columnOut, int count, int* slots,
                                                unsigned char* work, unsigned char* reference, unsigned char* best, int half,
                                                int stride, int rows, int* scratch, int width, float deviation, float mean,
                                                int threshold);

    /** Searches around start positions: rows -5 .. 5 (outer) and columns -5 .. 5 (inner) of each, 121 candidates.
     *
     *  Three things differ from the rough search besides the score: lists are read from entry **1** on, as the rough search
     *  writes them; what is written to a slot is not the candidate's corner but **row + half** and **column + 4 +
     *  columnOffset**, of both the low 16 bits; and clusters are formed of the candidates of all start positions together.
     *  @param[in]     image         [rows][stride] pixels
     *  @param[in]     rowIn         count + 1 rows, start positions 1 .. count
     *  @param[in]     columnIn      count + 1 columns
     *  @param[in,out] rowOut        as above; up to count + 1 entries, the first unused
     *  @param[in,out] columnOut     as above
     *  @param         count         number of start positions
     *  @param[out]    slots         number of slots opened
     *  @param[out]    work          H W bytes, 16-byte aligned
     *  @param[in]     reference     H W bytes, 16-byte aligned
     *  @param[in,out] best          best score of each slot; cleared by the caller
     *  @param         half          a block has 2 half + 1 rows
     *  @param         stride        bytes from one image row to the next
     *  @param         rows          rows of the image
     *  @param[out]    scratch       4 integers, 16-byte aligned
     *  @param         width         W, a multiple of 32; block 32
     *  @param         deviation     standard deviation of the reference block
     *  @param         mean          mean of the reference block
     *  @param         threshold     to be exceeded
     *  @param         columnOffset  added to the columns written
     */
    static void UTILS_SSE_CALL FineCorrelation(unsigned char* image, unsigned short* rowIn, unsigned short* columnIn,
                                               unsigned short* rowOut, unsigned short* columnOut, int count, int* slots,
                                               unsigned char* work, unsigned char* reference, unsigned char* best, int half,
                                               int stride, int rows, int* scratch, int width, float deviation, float mean,
                                               int threshold, int columnOffset);

    /** @}
     *  @name Similarity of segments
     *  Scores of two equally long segments of RF samples, for speckle tracking and motion estimation.
     *
     *  All six are made of sums over the samples: A of a[i], B of b[i], AA of a[i]^2, BB of b[i]^2 and AB of a[i] * b[i].
     *  - In a body block of 8 two neighbouring terms are added in 32-bit integers; only 2^30 + 2^30 (-32768 four times) wraps.
     *    The four pair sums 0 .. 3 of a block are then converted and added to lanes.
     *  - The functions that return double convert exactly and have two lanes: pair sums 0 and 2 are added to lane 0, 1 and 3 to
     *    lane 1, in this order; folded as lane 0 + lane 1.
     *  - Those that return float (suffix F) round each pair sum to single precision and have four lanes, one for each pair
     *    sum, folded as usual.
     *  - The tail terms, exact integers, are converted and added one by one.
     *
     *  N stands for n in the precision of the result.
     *  @{ */

    /** Correlation without normalisation, the mean product: AB / N.
     *  @param[in] a  n samples
     *  @param[in] b  n samples
     *  @param     n  number of samples; block 8
     *  @return the mean product; NaN for n <= 0
     */
    static double UTILS_SSE_CALL Correlation(const short* a, const short* b, int n);

    /** Correlation() with sums, N and division in single precision.
     *  @param[in] a  n samples
     *  @param[in] b  n samples
     *  @param     n  number of samples; block 8
     *  @return the mean product; NaN for n <= 0
     */
    static float UTILS_SSE_CALL CorrelationF(const short* a, const short* b, int n);

    /** Normalised correlation, the cosine of the angle between the segments: AB / sqrt(AA * BB). No means are removed.
     *  @param[in] a  n samples
     *  @param[in] b  n samples
     *  @param     n  number of samples; block 8
     *  @return -1 .. 1, within rounding; NaN for n <= 0 and where a segment is all zeros
     */
    static double UTILS_SSE_CALL NormalizedCorrelation(const short* a, const short* b, int n);

    /** NormalizedCorrelation() in single precision throughout; the root is correctly rounded.
     *  @param[in] a  n samples
     *  @param[in] b  n samples
     *  @param     n  number of samples; block 8
     *  @return -1 .. 1, within rounding; NaN as there
     */
    static float UTILS_SSE_CALL NormalizedCorrelationF(const short* a, const short* b, int n);

    /** Normalised covariance, Pearson's coefficient: the correlation of the segments without their means.
     *
     *  With ma = A / N and mb = B / N, in this grouping:
     *  - c = ((AB - mb * A) - ma * B) + (N * ma) * mb
     *  - vb = (BB - (mb * 2) * B) + (N * mb) * mb
     *  - va = (AA - (ma * 2) * A) + (N * ma) * ma
     *  - result = c / (sqrt(vb) * sqrt(va))
     *
     *  @param[in] a  n samples
     *  @param[in] b  n samples
     *  @param     n  number of samples; block 8
     *  @return -1 .. 1, within rounding. NaN for n <= 0. A constant segment has a variance of zero within rounding, so that the
     *          result is NaN, infinite or arbitrary
     */
    static double UTILS_SSE_CALL NormalizedCovariance(const short* a, const short* b, int n);

    /** NormalizedCovariance() in single precision throughout; each root is correctly rounded. Variances that are small beside
     *  the squared mean drown in rounding: remove a large mean first, or use the double form.
     *  @param[in] a  n samples
     *  @param[in] b  n samples
     *  @param     n  number of samples; block 8
     *  @return -1 .. 1, within rounding; NaN and arbitrary results as there
     */
    static float UTILS_SSE_CALL NormalizedCovarianceF(const short* a, const short* b, int n);

    /** Sum of absolute differences of floats, |a[i] - b[i]| in four lanes (see the rules above).
     *  @param[in] a  n floats
     *  @param[in] b  n floats
     *  @param     n  number of floats; block 4
     *  @return the sum; 0 for n <= 0
     */
    static float UTILS_SSE_CALL SumAbsDiff(const float* a, const float* b, int n);

    /* long long is younger than C++98, where compilers have it all the same. */
#if defined(__GNUC__) && __cplusplus < 201103L
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wlong-long"
#endif
    /** Sum of absolute differences of pixels, |a[i] - b[i]|; exact.
     *  @param[in] a  n pixels, 16-byte aligned
     *  @param[in] b  n pixels, 16-byte aligned
     *  @param     n  number of pixels; block 64
     *  @return the sum; 0 for n <= 0
     */
    static long long UTILS_SSE_CALL SumAbsDiff(const unsigned char* a, const unsigned char* b, int n);
#if defined(__GNUC__) && __cplusplus < 201103L
#pragma GCC diagnostic pop
#endif

    /** @}
     *  @name Intensity centroid
     *  @{ */

    /** The intensity-weighted centre of a region of an image, in pixels counted from 1.
     *
     *  The region is columns first .. stride - 1 of all rows. x = sum of column weight * pixel / sum of pixels, y = sum of row
     *  weight * pixel / sum of pixels; the weight of row r is r + 1.
     *
     *  **Body and tail weigh columns differently.** The w = stride - first pixels of a row are a body of whole blocks of 16 and
     *  a tail of w mod 16. In the body the weight of column c is c - first + 1, at most 32767; in the tail it is c + 1. Both
     *  agree only when first is 0.
     *
     *  All sums are floats. In a body block of 16 the terms of two neighbouring pixels are added as integers, converted, and
     *  added to four lanes: those of the lower 8 pixels, then those of the upper 8. The tail terms of all rows are added one
     *  by one, from 0, and that sum is added to the folded lanes. Integers have 32 bits: at most 4 million rows, and a stride
     *  of at most 8 million.
     *
     *  Both results are NaN where all pixels of the region are 0 or there are none.
     *  @param[out] x       the column
     *  @param[out] y       the row
     *  @param[in]  image   [rows][stride] pixels
     *  @param      stride  pixels per row, which is where the region ends
     *  @param      rows    number of rows
     *  @param      first   first column of the region; block 16. Below 0, or at the stride or beyond, the region is empty
     */
    static void UTILS_SSE_CALL Centroid(float& x, float& y, const unsigned char* image, int stride, int rows, int first);

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
