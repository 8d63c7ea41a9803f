// Asks each upstream server whether it is there, and tells the log when that changes.
#ifndef HOST_PARENT_UPSTREAM_MONITOR_H_
#define HOST_PARENT_UPSTREAM_MONITOR_H_

#include <netinet/in.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "host/parent/upstream_health.h"

class UpstreamMonitor {
 public:
  struct Upstream {
    std::string name;   // dotted decimal
    in_addr_t address;  // network order
    std::uint16_t id;   // of the question that waits for its answer; as it travels
    UpstreamHealth health;
    bool toldSilent = false;  // what the log says of it
  };

  // Opens a socket to ask from, to the end of the process. Throws Failure.
  UpstreamMonitor();

  // Watches these from now on. Of one that was watched before, what is known is kept.
  void Watch(const std::vector<std::string>& servers, TimePoint now);

  // When to ask next.
  TimePoint due() const;

  // Asks whom it is time to ask. A question that cannot be sent is one without an answer.
  void AskDue(TimePoint now);

  // Readable when there is something to receive.
  int fd() const { return fd_; }

  // Takes the responses among the next datagrams that have arrived. Does not wait, and looks at no
  // more than 64 of them: anybody on this machine can send some.
  void Receive(TimePoint now);

  // Tells the log who has fallen silent and who is back since the last call.
  void TellChanges();

  // Whom the service should ask, in the configured order: those that are alive. Silent ones are
  // left out, because the service waits for ever on the first silent one that it comes to, which
  // may be any behind an answer without records. All of them when none is alive.
  std::vector<std::string> Choice() const;

  const std::vector<Upstream>& upstreams() const { return upstreams_; }

 private:
  const int fd_;
  std::vector<Upstream> upstreams_;
  std::mt19937 random_{std::random_device{}()};
};

#endif  // HOST_PARENT_UPSTREAM_MONITOR_H_
