#include "tests/stress/traffic.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "tests/support/socket_addresses.h"

namespace stress {

namespace {

// The application's identifier, the same in every query: no answer may come under another.
constexpr unsigned short kApplicationId = 0xA5C3;

constexpr unsigned short kTypeA = 1;
constexpr unsigned short kClassInternet = 1;

// Questions sent in a row before the workers are waited for, so that the system drops nothing.
constexpr long kBurst = 32;
constexpr std::size_t kOldAnswers = 512;

Bytes Query(const std::string& name) {
  return support::DnsMessageBuilder()
      .Id(kApplicationId)
      .Flags(0x0100)
      .Question(name, kTypeA, kClassInternet)
      .Build();
}

// An answer under the identifier that `id` is in machine order.
Bytes AnswerUnder(unsigned short id, bool withRecord) {
  support::DnsMessageBuilder answer;
  answer.Flags(0x8180).Question("forged.example", kTypeA, kClassInternet);
  if (withRecord) {
    answer.Answer(kTypeA, {192, 0, 2, 66});
  }
  Bytes bytes = answer.Build();
  std::memcpy(bytes.data(), &id, sizeof(id));
  return bytes;
}

unsigned short IdOf(const Bytes& message) {
  unsigned short id;
  std::memcpy(&id, message.data(), sizeof(id));
  return id;
}

// The next datagram that is there already; empty if none is.
Bytes Arrived(int sock) {
  Bytes bytes(8192);
  const ssize_t length = recv(sock, bytes.data(), bytes.size(), MSG_DONTWAIT);
  bytes.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return bytes;
}

}  // namespace

Traffic::Traffic()
    : application_(OpenPeer("127.0.0.1")),
      servers_{OpenPeer("127.0.0.2"), OpenPeer("127.0.0.3")},
      stranger_(OpenPeer("127.0.0.9")) {}

Traffic::~Traffic() {
  for (const Peer& peer : {application_, servers_[0], servers_[1], stranger_}) {
    close(peer.sock);
  }
}

DNSMethodInfo Traffic::Server(std::size_t server) const {
  DNSMethodInfo method = DnsServerMethod("127.0.0.1");
  method.serverAddr = servers_.at(server).address;
  return method;
}

void Traffic::Run(const Workers& workers, const std::vector<std::string>& names,
                  const Manners& manners, long questions) {
  std::vector<Bytes> queries;
  for (const std::string& name : names) {
    queries.push_back(Query(name));
  }
  for (long question = 0; question < questions; ++question) {
    Send(application_, queries[static_cast<std::size_t>(question) % queries.size()],
         workers.QueriesTo());
    ++tally_.asked;
    Forge(workers, manners);
    ServeQueries(workers, manners);
    Hear();
    if (question % kBurst == kBurst - 1) {
      workers.WaitUntilReceived();
    }
  }
  workers.WaitUntilReceived();
  ServeQueries(workers, manners);
  workers.WaitUntilReceived();
  Hear();
}

Traffic::Peer Traffic::OpenPeer(const char* address) {
  Peer peer{socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP), support::Ipv4Address(address, 0)};
  socklen_t length = sizeof(peer.address);
  auto* const name = reinterpret_cast<sockaddr*>(&peer.address);
  if (peer.sock < 0 || bind(peer.sock, name, length) != 0 ||
      getsockname(peer.sock, name, &length) != 0) {
    std::perror("a peer's socket");
    std::abort();
  }
  return peer;
}

void Traffic::Send(const Peer& from, const Bytes& bytes, const sockaddr_in& to) const {
  if (sendto(from.sock, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
             sizeof(to)) < 0) {
    std::perror("a peer's datagram");
    std::abort();
  }
}

void Traffic::ServeQueries(const Workers& workers, const Manners& manners) {
  for (std::size_t server = 0; server < kServers; ++server) {
    for (Bytes query = Arrived(servers_[server].sock); !query.empty();
         query = Arrived(servers_[server].sock)) {
      ++tally_.forwarded;
      lastForwarded_ = IdOf(query);
      const int choice = static_cast<int>(random_() % 100);
      if (choice >= manners.answered + manners.empty) {
        continue;
      }
      Answer answer{AnswerUnder(IdOf(query), choice < manners.answered), server};
      const int times = Chance(manners.doubled) ? 2 : 1;
      for (int time = 0; time < times; ++time) {
        Send(servers_[server], answer.bytes, workers.AnswersTo());
      }
      old_.push_back(std::move(answer));
      if (old_.size() > kOldAnswers) {
        old_.pop_front();
      }
    }
  }
}

void Traffic::Forge(const Workers& workers, const Manners& manners) {
  if (!old_.empty() && Chance(manners.late)) {
    const Answer& answer = old_[random_() % old_.size()];
    Send(servers_[answer.server], answer.bytes, workers.AnswersTo());
    ++tally_.forged;
  }
  for (const bool withRecord : {true, false}) {
    if (Chance(withRecord ? manners.ahead : manners.aheadEmpty)) {
      const auto id = static_cast<unsigned short>(lastForwarded_ + random_() % 6);
      Send(servers_[random_() % kServers], AnswerUnder(id, withRecord), workers.AnswersTo());
      ++tally_.forged;
    }
  }
  if (Chance(manners.strange)) {
    const auto id = static_cast<unsigned short>(lastForwarded_ - random_() % 4);
    Send(stranger_, AnswerUnder(id, Chance(50)), workers.AnswersTo());
    ++tally_.forged;
  }
}

void Traffic::Hear() {
  for (Bytes answer = Arrived(application_.sock); !answer.empty();
       answer = Arrived(application_.sock)) {
    ++tally_.heard;
    if (answer[0] != (kApplicationId >> 8) || answer[1] != (kApplicationId & 0xFF)) {
      ++tally_.foreign;
    }
  }
}

}  // namespace stress
