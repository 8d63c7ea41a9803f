#include "host/child/gate.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "dns_proxy_mac/proxy/dns_message.h"
#include "dns_proxy_mac/proxy/service_state.h"

namespace {

constexpr std::size_t kFlagsHighOffset = 2;
constexpr std::size_t kAdditionalCountOffset = 10;
constexpr unsigned char kResponseBit = 0x80;

// From the port that was asked. One that cannot be sent is lost like any datagram.
void Reply(const std::vector<unsigned char>& reply, const sockaddr_in& to) {
  if (!reply.empty()) {
    sendto(g_SockToClientApps, reply.data(), reply.size(), MSG_DONTWAIT,
           reinterpret_cast<const sockaddr*>(&to), sizeof(to));
  }
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

}  // namespace

Gate::Gate(SharedMemory& shared, bool guarded, std::vector<unsigned char> probe,
           std::function<void(const std::string& why)> workerEnded)
    : shared_(shared),
      guarded_(guarded),
      probe_(std::move(probe)),
      workerEnded_(std::move(workerEnded)) {}

Gate::Worker::~Worker() {
  gate.workerEnded_(std::string(name) + " thread ended; its last datagram: " + Name(verdict));
}

std::optional<std::size_t> Gate::Admit(int sock, std::span<unsigned char> datagram,
                                       const sockaddr_in& sender) {
  return sock == g_SockToClientApps   ? AdmitQuery(datagram, sender)
         : sock == g_SockToDNSServers ? AdmitAnswer(datagram)
                                      : std::optional(datagram.size());
}

std::optional<std::size_t> Gate::AdmitQuery(std::span<unsigned char> query,
                                            const sockaddr_in& sender) {
  thread_local Worker worker = {*this, "query", Verdict::kPasses};
  const auto answerProbe = [this] {
    std::vector<unsigned char> answer = probe_;
    answer[kFlagsHighOffset] |= kResponseBit;
    Reply(answer, prober_);
  };
  ++shared_.received;
  if (std::ranges::equal(query, probe_)) {
    prober_ = sender;
    answerProbe();
    return std::nullopt;
  }
  worker.verdict = JudgeQuery(query);
  if (!Passes(worker.verdict)) {
    ++shared_.verdict(worker.verdict);
    Reply(ErrorReply(query, worker.verdict), sender);
    return std::nullopt;
  }
  ++shared_.verdict(Verdict::kPasses);
  if (shared_.wakeParent.load() && shared_.wakeParent.exchange(false)) {
    answerProbe();  // once more
  }
  const std::size_t bare = guarded_ ? SizeWithoutOpt(query) : query.size();
  if (bare == query.size() || !IsAnsweredHere(query)) {
    return query.size();
  }
  std::memset(&query[kAdditionalCountOffset], 0, 2);
  ++shared_.optRecords;
  return bare;
}

std::optional<std::size_t> Gate::AdmitAnswer(Datagram answer) {
  thread_local Worker worker = {*this, "answer", Verdict::kPasses};
  // A pass of its own, which keeps the request while it is looked at: the handler's begins behind
  // the receipt. The identifier travels in machine order.
  const PendingRequests::Pass pass(g_DnsRequestTable.mapRequests, ::Worker::kAnswer);
  unsigned short id = 0;
  std::memcpy(&id, answer.data(), std::min(answer.size(), sizeof(id)));
  RequestTable::Position position;
  Datagram pending;
  if (g_DnsRequestTable.Find(id, position)) {
    pending = {position->second->QueryBuf, static_cast<std::size_t>(position->second->iQueryLen)};
  }
  worker.verdict = JudgeAnswer(answer, pending);
  if (Passes(worker.verdict)) {
    return answer.size();
  }
  ++shared_.verdict(worker.verdict);
  return std::nullopt;
}
