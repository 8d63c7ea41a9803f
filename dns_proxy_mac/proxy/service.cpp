#include "dns_proxy_mac/proxy/service.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "dns_proxy_mac/proxy/dns_proxy.h"
#include "dns_proxy_mac/proxy/query_path.h"
#include "dns_proxy_mac/proxy/response_path.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "dns_proxy_mac/proxy/trace.h"

namespace {

constexpr char kListenAddress[] = "127.0.0.1";
constexpr int kListenPort = 53;

static_assert(FD_SETSIZE == 1024, "a read set has a bit for each descriptor below 1024");

// Non-zero when it failed. No socket option is set beforehand: two services on one port are
// refused.
int BindToListenAddress(int sock) {
  sockaddr_in address;
  std::memset(&address, 0, sizeof(address));
  address.sin_family = AF_INET;
  address.sin_port = htons(kListenPort);
  address.sin_addr.s_addr = inet_addr(kListenAddress);
  return bind(sock, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

// The host map, and the methods in the order of trial. Appended and never cleared: a second call in
// one process adds to what the first one left, and workers of the first may be using it.
void FillLists(const std::vector<std::string>& vecDnsServers,
               const std::vector<std::pair<std::string, std::string>>& vecHostMaps) {
  const PendingRequests::NoPass noPass(g_DnsRequestTable.mapRequests);
  for (const auto& [domain, address] : vecHostMaps) {
    TraceFrom("StartDnsSrv")(" Add host map: %s -> %s\n", domain.c_str(), address.c_str());
    std::string name = domain;
    g_Hostmaps.Add(name.data(), address.c_str());
  }
  if (!vecHostMaps.empty()) {
    g_DnsMethodList.push_back(HostMapMethod());
  }
  for (const std::string& server : vecDnsServers) {
    TraceFrom("StartDnsSrv")(" Add SP DNS to list: %s\n", server.c_str());
    g_DnsMethodList.push_back(DnsServerMethod(server.c_str()));
  }
}

// Waits without limit until `sock` can be read. What select returned, and its set in `readable`; -1
// for a descriptor that has no bit in such a set.
int WaitReadable(int sock, fd_set& readable) {
  if (sock < 0 || sock >= FD_SETSIZE) {
    return -1;
  }
  FD_ZERO(&readable);
  FD_SET(sock, &readable);
  return select(sock + 1, &readable, nullptr, nullptr, nullptr);
}

}  // namespace

bool StartDnsSrv(const std::vector<std::string>& vecDnsServers,
                 const std::vector<std::pair<std::string, std::string>>& vecHostMaps) {
  StoreSocket(g_SockToClientApps, socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
  StoreSocket(g_SockToDNSServers, socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
  if (g_SockToClientApps < 0 || g_SockToDNSServers < 0) {
    TraceFrom("StartDnsSrv")(" socket invalid\n");
    return false;
  }

  // Nothing is cleaned up here or on any later failure: the hosting process ends and takes it
  // along.
  if (BindToListenAddress(g_SockToClientApps) != 0) {
    TraceFrom("StartDnsSrv")(" bind %s:%d failed\n", kListenAddress, kListenPort);
    return false;
  }
  TraceFrom("StartDnsSrv")(" bind %s:%d success\n", kListenAddress, kListenPort);

  FillLists(vecDnsServers, vecHostMaps);

  if (pthread_create(&g_thread_answer, nullptr, thread_answer, nullptr) != 0) {
    TraceFrom("StartDnsSrv")(" pthread_create g_thread_answer failed\n");
    return false;
  }
  TraceFrom("StartDnsSrv")(" pthread_create g_thread_answer success\n");
  if (pthread_create(&g_thread_query, nullptr, thread_query, nullptr) != 0) {
    TraceFrom("StartDnsSrv")(" pthread_create thread_query failed\n");
    return false;
  }
  TraceFrom("StartDnsSrv")(" pthread_create thread_query success\n");

  // Twice on the answer thread and never on the query thread, by design: the service's life is the
  // answer thread's. The second wait returns an error on macOS, and on glibc as long as the ended
  // thread's stack is still mapped. Stacks above glibc's cache of 40 MB (`ulimit -s 65536`) are
  // unmapped at once and the wait would fault: the hosting process keeps the stack limit below that
  // before it calls.
  pthread_join(g_thread_answer, nullptr);
  pthread_join(g_thread_answer, nullptr);

  close(g_SockToClientApps);
  close(g_SockToDNSServers);
  return true;
}

void* thread_answer(void* /*arg*/) {
  for (;;) {
    const int sock = LoadSocket(g_SockToDNSServers);  // read afresh in every pass
    if (sock == -1) {
      TraceFrom("thread_answer")(" Socket SockToDNSServers is invalid, AnswerThread exit\n");
      return nullptr;
    }
    fd_set readable;
    const int ready = WaitReadable(sock, readable);
    if (ready < 0) {
      TraceFrom("thread_answer")(" AnswerThread: select failed. exit.\n");
      return nullptr;
    }
    if (ready == 0) {
      TraceFrom("thread_answer")(" AnswerThread: select timeout.\n");
      continue;
    }
    TraceFrom("thread_answer")(" AnswerThread: received dns response.\n");
    if (FD_ISSET(sock, &readable) && !RecvAndProcessPacketsFromDNSServer(sock)) {
      TraceFrom("thread_answer")(" RecvAndProcessPacketsFromDNSServer failed, exit.\n");
      return nullptr;
    }
  }
}

void* thread_query(void* /*arg*/) {
  for (;;) {
    const int sock = LoadSocket(g_SockToClientApps);  // read afresh in every pass
    if (sock == -1) {
      TraceFrom("thread_query")(" Socket SockToClientApps is invalid, QueryThread exit\n");
      return nullptr;
    }
    fd_set readable;
    // Unlike the answer thread, a wait that ends with nothing ready counts as a failure: kept.
    if (WaitReadable(sock, readable) <= 0) {
      TraceFrom("thread_query")(" QureyThread: select failed. exit\n");
      return nullptr;
    }
    TraceFrom("thread_query")(" ****QureyThread***: received dns request\n");
    if (FD_ISSET(sock, &readable) && !RecvAndProcessPacketsFromLocalApps(sock)) {
      return nullptr;
    }
  }
}
