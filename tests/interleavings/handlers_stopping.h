// Included behind stopping.h in front of the handlers and of what they call: what they receive,
// send and trace is the scenario's.
#ifndef TESTS_INTERLEAVINGS_HANDLERS_STOPPING_H_
#define TESTS_INTERLEAVINGS_HANDLERS_STOPPING_H_

// Every header that the files include, before any word of theirs is replaced.
#include <arpa/inet.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unordered_map>

#include "tests/interleavings/stopping.h"

namespace interleavings {

// No step: what the operation's datagram is, nobody else decides.
ssize_t Receive(int sock, void* bytes, std::size_t room, int flags, sockaddr* from,
                socklen_t* fromLength);

// A step on the record whose request this belongs to.
ssize_t Send(int sock, const void* bytes, std::size_t length, int flags, const sockaddr* to,
             socklen_t toLength);

// A trace line writes nothing. A text in it that is a record's is a look into that record.
inline void Trace(const char* text) {
  if (const unsigned char record = NumberOf(text)) {
    Step(Access::kLook, record, 0, 0);
  }
}
template <typename T>
void Trace(const T& /*number*/) {}

}  // namespace interleavings

namespace std {  // NOLINT(cert-dcl58-cpp): where the files look for the word below
template <typename... Arguments>
void stopping_printf(const char* /*format*/, const Arguments&... arguments) {
  (interleavings::Trace(arguments), ...);
}
}  // namespace std

#define recvfrom interleavings::Receive
#define sendto interleavings::Send
#define printf stopping_printf

#endif  // TESTS_INTERLEAVINGS_HANDLERS_STOPPING_H_
