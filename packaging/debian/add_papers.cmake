# Run by cpack when the trees of the packages are laid out: what Debian's policy wants in a package
# and an installation from sources has not.
set(here "${CMAKE_CURRENT_LIST_DIR}")
set(source "${CPACK_DNS_PROXY_SOURCE}")

# compress(FILE...): without the time of day.
function(compress)
  if(ARGN)
    execute_process(COMMAND gzip -9n ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
  endif()
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  set(tree "${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share")
  string(TOUPPER "${component}" name)
  set(papers "${tree}/doc/${CPACK_DEBIAN_${name}_PACKAGE_NAME}")

  file(COPY "${here}/copyright" DESTINATION "${papers}")
  # The command lines are read by a library that becomes part of the programs.
  if(component STREQUAL "host" AND EXISTS /usr/share/doc/libcli11-dev/copyright)
    file(READ /usr/share/doc/libcli11-dev/copyright command_line)
    file(APPEND "${papers}/copyright"
      "\nThe programs contain CLI11, of which Debian says:\n\n${command_line}")
  endif()

  execute_process(
    COMMAND "${here}/changelog" "${CPACK_PACKAGE_CONTACT}"
    INPUT_FILE "${source}/CHANGELOG.md" OUTPUT_FILE "${papers}/changelog"
    COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB_RECURSE pages "${tree}/man/*.[1-9]")
  compress("${papers}/changelog" ${pages})
endforeach()
