# Flags as functions on targets. Options of a target come behind CMAKE_CXX_FLAGS on the command line, so what is set here
# wins over what a user or a package builder sets globally.

# One result per input: nothing fused, nothing reassociated, no x87 registers. `-Ofast` and `-ffast-math` from outside are
# taken back part by part, because GCC does not undo all of them with -fno-fast-math alone when they were given one by one.
function(utils_sse_keep_the_bits target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /fp:precise)
    return()
  endif()
  # Nor does the folder of the sources or of the build change a byte.
  target_compile_options(${target} PRIVATE
    -ffile-prefix-map=${utils_sse_SOURCE_DIR}=. -ffile-prefix-map=${utils_sse_BINARY_DIR}=build)
  target_compile_options(${target} PRIVATE
    -fno-fast-math -ffp-contract=off -fno-unsafe-math-optimizations -fno-associative-math -fno-reciprocal-math
    -fno-finite-math-only -fsigned-zeros -ftrapping-math)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    # Without these GCC computes scalar floats in 80-bit x87 registers, and a host whose stack is aligned to 4 bytes only
    # (anything but GCC's own code) would fault at the first spilled vector.
    target_compile_options(${target} PRIVATE -msse2 -mfpmath=sse -mstackrealign)
  endif()
  # Linking with -Ofast or -ffast-math adds start-up code that makes the whole process flush denormals (GCC before 13 does
  # so for shared libraries, too). Nothing but a later -O takes -Ofast back at this point.
  target_link_options(${target} PRIVATE -fno-fast-math -fno-unsafe-math-optimizations -O2)
endfunction()

# Kernels are vectorised by hand. Left to itself the compiler would also vectorise or unroll their tails of a few elements:
# larger code, slower short calls, nothing gained.
function(utils_sse_kernel_code target)
  if(NOT MSVC)
    target_compile_options(${target} PRIVATE -fno-tree-vectorize -fno-tree-slp-vectorize -fno-unroll-loops
                           $<$<CXX_COMPILER_ID:GNU>:-fno-tree-loop-distribute-patterns>
                           -fno-math-errno -fno-exceptions -fno-rtti)
  endif()
  if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND NOT MSVC)
    # Although told to align its stack itself, Clang loads four arguments at a time as one vector and expects these to lie
    # aligned.
    target_compile_options(${target} PRIVATE -mstack-alignment=4)
  endif()
endfunction()

# Sources that may use instructions up to SSE4.1 (MSVC has no such switch and needs none). What they share with other sources
# is inline code in a namespace of its own, see src/simd/config.h. The property holds in the calling directory: every
# directory with a target of these sources calls this.
function(utils_sse_sse41_code)
  if(NOT MSVC)
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -msse4.1)
  endif()
endfunction()

function(utils_sse_warnings target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 $<$<BOOL:${UTILS_SSE_WERROR}>:/WX>)
    target_compile_definitions(${target} PRIVATE _CRT_SECURE_NO_WARNINGS) # getenv() and fopen() are no faults
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                           $<$<BOOL:${UTILS_SSE_WERROR}>:-Werror>)
  endif()
endfunction()
