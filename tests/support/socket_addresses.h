// Socket addresses for tests.
#ifndef TESTS_SUPPORT_SOCKET_ADDRESSES_H_
#define TESTS_SUPPORT_SOCKET_ADDRESSES_H_

#include <netinet/in.h>
#include <sys/socket.h>

#include <vector>

#include "tests/support/dns_message_builder.h"

namespace support {

// `text` in dotted decimal, `port` in machine order. A length byte, where the platform has one, is
// zero as in the program's own addresses.
sockaddr_in Ipv4Address(const char* text, unsigned short port);

sockaddr_in6 Ipv6Address(const char* text, unsigned short port);

// The bytes of `address` as they lie in memory.
template <typename Address>
Bytes BytesOf(const Address& address) {
  const auto* const first = reinterpret_cast<const unsigned char*>(&address);
  return Bytes(first, first + sizeof(address));
}

// The first 16 bytes of `address`, as a request keeps them.
sockaddr AsSockaddr(const sockaddr_in& address);

}  // namespace support

#endif  // TESTS_SUPPORT_SOCKET_ADDRESSES_H_
