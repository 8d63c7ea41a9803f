// The host's guard: any datagram, judged beside the service's own handlers.
//
// Input: the datagram. It is taken for a query, for an answer, and for both of one exchange.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string>

#include "dns_proxy_mac/proxy/query_path.h"
#include "dns_proxy_mac/proxy/response_path.h"
#include "fuzz/input.h"
#include "fuzz/ladder_model.h"
#include "fuzz/require.h"
#include "fuzz/trace_text.h"
#include "host/child/guard.h"
#include "tests/support/question_oracle.h"
#include "tests/support/scripted_datagrams.h"
#include "tests/support/socket_addresses.h"

namespace {

using fuzz::Bytes;
using fuzz::Require;

constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kNameSpace = 1024;  // of the query path

// What a handler of the service says to `datagram`: true if its worker goes on.
bool Goes(bool (*handler)(int), int sock, const Bytes& datagram) {
  fuzz::ResetService();
  const support::SentDatagrams sent;
  support::ArrivingDatagrams arriving;
  const fuzz::TraceText trace;
  arriving.Arrive(datagram, support::Ipv4Address("192.0.2.1", 53));
  return handler(sock);
}

support::ReadQuestion QuestionOf(const Bytes& message) {
  return support::OracleReads(Bytes(message.begin() + kHeaderSize, message.end()), kNameSpace);
}

std::string Folded(std::string name) {
  for (char& c : name) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return name;
}

// One question and one answer record, whatever the header of `message` says.
Bytes AsAnswer(Bytes message) {
  constexpr unsigned char kCounts[] = {0, 1, 0, 1};
  std::ranges::copy(kCounts, message.begin() + 4);
  return message;
}

// `message` with the letters of its name in the other case.
Bytes InOtherCase(Bytes message) {
  std::size_t at = kHeaderSize;
  while (at < message.size() && message[at] != 0 && message[at] < 0x80) {
    const std::size_t end = std::min(at + 1 + message[at], message.size());
    for (++at; at < end; ++at) {
      if (std::isalpha(message[at]) != 0) {
        message[at] ^= 0x20;
      }
    }
  }
  return message;
}

void CheckErrorReply(const Bytes& query, Verdict verdict) {
  const Bytes reply = ErrorReply(query, verdict);
  const bool heard =
      verdict != Verdict::kPasses && query.size() >= kHeaderSize && (query[2] & 0x80) == 0;
  Require(reply.empty() != heard,
          "an error for each query that is kept away, and for nothing else");
  if (!heard) {
    return;
  }
  Require(reply.size() >= kHeaderSize && reply.size() <= query.size(), "no more than was sent");
  Require(reply[0] == query[0] && reply[1] == query[1], "the error has the query's identifier");
  Require((reply[2] & 0x80) != 0, "the error is a response");
  Require(reply[3] == (reply.size() == kHeaderSize ? 1 : 5), "FORMERR, or REFUSED and a question");
  Require(JudgeQuery(reply) != Verdict::kPasses && ErrorReply(reply, JudgeQuery(reply)).empty(),
          "two guards do not answer each other");
}

void CheckOpt(const Bytes& query) {
  const std::size_t size = SizeWithoutOpt(query);
  Require(size <= query.size(), "nothing is added");
  if (size == query.size()) {
    return;
  }
  const Bytes record(query.begin() + static_cast<std::ptrdiff_t>(size), query.end());
  Require(record.size() >= 11 && record[0] == 0 && record[1] == 0 && record[2] == 41,
          "what is taken off is an OPT record");
  Require(record.size() == 11U + record[9] * 256U + record[10], "and nothing else");
  const Bytes rest(query.begin(), query.begin() + static_cast<std::ptrdiff_t>(size));
  Require(JudgeQuery(rest) == JudgeQuery(query), "what passes with it passes without it");
  const support::ReadQuestion before = QuestionOf(query);
  const support::ReadQuestion after = QuestionOf(rest);
  Require(before.space == after.space && before.type == after.type &&
              before.questionClass == after.questionClass,
          "the question is the same without it");
}

// `query`, at least a header, as one that waits: what passes as its answer?
void CheckExchange(const Bytes& query) {
  const Bytes answer = AsAnswer(query);
  Require(JudgeAnswer(answer, query) == Verdict::kPasses, "an answer to what was asked passes");
  const support::ReadQuestion asked = QuestionOf(query);
  if (asked.trace.empty() && asked.questionClass) {
    Require(JudgeAnswer(InOtherCase(answer), query) == Verdict::kPasses, "in any case of letters");
  }

  // An answer that differs in one byte, which the query's first three choose.
  Bytes other = answer;
  const std::size_t place = kHeaderSize + (query[0] * 256U + query[1]) % query.size();
  if (place < other.size()) {
    other[place] ^= std::max<unsigned char>(query[2], 1);
  }
  if (JudgeAnswer(other, query) == Verdict::kPasses) {
    const support::ReadQuestion told = QuestionOf(other);
    Require(Folded(asked.Name()) == Folded(told.Name()), "no answer for another name passes");
    Require(asked.type == told.type && asked.questionClass == told.questionClass,
            "nor one of another type or class");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes datagram = fuzz::Input(data, size).Take(kMaxMessageSize);

  Verdict asQuery;
  Verdict asAnswer;
  {
    fuzz::TraceText trace;
    asQuery = JudgeQuery(datagram);
    asAnswer = JudgeAnswer(datagram, {});
    CheckErrorReply(datagram, asQuery);
    CheckOpt(datagram);
    Require(trace.Stop().empty(), "no trace line comes from judging");
  }
  const bool accepted = Goes(RecvAndProcessPacketsFromLocalApps, fuzz::kToApplications, datagram);
  Require((asQuery == Verdict::kPasses) == accepted, "a query passes exactly if it is accepted");
  const bool goesOn = Goes(RecvAndProcessPacketsFromDNSServer, fuzz::kToServers, datagram);
  Require((asAnswer == Verdict::kPasses) == goesOn,
          "an answer that nobody waits for passes exactly if it ends no worker");
  if (datagram.size() >= kHeaderSize) {
    CheckExchange(datagram);
  }
  return 0;
}
