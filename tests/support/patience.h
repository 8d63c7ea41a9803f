// Waiting for what another process does.
#ifndef TESTS_SUPPORT_PATIENCE_H_
#define TESTS_SUPPORT_PATIENCE_H_

#include <unistd.h>

#include <chrono>

namespace support {

// How long a test waits for what has to come before it calls it lost. Generous: machines are busy
// and sanitizers slow, and a test that passes never waits this long.
inline constexpr std::chrono::seconds kPatience{30};

// True as soon as `condition` is, false when it has not become so in time.
template <typename Condition>
bool Eventually(const Condition& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    usleep(200);
  }
  return true;
}

}  // namespace support

#endif  // TESTS_SUPPORT_PATIENCE_H_
