# Installation: headers, the three libraries, the CMake package and quillon.pc.
include(CMakePackageConfigHelpers)

# Run paths, so that nothing needs LD_LIBRARY_PATH. The installed libraries
# find each other through $ORIGIN, wherever the prefix is or moves to. A
# program linked through quillon.pc is given the library folder by its Libs
# line; one linked through the CMake package gets it from CMake, which gives
# every program the folders of the imported libraries it links.
set(QUILLON_PC_RPATH "")
if(UNIX AND NOT APPLE)
  set_target_properties(ombrel tarnlet quillon PROPERTIES INSTALL_RPATH "$ORIGIN")
  set(QUILLON_PC_RPATH "-Wl,-rpath,\${libdir} ")
endif()

install(TARGETS ombrel tarnlet quillon
  EXPORT quillonTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quillon)

install(EXPORT quillonTargets
  NAMESPACE quillon::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/quillon)

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/quillonConfig.cmake.in
  ${PROJECT_BINARY_DIR}/quillonConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/quillon)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/quillonConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/quillonConfig.cmake
  ${PROJECT_BINARY_DIR}/quillonConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/quillon)

# The prefix is found relative to the .pc file, so an installed tree can move.
file(RELATIVE_PATH QUILLON_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" QUILLON_PC_TO_PREFIX "${QUILLON_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/quillon.pc.in
               ${PROJECT_BINARY_DIR}/quillon.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quillon.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
