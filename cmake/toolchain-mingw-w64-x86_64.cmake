# 64-bit Windows from Linux (package g++-mingw-w64-x86-64-posix); programs run under Wine (package wine64).
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(mingw_target x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw-w64.cmake)
find_program(UTILS_SSE_WINE NAMES wine64 wine HINTS /usr/lib/wine)
if(UTILS_SSE_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${UTILS_SSE_WINE})
endif()
