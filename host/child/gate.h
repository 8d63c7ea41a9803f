// Where a datagram goes before the service sees it: on the worker's own thread, in its wait
// (system_calls.cpp). The guard judges, the gate acts, and counts: what comes, and what is sent, by
// which it knows what has become of a query.
//
// A worker that has been here once has an object of its thread. That is destroyed when the thread
// ends, and ends the process.
#ifndef HOST_CHILD_GATE_H_
#define HOST_CHILD_GATE_H_

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "host/common/shared_memory.h"

// Opens the gate of this process, the child, at `port`, the socket that it has inherited. By
// `channel` the parent hears of queries. Before there are workers. Without the guard it keeps away
// nothing but probes and changes nothing.
void OpenGate(SharedMemory& shared, int port, int channel);

// Whether what comes to `sock` goes through the gate: to the service's two sockets, once it is open.
bool HasGate(int sock);

// Puts the inherited socket in the place of `sock`, which the service binds. What bind returns.
int BindToPort(int sock);

// `sender` has sent `datagram` to `sock`, which has the gate: how many of its bytes the service is
// to see; none, if it is to see nothing of it. Takes the OPT record off a query that the service
// will answer by itself.
std::optional<std::size_t> Admit(int sock, std::span<unsigned char> datagram,
                                 const sockaddr_in& sender);

// `answer` is about to be sent from `sock`: counts what becomes of a query by it.
void NoteSent(int sock, std::span<const unsigned char> answer);

// Ends this process, from any thread: the workers may be running, so no destructor and no handler.
// The parent is told why; of two threads that want to leave, the first gives the reason.
[[noreturn]] void Leave(SharedMemory& shared, int status, const std::string& why);

#endif  // HOST_CHILD_GATE_H_
