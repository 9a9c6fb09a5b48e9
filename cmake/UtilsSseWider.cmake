# The same sources for processors with wider registers, as whole libraries beside the standard one: the loader of the C library
# takes the widest that the machine can run from glibc-hwcaps/, so that the library itself dispatches nothing. Same name, same
# interface, same bits.
#
# In the build folder they lie apart, under wider/ with a link to the standard library, so that programs run with the standard
# library unless they are told otherwise:
#   /lib64/ld-linux-x86-64.so.2 --library-path wider [--glibc-hwcaps-mask x86-64-v3] program
set(utils_sse_wider_dir ${PROJECT_BINARY_DIR}/wider)
set(utils_sse_wider_levels v3 v4)

foreach(level IN LISTS utils_sse_wider_levels)
  add_library(utils_sse_${level} SHARED ${utils_sse_sources})
  utils_sse_library(utils_sse_${level})
  # GCC 12 warns of its own intrinsics for 512 bits.
  target_compile_options(utils_sse_${level} PRIVATE -march=x86-64-${level} $<$<CXX_COMPILER_ID:GNU>:-Wno-uninitialized>)
  set_target_properties(utils_sse_${level} PROPERTIES
    OUTPUT_NAME utils_sse
    LIBRARY_OUTPUT_DIRECTORY ${utils_sse_wider_dir}/glibc-hwcaps/x86-64-${level})
  if(UTILS_SSE_INSTALL)
    install(TARGETS utils_sse_${level}
      LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/glibc-hwcaps/x86-64-${level} COMPONENT runtime NAMELINK_SKIP)
  endif()
endforeach()

set(soname $<TARGET_SONAME_FILE_NAME:utils_sse>)
add_custom_command(TARGET utils_sse POST_BUILD
  COMMAND ${CMAKE_COMMAND} -E make_directory ${utils_sse_wider_dir}
  COMMAND ${CMAKE_COMMAND} -E create_symlink $<TARGET_FILE:utils_sse> ${utils_sse_wider_dir}/${soname}
  VERBATIM)
