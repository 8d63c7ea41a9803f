// The clock by which everything here is timed: steady, so that setting the date disturbs nothing.
#ifndef HOST_CLOCK_H_
#define HOST_CLOCK_H_

#include <chrono>

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;
using Milliseconds = std::chrono::milliseconds;

#endif  // HOST_CLOCK_H_
