// The calls of this program that receive and send datagrams. A symbol that a program defines itself
// is the one that its libraries' calls are linked to, as with an allocator of one's own: so the
// service's calls come here, and those for its two sockets, in the child, pass the gate. For all
// others these are what the system's are.
//
// A file of the executable's own and not of a library: a sanitizer's runtime brings these symbols
// too, and a linker takes nothing from an archive for one that it has already.
#undef _FORTIFY_SOURCE  // its inline version would be a second definition
#include <sys/socket.h>
#if defined(__linux__)
#include <sys/syscall.h>
#include <unistd.h>
#endif

#include <cstring>
#include <optional>

#include "host/child/gate.h"

namespace {

// What the system's recvfrom and sendto do. Linux has a cheaper way than recvmsg and sendmsg.
ssize_t Receive(int sock, void* buffer, std::size_t size, int flags, sockaddr* sender,
                socklen_t* senderLength) {
#if defined(__linux__)
  return syscall(SYS_recvfrom, sock, buffer, size, flags, sender, senderLength);
#else
  iovec part = {buffer, size};
  msghdr message = {};
  message.msg_name = sender;
  message.msg_namelen = sender == nullptr ? 0 : *senderLength;
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  const ssize_t received = recvmsg(sock, &message, flags);
  if (sender != nullptr && received != -1) {
    *senderLength = message.msg_namelen;
  }
  return received;
#endif
}

ssize_t Send(int sock, const void* bytes, std::size_t size, int flags, const sockaddr* to,
             socklen_t length) {
#if defined(__linux__)
  return syscall(SYS_sendto, sock, bytes, size, flags, to, length);
#else
  iovec part = {const_cast<void*>(bytes), size};
  msghdr message = {};
  message.msg_name = const_cast<sockaddr*>(to);
  message.msg_namelen = length;
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  return sendmsg(sock, &message, flags);
#endif
}

}  // namespace

// The names in the system's declaration begin with underscores.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" ssize_t recvfrom(int sock, void* buffer, std::size_t size, int flags, sockaddr* sender,
                            socklen_t* senderLength) {
  const socklen_t room = senderLength == nullptr ? 0 : *senderLength;
  for (;;) {
    const ssize_t received = Receive(sock, buffer, size, flags, sender, senderLength);
    if (received == -1 || sender == nullptr || senderLength == nullptr || !HasGate(sock)) {
      return received;
    }
    sockaddr_in from;  // which is what the service's sockets receive from, and asks for
    std::memcpy(&from, sender, sizeof(from));
    if (const std::optional<std::size_t> admitted =
            Admit(sock, {static_cast<unsigned char*>(buffer), static_cast<std::size_t>(received)},
                  from)) {
      return static_cast<ssize_t>(*admitted);
    }
    *senderLength = room;
  }
}

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" ssize_t sendto(int sock, const void* bytes, std::size_t size, int flags,
                          const sockaddr* to, socklen_t length) {
  NoteSent(sock, {static_cast<const unsigned char*>(bytes), size});
  return Send(sock, bytes, size, flags, to, length);
}
