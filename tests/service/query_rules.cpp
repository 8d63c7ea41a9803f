#include "tests/service/query_rules.h"

#include <cctype>
#include <cstddef>

#include "tests/support/messages.h"

namespace service {

namespace {

constexpr std::size_t kHeader = 12;
constexpr std::size_t kGreatestMessage = 8192;
constexpr std::size_t kGreatestMappedQuery = 8175;
constexpr std::size_t kNameSpace = 1024;

struct Question {
  std::string name;
  unsigned short type = 0;
};

// The byte at `at`, or zero where the datagram holds none.
unsigned char At(const Bytes& message, std::size_t at) {
  return at < message.size() ? message[at] : 0;
}

Question Read(const Bytes& message) {
  Question question;
  std::string& name = question.name;
  std::size_t at = kHeader;
  while (At(message, at) >= 1 && At(message, at) <= 0x7F) {
    const std::size_t length = message[at];
    if (name.size() + length > kNameSpace) {
      break;
    }
    for (std::size_t i = 1; i <= length; ++i) {
      name.push_back(static_cast<char>(At(message, at + i)));
    }
    if (name.size() == kNameSpace) {
      name.back() = '\0';
      break;
    }
    name.push_back('.');
    at += 1 + length;
  }
  if (!name.empty() && name.back() == '.') {
    name.pop_back();
  }
  name = name.c_str();  // a zero byte in a label ends the text
  if (at + 2 < message.size()) {
    question.type = static_cast<unsigned short>(message[at + 1] << 8 | message[at + 2]);
  }
  return question;
}

std::string LowerCase(std::string text) {
  for (char& character : text) {
    character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
  }
  return text;
}

}  // namespace

Verdict Judge(const Bytes& received, const std::map<std::string, Bytes>& hostMap) {
  Bytes query = received;
  if (query.size() > kGreatestMessage) {
    query.resize(kGreatestMessage);
  }
  if (query.size() < kHeader || query[4] != 0 || query[5] != 1) {
    return {Fate::kEndsTheThread, {}};
  }
  const Question question = Read(query);
  if (question.name.empty()) {
    return {Fate::kEndsTheThread, {}};
  }
  if (question.name.find(".in-addr.arpa") != std::string::npos) {
    return {Fate::kNoSuchName, support::NoSuchName(query)};
  }
  const auto mapped = hostMap.find(LowerCase(question.name));
  if (mapped != hostMap.end() && query.size() <= kGreatestMappedQuery) {
    return {Fate::kAnsweredFromTheHostMap,
            support::HostAnswer(query, question.type, mapped->second)};
  }
  return {Fate::kForwarded, query};
}

}  // namespace service
