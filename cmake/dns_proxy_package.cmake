# `cpack`: .deb packages on Linux (dns-proxy-host, dns-proxy-mac-dev), a .tar.gz for macOS.
set(CPACK_PACKAGE_NAME dns_proxy_mac)
set(CPACK_PACKAGE_VENDOR "The dns_proxy_mac developers")
set(CPACK_PACKAGE_CONTACT "The dns_proxy_mac developers <developers@dns-proxy-mac.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_FILE_NAME
  "${CPACK_PACKAGE_NAME}-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}")

if(APPLE)
  # Xcode's compiler makes both processors at once. The cross build has scripts/package-macos.
  set(processors "${CMAKE_SYSTEM_PROCESSOR}")
  if(CMAKE_OSX_ARCHITECTURES MATCHES ";")
    set(processors universal)
  endif()
  set(CPACK_PACKAGE_FILE_NAME "${CPACK_PACKAGE_NAME}-${PROJECT_VERSION}-macos-${processors}")
  set(CPACK_GENERATOR TGZ)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_STRIP_FILES ON)

  # The program places libraries of macOS: it is installed from a build, not from a package.
  set(CPACK_COMPONENTS_ALL host development)
  if(CMAKE_LIBRARY_ARCHITECTURE)
    set(CPACK_COMPONENTS_ALL host debian)
  endif()
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

  # What Debian's policy asks for besides, and the date of every file in the packages: that of the
  # version, so that two packages of the same sources are equal.
  set(CPACK_DNS_PROXY_SOURCE "${PROJECT_SOURCE_DIR}")
  set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_SOURCE_DIR}/packaging/debian/date.cmake")
  set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/packaging/debian/add_papers.cmake")

  set(CPACK_DEBIAN_HOST_PACKAGE_NAME dns-proxy-host)
  set(CPACK_DEBIAN_HOST_PACKAGE_SECTION net)
  set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA
    "${PROJECT_SOURCE_DIR}/packaging/debian/postinst"
    "${PROJECT_SOURCE_DIR}/packaging/debian/prerm"
    "${PROJECT_SOURCE_DIR}/packaging/debian/postrm")
  set(CPACK_COMPONENT_HOST_DESCRIPTION
    "Local DNS proxy on 127.0.0.1, as a daemon\n Answers static names, asks upstream servers in order, and keeps answering.")

  # A C++ compiler is what the headers and the archives are for.
  foreach(component DEBIAN DEVELOPMENT)
    set(CPACK_DEBIAN_${component}_PACKAGE_NAME dns-proxy-mac-dev)
    set(CPACK_DEBIAN_${component}_PACKAGE_SECTION libdevel)
    set(CPACK_DEBIAN_${component}_PACKAGE_DEPENDS "g++ (>= 4:8) | clang, libc6-dev | libc-dev")
    set(CPACK_DEBIAN_${component}_PACKAGE_RECOMMENDS "pkg-config")
    set(CPACK_COMPONENT_${component}_DESCRIPTION
      "Local DNS proxy, to embed in a hosting process\n Headers and static libraries for hosts in C++ and C.")
  endforeach()
endif()
include(CPack)
