#include "tests/support/socket_addresses.h"

#include <arpa/inet.h>

#include <cstring>

namespace support {

sockaddr_in Ipv4Address(const char* text, unsigned short port) {
  sockaddr_in address;
  std::memset(&address, 0, sizeof(address));
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  inet_pton(AF_INET, text, &address.sin_addr);
  return address;
}

sockaddr_in6 Ipv6Address(const char* text, unsigned short port) {
  sockaddr_in6 address;
  std::memset(&address, 0, sizeof(address));
  address.sin6_family = AF_INET6;
  address.sin6_port = htons(port);
  inet_pton(AF_INET6, text, &address.sin6_addr);
  return address;
}

sockaddr AsSockaddr(const sockaddr_in& address) {
  sockaddr stored;
  std::memcpy(&stored, &address, sizeof(stored));
  return stored;
}

}  // namespace support
