#include "host/child/gate.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <vector>

#include "dns_proxy_mac/proxy/dns_message.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "dns_proxy_mac/proxy/socket_address.h"
#include "host/child/guard.h"
#include "host/common/log.h"

namespace {

constexpr std::size_t kAdditionalCountOffset = 10;

SharedMemory* g_shared = nullptr;  // constant while there are workers

// One worker's thread.
struct WorkerThread {
  ~WorkerThread() {
    const char* const last = kVerdictNames[static_cast<std::size_t>(verdict)];
    Leave(*g_shared, kExitFailure, std::string(name) + " thread ended; its last datagram: " + last);
  }

  const char* name;
  Verdict verdict;  // of its last datagram
};

// Whether the service may see what has been judged so; what it does not see is counted.
bool Passes(Verdict verdict) {
  if (verdict == Verdict::kPasses || !g_shared->guarded) {
    return true;
  }
  ++g_shared->verdict(verdict);
  return false;
}

// Counts `query`, which the service can read, if it will answer that without any server: by the name
// as the service reads it. Whether an OPT record should come off: AAAA questions for static names
// are left as they are, their answers are no more readable without EDNS.
bool CountOwnAnswer(Datagram query) {
  char name[kDomainTextSize] = {};
  unsigned short type = 0;
  unsigned short questionClass = 0;
  ExtractDomain(query.data() + kDnsHeaderSize, static_cast<int>(query.size()) - kDnsHeaderSize,
                name, kDomainTextSize, type, questionClass);
  HostRespData* record = nullptr;
  if (std::strstr(name, ".in-addr.arpa") != nullptr) {
    ++g_shared->noSuchNames;
    return true;
  }
  if (!g_Hostmaps.Find(name, record)) {
    return false;
  }
  ++g_shared->staticNames;
  return type != kTypeAAAA;
}

// What becomes of a query by `answer`, which the service is going to see.
void CountAnswer(Datagram answer, in_addr_t server, const DnsRequest* request) {
  const std::size_t method = request == nullptr ? 0 : MethodIndex(*request);
  if (request == nullptr || method >= request->vecDnsMethods.size() ||
      request->vecDnsMethods[method].serverAddr.sin_addr.s_addr != server ||
      answer.size() < kDnsHeaderSize) {
    ++g_shared->strayAnswers;
  } else if (HasRecords(answer)) {
    auto* const entry = std::ranges::find_if(g_shared->servers, [&](const auto& one) {
      return one.address == server || one.address == 0;
    });
    if (entry != g_shared->servers.end()) {
      entry->address = server;  // the answer thread alone writes here
      ++entry->answers;
    }
  } else if (method + 1 == request->vecDnsMethods.size()) {
    ++g_shared->noSuchNames;  // nobody is left to be asked
  }
}

std::optional<std::size_t> AdmitQuery(std::span<unsigned char> query, const sockaddr_in& sender) {
  const sockaddr_in& parent = g_shared->parent;
  thread_local WorkerThread worker = {"query", Verdict::kPasses};
  ++g_shared->received;
  if (sender.sin_port == parent.sin_port && sender.sin_addr.s_addr == parent.sin_addr.s_addr) {
    return std::nullopt;  // a probe
  }
  worker.verdict = JudgeQuery(query);
  if (!Passes(worker.verdict)) {
    const std::vector<unsigned char> reply = ErrorReply(query, worker.verdict);
    if (!reply.empty()) {
      SendDatagram(g_SockToClientApps, reply.data(), static_cast<int>(reply.size()), sender);
    }
    return std::nullopt;
  }
  ++g_shared->verdict(Verdict::kPasses);
  if (g_shared->wakeParent.load() && g_shared->wakeParent.exchange(false)) {
    SendDatagram(g_SockToClientApps, query.data(), 0, parent);
  }
  const bool own = worker.verdict == Verdict::kPasses && CountOwnAnswer(query);
  const std::size_t bare = g_shared->guarded && own ? SizeWithoutOpt(query) : query.size();
  if (bare == query.size()) {
    return bare;
  }
  std::memset(&query[kAdditionalCountOffset], 0, 2);
  ++g_shared->optRecords;
  return bare;
}

std::optional<std::size_t> AdmitAnswer(Datagram answer, const sockaddr_in& sender) {
  thread_local WorkerThread worker = {"answer", Verdict::kPasses};
  // A pass of its own, which keeps the request while it is looked at: the handler's begins behind
  // the receipt. The identifier travels in machine order.
  const PendingRequests::Pass pass(g_DnsRequestTable.mapRequests, Worker::kAnswer);
  unsigned short id = 0;
  std::memcpy(&id, answer.data(), std::min(answer.size(), sizeof(id)));
  RequestTable::Position position;
  const DnsRequest* const request =
      g_DnsRequestTable.Find(id, position) ? position->second : nullptr;
  Datagram pending;
  if (request != nullptr) {
    pending = {request->QueryBuf, static_cast<std::size_t>(request->iQueryLen)};
  }
  worker.verdict = JudgeAnswer(answer, pending);
  if (Passes(worker.verdict)) {
    CountAnswer(answer, sender.sin_addr.s_addr, request);
    return answer.size();
  }
  return std::nullopt;
}

}  // namespace

void OpenGate(SharedMemory& shared) { g_shared = &shared; }

bool HasGate(int sock) {
  return g_shared != nullptr && (sock == g_SockToClientApps || sock == g_SockToDNSServers);
}

std::optional<std::size_t> Admit(int sock, std::span<unsigned char> datagram,
                                 const sockaddr_in& sender) {
  return sock == g_SockToClientApps ? AdmitQuery(datagram, sender) : AdmitAnswer(datagram, sender);
}

void Leave(SharedMemory& shared, int status, const std::string& why) {
  static std::mutex leaving;
  leaving.lock();  // for good
  why.copy(shared.why, sizeof(shared.why) - 1);
  _exit(status);
}
