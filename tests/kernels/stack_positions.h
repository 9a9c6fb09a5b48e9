/** @file
 *  32-bit Linux: enters functions with the stack pointer at each of the four multiples of 4 modulo 16, in turn. GCC's own code
 *  calls with multiples of 16; hosts made by other compilers, or in other languages, need not.
 */
#ifndef UTILS_SSE_STACK_POSITIONS_H
#define UTILS_SSE_STACK_POSITIONS_H

#if defined(__i386__) && defined(__ELF__)
#define UTILS_SSE_STACK_POSITIONS 1

#include <cstddef>

namespace stack_positions {

using Function = void (*)();

/** What to call instead of `function`, with its arguments (24 words at most). Holds for one function, until the next. */
Function entered(Function function);

template <class Typed>
Typed* entered(Typed* function)
{
    return reinterpret_cast<Typed*>(entered(reinterpret_cast<Function>(function)));
}

/** Of the calls since the last question: how many there were with the position that was seen least. */
std::size_t fewest_calls();

} // namespace stack_positions

#endif
#endif
