# macos_floor(<target> <version>): the oldest macOS that an executable starts on, where it needs a
# newer one than the rest. For the cross build; a build on macOS has CMAKE_OSX_DEPLOYMENT_TARGET.
function(macos_floor target version)
  if(version VERSION_LESS_EQUAL dns_proxy_mac_MACOS_FLOOR)
    return()
  endif()
  set_target_properties(${target} PROPERTIES dns_proxy_mac_MACOS_FLOOR ${version})
  target_link_options(${target} PRIVATE
    "SHELL:-platform_version macos ${version} ${dns_proxy_mac_MACOS_SDK}")
endfunction()
