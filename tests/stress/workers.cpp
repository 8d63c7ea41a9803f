#include "tests/stress/workers.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "dns_proxy_mac/proxy/query_path.h"
#include "dns_proxy_mac/proxy/response_path.h"
#include "dns_proxy_mac/proxy/service_state.h"

namespace stress {

namespace {

// How long a handler waits for a datagram before its thread looks whether it is to end.
constexpr timeval kReceiveTimeout = {0, 10'000};

// The descriptor of `peer`, for a worker.
int WorkerSocket(const support::UdpPeer& peer) {
  if (setsockopt(peer.Socket(), SOL_SOCKET, SO_RCVTIMEO, &kReceiveTimeout,
                 sizeof(kReceiveTimeout)) != 0) {
    std::perror("a worker's socket");
    std::abort();
  }
  return peer.Socket();
}

int SilenceStandardOutput() {
  std::fflush(stdout);
  const int before = dup(STDOUT_FILENO);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  close(nowhere);
  return before;
}

bool IsEmpty(int sock) {
  int waiting = 0;
  return ioctl(sock, FIONREAD, &waiting) == 0 && waiting == 0;
}

}  // namespace

Workers::Workers(const DNSMethodList& methods,
                 const std::vector<std::pair<std::string, std::string>>& hostMaps)
    : standardOutput_(SilenceStandardOutput()) {
  g_SockToClientApps = WorkerSocket(queries_);
  g_SockToDNSServers = WorkerSocket(answers_);
  g_DnsMethodList = methods;
  for (const auto& [domain, address] : hostMaps) {
    std::string name = domain;
    g_Hostmaps.Add(name.data(), address.c_str());
  }
  query_ = std::thread([this] {
    while (!ended_.load(std::memory_order_relaxed)) {
      RecvAndProcessPacketsFromLocalApps(g_SockToClientApps);
    }
  });
  answer_ = std::thread([this] {
    while (!ended_.load(std::memory_order_relaxed)) {
      RecvAndProcessPacketsFromDNSServer(g_SockToDNSServers);
    }
  });
}

Workers::~Workers() {
  ended_.store(true, std::memory_order_relaxed);
  query_.join();
  answer_.join();
  g_DnsRequestTable.Clear();
  g_DnsMethodList = {};
  g_Hostmaps.Clear();
  g_QueryID = 0;

  std::fflush(stdout);
  dup2(standardOutput_, STDOUT_FILENO);
  close(standardOutput_);
}

void Workers::WaitUntilReceived() const {
  while (!IsEmpty(g_SockToClientApps) || !IsEmpty(g_SockToDNSServers)) {
    std::this_thread::yield();
  }
}

}  // namespace stress
