# Installs the three libraries with their public headers, a CMake package, pkg-config files and the
# suppressions for valgrind. The package defines ostrel_version_resource.
include(CMakePackageConfigHelpers)

set(ostrel_cmake_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Ostrel")

install(TARGETS ostrel wexlog ostrel_platform EXPORT OstrelTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(EXPORT OstrelTargets NAMESPACE Ostrel:: DESTINATION "${ostrel_cmake_dir}")

file(WRITE "${PROJECT_BINARY_DIR}/OstrelConfig.cmake"
  "include(\"\${CMAKE_CURRENT_LIST_DIR}/OstrelTargets.cmake\")
include(\"\${CMAKE_CURRENT_LIST_DIR}/OstrelVersionResource.cmake\")\n")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/OstrelConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/OstrelConfig.cmake"
  "${PROJECT_BINARY_DIR}/OstrelConfigVersion.cmake"
  "${PROJECT_SOURCE_DIR}/cmake/OstrelVersionResource.cmake"
  DESTINATION "${ostrel_cmake_dir}")

# For users of valgrind (docs/porting.md).
install(FILES "${PROJECT_SOURCE_DIR}/cmake/ostrel.supp"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/ostrel")

# The files find the prefix from their own place, so that an installed tree can be moved.
file(RELATIVE_PATH PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")

# ostrel_pkgconfig(NAME DESCRIPTION LIBRARY REQUIRES)
function(ostrel_pkgconfig name description library requires)
  set(PC_NAME "${name}")
  set(PC_DESCRIPTION "${description}")
  set(PC_LIBRARY "${library}")
  set(PC_REQUIRES "${requires}")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/ostrel.pc.in" "${PROJECT_BINARY_DIR}/${name}.pc" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${name}.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endfunction()

ostrel_pkgconfig(ostrel "${PROJECT_DESCRIPTION}" ostrel "ostrel-platform")
ostrel_pkgconfig(wexlog "Where the trace lines of the product go" wexlog "ostrel-platform")
ostrel_pkgconfig(ostrel-platform "The platform's calls off Windows" ostrel_platform "")
