# Windows from Linux: what the two toolchain files share. mingw_target is x86_64-w64-mingw32 or i686-w64-mingw32.
set(CMAKE_SYSTEM_NAME Windows)
# The posix variant's standard library has <mutex> and <thread>, which GoogleTest needs.
set(CMAKE_CXX_COMPILER ${mingw_target}-g++-posix)
set(CMAKE_C_COMPILER ${mingw_target}-gcc-posix)
set(CMAKE_RC_COMPILER ${mingw_target}-windres)

# What scripts/windows-libraries.sh makes, then the compiler's own; nothing of this machine's own libraries.
set(UTILS_SSE_WINDOWS_LIBRARIES ${CMAKE_CURRENT_LIST_DIR}/../build/windows-libraries CACHE PATH "CLI11, yaml-cpp, libpng and libmd for Windows")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES UTILS_SSE_WINDOWS_LIBRARIES)
set(CMAKE_FIND_ROOT_PATH ${UTILS_SSE_WINDOWS_LIBRARIES} /usr/${mingw_target})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${UTILS_SSE_WINDOWS_LIBRARIES}/lib/pkgconfig)
