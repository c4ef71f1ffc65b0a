# Windows builds. Windows finds a program's DLLs beside it, so every program
# and DLL of a top-level build goes to one folder, bin/, together with the
# compiler's runtime DLLs; nothing then needs PATH, under Wine or on Windows.
if(NOT QUILLON_TOP_LEVEL)
  return()
endif()

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
# Loadable modules (the test probe's) are LIBRARY outputs on Windows too.
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

# mingw-w64 programs need libstdc++, libgcc and winpthread at run time; the
# compiler says where its own copies are.
if(MINGW)
  foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
                    OUTPUT_VARIABLE dll_path OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT IS_ABSOLUTE "${dll_path}" OR NOT EXISTS "${dll_path}")
      message(FATAL_ERROR "the compiler's runtime ${dll} was not found")
    endif()
    file(COPY ${dll_path} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
  endforeach()
endif()
