// Namespaces of the test's own: root, mounts and a loopback network that nobody else sees.
#ifndef TESTS_SUPPORT_ISOLATION_H_
#define TESTS_SUPPORT_ISOLATION_H_

#include <gtest/gtest.h>

#include <string>

namespace support {

// Starts this program anew inside user, mount and network namespaces of its own, lo up, and does
// not return there; inside it returns. When the machine does not allow namespaces (or has none) it
// returns outside, and WhyNotIsolated says why. Call it first in main, as isolated_main.cpp does.
//
// Through unshare(1), because a process with more than one thread, which a thread sanitizer's is
// from the start, cannot enter a user namespace.
void Isolate(char** arguments);

// Empty inside; outside, why.
std::string WhyNotIsolated();

// Covers `folder` with an empty file system of the test's own, visible to this process and those
// that it starts. Inside only. Empty, or what failed.
std::string CoverFolder(const std::string& folder);

}  // namespace support

// The first statement of a test or of a fixture's SetUp that needs the namespaces.
#define SKIP_UNLESS_ISOLATED()                                             \
  do {                                                                     \
    if (const std::string why = support::WhyNotIsolated(); !why.empty()) { \
      GTEST_SKIP() << "needs namespaces of its own: " << why;              \
    }                                                                      \
  } while (false)

#endif  // TESTS_SUPPORT_ISOLATION_H_
