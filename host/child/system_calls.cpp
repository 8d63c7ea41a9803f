// The calls of this program that bind sockets, wait, receive and send. A symbol that a program
// defines itself is the one that its libraries' calls are linked to, as with an allocator of one's
// own: so the service's calls come here, and those for its two sockets, in the child, pass the gate.
// All others go on to the system.
//
// A worker waits and then receives. Its datagram is received in the wait already, so that the wait
// ends for what may pass and for nothing else, and costs no call of its own.
//
// A file of the executable's own and not of a library: a sanitizer's runtime brings these symbols
// too, and a linker takes nothing from an archive for one that it has already.
#undef _FORTIFY_SOURCE  // its inline version would be a second definition
#include <dlfcn.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "dns_proxy_mac/proxy/dns_message.h"
#include "host/child/gate.h"

namespace {

// What a worker has waited for, and its handler receives next.
struct Arrived {
  unsigned char bytes[kMaxMessageSize];
  std::size_t size;
  sockaddr_in sender;
};
thread_local Arrived g_arrived;

// The system's own `name`.
template <typename Call>
Call* System(const char* name) {
  return reinterpret_cast<Call*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// Linkage and symbol are those of the system's own declaration: that of select has C++'s linkage on
// macOS. The names of the parameters begin with underscores there.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

int bind(int sock, const sockaddr* address, socklen_t length) {
  static const auto system = System<decltype(bind)>("bind");
  return HasGate(sock) ? BindToPort(sock) : system(sock, address, length);
}

int select(int end, fd_set* readable, fd_set* writable, fd_set* failed, timeval* timeout) {
  static const auto system = System<decltype(select)>("select");
  static const auto receive = System<decltype(recvfrom)>("recvfrom");
  const int sock = end - 1;  // a worker waits for its socket alone, and for as long as it takes
  if (!HasGate(sock)) {
    return system(end, readable, writable, failed, timeout);
  }
  for (std::optional<std::size_t> admitted; !admitted;) {
    socklen_t length = sizeof(g_arrived.sender);
    const ssize_t received = receive(sock, g_arrived.bytes, sizeof(g_arrived.bytes), 0,
                                     reinterpret_cast<sockaddr*>(&g_arrived.sender), &length);
    if (received == -1) {
      return -1;
    }
    admitted = Admit(sock, {g_arrived.bytes, static_cast<std::size_t>(received)}, g_arrived.sender);
    g_arrived.size = admitted.value_or(0);
  }
  return 1;
}

ssize_t recvfrom(int sock, void* buffer, std::size_t size, int flags, sockaddr* sender,
                 socklen_t* senderLength) {
  static const auto system = System<decltype(recvfrom)>("recvfrom");
  if (!HasGate(sock)) {
    return system(sock, buffer, size, flags, sender, senderLength);
  }
  const std::size_t received = std::min(size, g_arrived.size);
  std::memcpy(buffer, g_arrived.bytes, received);
  *senderLength = std::min<socklen_t>(*senderLength, sizeof(g_arrived.sender));
  std::memcpy(sender, &g_arrived.sender, *senderLength);
  return static_cast<ssize_t>(received);
}

ssize_t sendto(int sock, const void* bytes, std::size_t size, int flags, const sockaddr* to,
               socklen_t length) {
  static const auto system = System<decltype(sendto)>("sendto");
  NoteSent(sock, {static_cast<const unsigned char*>(bytes), size});
  return system(sock, bytes, size, flags, to, length);
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
