// Signals as something to wait for. They are blocked at all other times, in every process that is
// forked from this one too.
#ifndef HOST_COMMON_SIGNALS_H_
#define HOST_COMMON_SIGNALS_H_

#include <initializer_list>

#include "host/common/clock.h"

// Blocks every signal, and sees to it that SIGTERM, SIGINT, SIGHUP and SIGCHLD are noted.
void CatchSignals();

// Waits until `until`, until a signal has come, or until one of `descriptors` (below 1024; -1 is
// left out) is readable.
void WaitFor(std::initializer_list<int> descriptors, TimePoint until);

// True if `signal` has come since the last call for it.
bool TakeSignal(int signal);

#endif  // HOST_COMMON_SIGNALS_H_
