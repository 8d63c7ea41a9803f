# cmake -DFROM=<repository> -DTO=<folder> -P copy_sources.cmake: what a user's clone holds and
# building needs, without what builds have left in it.
file(REMOVE_RECURSE "${TO}")
file(COPY
  "${FROM}/CHANGELOG.md" "${FROM}/CMakeLists.txt" "${FROM}/CMakePresets.json"
  "${FROM}/c_api" "${FROM}/cmake" "${FROM}/dns_proxy_mac" "${FROM}/docs" "${FROM}/examples"
  "${FROM}/host" "${FROM}/packaging" "${FROM}/status_view" "${FROM}/trace_reader"
  DESTINATION "${TO}")
