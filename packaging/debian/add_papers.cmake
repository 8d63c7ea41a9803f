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
  # Header libraries become part of the programs, and have authors of their own.
  if(component STREQUAL "host")
    foreach(library libcli11-dev nlohmann-json3-dev)
      if(EXISTS "/usr/share/doc/${library}/copyright")
        file(READ "/usr/share/doc/${library}/copyright" theirs)
        file(APPEND "${papers}/copyright"
          "\nThe programs contain code of Debian's ${library}, which says:\n\n${theirs}")
      endif()
    endforeach()
  endif()

  execute_process(
    COMMAND "${here}/changelog" "${CPACK_PACKAGE_CONTACT}"
    INPUT_FILE "${source}/CHANGELOG.md" OUTPUT_FILE "${papers}/changelog"
    COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB_RECURSE pages "${tree}/man/*.[1-9]")
  compress("${papers}/changelog" ${pages})
endforeach()
