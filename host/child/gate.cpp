#include "host/child/gate.h"

#include <sys/socket.h>
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
#include "host/common/port.h"

namespace {

constexpr std::size_t kFlagsLowOffset = 3;  // RA, Z, RCODE
constexpr std::size_t kAdditionalCountOffset = 10;
constexpr unsigned char kRcodeMask = 0x0F;
constexpr unsigned char kNameError = 3;

// Constant while there are workers.
SharedMemory* g_shared = nullptr;
int g_port = -1;
int g_channel = -1;

// On the answer thread: the server whose answer it has; on all others 0. Network order.
thread_local in_addr_t g_answering = 0;

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

// Whether the service answers `query`, which it can read and whose name fits into a message,
// without any server: the name as the service reads it. AAAA questions for static names are left as
// they are: their answers are no more readable without EDNS.
bool IsAnsweredHere(Datagram query) {
  char name[kDomainTextSize] = {};
  unsigned short type = 0;
  unsigned short questionClass = 0;
  ExtractDomain(query.data() + kDnsHeaderSize, static_cast<int>(query.size()) - kDnsHeaderSize,
                name, kDomainTextSize, type, questionClass);
  HostRespData* record = nullptr;
  return std::strstr(name, ".in-addr.arpa") != nullptr ||
         (type != kTypeAAAA && g_Hostmaps.Find(name, record));
}

// Whether a query waits for an answer from `server` in `request`, which is null if there is none.
bool IsAsked(in_addr_t server, const DnsRequest* request) {
  const std::size_t method = request == nullptr ? 0 : MethodIndex(*request);
  return request != nullptr && method < request->vecDnsMethods.size() &&
         request->vecDnsMethods[method].serverAddr.sin_addr.s_addr == server;
}

std::optional<std::size_t> AdmitQuery(std::span<unsigned char> query, const sockaddr_in& sender) {
  thread_local WorkerThread worker = {"query", Verdict::kPasses};
  ++g_shared->received;
  if (sender.sin_port == htons(kDnsPort) && sender.sin_addr.s_addr == htonl(INADDR_LOOPBACK)) {
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
    send(g_channel, "", 1, MSG_DONTWAIT);
  }
  const std::size_t bare = g_shared->guarded ? SizeWithoutOpt(query) : query.size();
  if (bare == query.size() || !IsAnsweredHere(query)) {
    return query.size();
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
    g_answering = sender.sin_addr.s_addr;
    if (answer.size() < kDnsHeaderSize || !IsAsked(g_answering, request)) {
      ++g_shared->strayAnswers;
    }
    return answer.size();
  }
  return std::nullopt;
}

}  // namespace

void OpenGate(SharedMemory& shared, int port, int channel) {
  g_shared = &shared;
  g_port = port;
  g_channel = channel;
}

bool HasGate(int sock) {
  return g_shared != nullptr && (sock == g_SockToClientApps || sock == g_SockToDNSServers);
}

int BindToPort(int sock) {
  const int bound = dup2(g_port, sock);
  close(g_port);
  // As much room as the system gives without further rights for what comes while a worker is busy
  // or waits for a processor: a flood fills the queue and would push out what comes behind it.
  constexpr int kWanted = 1024 * 1024;  // bytes
  for (const int queue : {g_SockToClientApps, g_SockToDNSServers}) {
    setsockopt(queue, SOL_SOCKET, SO_RCVBUF, &kWanted, sizeof(kWanted));
  }
  return bound == sock ? 0 : -1;
}

std::optional<std::size_t> Admit(int sock, std::span<unsigned char> datagram,
                                 const sockaddr_in& sender) {
  return sock == g_SockToClientApps ? AdmitQuery(datagram, sender) : AdmitAnswer(datagram, sender);
}

void NoteSent(int sock, Datagram answer) {
  if (g_shared == nullptr || sock != g_SockToClientApps || answer.size() < kDnsHeaderSize) {
    return;
  }
  if (!HasRecords(answer)) {  // "no such name", or the gate's own
    g_shared->noSuchNames += (answer[kFlagsLowOffset] & kRcodeMask) == kNameError ? 1 : 0;
  } else if (g_answering == 0) {
    ++g_shared->staticNames;
  } else {
    auto* const entry = std::ranges::find_if(g_shared->servers, [](const auto& one) {
      return one.address == g_answering || one.address == 0;
    });
    if (entry != g_shared->servers.end()) {
      entry->address = g_answering;  // the answer thread alone writes here
      ++entry->answers;
    }
  }
}

void Leave(SharedMemory& shared, int status, const std::string& why) {
  static std::mutex leaving;
  leaving.lock();  // for good
  why.copy(shared.why, sizeof(shared.why) - 1);
  _exit(status);
}
