// What the host tells about itself.
#ifndef HOST_STATUS_REPORT_H_
#define HOST_STATUS_REPORT_H_

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/clock.h"

struct StatusReport {
  struct Restart {
    Milliseconds ago;
    std::string why;
  };
  struct Upstream {
    std::string address;
    std::string state;                      // "alive", "silent" or "not watched"
    std::optional<Milliseconds> roundTrip;  // of the last question asked by the host
  };

  Milliseconds uptime{0};
  pid_t host = 0;
  pid_t service = 0;  // 0 while there is none
  std::string state;  // "serving", "starting" or "waiting to start again"
  std::uint64_t queries = 0;
  std::uint64_t restartCount = 0;
  std::vector<Restart> restarts;  // the last ones, newest first
  std::vector<Upstream> upstreams;
  std::optional<Milliseconds> probeAgo;  // since the last answered probe
  Milliseconds probeRoundTrip{0};
};

std::string AsTable(const StatusReport& report);
std::string AsJson(const StatusReport& report);

#endif  // HOST_STATUS_REPORT_H_
