# Cross-build for 64-bit Windows with Debian's mingw-w64 (posix thread model,
# msvcrt), run under Wine:
#   cmake -S . -B build-win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
# The posix thread model is the one whose libstdc++ has std::thread and
# std::mutex; the win32 model of GCC 12 has neither.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(QUILLON_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${QUILLON_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${QUILLON_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${QUILLON_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${QUILLON_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Programs of the build (tests, test discovery, examples) run under Wine's
# 64-bit loader. WINEPREFIX and the wineserver are the caller's (.ci/windows
# keeps one prefix inside the build folder).
find_program(QUILLON_WINE64 NAMES wine64 PATHS /usr/lib/wine NO_CMAKE_FIND_ROOT_PATH)
if(QUILLON_WINE64)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${QUILLON_WINE64})
endif()

# The runtime DLLs that programs built here need beside them.
set(QUILLON_MINGW_RUNTIME_DLLS
  /usr/lib/gcc/${QUILLON_MINGW_TRIPLE}/12-posix/libstdc++-6.dll
  /usr/lib/gcc/${QUILLON_MINGW_TRIPLE}/12-posix/libgcc_s_seh-1.dll
  /usr/${QUILLON_MINGW_TRIPLE}/lib/libwinpthread-1.dll)
