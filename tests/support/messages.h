// Messages as the tests speak of them, and what has to come of them: in other words than the
// service's code, which none of this uses.
#ifndef TESTS_SUPPORT_MESSAGES_H_
#define TESTS_SUPPORT_MESSAGES_H_

#include <cstring>
#include <string>

#include "tests/support/dns_message_builder.h"

namespace support {

inline constexpr unsigned short kTypeA = 1;
inline constexpr unsigned short kTypeTxt = 16;
inline constexpr unsigned short kTypeAaaa = 28;
inline constexpr unsigned short kClassInternet = 1;
inline constexpr unsigned short kRecursionDesired = 0x0100;

// A question as a resolver library sends it.
inline Bytes Query(unsigned short id, const std::string& name, unsigned short type = kTypeA) {
  return DnsMessageBuilder()
      .Id(id)
      .Flags(kRecursionDesired)
      .Question(name, type, kClassInternet)
      .Build();
}

// The first two bytes of `message` in machine order: an identifier of the service's own, or the
// application's as two bytes that came.
inline unsigned short IdOf(const Bytes& message) {
  unsigned short id;
  std::memcpy(&id, message.data(), sizeof(id));
  return id;
}

// `message` with `number` written big-endian at `offset`, and so with another identifier or count.
inline Bytes WithNumber(Bytes message, std::size_t offset, unsigned short number) {
  message.at(offset) = static_cast<unsigned char>(number >> 8);
  message.at(offset + 1) = static_cast<unsigned char>(number & 0xFF);
  return message;
}
inline Bytes UnderId(const Bytes& message, unsigned short id) { return WithNumber(message, 0, id); }
inline Bytes WithQuestionCount(const Bytes& message, unsigned short count) {
  return WithNumber(message, 4, count);
}
inline Bytes WithAnswerCount(const Bytes& message, unsigned short count) {
  return WithNumber(message, 6, count);
}

// `message` under an identifier of the service's own, which travels in machine order.
inline Bytes UnderProxyId(Bytes message, unsigned short id) {
  std::memcpy(message.data(), &id, sizeof(id));
  return message;
}

// The header and the question of an answer to `query`, which holds those two and nothing else.
inline DnsMessageBuilder BeginAnswerTo(const Bytes& query, unsigned short flags = 0x8180) {
  DnsMessageBuilder answer;
  answer.Id(static_cast<unsigned short>(query.at(0) << 8 | query.at(1)))
      .Flags(flags)
      .QuestionCount(1)
      .Raw(Bytes(query.begin() + 12, query.end()));
  return answer;
}

// The answer to `query` with one A record.
inline Bytes AnswerTo(const Bytes& query, const Bytes& address) {
  return BeginAnswerTo(query).Answer(kTypeA, address).Build();
}

// The answer to `query` with this response code and no record.
inline Bytes EmptyAnswerTo(const Bytes& query, unsigned char responseCode) {
  return BeginAnswerTo(query, static_cast<unsigned short>(0x8180 | responseCode)).Build();
}

// An answer that no server gave, to a question that nobody asked, under an identifier of the
// service's own.
inline Bytes ForgedAnswer(unsigned short id, bool withRecord) {
  const Bytes query = Query(0, "forged.example");
  return UnderProxyId(withRecord ? AnswerTo(query, {192, 0, 2, 66}) : EmptyAnswerTo(query, 0), id);
}

// The rule by which an answer is relayed: its count read low byte first and signed is positive.
inline bool HasRecords(const Bytes& answer) {
  return answer.at(7) < 0x80 && (answer.at(6) != 0 || answer.at(7) != 0);
}

// What the service makes up for a name that no method knows: the header is its own, the rest the
// query's.
inline Bytes NoSuchName(const Bytes& query) {
  Bytes response = {query.at(0), query.at(1), 0x80, 0x03, 0, 1, 0, 0, 0, 0, 0, 0};
  response.insert(response.end(), query.begin() + 12, query.end());
  return response;
}

// What the service makes up for a name of the host map: the query with QR set, RCODE cleared, the
// answer count and the record behind it.
inline Bytes HostAnswer(const Bytes& query, unsigned short type, const Bytes& address) {
  Bytes response = query;
  response.at(2) |= 0x80;
  response.at(3) &= 0xF0;
  response.at(6) = 0x00;
  response.at(7) = type == kTypeAaaa ? 0x02 : 0x01;
  const Bytes record = {0xC0, 0x0C, 0x00, 0x01, 0x00, 0x01, 0x00, 0x01, 0x51, 0x80, 0x00, 0x04};
  response.insert(response.end(), record.begin(), record.end());
  response.insert(response.end(), address.begin(), address.end());
  return response;
}

}  // namespace support

#endif  // TESTS_SUPPORT_MESSAGES_H_
