// Addresses of datagrams: as text for the trace and the sender check, and as where to send to.
#ifndef DNS_PROXY_MAC_PROXY_SOCKET_ADDRESS_H_
#define DNS_PROXY_MAC_PROXY_SOCKET_ADDRESS_H_

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>

// What the address lengths and the family tests of this service rest on.
static_assert(sizeof(sockaddr) == 16 && sizeof(sockaddr_in) == 16);
static_assert(AF_INET == 2);
#if defined(__APPLE__)
static_assert(offsetof(sockaddr_in, sin_family) == 1 && offsetof(sockaddr_in6, sin6_family) == 1);
static_assert(AF_INET6 == 30);
#endif

// The space that the receive call is offered for a sender's address: 28 bytes, though the service's
// sockets are IPv4 and 16 suffice. Zero-filled beforehand, so that what the call leaves reads as
// zero.
using ReceivedAddress = sockaddr_in6;
static_assert(sizeof(ReceivedAddress) == 28, "the length offered to the receive call");

// Room for any address as text, its terminating zero included.
inline constexpr int kAddressTextSize = 46;
struct AddressText {
  char text[kAddressTextSize] = {};
};

// An IPv4 address (network byte order) in dotted decimal.
AddressText Ipv4Text(in_addr_t address);

// An application's address as text: IPv4, IPv6, or empty for any other family.
AddressText ApplicationText(const ReceivedAddress& address);

// A server's address as text: IPv4 for that family, and for any other the bytes at an IPv6
// address's place as one. The ports play no part.
AddressText ServerText(const ReceivedAddress& address);

// The same for a stored address of 16 bytes; what would lie behind it reads as zero.
AddressText ServerText(const sockaddr_in& address);

// The first 16 bytes of `address`: all of an IPv4 one.
sockaddr StoredAddress(const ReceivedAddress& address);

// Sends `length` bytes to `to` in one datagram and returns what sendto returned, errno with it. The
// address length is 16 for IPv4 and 28 otherwise, the bytes behind the stored 16 being zero.
ssize_t SendDatagram(int sock, const unsigned char* bytes, int length, const sockaddr& to);
ssize_t SendDatagram(int sock, const unsigned char* bytes, int length, const sockaddr_in& to);

#endif  // DNS_PROXY_MAC_PROXY_SOCKET_ADDRESS_H_
