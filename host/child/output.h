// The service's standard output as a stream of the host's own.
//
// The service reports by trace lines alone, one printf each, from the thread that has something to
// say. A stream that is flushed at every line passes each of them on before the service's next
// step. One that refuses to be written costs next to nothing: printf returns at once.
#ifndef HOST_CHILD_OUTPUT_H_
#define HOST_CHILD_OUTPUT_H_

#include <functional>

#include "host/common/trace.h"

// Makes this process's `stdout` a stream that passes lines to `trace`, or refuses them when there
// is no trace. Once; `trace` stays the caller's for the process's life. Throws Failure. Before any
// other thread; a child that is forked takes the stream along.
void SendOutputTo(Trace& trace);

// Calls `look` on the thread that prints, after each line until it returns true. For the time while
// this process has one thread.
void LookAfterLines(std::function<bool()> look);

#endif  // HOST_CHILD_OUTPUT_H_
