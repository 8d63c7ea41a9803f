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

// `value` in decimal at `end`, without leading zeros; the new end.
char* AppendDecimal(char* end, unsigned char value) {
  if (value >= 100) {
    *end++ = static_cast<char>('0' + value / 100);
  }
  if (value >= 10) {
    *end++ = static_cast<char>('0' + value / 10 % 10);
  }
  *end++ = static_cast<char>('0' + value % 10);
  return end;
}

in_addr_t Ipv4AddressOf(const ReceivedAddress& address) {
  sockaddr_in ipv4;
  std::memcpy(&ipv4, &address, sizeof(ipv4));
  return ipv4.sin_addr.s_addr;
}

AddressText Ipv6Text(const ReceivedAddress& address) {
  AddressText result;
  inet_ntop(AF_INET6, &address.sin6_addr, result.text, kAddressTextSize);
  return result;
}

}  // namespace

// By hand: inet_ntop prints the four numbers through sprintf, which every query would pay for.
AddressText Ipv4Text(in_addr_t address) {
  unsigned char bytes[sizeof(address)];
  std::memcpy(bytes, &address, sizeof(bytes));
  AddressText result;
  char* end = result.text;
  for (const unsigned char byte : bytes) {
    end = AppendDecimal(end, byte);
    *end++ = '.';
  }
  end[-1] = '\0';
  return result;
}

AddressText ApplicationText(const ReceivedAddress& address) {
  if (address.sin6_family == AF_INET) {
    return Ipv4Text(Ipv4AddressOf(address));
  }
  if (address.sin6_family == AF_INET6) {
    return Ipv6Text(address);
  }
  return {};
}

AddressText ServerText(const ReceivedAddress& address) {
  return address.sin6_family == AF_INET ? Ipv4Text(Ipv4AddressOf(address)) : Ipv6Text(address);
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
