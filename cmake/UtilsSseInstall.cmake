# Install rules: header, library, CMake package, pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS utils_sse EXPORT utils_sse-targets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES include/utils_sse.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/utils_sse)
install(EXPORT utils_sse-targets NAMESPACE utils_sse:: DESTINATION ${package_dir} FILE utils_sse-config.cmake)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/utils_sse-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/utils_sse-config-version.cmake DESTINATION ${package_dir})

if(BUILD_SHARED_LIBS)
  set(pc_cflags "")
else()
  set(pc_cflags " -DUTILS_SSE_STATIC")
endif()
configure_file(cmake/utils_sse.pc.in utils_sse.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/utils_sse.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
