# The HTML reference: the target quillon_docs runs Doxygen over the public
# headers, with the README as the main page, into <build>/docs/html. It exists
# only where Doxygen is found. Any warning fails it, above all a public
# declaration without a comment.

# The header folders that the reference covers, relative to the source tree.
# A build may narrow it (-DQUILLON_DOCS_INPUTS=inc) while a folder's comments
# are still being written.
set(QUILLON_DOCS_INPUTS "inc;lower/ombrel/inc;lower/tarnlet/inc" CACHE STRING
    "Header folders of the HTML reference (quillon_docs), relative to the source tree")

find_package(Doxygen)

if(DOXYGEN_FOUND)
  set(QUILLON_DOCS_OUTPUT "${PROJECT_BINARY_DIR}/docs")
  set(QUILLON_DOCS_INPUT "")
  foreach(_folder IN LISTS QUILLON_DOCS_INPUTS)
    string(APPEND QUILLON_DOCS_INPUT " \"${PROJECT_SOURCE_DIR}/${_folder}\"")
  endforeach()
  # The check below takes the folders as one argument, joined by |.
  string(REPLACE ";" "|" _quillon_docs_folders "${QUILLON_DOCS_INPUTS}")
  # Every header folder is searched for includes and stripped from the
  # include lines shown, whichever of them are documented.
  set(QUILLON_DOCS_INCLUDE_PATH "")
  foreach(_folder inc lower/ombrel/inc lower/tarnlet/inc)
    string(APPEND QUILLON_DOCS_INCLUDE_PATH " \"${PROJECT_SOURCE_DIR}/${_folder}\"")
  endforeach()
  configure_file("${PROJECT_SOURCE_DIR}/docs/Doxyfile.in"
                 "${PROJECT_BINARY_DIR}/Doxyfile" @ONLY)

  # Doxygen says nothing of the declarations of a header that has no \file
  # comment, so that is checked too, after the HTML is written (a failed
  # check still leaves a reference to read).
  add_custom_target(quillon_docs
    COMMAND Doxygen::doxygen "${PROJECT_BINARY_DIR}/Doxyfile"
    COMMAND "${CMAKE_COMMAND}" "-DQUILLON_SOURCE_DIR=${PROJECT_SOURCE_DIR}"
            "-DQUILLON_DOCS_FOLDERS=${_quillon_docs_folders}"
            -P "${PROJECT_SOURCE_DIR}/cmake/QuillonDocsCheck.cmake"
    WORKING_DIRECTORY "${PROJECT_BINARY_DIR}"
    COMMENT "HTML reference in ${QUILLON_DOCS_OUTPUT}/html"
    VERBATIM)
endif()
