# Run by cpack on what is laid out for packages that come from another build folder: its programs and
# libraries still say where that folder is.
file(GLOB_RECURSE files "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*")
foreach(file IN LISTS files)
  if(NOT IS_SYMLINK "${file}")
    file(READ "${file}" magic LIMIT 4 HEX)
    if(magic STREQUAL "7f454c46")
      file(RPATH_REMOVE FILE "${file}")
    endif()
  endif()
endforeach()
