# Run by the target quillon_docs after Doxygen (cmake -P): every header in
# the folders of QUILLON_DOCS_FOLDERS (below QUILLON_SOURCE_DIR, joined by |)
# must have a \file comment. Without one Doxygen shows none of the header's
# free functions, constants and macros and warns about none of them, so an
# undocumented declaration would pass.
string(REPLACE "|" ";" _folders "${QUILLON_DOCS_FOLDERS}")
set(_missing "")
foreach(_folder IN LISTS _folders)
  file(GLOB _headers "${QUILLON_SOURCE_DIR}/${_folder}/*.h")
  foreach(_header IN LISTS _headers)
    file(STRINGS "${_header}" _file_lines REGEX "^(///|/\\*\\*|//!|/\\*!| \\*).*[\\\\@]file")
    if(NOT _file_lines)
      file(RELATIVE_PATH _name "${QUILLON_SOURCE_DIR}" "${_header}")
      string(APPEND _missing "\n  ${_name}")
    endif()
  endforeach()
endforeach()
if(_missing)
  message(FATAL_ERROR "headers without a \\file comment (Doxygen would skip their declarations):${_missing}")
endif()
