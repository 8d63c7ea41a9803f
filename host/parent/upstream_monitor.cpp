#include "host/parent/upstream_monitor.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "host/common/port.h"

namespace {

constexpr int kReceivedAtOnce = 64;
constexpr std::size_t kHeaderSize = 12;
constexpr unsigned char kResponseBit = 0x80;  // QR, in the header's third byte

}  // namespace

UpstreamMonitor::UpstreamMonitor() : fd_(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP)) {
  if (fd_ == -1) {
    throw SystemFailure("no socket to ask with");
  }
}

void UpstreamMonitor::Watch(const std::vector<std::string>& servers, TimePoint now) {
  std::vector<Upstream> watched;
  for (const std::string& server : servers) {
    const auto known = std::ranges::find(upstreams_, server, &Upstream::name);
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
  return earliest;
}

void UpstreamMonitor::AskDue(TimePoint now) {
  std::uniform_int_distribution<Milliseconds::rep> jitter(-UpstreamHealth::kJitter.count(),
                                                          UpstreamHealth::kJitter.count());
  for (Upstream& upstream : upstreams_) {
    if (now >= upstream.health.due()) {
      if (!upstream.health.repeats()) {
        upstream.id = static_cast<std::uint16_t>(random_());
      }
      // The servers of the root (RFC 1035, section 4.1): every server knows something to say about
      // them. Recursion desired; one question, no record; the root, NS, Internet.
      unsigned char question[] = {0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 1};
      std::memcpy(question, &upstream.id, sizeof(upstream.id));
      const sockaddr_in server = DnsAddress(upstream.address);
      sendto(fd_, question, sizeof(question), 0, reinterpret_cast<const sockaddr*>(&server),
             sizeof(server));
      upstream.health.Asked(now, UpstreamHealth::kInterval + Milliseconds(jitter(random_)));
    }
  }
}

void UpstreamMonitor::Receive(TimePoint now) {
  for (int received = 0; received < kReceivedAtOnce; ++received) {
    unsigned char header[kHeaderSize] = {};  // which is enough of it
    sockaddr_in sender = {};
    socklen_t length = sizeof(sender);
    const ssize_t size = recvfrom(fd_, header, sizeof(header), MSG_DONTWAIT,
                                  reinterpret_cast<sockaddr*>(&sender), &length);
    if (size == -1) {
      return;
    }
    const bool response = size == sizeof(header) && (header[2] & kResponseBit) != 0 &&
                          sender.sin_port == htons(kDnsPort);
    for (Upstream& upstream : upstreams_) {
      if (response && upstream.address == sender.sin_addr.s_addr &&
          std::memcmp(header, &upstream.id, sizeof(upstream.id)) == 0) {
        upstream.health.Answered(now);
      }
    }
  }
}

void UpstreamMonitor::TellChanges() {
  for (Upstream& upstream : upstreams_) {
    const bool silent = upstream.health.silent();
    if (std::exchange(upstream.toldSilent, silent) != silent) {
      const bool noneLeft = std::ranges::all_of(upstreams_, &Upstream::toldSilent);
      Log(silent ? "warning" : "info", "upstream server " + upstream.name +
                                           (silent ? " is silent" : " answers again") +
                                           (noneLeft ? "; none is left that answers" : ""));
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
