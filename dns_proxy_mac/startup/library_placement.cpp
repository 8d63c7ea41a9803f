#include "dns_proxy_mac/startup/library_placement.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dns_proxy_mac/startup/os_version.h"

// The paths, as literals so that the commands below are literals too.
#define BUNDLE_SSL "/Applications/Velantrix.app/Contents/Frameworks/libssl.1.0.0.dylib"
#define BUNDLE_CRYPTO "/Applications/Velantrix.app/Contents/Frameworks/libcrypto.1.0.0.dylib"
#define STORED_SSL BUNDLE_SSL ".zuvex"
#define STORED_CRYPTO BUNDLE_CRYPTO ".zuvex"
#define SYSTEM_SSL "/usr/local/ssl/lib/libssl.1.0.0.dylib"
#define SYSTEM_CRYPTO "/usr/local/ssl/lib/libcrypto.1.0.0.dylib"

namespace {

// Every pattern ends in a full stop: a version without a further part ("10.16") matches nothing.
constexpr const char* kOldVersions[] = {"10.8.",  "10.9.",  "10.10.", "10.11.",
                                        "10.12.", "10.13.", "10.14.", "10.15."};
constexpr const char* kNewVersions[] = {"11.", "12.", "13.", "14.", "15.",
                                        "16.", "17.", "18.", "19.", "20."};

template <int Count>
bool ContainsAny(const char* text, const char* const (&patterns)[Count]) {
  for (const char* pattern : patterns) {
    if (std::strstr(text, pattern) != nullptr) {
      return true;
    }
  }
  return false;
}

void RemoveStoredLibraries() {
  std::remove(STORED_SSL);
  std::remove(STORED_CRYPTO);
}

// The crypto library first in both pairs, unlike the removal: the order is part of the behaviour.
void PlaceStoredLibraries() {
  constexpr const char* kCommands[] = {
      "cp -f \"" STORED_CRYPTO "\" \"" SYSTEM_CRYPTO "\"",
      "cp -f \"" STORED_SSL "\" \"" SYSTEM_SSL "\"",
      "mv -f \"" STORED_CRYPTO "\" \"" BUNDLE_CRYPTO "\"",
      "mv -f \"" STORED_SSL "\" \"" BUNDLE_SSL "\"",
  };
  for (const char* command : kCommands) {
    [[maybe_unused]] const int ignored = std::system(command);
  }
}

}  // namespace

LibraryPlacement ClassifyOsVersion(const char* versionText) {
  // The old versions first: 10.11.6 contains "11." too and has to count as old.
  if (ContainsAny(versionText, kOldVersions)) {
    return LibraryPlacement::kRemove;
  }
  if (ContainsAny(versionText, kNewVersions)) {
    return LibraryPlacement::kPlace;
  }
  return LibraryPlacement::kRemoveUnknown;
}

void cp_openssl_libs() {
  char version[256] = {};
  get_os_ver(version, sizeof(version));
  std::printf("this is cp_openssl_libs func, os version:%s\n", version);

  switch (ClassifyOsVersion(version)) {
    case LibraryPlacement::kRemove:
      std::printf("this is cp_openssl_libs func, mac need remove needless ssl lib\n");
      RemoveStoredLibraries();
      return;
    case LibraryPlacement::kPlace:
      std::printf("this is cp_openssl_libs func, mac need copy ssl lib to local\n");
      PlaceStoredLibraries();
      return;
    case LibraryPlacement::kRemoveUnknown:
      // The full stop tells the two removals apart in the trace: kept.
      std::printf("this is cp_openssl_libs func, mac need remove needless ssl lib.\n");
      RemoveStoredLibraries();
      return;
  }
}
