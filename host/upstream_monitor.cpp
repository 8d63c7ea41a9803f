#include "host/upstream_monitor.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "host/dns_question.h"
#include "host/port.h"

UpstreamMonitor::~UpstreamMonitor() {
  if (sock_ != -1) {
    close(sock_);
  }
}

void UpstreamMonitor::Watch(const std::vector<std::string>& servers, TimePoint now) {
  std::vector<Upstream> watched;
  for (const std::string& server : servers) {
    const auto known = std::find_if(upstreams_.begin(), upstreams_.end(),
                                    [&](const Upstream& old) { return old.name == server; });
    if (known != upstreams_.end()) {
      watched.push_back(*known);
      continue;
    }
    sockaddr_in address;
    std::memset(&address, 0, sizeof(address));
    address.sin_family = AF_INET;
    address.sin_port = htons(kDnsPort);
    inet_pton(AF_INET, server.c_str(), &address.sin_addr);
    watched.push_back({server, address, UpstreamHealth(now)});
  }
  upstreams_ = std::move(watched);

  if (sock_ != -1) {
    close(sock_);
    sock_ = -1;
  }
  if (upstreams_.size() > 1) {
    sock_ = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    fcntl(sock_, F_SETFL, O_NONBLOCK);
  }
}

std::optional<TimePoint> UpstreamMonitor::due() const {
  std::optional<TimePoint> earliest;
  for (const Upstream& upstream : upstreams_) {
    if (sock_ != -1 && (!earliest || upstream.health.due() < *earliest)) {
      earliest = upstream.health.due();
    }
  }
  return earliest;
}

void UpstreamMonitor::Ask(TimePoint now, bool idle) {
  std::uniform_int_distribution<Milliseconds::rep> jitter(-UpstreamHealth::kJitter.count(),
                                                          UpstreamHealth::kJitter.count());
  for (Upstream& upstream : upstreams_) {
    if (sock_ == -1 || now < upstream.health.due()) {
      continue;
    }
    const auto id = static_cast<std::uint16_t>(random_());
    const Milliseconds interval = (UpstreamHealth::kInterval + Milliseconds(jitter(random_))) *
                                  (idle ? UpstreamHealth::kIdleFactor : 1);
    // The servers of the root: every server knows something to say about them. A question that
    // could not be sent is one without an answer.
    const std::vector<unsigned char> question = MakeQuestion(id, "", kTypeNs);
    sendto(sock_, question.data(), question.size(), 0,
           reinterpret_cast<const sockaddr*>(&upstream.address), sizeof(upstream.address));
    upstream.health.Asked(now, id, interval);
  }
}

void UpstreamMonitor::AskSoon(TimePoint now) {
  for (Upstream& upstream : upstreams_) {
    upstream.health.AskSoon(now);
  }
}

void UpstreamMonitor::Receive(TimePoint now) {
  unsigned char message[1024];  // the beginning is enough
  sockaddr_in sender;
  for (;;) {
    socklen_t senderSize = sizeof(sender);
    const ssize_t size = recvfrom(sock_, message, sizeof(message), 0,
                                  reinterpret_cast<sockaddr*>(&sender), &senderSize);
    if (size == -1) {
      return;
    }
    std::uint16_t id = 0;
    if (!ReadResponse(message, static_cast<std::size_t>(size), id)) {
      continue;
    }
    for (Upstream& upstream : upstreams_) {
      if (sender.sin_addr.s_addr == upstream.address.sin_addr.s_addr &&
          sender.sin_port == upstream.address.sin_port) {
        upstream.health.Answered(now, id);
      }
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
