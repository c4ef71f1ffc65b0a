# GoogleTest for the suites. A native build takes the system's package; a
# cross-build compiles the sources that Debian's googletest package ships
# (gtest only, static) for the target, once per build tree.
if(NOT CMAKE_CROSSCOMPILING)
  find_package(GTest REQUIRED)
  return()
endif()

set(QUILLON_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest sources for a cross-build")
if(NOT EXISTS ${QUILLON_GTEST_SOURCE}/googletest/CMakeLists.txt)
  message(FATAL_ERROR "no GoogleTest sources in ${QUILLON_GTEST_SOURCE} (Debian: googletest)")
endif()
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(${QUILLON_GTEST_SOURCE} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
