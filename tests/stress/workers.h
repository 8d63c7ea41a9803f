// The two handlers of the service on two real threads, on loopback ports that the system chooses.
#ifndef TESTS_STRESS_WORKERS_H_
#define TESTS_STRESS_WORKERS_H_

#include <netinet/in.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "dns_proxy_mac/proxy/query_method.h"
#include "tests/support/udp_peer.h"

namespace stress {

// Fills the service's globals and runs both workers until destruction. The trace goes nowhere, and
// with it what GoogleTest prints: keep assertions out of its life.
//
// One at a time in a process.
class Workers {
 public:
  Workers(const DNSMethodList& methods,
          const std::vector<std::pair<std::string, std::string>>& hostMaps);

  // Ends both threads, and leaves the globals as they were before: the table cleared, every record
  // freed.
  ~Workers();

  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  // Where applications send their queries, and servers their answers.
  const sockaddr_in& QueriesTo() const { return queriesTo_; }
  const sockaddr_in& AnswersTo() const { return answersTo_; }

  // Waits until the workers have received everything that was sent to them so far. They may be at
  // the last datagram still.
  void WaitUntilReceived() const;

 private:
  int standardOutput_;
  const support::UdpPeer queries_{"127.0.0.1"};
  const support::UdpPeer answers_{"127.0.0.1"};
  const sockaddr_in queriesTo_ = queries_.Address();
  const sockaddr_in answersTo_ = answers_.Address();
  std::atomic<bool> ended_{false};
  std::thread query_;
  std::thread answer_;
};

}  // namespace stress

#endif  // TESTS_STRESS_WORKERS_H_
