// The service's standard output as a stream of the host's own.
//
// The service reports by trace lines alone, one printf each, from the thread that has something to
// say. A stream that is flushed at every line therefore lets the host see each step of the service
// on that very thread and before the next one, which is used for more than the trace:
//
//   bound         the line after the bind: this process still has one thread, and the right to the
//                 port is no longer needed; the socket can be kept
//   worker ended  a worker cannot end without having printed a line on its way, so its thread has
//                 passed through here: an object of that thread is destroyed when the thread ends
//
// Nothing here looks into the service, and nothing is asked again and again.
#ifndef HOST_CHILD_SERVICE_OUTPUT_H_
#define HOST_CHILD_SERVICE_OUTPUT_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "host/common/trace.h"

// What the child wants to know, and when. Called on the thread that printed; no exception may leave.
struct ServiceWatch {
  std::string probeName;               // whose queries are kept out of the trace
  std::atomic<std::uint64_t>* passes;  // counts the query thread's datagrams, probes included
  std::function<void()> bound;
  std::function<void(const std::string& why)> workerEnded;  // must not return
};

// Makes this process's `stdout` a stream that passes lines to `trace`. For the parent, whose only
// lines are those of get_localdns_dnsproxy; a child takes the stream along. Once; `trace` stays the
// caller's for the process's life. Throws Failure.
void SendOutputTo(Trace& trace);

// In the child, before the service is started, on the thread that will: watches its lines.
// `watch` stays the caller's for the process's life.
void WatchOutput(const ServiceWatch& watch);

#endif  // HOST_CHILD_SERVICE_OUTPUT_H_
