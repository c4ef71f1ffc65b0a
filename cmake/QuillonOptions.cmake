# Compiler settings shared by every target of the build.

function(quillon_warnings target)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -Wall -Wextra)
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

# The libraries' own exported functions are not meant to be replaced from
# outside; saying so lets calls inside a library be bound and inlined directly
# instead of going through the procedure linkage table.
function(quillon_library_options target)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  endif()
endfunction()
