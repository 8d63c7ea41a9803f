// A datagram's whole way through a handler, between real sockets on loopback. Only the handler is
// timed, by the wall clock, its system calls included.
//
//   QueryHandler/host-map        a query that the host map answers
//   QueryHandler/forward         a query that the host map misses and that goes to the server
//   QueryHandler/no-such-name    a reverse look-up, answered at once
//   AnswerHandler/relayed        the server's answer to such a forwarded query
//   AnswerHandler/DroppedAnswer  an answer that belongs to no request
#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include "benchmarks/support/loopback_socket.h"
#include "benchmarks/support/messages.h"
#include "dns_proxy_mac/proxy/query_path.h"
#include "dns_proxy_mac/proxy/response_path.h"
#include "dns_proxy_mac/proxy/service_state.h"

namespace {

using benchmarks::LoopbackSocket;
using benchmarks::Message;

// The service's sockets and lists as StartDnsSrv leaves them, with an application and a server.
class Service {
 public:
  Service() {
    g_SockToClientApps = toApplications_.descriptor();
    g_SockToDNSServers = toServers_.descriptor();
    g_Hostmaps.Add(std::string(benchmarks::kMappedName).data(), benchmarks::kMappedAddress);
    DNSMethodInfo method = DnsServerMethod("127.0.0.1");
    method.serverAddr = server.address();
    g_DnsMethodList = {HostMapMethod(), method};
  }
  ~Service() {
    g_Hostmaps.Clear();
    g_DnsMethodList.clear();
  }

  const LoopbackSocket application;
  const LoopbackSocket server;

  void Query(const Message& query) { application.SendTo(query, toApplications_.address()); }
  void Answer(const Message& answer) { server.SendTo(answer, toServers_.address()); }

 private:
  const LoopbackSocket toApplications_;
  const LoopbackSocket toServers_;
};

// Runs `handler` on `sock` and counts its time as this iteration's.
void Time(benchmark::State& state, bool (*handler)(int), int sock) {
  const auto began = std::chrono::steady_clock::now();
  const bool goesOn = handler(sock);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  state.SetIterationTime(took.count());
  if (!goesOn) {
    state.SkipWithError("the worker would have ended");
  }
}

void TimeAnsweredQuery(benchmark::State& state, const char* name) {
  Service service;
  const Message query = benchmarks::MakeQuery(name, 1);
  for (auto _ : state) {
    service.Query(query);
    Time(state, RecvAndProcessPacketsFromLocalApps, g_SockToClientApps);
    service.application.Receive();
  }
}

// Queries forwarded and answers relayed, one after the other: the timed half is said by `ofQuery`.
void TimeForwarded(benchmark::State& state, bool ofQuery) {
  Service service;
  const Message query = benchmarks::MakeQuery(benchmarks::kOtherName, 1);
  for (auto _ : state) {
    service.Query(query);
    if (ofQuery) {
      Time(state, RecvAndProcessPacketsFromLocalApps, g_SockToClientApps);
    } else {
      RecvAndProcessPacketsFromLocalApps(g_SockToClientApps);
    }
    service.Answer(benchmarks::MakeResponse(service.server.Receive()));
    if (ofQuery) {
      RecvAndProcessPacketsFromDNSServer(g_SockToDNSServers);
    } else {
      Time(state, RecvAndProcessPacketsFromDNSServer, g_SockToDNSServers);
    }
    service.application.Receive();
  }
}

void TimeDroppedAnswer(benchmark::State& state) {
  Service service;
  const Message answer =
      benchmarks::MakeResponse(benchmarks::MakeQuery(benchmarks::kOtherName, 0xFFFF));
  for (auto _ : state) {
    service.Answer(answer);
    Time(state, RecvAndProcessPacketsFromDNSServer, g_SockToDNSServers);
  }
}

}  // namespace

BENCHMARK_CAPTURE(TimeAnsweredQuery, host_map, benchmarks::kMappedName)
    ->Name("QueryHandler/host-map")
    ->UseManualTime();
BENCHMARK_CAPTURE(TimeForwarded, query, true)->Name("QueryHandler/forward")->UseManualTime();
BENCHMARK_CAPTURE(TimeAnsweredQuery, no_such_name, benchmarks::kReverseName)
    ->Name("QueryHandler/no-such-name")
    ->UseManualTime();
BENCHMARK_CAPTURE(TimeForwarded, answer, false)->Name("AnswerHandler/relayed")->UseManualTime();
BENCHMARK(TimeDroppedAnswer)->Name("AnswerHandler/DroppedAnswer")->UseManualTime();
