// The world round the service: applications that ask, servers that shuffle, delay and double their
// answers, and forgers whose answers the service has to drop. One thread plays them all.
#ifndef TESTS_STRESS_SOAK_WORLD_H_
#define TESTS_STRESS_SOAK_WORLD_H_

#include <netinet/in.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <random>
#include <utility>
#include <vector>

#include "tests/stress/soak/questions.h"
#include "tests/support/udp_peer.h"

namespace soak {

// What has been counted so far.
struct Count {
  long asked = 0;     // queries sent by applications
  long answered = 0;  // of these, answered with exactly the bytes meant for them
  long wrong = 0;     // datagrams to applications with other bytes, or that nobody had asked for
  long garbled = 0;   // datagrams to servers that are not a query of the stock
  long lost = 0;      // queries given up
  long doubled = 0;   // answers sent a second time
  long delayed = 0;   // answers held back while a thousand others went
  long forged = 0;    // answers that a right server never gave
};

class World {
 public:
  explicit World(const Questions& questions);
  ~World();

  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // Has `queries` more asked, but no more after `deadline`, and waits until every one is answered
  // or there has been no sign of life for `patience`, whereupon the rest is lost.
  void Ask(long queries, std::chrono::steady_clock::time_point deadline,
           std::chrono::seconds patience);

  const Count& Counted() const { return count_; }

 private:
  // A question in flight, or not.
  struct Flight {
    bool inFlight = false;
    unsigned short applicationId = 0;  // as bytes on the wire
    std::size_t application = 0;
    long queryNumber = 0;   // which of the datagrams to the service's port 53 it was
    long answerNumber = 0;  // which of those to its other socket the last right answer was
  };

  // A datagram that a server (or a forger) is going to send.
  struct Outgoing {
    Bytes bytes;
    const support::UdpPeer* from;
    std::size_t question;  // of a right answer
    long Count::*noise;    // of any other, where it counts when it is sent; else null
    long notBefore;        // in queries asked
    long made;             // likewise
  };

  void AskOne();
  void SendOne();
  bool HasSomethingToSend() const;
  void ReceiveAll(int timeoutMs);
  void HearAll(std::size_t application);
  void ServeAll(std::size_t server);
  void Forge(std::size_t server, const Bytes& query);
  void Land(std::size_t question);

  const Questions& questions_;
  Count count_;
  std::minstd_rand random_{1};

  int epoll_;
  std::deque<support::UdpPeer> applications_;
  std::vector<std::vector<std::size_t>> asking_;  // by application: its questions in flight
  std::array<support::UdpPeer, kServers> servers_{support::UdpPeer(kServerAddresses[0], 53),
                                                  support::UdpPeer(kServerAddresses[1], 53)};
  support::UdpPeer stranger_{"127.0.0.9"};
  sockaddr_in service_;  // 127.0.0.1 port 53
  sockaddr_in asker_{};  // where the service asks servers from

  std::vector<Flight> flights_;
  std::size_t inFlight_ = 0;
  std::size_t nextQuestion_ = 0;

  std::vector<Outgoing> answers_;  // right ones, sent in random order
  std::vector<Outgoing> noise_;    // doubled and forged ones, likewise

  // Datagrams to the two sockets of the service: how many were sent, and up to which one they have
  // certainly been received, because what came of it was seen. The difference bounds what lies in
  // the socket's buffer, so that the system has no reason to drop any.
  long queriesSent_ = 0;
  long queriesReceived_ = 0;
  long answersSent_ = 0;
  long answersReceived_ = 0;
};

}  // namespace soak

#endif  // TESTS_STRESS_SOAK_WORLD_H_
