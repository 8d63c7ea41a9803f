// A UDP socket on 127.0.0.1 that tells at once when the machine refuses something.
#ifndef BENCHMARKS_SUPPORT_LOOPBACK_SOCKET_H_
#define BENCHMARKS_SUPPORT_LOOPBACK_SOCKET_H_

#include <netinet/in.h>

#include "benchmarks/support/messages.h"

namespace benchmarks {

// Says `what` and errno's text on standard error and ends the process: no figure is better than a
// figure of something else.
[[noreturn]] void Fail(const char* what);

// The address `dotted` (for example "127.0.0.1"), `port` in machine order.
sockaddr_in Ipv4Address(const char* dotted, int port);

// Owns its descriptor. Every wait ends after two seconds, as a failure.
class LoopbackSocket {
 public:
  // Bound to `dotted` and `port`; 0: a free one.
  explicit LoopbackSocket(const char* dotted = "127.0.0.1", int port = 0);
  ~LoopbackSocket();

  LoopbackSocket(const LoopbackSocket&) = delete;
  LoopbackSocket& operator=(const LoopbackSocket&) = delete;

  int descriptor() const { return descriptor_; }

  // Where it is bound to.
  sockaddr_in address() const;

  void SendTo(const Message& message, const sockaddr_in& to) const;

  // The next datagram, and its sender in `from`.
  Message Receive(sockaddr_in& from) const;
  Message Receive() const;

 private:
  int descriptor_;
};

}  // namespace benchmarks

#endif  // BENCHMARKS_SUPPORT_LOOPBACK_SOCKET_H_
