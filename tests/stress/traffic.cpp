#include "tests/stress/traffic.h"

#include <optional>
#include <utility>

#include "tests/support/messages.h"

namespace stress {

namespace {

// The application's identifier, the same in every query: no answer may come under another.
constexpr unsigned short kApplicationId = 0xA5C3;

// Questions sent in a row before the workers are waited for, so that the system drops nothing.
constexpr long kBurst = 32;
constexpr std::size_t kOldAnswers = 512;

}  // namespace

DNSMethodInfo Traffic::Server(std::size_t server) const {
  DNSMethodInfo method = DnsServerMethod("127.0.0.1");
  method.serverAddr = servers_.at(server).Address();
  return method;
}

void Traffic::Run(const Workers& workers, const std::vector<std::string>& names,
                  const Manners& manners, long questions) {
  std::vector<Bytes> queries;
  for (const std::string& name : names) {
    queries.push_back(support::Query(kApplicationId, name));
  }
  for (long question = 0; question < questions; ++question) {
    application_.Send(queries[static_cast<std::size_t>(question) % queries.size()],
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

void Traffic::ServeQueries(const Workers& workers, const Manners& manners) {
  for (std::size_t server = 0; server < servers_.size(); ++server) {
    while (const std::optional<support::Datagram> query = servers_[server].Arrived()) {
      ++tally_.forwarded;
      lastForwarded_ = support::IdOf(query->bytes);
      const int choice = static_cast<int>(random_() % 100);
      if (choice >= manners.answered + manners.empty) {
        continue;
      }
      Answer answer{support::ForgedAnswer(lastForwarded_, choice < manners.answered), server};
      const int times = Chance(manners.doubled) ? 2 : 1;
      for (int time = 0; time < times; ++time) {
        servers_[server].Send(answer.bytes, workers.AnswersTo());
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
    servers_[answer.server].Send(answer.bytes, workers.AnswersTo());
    ++tally_.forged;
  }
  for (const bool withRecord : {true, false}) {
    if (Chance(withRecord ? manners.ahead : manners.aheadEmpty)) {
      const auto id = static_cast<unsigned short>(lastForwarded_ + random_() % 6);
      servers_[random_() % servers_.size()].Send(support::ForgedAnswer(id, withRecord),
                                                 workers.AnswersTo());
      ++tally_.forged;
    }
  }
  if (Chance(manners.strange)) {
    const auto id = static_cast<unsigned short>(lastForwarded_ - random_() % 4);
    stranger_.Send(support::ForgedAnswer(id, Chance(50)), workers.AnswersTo());
    ++tally_.forged;
  }
}

void Traffic::Hear() {
  while (const std::optional<support::Datagram> answer = application_.Arrived()) {
    ++tally_.heard;
    if (support::UnderId(answer->bytes, kApplicationId) != answer->bytes) {
      ++tally_.foreign;
    }
  }
}

}  // namespace stress
