// What becomes of the client's two OpenSSL 1.0.0 libraries on this version of macOS.
#ifndef DNS_PROXY_MAC_STARTUP_LIBRARY_PLACEMENT_H_
#define DNS_PROXY_MAC_STARTUP_LIBRARY_PLACEMENT_H_

enum class LibraryPlacement {
  kRemove,         // macOS 10.8 to 10.15: the stored copies are not needed
  kPlace,          // macOS 11 to 20: copied to /usr/local/ssl/lib and given their plain names
  kRemoveUnknown,  // anything else, an empty text included: removed like kRemove
};

// Decides from `versionText`, a zero-terminated text that holds a version number anywhere (the line
// of get_os_ver, label included).
LibraryPlacement ClassifyOsVersion(const char* versionText);

// The start-up step: asks for the version and carries out what ClassifyOsVersion says on the fixed
// paths of the application bundle. No result of the file operations is looked at: a missing file or
// folder is no error. Writes to standard output and runs up to four shell commands.
void cp_openssl_libs();

#endif  // DNS_PROXY_MAC_STARTUP_LIBRARY_PLACEMENT_H_
