// Applications, servers and forgers for the workers, all played by one thread.
#ifndef TESTS_STRESS_TRAFFIC_H_
#define TESTS_STRESS_TRAFFIC_H_

#include <array>
#include <cstddef>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "dns_proxy_mac/proxy/query_method.h"
#include "tests/stress/workers.h"
#include "tests/support/dns_message_builder.h"
#include "tests/support/udp_peer.h"

namespace stress {

using support::Bytes;

// How often, of 100 times. What a peer does with a query that has come to a server, and what a
// forger sends besides.
struct Manners {
  int answered = 0;    // with a record
  int empty = 0;       // without records; the rest of 100 stays unanswered
  int doubled = 0;     // what is answered is answered twice
  int late = 0;        // an answer of long ago once more
  int ahead = 0;       // forged: the right address, an identifier that has not been sent yet
  int aheadEmpty = 0;  // the same without records
  int strange = 0;     // forged: a right identifier, the wrong address
};

// What was seen while it went on.
struct Tally {
  long asked = 0;      // queries sent by the application
  long forwarded = 0;  // queries that reached a server
  long forged = 0;     // answers that no server gave
  long heard = 0;      // answers that reached the application
  long foreign = 0;    // of these, under an identifier that is not the application's
};

class Traffic {
 public:
  // The method that asks server number `server`.
  DNSMethodInfo Server(std::size_t server) const;

  // The application asks `questions` times, for the names in turn, while the peers behave by
  // `manners`. At the end the workers have received everything.
  void Run(const Workers& workers, const std::vector<std::string>& names, const Manners& manners,
           long questions);

  const Tally& Seen() const { return tally_; }

 private:
  struct Answer {
    Bytes bytes;
    std::size_t server;
  };

  bool Chance(int ofHundred) { return static_cast<int>(random_() % 100) < ofHundred; }
  void ServeQueries(const Workers& workers, const Manners& manners);
  void Forge(const Workers& workers, const Manners& manners);
  void Hear();

  support::UdpPeer application_{"127.0.0.1"};
  std::array<support::UdpPeer, 2> servers_{support::UdpPeer("127.0.0.2"),
                                           support::UdpPeer("127.0.0.3")};
  support::UdpPeer stranger_{"127.0.0.9"};
  std::deque<Answer> old_;            // answers that have been given
  unsigned short lastForwarded_ = 0;  // the identifier, machine order
  std::minstd_rand random_{20};
  Tally tally_;
};

}  // namespace stress

#endif  // TESTS_STRESS_TRAFFIC_H_
