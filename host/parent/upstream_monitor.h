// Asks each upstream server whether it is there, while there is more than one to choose from.
#ifndef HOST_PARENT_UPSTREAM_MONITOR_H_
#define HOST_PARENT_UPSTREAM_MONITOR_H_

#include <netinet/in.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "host/common/clock.h"
#include "host/parent/questions.h"
#include "host/parent/upstream_health.h"

class UpstreamMonitor {
 public:
  struct Upstream {
    std::string name;   // dotted decimal
    in_addr_t address;  // network order
    std::uint16_t id;   // of the question that waits for its answer
    UpstreamHealth health;
  };

  // Watches these from now on. Of one that was watched before, what is known is kept.
  void Watch(const std::vector<std::string>& servers, TimePoint now);

  // Whether there is anything to choose.
  bool Watching() const { return upstreams_.size() > 1; }

  // When to Ask next.
  TimePoint due() const;

  // Asks whom it is time to ask, from `sock`.
  void AskDue(TimePoint now, int sock);

  void Answered(TimePoint now, const Response& response);

  // Whom the service should ask, in the configured order: those that are alive. Silent ones are
  // left out, because the service waits for ever on the first silent one that it comes to, which
  // may be any behind an answer without records. All of them when none is alive.
  std::vector<std::string> Choice() const;

  const std::vector<Upstream>& upstreams() const { return upstreams_; }

 private:
  std::vector<Upstream> upstreams_;
  std::mt19937 random_{std::random_device{}()};
};

#endif  // HOST_PARENT_UPSTREAM_MONITOR_H_
