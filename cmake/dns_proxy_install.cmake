# What `cmake --install` puts where, in components:
#
#   host         dns_proxy_host and dns_proxy_trace, their man pages, the service file
#   development  headers, static libraries, their man pages, CMake package, pkg-config files
#   debian       the same, where Debian's packages have it
#   program      dns_proxy_mac and its man page
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

# What it takes to embed the service, for a component and the folder that its libraries go to.
function(install_development component library_folder)
  set(package_folder "${library_folder}/cmake/dns_proxy_mac")
  install(TARGETS dns_proxy dns_proxy_startup dns_proxy_c
    EXPORT dns_proxy_mac_${component}
    ARCHIVE DESTINATION "${library_folder}" COMPONENT ${component} ${ARGN}
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")

  # The pages that a host includes and what they include, no more: a test compiles each one alone.
  install(FILES
    dns_proxy_mac/proxy/dns_message.h
    dns_proxy_mac/proxy/dns_proxy.h
    dns_proxy_mac/proxy/dns_request.h
    dns_proxy_mac/proxy/host_table.h
    dns_proxy_mac/proxy/pending_requests.h
    dns_proxy_mac/proxy/query_method.h
    dns_proxy_mac/proxy/request_table.h
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/dns_proxy_mac/proxy" COMPONENT ${component} ${ARGN})
  install(FILES
    dns_proxy_mac/startup/library_placement.h
    dns_proxy_mac/startup/os_version.h
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/dns_proxy_mac/startup" COMPONENT ${component} ${ARGN})
  install(FILES c_api/dns_proxy_mac/dns_proxy_c.h
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/dns_proxy_mac" COMPONENT ${component} ${ARGN})
  install(FILES packaging/StartDnsSrv.3 packaging/get_localdns_dnsproxy.3
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man3" COMPONENT ${component} ${ARGN})

  # find_package(dns_proxy_mac): the libraries as dns_proxy_mac::dns_proxy and so on.
  install(EXPORT dns_proxy_mac_${component}
    FILE dns_proxy_mac-targets.cmake
    NAMESPACE dns_proxy_mac::
    DESTINATION "${package_folder}" COMPONENT ${component} ${ARGN})
  install(FILES
    cmake/dns_proxy_mac-config.cmake
    "${PROJECT_BINARY_DIR}/dns_proxy_mac-config-version.cmake"
    DESTINATION "${package_folder}" COMPONENT ${component} ${ARGN})

  # pkg-config: paths from the file's own place, so that the tree may be moved.
  set(pkgconfig_folder "${library_folder}/pkgconfig")
  file(RELATIVE_PATH path_to_prefix "/${pkgconfig_folder}" "/")
  string(REGEX REPLACE "/$" "" path_to_prefix "${path_to_prefix}")
  set(cxx_library -lstdc++)
  if(APPLE)
    set(cxx_library -lc++)
  endif()
  foreach(module dns_proxy_mac dns_proxy_mac_c)
    configure_file(cmake/${module}.pc.in "${PROJECT_BINARY_DIR}/${component}/${module}.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/${component}/${module}.pc"
      DESTINATION "${pkgconfig_folder}" COMPONENT ${component} ${ARGN})
  endforeach()
endfunction()

write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/dns_proxy_mac-config-version.cmake" COMPATIBILITY SameMajorVersion)
install_development(development "${CMAKE_INSTALL_LIBDIR}")
# Debian has libraries in a folder for each processor.
if(CMAKE_LIBRARY_ARCHITECTURE)
  install_development(debian "lib/${CMAKE_LIBRARY_ARCHITECTURE}" EXCLUDE_FROM_ALL)
endif()

install(TARGETS dns_proxy_mac RUNTIME DESTINATION "${CMAKE_INSTALL_SBINDIR}" COMPONENT program)
install(FILES packaging/dns_proxy_mac.8
  DESTINATION "${CMAKE_INSTALL_MANDIR}/man8" COMPONENT program)

if(TARGET dns_proxy_host)
  install(TARGETS dns_proxy_host RUNTIME DESTINATION "${CMAKE_INSTALL_SBINDIR}" COMPONENT host)
  install(FILES packaging/dns_proxy_host.8
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man8" COMPONENT host)
  install(TARGETS dns_proxy_trace RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT host)
  install(FILES packaging/dns_proxy_trace.1
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT host)

  # launchd looks in no folder of ours: docs/macos.md says how the administrator puts it there.
  if(APPLE)
    install(FILES packaging/internal.dns-proxy.host.plist
      DESTINATION "${CMAKE_INSTALL_DATADIR}/dns_proxy_mac" COMPONENT host)
  else()
    # systemd's unit names them by these places, the ones of packages.
    install(FILES packaging/dns-proxy-host.service
      DESTINATION lib/systemd/system COMPONENT host)
    install(PROGRAMS packaging/around_host
      DESTINATION libexec/dns-proxy-host COMPONENT host)
  endif()
endif()
