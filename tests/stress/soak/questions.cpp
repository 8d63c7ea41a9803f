#include "tests/stress/soak/questions.h"

#include <cstdio>

namespace soak {

namespace {

constexpr unsigned short kTypeA = 1;
constexpr unsigned short kTypeTxt = 16;
constexpr unsigned short kTypeAaaa = 28;
constexpr unsigned short kClassInternet = 1;

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

Bytes Query(const std::string& name, unsigned short type) {
  return support::DnsMessageBuilder().Flags(0x0100).Question(name, type, kClassInternet).Build();
}

// An answer with a record that no other question has, and for some a long one behind it.
Bytes WithRecords(const std::string& name, unsigned short type, std::size_t number) {
  support::DnsMessageBuilder answer;
  answer.Flags(0x8180).Question(name, type, kClassInternet);
  answer.Answer(kTypeA,
                {10, static_cast<unsigned char>(number >> 16),
                 static_cast<unsigned char>(number >> 8), static_cast<unsigned char>(number)});
  if (number % 16 == 0) {
    answer.Answer(kTypeTxt, Bytes(200 + number % 100, static_cast<unsigned char>(number)));
  }
  return answer.Build();
}

Bytes WithoutRecords(const std::string& name, unsigned short type, unsigned short responseCode) {
  return support::DnsMessageBuilder()
      .Flags(static_cast<unsigned short>(0x8180 | responseCode))
      .Question(name, type, kClassInternet)
      .Build();
}

// What the service makes up for a name that nobody knows: a header of its own before the question.
Bytes NoSuchName(const Bytes& query) {
  Bytes response = support::DnsMessageBuilder().Flags(0x8003).QuestionCount(1).Build();
  response.insert(response.end(), query.begin() + 12, query.end());
  return response;
}

// What it makes up for a name of the host map.
Bytes Mapped(const Bytes& query, unsigned short type, const Bytes& address) {
  Bytes response = query;
  response[2] |= 0x80;
  response[7] = type == kTypeAaaa ? 2 : 1;
  const Bytes record = support::DnsMessageBuilder()
                           .Raw({0xC0, 0x0C, 0, kTypeA, 0, kClassInternet})
                           .Number32(86'400)
                           .Number16(4)
                           .Raw(address)
                           .Build();
  response.insert(response.end(), record.begin() + 12, record.end());
  return response;
}

}  // namespace

Questions::Questions() {
  for (std::size_t number = 0; number < kCount; ++number) {
    const unsigned short type = number % 3 == 0 ? kTypeAaaa : kTypeA;
    const std::string name = Label(number) + ".soak.example";
    Question question;
    question.query = Query(name, type);
    switch (number % 8) {
      case 0: {  // the host map
        const std::string last = std::to_string(number % 250);
        hostMaps_.emplace_back(name, "192.0.2." + last);
        question.expected =
            Mapped(question.query, type, {192, 0, 2, static_cast<unsigned char>(number % 250)});
        break;
      }
      case 1:  // a reverse look-up
        question.query = Query(Label(number) + ".1.168.192.in-addr.arpa", type);
        question.expected = NoSuchName(question.query);
        break;
      case 2:  // the second server knows
        question.serverAnswers = {WithoutRecords(name, type, 3), WithRecords(name, type, number)};
        question.expected = question.serverAnswers[1];
        break;
      case 3:  // nobody knows
        question.serverAnswers = {WithoutRecords(name, type, 2), WithoutRecords(name, type, 0)};
        question.expected = NoSuchName(question.query);
        break;
      default:  // the first server knows
        question.serverAnswers[0] = WithRecords(name, type, number);
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
