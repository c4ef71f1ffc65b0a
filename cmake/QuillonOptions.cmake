# Compiler settings shared by every target of the build.

function(quillon_warnings target)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -Wall -Wextra)
  endif()
  # The interface keeps fields that this platform never reads (the flags of
  # pmInfoBridge, the stream of an assignable stream); clang says so of each.
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${target} PRIVATE -Wno-unused-private-field)
  endif()
endfunction()

if(QUILLON_SANITIZE)
  string(REPLACE "," ";" _quillon_sanitizers "${QUILLON_SANITIZE}")
  foreach(_s IN LISTS _quillon_sanitizers)
    if(NOT _s MATCHES "^(address|undefined|thread|leak)$")
      message(FATAL_ERROR "QUILLON_SANITIZE: unknown sanitizer '${_s}'")
    endif()
  endforeach()
  if("thread" IN_LIST _quillon_sanitizers AND "address" IN_LIST _quillon_sanitizers)
    message(FATAL_ERROR "QUILLON_SANITIZE: thread and address cannot be combined")
  endif()
  add_compile_options(-fsanitize=${QUILLON_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QUILLON_SANITIZE})
endif()

# A fuzzing build: every target gets coverage instrumentation for libFuzzer
# and AddressSanitizer with UndefinedBehaviorSanitizer; the fuzz targets link
# the fuzzer itself (fuzz/CMakeLists.txt). Undefined behaviour stops the run,
# so the fuzzer reports it as a crash.
if(QUILLON_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "QUILLON_FUZZ needs clang (libFuzzer): configure with CXX=clang++")
  endif()
  if(QUILLON_SANITIZE)
    message(FATAL_ERROR "QUILLON_FUZZ brings its own sanitizers; leave QUILLON_SANITIZE empty")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=address,undefined)
endif()

# The libraries' own exported functions are not meant to be replaced from
# outside; saying so lets calls inside a library be bound and inlined directly
# instead of going through the procedure linkage table.
function(quillon_library_options target)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  endif()
endfunction()
