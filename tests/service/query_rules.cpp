#include "tests/service/query_rules.h"

#include <cctype>
#include <cstddef>

#include "tests/support/messages.h"
#include "tests/support/question_oracle.h"

namespace service {

namespace {

constexpr std::size_t kHeader = 12;
constexpr std::size_t kGreatestMessage = 8192;
constexpr std::size_t kGreatestMappedQuery = 8175;
constexpr std::size_t kNameSpace = 1024;

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
  const support::ReadQuestion question = support::OracleReads(
      Bytes(query.begin() + static_cast<std::ptrdiff_t>(kHeader), query.end()), kNameSpace);
  const std::string name = question.Name();
  if (name.empty()) {
    return {Fate::kEndsTheThread, {}};
  }
  if (name.find(".in-addr.arpa") != std::string::npos) {
    return {Fate::kNoSuchName, support::NoSuchName(query)};
  }
  const auto mapped = hostMap.find(LowerCase(name));
  if (mapped != hostMap.end() && query.size() <= kGreatestMappedQuery) {
    return {Fate::kAnsweredFromTheHostMap,
            support::HostAnswer(query, question.type.value_or(0), mapped->second)};
  }
  return {Fate::kForwarded, query};
}

}  // namespace service
