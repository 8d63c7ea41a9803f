// UDP sockets of the test's, and the two kinds of peers that the service talks to.
#ifndef TESTS_SUPPORT_UDP_PEER_H_
#define TESTS_SUPPORT_UDP_PEER_H_

#include <netinet/in.h>

#include <optional>

#include "tests/support/dns_message_builder.h"

namespace support {

struct Datagram {
  Bytes bytes;
  sockaddr_in from;
};

// A socket of the test's. What the system refuses it ends the process.
class UdpPeer {
 public:
  // Bound to `address` (dotted decimal) and `port`; 0: one that the system chooses.
  explicit UdpPeer(const char* address, unsigned short port = 0);
  ~UdpPeer();

  UdpPeer(const UdpPeer&) = delete;
  UdpPeer& operator=(const UdpPeer&) = delete;

  int Socket() const { return sock_; }

  // What it is bound to.
  sockaddr_in Address() const;

  void Send(const Bytes& bytes, const sockaddr_in& to) const;

  // The next datagram, waited for; nothing, and the test has failed, when none comes in time.
  std::optional<Datagram> Receive() const;

  // The next datagram, if it is there already.
  std::optional<Datagram> Arrived() const;

 private:
  int sock_;
};

// A local application: asks the service and hears from it alone.
class Application : public UdpPeer {
 public:
  Application() : UdpPeer("127.0.0.1") {}

  void Asks(const Bytes& query) const;

  // What the service answers, waited for. Fails when another one has sent it.
  Bytes Hears() const;

  // True if nothing has come. Only as good as what was waited for beforehand.
  bool HasHeardNothing() const { return !Arrived().has_value(); }
};

// A DNS server that does what the test says.
class Server : public UdpPeer {
 public:
  explicit Server(const char* address) : UdpPeer(address, 53) {}

  // The query that the service forwards here, waited for.
  Bytes IsAsked();

  // Sends `answer` to where the last query came from.
  void Answers(const Bytes& answer) const { Send(answer, asker_); }

  bool HasNotBeenAsked() const { return !Arrived().has_value(); }

  // Where the service forwards from, as of the last query.
  const sockaddr_in& Asker() const { return asker_; }

 private:
  sockaddr_in asker_{};
};

}  // namespace support

#endif  // TESTS_SUPPORT_UDP_PEER_H_
