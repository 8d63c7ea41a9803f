// Time, and what the parent waits for. Everything is timed by a steady clock, so that setting the
// date disturbs nothing. Signals are blocked but for the waits, in every process that is forked
// from this one too.
#ifndef HOST_COMMON_WAITING_H_
#define HOST_COMMON_WAITING_H_

#include <chrono>
#include <initializer_list>

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;
using Milliseconds = std::chrono::milliseconds;

// Blocks every signal, and sees to it that those of `noted` are.
void CatchSignals(std::initializer_list<int> noted);

// Waits until `until`, until a signal has come, or until one of `descriptors` (below 1024; -1 is
// left out) is readable.
void WaitFor(std::initializer_list<int> descriptors, TimePoint until);

// True if `signal` has come since the last call for it.
bool TakeSignal(int signal);

#endif  // HOST_COMMON_WAITING_H_
