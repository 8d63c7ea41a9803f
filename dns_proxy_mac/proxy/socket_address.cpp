#include "dns_proxy_mac/proxy/socket_address.h"

#include <arpa/inet.h>

#include <cstring>

namespace {

// The 16 bytes of a stored address, with zero behind them.
template <typename Address>
ReceivedAddress Widened(const Address& address) {
  static_assert(sizeof(address) == 16);
  ReceivedAddress widened = {};
  std::memcpy(&widened, &address, sizeof(address));
  return widened;
}

AddressText Ipv4Text(const ReceivedAddress& address) {
  sockaddr_in ipv4;
  std::memcpy(&ipv4, &address, sizeof(ipv4));
  AddressText result;
  inet_ntop(AF_INET, &ipv4.sin_addr, result.text, INET_ADDRSTRLEN);
  return result;
}

AddressText Ipv6Text(const ReceivedAddress& address) {
  AddressText result;
  inet_ntop(AF_INET6, &address.sin6_addr, result.text, kAddressTextSize);
  return result;
}

}  // namespace

AddressText ApplicationText(const ReceivedAddress& address) {
  if (address.sin6_family == AF_INET) {
    return Ipv4Text(address);
  }
  if (address.sin6_family == AF_INET6) {
    return Ipv6Text(address);
  }
  return {};
}

AddressText ServerText(const ReceivedAddress& address) {
  return address.sin6_family == AF_INET ? Ipv4Text(address) : Ipv6Text(address);
}

AddressText ServerText(const sockaddr_in& address) { return ServerText(Widened(address)); }

sockaddr StoredAddress(const ReceivedAddress& address) {
  sockaddr stored;
  std::memcpy(&stored, &address, sizeof(stored));
  return stored;
}

ssize_t SendDatagram(int sock, const unsigned char* bytes, int length, const sockaddr& to) {
  const ReceivedAddress widened = Widened(to);
  const socklen_t addressLength = to.sa_family == AF_INET ? 16 : 28;
  return sendto(sock, bytes, static_cast<std::size_t>(length), 0,
                reinterpret_cast<const sockaddr*>(&widened), addressLength);
}

ssize_t SendDatagram(int sock, const unsigned char* bytes, int length, const sockaddr_in& to) {
  sockaddr stored;
  std::memcpy(&stored, &to, sizeof(stored));
  return SendDatagram(sock, bytes, length, stored);
}
