// Asks each upstream server whether it is there, while there is more than one to choose from.
#ifndef HOST_UPSTREAM_MONITOR_H_
#define HOST_UPSTREAM_MONITOR_H_

#include <netinet/in.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

#include "host/clock.h"
#include "host/upstream_health.h"

class UpstreamMonitor {
 public:
  struct Upstream {
    std::string name;     // dotted decimal
    sockaddr_in address;  // port 53
    UpstreamHealth health;
  };

  UpstreamMonitor() = default;
  ~UpstreamMonitor();

  UpstreamMonitor(const UpstreamMonitor&) = delete;
  UpstreamMonitor& operator=(const UpstreamMonitor&) = delete;

  // Watches these from now on. Of one that was watched before, what is known is kept.
  void Watch(const std::vector<std::string>& servers, TimePoint now);

  // -1 while there is nothing to choose.
  int fd() const { return sock_; }

  // When to Ask next; nothing while there is nothing to choose.
  std::optional<TimePoint> due() const;

  // Asks whom it is time to ask. `idle`: no application has asked anything for a while.
  void Ask(TimePoint now, bool idle);

  // Applications have come back.
  void AskSoon(TimePoint now);

  // Takes what has arrived.
  void Receive(TimePoint now);

  // Whom the service should ask, in the configured order: those that are alive. Silent ones are
  // left out, because the service waits for ever on the first silent one that it comes to, which
  // may be any behind an answer without records. All of them when none is alive.
  std::vector<std::string> Choice() const;

  const std::vector<Upstream>& upstreams() const { return upstreams_; }

 private:
  std::vector<Upstream> upstreams_;
  int sock_ = -1;
  std::mt19937 random_{std::random_device{}()};
};

#endif  // HOST_UPSTREAM_MONITOR_H_
