#include "benchmarks/support/loopback_socket.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace benchmarks {

void Fail(const char* what) {
  std::fprintf(stderr, "%s: %s\n", what, std::strerror(errno));
  std::_Exit(1);
}

sockaddr_in Ipv4Address(const char* dotted, int port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  if (inet_pton(AF_INET, dotted, &address.sin_addr) != 1) {
    Fail(dotted);
  }
  return address;
}

LoopbackSocket::LoopbackSocket(const char* dotted, int port)
    : descriptor_(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP)) {
  const sockaddr_in address = Ipv4Address(dotted, port);
  const timeval patience = {2, 0};
  if (descriptor_ < 0 ||
      bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)) != 0) {
    Fail("socket on loopback");
  }
}

LoopbackSocket::~LoopbackSocket() { close(descriptor_); }

sockaddr_in LoopbackSocket::address() const {
  sockaddr_in address = {};
  socklen_t length = sizeof(address);
  if (getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    Fail("getsockname");
  }
  return address;
}

void LoopbackSocket::SendTo(const Message& message, const sockaddr_in& to) const {
  if (sendto(descriptor_, message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&to),
             sizeof(to)) == -1) {
    Fail("sendto");
  }
}

Message LoopbackSocket::Receive(sockaddr_in& from) const {
  unsigned char bytes[8192];
  socklen_t fromLength = sizeof(from);
  const ssize_t length = recvfrom(descriptor_, bytes, sizeof(bytes), 0,
                                  reinterpret_cast<sockaddr*>(&from), &fromLength);
  if (length == -1) {
    Fail("recvfrom");
  }
  return Message(bytes, bytes + length);
}

Message LoopbackSocket::Receive() const {
  sockaddr_in from;
  return Receive(from);
}

}  // namespace benchmarks
