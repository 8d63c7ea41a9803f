// The stock of questions that the soak asks over and over, and what has to come of each.
#ifndef TESTS_STRESS_SOAK_QUESTIONS_H_
#define TESTS_STRESS_SOAK_QUESTIONS_H_

#include <array>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/dns_message_builder.h"

namespace soak {

using support::Bytes;

inline constexpr std::size_t kServers = 2;
inline constexpr std::array<const char*, kServers> kServerAddresses = {"127.0.0.2", "127.0.0.3"};

// Every message is stored with two zero bytes where its identifier goes.
struct Question {
  Bytes query;

  // What the servers answer; empty for those that are not asked.
  std::array<Bytes, kServers> serverAnswers;

  // The one answer that the application may see.
  Bytes expected;
};

class Questions {
 public:
  Questions();

  std::size_t Size() const { return questions_.size(); }
  const Question& At(std::size_t number) const { return questions_.at(number); }

  // The number of the question that `message` carries; Size() if it carries none of the stock.
  std::size_t NumberOf(const Bytes& message) const;

  // For the service's start.
  const std::vector<std::pair<std::string, std::string>>& HostMaps() const { return hostMaps_; }

 private:
  std::vector<Question> questions_;
  std::vector<std::pair<std::string, std::string>> hostMaps_;
};

}  // namespace soak

#endif  // TESTS_STRESS_SOAK_QUESTIONS_H_
