#include "host/parent/upstream_monitor.h"

#include <arpa/inet.h>

#include <algorithm>

void UpstreamMonitor::Watch(const std::vector<std::string>& servers, TimePoint now) {
  std::vector<Upstream> watched;
  for (const std::string& server : servers) {
    const auto known = std::find_if(upstreams_.begin(), upstreams_.end(),
                                    [&](const Upstream& old) { return old.name == server; });
    watched.push_back(known != upstreams_.end()
                          ? *known
                          : Upstream{server, inet_addr(server.c_str()), 0, UpstreamHealth(now)});
  }
  upstreams_ = std::move(watched);
}

TimePoint UpstreamMonitor::due() const {
  TimePoint earliest = TimePoint::max();
  for (const Upstream& upstream : upstreams_) {
    earliest = std::min(earliest, upstream.health.due());
  }
  return Watching() ? earliest : TimePoint::max();
}

void UpstreamMonitor::AskDue(TimePoint now, int sock) {
  std::uniform_int_distribution<Milliseconds::rep> jitter(-UpstreamHealth::kJitter.count(),
                                                          UpstreamHealth::kJitter.count());
  for (Upstream& upstream : upstreams_) {
    if (Watching() && now >= upstream.health.due()) {
      if (!upstream.health.repeats()) {
        upstream.id = static_cast<std::uint16_t>(random_());
      }
      Ask(sock, upstream.address, MakeQuestion(upstream.id));
      upstream.health.Asked(now, UpstreamHealth::kInterval + Milliseconds(jitter(random_)));
    }
  }
}

void UpstreamMonitor::Answered(TimePoint now, const Response& response) {
  for (Upstream& upstream : upstreams_) {
    if (upstream.address == response.server && upstream.id == response.id) {
      upstream.health.Answered(now);
    }
  }
}

std::vector<std::string> UpstreamMonitor::Choice() const {
  std::vector<std::string> alive;
  std::vector<std::string> all;
  for (const Upstream& upstream : upstreams_) {
    all.push_back(upstream.name);
    if (!upstream.health.silent()) {
      alive.push_back(upstream.name);
    }
  }
  return alive.empty() ? all : alive;
}
