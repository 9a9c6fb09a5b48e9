# Install rules, by component: runtime (the dynamic library), development (header, what links, CMake package, pkg-config
# file), tools.
include(CMakePackageConfigHelpers)

# The static library beside the dynamic one, for packages: same sources, same flags.
option(UTILS_SSE_STATIC_TOO "Build and install the static library beside the dynamic one" OFF)
set(libraries utils_sse)
if(UTILS_SSE_STATIC_TOO AND BUILD_SHARED_LIBS)
  get_target_property(sources utils_sse SOURCES)
  list(FILTER sources EXCLUDE REGEX windows)
  add_library(utils_sse_static STATIC ${sources})
  foreach(property IN ITEMS INCLUDE_DIRECTORIES INTERFACE_INCLUDE_DIRECTORIES COMPILE_DEFINITIONS COMPILE_FEATURES COMPILE_OPTIONS
                            CXX_EXTENSIONS CXX_VISIBILITY_PRESET VISIBILITY_INLINES_HIDDEN POSITION_INDEPENDENT_CODE)
    get_target_property(value utils_sse ${property})
    set_target_properties(utils_sse_static PROPERTIES ${property} "${value}")
  endforeach()
  target_compile_definitions(utils_sse_static PUBLIC UTILS_SSE_STATIC)
  set_target_properties(utils_sse_static PROPERTIES OUTPUT_NAME utils_sse)
  list(APPEND libraries utils_sse_static)
endif()

# Each kind of library has an export file of its own, and in it the same name: utils_sse-config.cmake takes one of them.
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/utils_sse)
foreach(library IN LISTS libraries)
  get_target_property(kind ${library} TYPE)
  if(kind STREQUAL "STATIC_LIBRARY")
    set(kind static)
  else()
    set(kind shared)
  endif()
  set_target_properties(${library} PROPERTIES EXPORT_NAME utils_sse)
  install(TARGETS ${library} EXPORT utils_sse-${kind}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  install(EXPORT utils_sse-${kind} NAMESPACE utils_sse:: DESTINATION ${package_dir} COMPONENT development)
endforeach()
install(FILES include/utils_sse.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/utils_sse-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES cmake/utils_sse-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/utils_sse-config-version.cmake
  DESTINATION ${package_dir} COMPONENT development)

# The prefix in the pkg-config file is where the file is, so that an installed folder may be moved; but plain /usr, whose
# folders pkg-config knows to leave out.
set(pc_prefix ${CMAKE_INSTALL_PREFIX})
if(NOT pc_prefix MATCHES "^/usr/?$" AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" pc_prefix "\${pcfiledir}/${pc_prefix}")
endif()
set(pc_libdir ${CMAKE_INSTALL_FULL_LIBDIR})
set(pc_includedir ${CMAKE_INSTALL_FULL_INCLUDEDIR})
foreach(dir IN ITEMS LIBDIR INCLUDEDIR)
  string(TOLOWER pc_${dir} variable)
  if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(${variable} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
# Only Windows tells a static library from a dynamic one in the header.
set(pc_cflags "")
if(WIN32 AND NOT BUILD_SHARED_LIBS)
  set(pc_cflags " -DUTILS_SSE_STATIC")
endif()
configure_file(cmake/utils_sse.pc.in utils_sse.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/utils_sse.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(PROJECT_IS_TOP_LEVEL)
  include(UtilsSsePackages)
endif()
