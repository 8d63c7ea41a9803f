# Read by cpack before it makes the packages: the date of their files is that of the newest version in
# CHANGELOG.md, if nobody has set one.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  file(READ "${CPACK_DNS_PROXY_SOURCE}/CHANGELOG.md" changes)
  string(REGEX MATCH "\n## \\[[0-9.]+\\] - ([0-9-]+)" heading "${changes}")
  execute_process(COMMAND date -u -d "${CMAKE_MATCH_1}" +%s
    OUTPUT_VARIABLE seconds OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(ENV{SOURCE_DATE_EPOCH} "${seconds}")
endif()
