# Packages: `cpack` makes Debian packages where dpkg is, one for each component, and one ZIP with everything for Windows.
# scripts/package.sh makes the Debian ones as they are released.
set(default_generator TGZ)
find_program(UTILS_SSE_DPKG dpkg-deb)
mark_as_advanced(UTILS_SSE_DPKG)
if(WIN32)
  set(default_generator ZIP)
elseif(UTILS_SSE_DPKG)
  set(default_generator DEB)
endif()
set(CPACK_GENERATOR ${default_generator} CACHE STRING "What cpack makes: DEB, ZIP, TGZ, ...")
set(CPACK_PACKAGE_CONTACT "The utils_sse authors <utils-sse@utils-sse.example>" CACHE STRING "Maintainer, as packages name them")

set(CPACK_PACKAGE_NAME utils_sse)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each component has its own
set(CPACK_PACKAGE_VENDOR "The utils_sse authors")
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(permissions OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${permissions})

# What an installed folder and the ZIP hold besides.
install(FILES LICENSE README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation PATTERN *.1 EXCLUDE)
if(UTILS_SSE_BUILD_TOOLS AND NOT WIN32)
  install(FILES docs/echo2image.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT documentation)
endif()

# Debian. The names have hyphens because dpkg refuses underscores.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE utils-sse)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(debian_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
set(about "The library turns the echoes that an ultrasound probe receives into what a
scanner shows: demodulation, envelope detection, interpolation, filters,
colour Doppler, block matching. Results are the same bits on every machine.")

set(debian_runtime libutils-sse${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${debian_runtime})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
configure_file(cmake/debian/shlibs.in debian/shlibs @ONLY)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/debian/shlibs ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "numeric kernels for ultrasound imaging\n${about}")

set(debian_development libutils-sse-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${debian_development})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${debian_runtime} (= ${debian_version})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
  "numeric kernels for ultrasound imaging - development files\n${about}

Header, dynamic and static library, CMake package, pkg-config file.")

if(UTILS_SSE_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
  set(debian_tools utils-sse-tools)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${debian_tools})
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION science)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR})
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${debian_runtime} (>= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_TOOLS_DESCRIPTION "pictures from ultrasound recordings
echo2image reads recorded echoes (raw samples with a description, NumPy,
MetaImage, DICOM) and makes grey and colour flow pictures, filters cines and
tracks motion. Every picture says how it was made and can be verified.")
endif()

# What Debian wants in the documentation of each package. Plain `cmake --install` leaves it out.
find_program(UTILS_SSE_GZIP gzip)
mark_as_advanced(UTILS_SSE_GZIP)
function(debian_compressed file name)
  set(compressed ${PROJECT_BINARY_DIR}/debian/${name}.gz)
  execute_process(COMMAND ${UTILS_SSE_GZIP} -9nc INPUT_FILE ${file} OUTPUT_FILE ${compressed} COMMAND_ERROR_IS_FATAL ANY)
endfunction()
if(UTILS_SSE_DPKG AND UTILS_SSE_GZIP)
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC) # SOURCE_DATE_EPOCH, if set
  configure_file(cmake/debian/changelog.in debian/changelog @ONLY)
  configure_file(CHANGELOG.md debian/CHANGELOG.md COPYONLY)
  debian_compressed(${PROJECT_BINARY_DIR}/debian/changelog changelog.Debian)
  debian_compressed(${PROJECT_BINARY_DIR}/debian/CHANGELOG.md changelog)
  foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    set(folder ${CMAKE_INSTALL_DATAROOTDIR}/doc/${debian_${component}})
    install(FILES LICENSE DESTINATION ${folder} RENAME copyright COMPONENT ${component} EXCLUDE_FROM_ALL)
    install(FILES ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz ${PROJECT_BINARY_DIR}/debian/changelog.gz
      DESTINATION ${folder} COMPONENT ${component} EXCLUDE_FROM_ALL)
  endforeach()
  set(folder ${CMAKE_INSTALL_DATAROOTDIR}/doc/${debian_development})
  install(FILES README.md docs/examples/rf_to_pixels.cpp DESTINATION ${folder} COMPONENT development EXCLUDE_FROM_ALL)
  if(UTILS_SSE_BUILD_TOOLS)
    set(folder ${CMAKE_INSTALL_DATAROOTDIR}/doc/${debian_tools})
    install(FILES docs/colour.md docs/echo2image.md docs/recordings.md DESTINATION ${folder} COMPONENT tools EXCLUDE_FROM_ALL)
    debian_compressed(${PROJECT_SOURCE_DIR}/docs/echo2image.1 echo2image.1)
    install(FILES ${PROJECT_BINARY_DIR}/debian/echo2image.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
      COMPONENT tools EXCLUDE_FROM_ALL)
  endif()
endif()

include(CPack)
