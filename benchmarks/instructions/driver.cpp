// Runs the service's two thread bodies, one pass after the other, for callgrind to count.
//
//   driver WORKLOAD PASSES      to be run under: valgrind --tool=callgrind --collect-atstart=no
//
//   host-map          a query that the host map answers
//   forward-miss      a query that the host map misses, forwarded, and its answer relayed
//   forward           the same with no host map
//   relayed-answer    of forward-miss the second half alone: the answer's way
//   no-such-name      a reverse look-up, answered at once
//
// A pass is all that a worker does from one return of its select to the next, so each count holds
// the whole of the thread bodies, the traces and the calls' way into the kernel; the kernel itself
// is not counted. Sockets and system calls are real. The workers take turns, so that the counts
// repeat to the instruction. Standard output, the trace, goes to /dev/null.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/select.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <semaphore>
#include <string>

#include "benchmarks/support/loopback_socket.h"
#include "benchmarks/support/messages.h"
#include "dns_proxy_mac/proxy/service.h"
#include "dns_proxy_mac/proxy/service_state.h"

namespace {

using benchmarks::Fail;
using benchmarks::LoopbackSocket;
using benchmarks::Message;

constexpr int kWarmUpPasses = 500;
constexpr int kHostMappings = 100;

// One worker's turns. The main thread lets it run one pass and waits until that is over.
struct Turns {
  std::binary_semaphore begin{0};
  std::binary_semaphore end{0};
  bool counted = false;     // whether the next pass is; set by the main thread between passes
  bool collecting = false;  // the worker's: whether callgrind counts this thread now
  bool between = false;     // the worker's: whether a pass was begun before
};
Turns g_QueryTurns;
Turns g_AnswerTurns;

using Select = int (*)(int, fd_set*, fd_set*, fd_set*, timeval*);
Select g_SystemSelect = nullptr;

void RunPass(Turns& turns) {
  turns.begin.release();
  turns.end.acquire();
}

}  // namespace

// Takes the calls of the thread bodies: a pass ends where the next wait would begin.
extern "C" int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                      timeval* timeout) {
  Turns& turns = FD_ISSET(g_SockToClientApps, readable) ? g_QueryTurns : g_AnswerTurns;
  if (turns.collecting) {
    CALLGRIND_TOGGLE_COLLECT;
  }
  if (turns.between) {
    turns.end.release();
  }
  turns.between = true;
  turns.begin.acquire();
  turns.collecting = turns.counted;
  if (turns.collecting) {
    CALLGRIND_TOGGLE_COLLECT;
  }
  return g_SystemSelect(count, readable, writable, exceptional, timeout);
}

namespace {

struct Workload {
  const char* name;
  const char* question;
  bool withHostMap;
  bool forwarded;
  bool queryCounted;
  unsigned char rcode;  // of the answer that the application has to get
};
constexpr Workload kWorkloads[] = {
    {"host-map", benchmarks::kMappedName, true, false, true, 0},
    {"forward-miss", benchmarks::kOtherName, true, true, true, 0},
    {"forward", benchmarks::kOtherName, false, true, true, 0},
    {"relayed-answer", benchmarks::kOtherName, true, true, false, 0},
    {"no-such-name", benchmarks::kReverseName, true, false, true, 3},
};

const Workload& WorkloadNamed(const char* name) {
  for (const Workload& workload : kWorkloads) {
    if (std::strcmp(workload.name, name) == 0) {
      return workload;
    }
  }
  Fail("no such workload");
}

// What StartDnsSrv fills, with a server on a port that needs no privilege.
void FillService(const Workload& workload, const sockaddr_in& server) {
  if (workload.withHostMap) {
    for (int i = 1; i < kHostMappings; ++i) {
      g_Hostmaps.Add(("host" + std::to_string(i) + ".example.com").data(), "192.0.2.1");
    }
    g_Hostmaps.Add(std::string(benchmarks::kMappedName).data(), "192.0.2.2");
    g_DnsMethodList.push_back(HostMapMethod());
  }
  DNSMethodInfo method = DnsServerMethod("127.0.0.1");
  method.serverAddr = server;
  g_DnsMethodList.push_back(method);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s WORKLOAD PASSES\n", argv[0]);
    return 2;
  }
  const Workload& workload = WorkloadNamed(argv[1]);
  const int passes = std::atoi(argv[2]);

  const int trace = open("/dev/null", O_WRONLY);
  if (trace == -1 || dup2(trace, STDOUT_FILENO) == -1) {
    Fail("/dev/null");
  }
  g_SystemSelect = reinterpret_cast<Select>(dlsym(RTLD_NEXT, "select"));
  if (g_SystemSelect == nullptr) {
    Fail("select");
  }

  const LoopbackSocket application;
  const LoopbackSocket server;
  const LoopbackSocket toApplications;
  const LoopbackSocket toServers;
  g_SockToClientApps = toApplications.descriptor();
  g_SockToDNSServers = toServers.descriptor();
  FillService(workload, server.address());
  if (pthread_create(&g_thread_answer, nullptr, thread_answer, nullptr) != 0 ||
      pthread_create(&g_thread_query, nullptr, thread_query, nullptr) != 0) {
    Fail("pthread_create");
  }

  const sockaddr_in service = toApplications.address();
  for (int pass = -kWarmUpPasses; pass < passes; ++pass) {
    g_QueryTurns.counted = pass >= 0 && workload.queryCounted;
    g_AnswerTurns.counted = pass >= 0;

    const Message query =
        benchmarks::MakeQuery(workload.question, static_cast<std::uint16_t>(pass));
    application.SendTo(query, service);
    RunPass(g_QueryTurns);
    if (workload.forwarded) {
      sockaddr_in proxy;
      const Message forwarded = server.Receive(proxy);
      server.SendTo(benchmarks::MakeResponse(forwarded), proxy);
      RunPass(g_AnswerTurns);
    }
    const Message answer = application.Receive();
    if (answer.size() < query.size() || answer[0] != query[0] || answer[1] != query[1] ||
        (answer[2] & 0x80) == 0 || (answer[3] & 0x0F) != workload.rcode) {
      Fail("a wrong answer");
    }
  }
  std::_Exit(0);  // the workers wait for turns that will not come
}
