#include "tests/support/udp_peer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/patience.h"
#include "tests/support/socket_addresses.h"

namespace support {

namespace {

// Longer than any datagram of the service's, so that nothing is cut unseen.
constexpr std::size_t kReceiveSpace = 65536;

// The test's side never drops a datagram for want of space. (The batches of the tests are small
// enough for the service's own sockets, which have the system's ordinary space.)
constexpr int kReceiveBuffer = 4 * 1024 * 1024;

sockaddr_in ServiceAddress() { return Ipv4Address("127.0.0.1", 53); }

void Require(bool done, const char* what) {
  if (!done) {
    std::perror(what);
    std::abort();
  }
}

}  // namespace

UdpPeer::UdpPeer(const char* address, unsigned short port) : sock_(socket(AF_INET, SOCK_DGRAM, 0)) {
  const sockaddr_in own = Ipv4Address(address, port);
  Require(bind(sock_, reinterpret_cast<const sockaddr*>(&own), sizeof(own)) == 0, address);
#if defined(SO_RCVBUFFORCE)
  setsockopt(sock_, SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBuffer, sizeof(kReceiveBuffer));
#else
  setsockopt(sock_, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof(kReceiveBuffer));
#endif
}

UdpPeer::~UdpPeer() { close(sock_); }

sockaddr_in UdpPeer::Address() const {
  sockaddr_in address;
  socklen_t length = sizeof(address);
  Require(getsockname(sock_, reinterpret_cast<sockaddr*>(&address), &length) == 0, "getsockname");
  return address;
}

void UdpPeer::Send(const Bytes& bytes, const sockaddr_in& to) const {
  const ssize_t sent = sendto(sock_, bytes.data(), bytes.size(), 0,
                              reinterpret_cast<const sockaddr*>(&to), sizeof(to));
  Require(sent == static_cast<ssize_t>(bytes.size()), "a peer's datagram");
}

std::optional<Datagram> UdpPeer::Receive() const {
  pollfd wait{sock_, POLLIN, 0};
  const auto patience = std::chrono::milliseconds(kPatience).count();
  if (poll(&wait, 1, static_cast<int>(patience)) != 1) {
    ADD_FAILURE() << "no datagram came";
    return std::nullopt;
  }
  return Arrived();
}

std::optional<Datagram> UdpPeer::Arrived() const {
  static unsigned char space[kReceiveSpace];
  Datagram datagram{};
  socklen_t length = sizeof(datagram.from);
  const ssize_t count = recvfrom(sock_, space, sizeof(space), MSG_DONTWAIT,
                                 reinterpret_cast<sockaddr*>(&datagram.from), &length);
  if (count < 0) {
    return std::nullopt;
  }
  datagram.bytes.assign(space, space + count);
  return datagram;
}

void Application::Asks(const Bytes& query) const { Send(query, ServiceAddress()); }

Bytes Application::Hears() const {
  const std::optional<Datagram> heard = Receive();
  if (!heard) {
    return {};
  }
  EXPECT_EQ(BytesOf(heard->from), BytesOf(ServiceAddress()))
      << "an answer that does not come from where the query went";
  return heard->bytes;
}

Bytes Server::IsAsked() {
  const std::optional<Datagram> query = Receive();
  if (!query) {
    return {};
  }
  asker_ = query->from;
  return query->bytes;
}

}  // namespace support
