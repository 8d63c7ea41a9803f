#include "host/child/guard.h"

#include <algorithm>
#include <array>

#include "dns_proxy_mac/proxy/dns_message.h"

namespace {

// Offsets and masks of RFC 1035, section 4.1.1.
constexpr std::size_t kHeaderSize = kDnsHeaderSize;
constexpr std::size_t kFlagsHighOffset = 2;      // QR, Opcode, AA, TC, RD
constexpr std::size_t kFlagsLowOffset = 3;       // RA, Z, RCODE
constexpr std::size_t kQuestionCountOffset = 4;  // big-endian, as all counts
constexpr std::size_t kAnswerCountOffset = 6;
constexpr unsigned char kResponseBit = 0x80;
constexpr unsigned char kOpcodeAndRecursionDesired = 0x79;
constexpr unsigned char kFormatError = 1;
constexpr unsigned char kRefused = 5;

constexpr std::size_t kMaxNameSize = 255;
constexpr std::size_t kTypeAndClassSize = 4;
constexpr unsigned char kFirstBadLength =
    128;  // length bytes from here on end the service's reading

// An OPT record without options: the root's zero byte, type, payload size, flags, length of the
// data.
constexpr std::size_t kOptSize = 1 + 2 + 2 + 4 + 2;
constexpr std::size_t kOptDataLengthOffset = 9;
constexpr unsigned char kTypeOpt = 41;

unsigned BigEndian16(Datagram bytes, std::size_t offset) {
  return static_cast<unsigned>(bytes[offset] << 8 | bytes[offset + 1]);
}

// As the service reads the count: low byte first and signed.
bool HasRecords(Datagram answer) {
  const unsigned low = answer[kAnswerCountOffset];
  const unsigned high = answer[kAnswerCountOffset + 1];
  return static_cast<short>(low | high << 8) > 0;
}

// The question of `message`, which has a header: name, type and class; all the rest when the
// message ends in it, or the name does not.
Datagram Question(Datagram message) {
  std::size_t end = kHeaderSize;
  while (end < message.size() && message[end] != 0 && message[end] < kFirstBadLength) {
    end += 1 + message[end];
  }
  const bool ended = end < message.size() && message[end] == 0;
  const Datagram rest = message.subspan(kHeaderSize);
  return ended ? rest.first(std::min(rest.size(), end + 1 + kTypeAndClassSize - kHeaderSize))
               : rest;
}

unsigned char Folded(unsigned char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<unsigned char>(c - 'A' + 'a') : c;
}

// The labels without regard to case, and all else as it is: lengths, type, class.
bool SameQuestion(Datagram a, Datagram b) {
  if (a.size() != b.size()) {
    return false;
  }
  std::size_t length = 0;  // where the next label's length stands
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (i != length) {
      if (Folded(a[i]) != Folded(b[i])) {
        return false;
      }
    } else if (a[i] == 0 || a[i] >= kFirstBadLength || a[i] != b[i]) {
      return std::ranges::equal(a.subspan(i), b.subspan(i));
    } else {
      length += 1 + a[i];
    }
  }
  return true;
}

}  // namespace

Verdict JudgeQuery(Datagram query) {
  if (query.size() < kHeaderSize) {
    return Verdict::kShortQuery;
  }
  if (BigEndian16(query, kQuestionCountOffset) != 1) {
    return Verdict::kQuestionCount;
  }
  // The service takes labels of 1 to 127 bytes, reads what lies beyond the datagram as zero, and
  // the name as text that a zero byte ends. So the first two bytes alone decide whether it is
  // empty: whatever goes wrong behind the first label cuts the name short.
  const Datagram name = query.subspan(kHeaderSize);
  if (!name.empty() && name[0] == 0) {
    return Verdict::kRoot;
  }
  return name.size() < 2 || name[0] >= kFirstBadLength || name[1] == 0 ? Verdict::kUnreadableName
                                                                       : Verdict::kPasses;
}

Verdict JudgeAnswer(Datagram answer, Datagram pending) {
  if (answer.size() < kHeaderSize) {
    return Verdict::kShortAnswer;
  }
  if (pending.size() < kHeaderSize || !HasRecords(answer)) {
    return Verdict::kPasses;
  }
  const bool asked = BigEndian16(answer, kQuestionCountOffset) == 1 &&
                     SameQuestion(Question(answer), Question(pending));
  return asked ? Verdict::kPasses : Verdict::kOtherQuestion;
}

std::vector<unsigned char> ErrorReply(Datagram query, Verdict verdict) {
  if (verdict == Verdict::kPasses || query.size() < kHeaderSize ||
      (query[kFlagsHighOffset] & kResponseBit) != 0) {
    return {};
  }
  // A root query that is cut off has no question to give back.
  constexpr std::size_t kWhole = kHeaderSize + 1 + kTypeAndClassSize;
  const bool root = verdict == Verdict::kRoot && query.size() >= kWhole;
  std::vector<unsigned char> reply(root ? kWhole : kHeaderSize);
  std::ranges::copy(query.first(kFlagsHighOffset), reply.begin());  // the identifier
  reply[kFlagsHighOffset] = static_cast<unsigned char>(
      kResponseBit | (query[kFlagsHighOffset] & kOpcodeAndRecursionDesired));
  reply[kFlagsLowOffset] = root ? kRefused : kFormatError;
  if (root) {
    reply[kQuestionCountOffset + 1] = 1;
    std::ranges::copy(query.first(kWhole).subspan(kHeaderSize), reply.begin() + kHeaderSize);
  }
  return reply;
}

std::size_t SizeWithoutOpt(Datagram query) {
  constexpr std::array<unsigned char, 8> kOneQuestionAndOneMore = {0, 1, 0, 0, 0, 0, 0, 1};
  if (query.size() < kHeaderSize ||
      !std::ranges::equal(query.subspan(kQuestionCountOffset, kOneQuestionAndOneMore.size()),
                          kOneQuestionAndOneMore)) {
    return query.size();
  }
  const std::size_t question = Question(query).size();
  const Datagram record = query.subspan(kHeaderSize + question);
  const bool opt = question <= kMaxNameSize + kTypeAndClassSize && record.size() >= kOptSize &&
                   record[0] == 0 && record[1] == 0 && record[2] == kTypeOpt &&
                   record.size() == kOptSize + BigEndian16(record, kOptDataLengthOffset);
  return opt ? kHeaderSize + question : query.size();
}
