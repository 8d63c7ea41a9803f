#include "tests/stress/soak/questions.h"

#include <cstdio>

#include "tests/support/messages.h"

namespace soak {

namespace {

// More than are ever in flight, so that each question is one application's at a time.
constexpr std::size_t kCount = 16'384;

// Each name begins with a label of seven characters, "n" and the question's number.
constexpr std::size_t kNumberOffset = 14;
constexpr std::size_t kNumberDigits = 6;

std::string Label(std::size_t number) {
  char text[16];
  std::snprintf(text, sizeof(text), "n%06zu", number);
  return text;
}

// An answer with a record that no other question has, and for some a long one behind it.
Bytes WithRecords(const Bytes& query, std::size_t number) {
  support::DnsMessageBuilder answer = support::BeginAnswerTo(query);
  answer.Answer(support::kTypeA,
                {10, static_cast<unsigned char>(number >> 16),
                 static_cast<unsigned char>(number >> 8), static_cast<unsigned char>(number)});
  if (number % 16 == 0) {
    answer.Answer(support::kTypeTxt, Bytes(200 + number % 100, static_cast<unsigned char>(number)));
  }
  return answer.Build();
}

}  // namespace

Questions::Questions() {
  for (std::size_t number = 0; number < kCount; ++number) {
    const unsigned short type = number % 3 == 0 ? support::kTypeAaaa : support::kTypeA;
    const std::string name = Label(number) + ".soak.example";
    Question question;
    question.query = support::Query(0, name, type);
    switch (number % 8) {
      case 0: {  // the host map
        const std::string last = std::to_string(number % 250);
        hostMaps_.emplace_back(name, "192.0.2." + last);
        question.expected = support::HostAnswer(
            question.query, type, {192, 0, 2, static_cast<unsigned char>(number % 250)});
        break;
      }
      case 1:  // a reverse look-up
        question.query = support::Query(0, Label(number) + ".1.168.192.in-addr.arpa", type);
        question.expected = support::NoSuchName(question.query);
        break;
      case 2:  // the second server knows
        question.serverAnswers = {support::EmptyAnswerTo(question.query, 3),
                                  WithRecords(question.query, number)};
        question.expected = question.serverAnswers[1];
        break;
      case 3:  // nobody knows
        question.serverAnswers = {support::EmptyAnswerTo(question.query, 2),
                                  support::EmptyAnswerTo(question.query, 0)};
        question.expected = support::NoSuchName(question.query);
        break;
      default:  // the first server knows
        question.serverAnswers[0] = WithRecords(question.query, number);
        question.expected = question.serverAnswers[0];
        break;
    }
    questions_.push_back(std::move(question));
  }
}

std::size_t Questions::NumberOf(const Bytes& message) const {
  if (message.size() < kNumberOffset + kNumberDigits) {
    return Size();
  }
  std::size_t number = 0;
  for (std::size_t i = 0; i < kNumberDigits; ++i) {
    const unsigned char digit = message[kNumberOffset + i];
    if (digit < '0' || digit > '9') {
      return Size();
    }
    number = number * 10 + static_cast<std::size_t>(digit - '0');
  }
  return number < Size() ? number : Size();
}

}  // namespace soak
