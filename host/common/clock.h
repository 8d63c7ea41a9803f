// The clock by which everything here is timed: steady, so that setting the date disturbs nothing.
#ifndef HOST_COMMON_CLOCK_H_
#define HOST_COMMON_CLOCK_H_

#include <algorithm>
#include <chrono>

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;
using Milliseconds = std::chrono::milliseconds;

// From now to `until`; none if that has passed. Rounded up: who waits for it does not wake a moment
// too early and go round again.
inline Milliseconds Left(TimePoint until) {
  return std::max(Milliseconds(0), std::chrono::ceil<Milliseconds>(until - Clock::now()));
}

#endif  // HOST_COMMON_CLOCK_H_
