// The calls of this program that bind sockets, and receive and send datagrams. A symbol that a
// program defines itself is the one that its libraries' calls are linked to, as with an allocator of
// one's own: so the service's calls come here, and those for its two sockets, in the child, pass the
// gate. All others go on to the system.
//
// A file of the executable's own and not of a library: a sanitizer's runtime brings these symbols
// too, and a linker takes nothing from an archive for one that it has already.
#undef _FORTIFY_SOURCE  // its inline version would be a second definition
#include <dlfcn.h>
#include <sys/socket.h>

#include <cstring>
#include <optional>

#include "host/child/gate.h"

// The names in the system's declarations begin with underscores.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

extern "C" int bind(int sock, const sockaddr* address, socklen_t length) {
  static const auto system = reinterpret_cast<decltype(&bind)>(dlsym(RTLD_NEXT, "bind"));
  return HasGate(sock) ? BindToPort(sock) : system(sock, address, length);
}

extern "C" ssize_t recvfrom(int sock, void* buffer, std::size_t size, int flags, sockaddr* sender,
                            socklen_t* senderLength) {
  static const auto system = reinterpret_cast<decltype(&recvfrom)>(dlsym(RTLD_NEXT, "recvfrom"));
  const socklen_t room = senderLength == nullptr ? 0 : *senderLength;
  for (;;) {
    const ssize_t received = system(sock, buffer, size, flags, sender, senderLength);
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

extern "C" ssize_t sendto(int sock, const void* bytes, std::size_t size, int flags,
                          const sockaddr* to, socklen_t length) {
  static const auto system = reinterpret_cast<decltype(&sendto)>(dlsym(RTLD_NEXT, "sendto"));
  NoteSent(sock, {static_cast<const unsigned char*>(bytes), size});
  return system(sock, bytes, size, flags, to, length);
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
