#include "host/child/guard.h"

#include <algorithm>
#include <cctype>

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
constexpr unsigned char kFirstBadLength = 128;  // length bytes from here on end the reading

// An OPT record without options: the root's zero byte, type, payload size, flags, length of the
// data.
constexpr std::size_t kOptSize = 1 + 2 + 2 + 4 + 2;
constexpr std::size_t kOptDataLengthOffset = 9;
constexpr unsigned char kTypeOpt = 41;

unsigned BigEndian16(Datagram bytes, std::size_t offset) {
  return static_cast<unsigned>(bytes[offset] << 8 | bytes[offset + 1]);
}

// The question of `message`, which has a header: name, type and class; all the rest when the
// message ends in it, or the name does not.
Datagram Question(Datagram message) {
  const Datagram rest = message.subspan(kHeaderSize);
  std::size_t end = 0;
  while (end < rest.size() && rest[end] != 0 && rest[end] < kFirstBadLength) {
    end += 1 + rest[end];
  }
  const bool ended = end < rest.size() && rest[end] == 0;
  return ended ? rest.first(std::min(rest.size(), end + 1 + kTypeAndClassSize)) : rest;
}

// The labels without regard to case, and all else as it is: lengths, type, class.
bool SameQuestion(Datagram a, Datagram b) {
  std::size_t length = 0;  // where the next label's length stands, or the last one
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    if (a[i] != b[i] && (i >= length || std::tolower(a[i]) != std::tolower(b[i]))) {
      return false;
    }
    if (i == length && a[i] != 0 && a[i] < kFirstBadLength) {
      length += 1 + a[i];
    }
  }
  return a.size() == b.size();
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
  const bool passes = pending.size() < kHeaderSize || !HasRecords(answer) ||
                      (BigEndian16(answer, kQuestionCountOffset) == 1 &&
                       SameQuestion(Question(answer), Question(pending)));
  return passes ? Verdict::kPasses : Verdict::kOtherQuestion;
}

bool HasRecords(Datagram answer) {
  return static_cast<short>(answer[kAnswerCountOffset] | answer[kAnswerCountOffset + 1] << 8) > 0;
}

std::vector<unsigned char> ErrorReply(Datagram query, Verdict verdict) {
  if (verdict == Verdict::kPasses || query.size() < kHeaderSize ||
      (query[kFlagsHighOffset] & kResponseBit) != 0) {
    return {};
  }
  // A root query that is cut off has no question to give back.
  constexpr std::size_t kWhole = kHeaderSize + 1 + kTypeAndClassSize;
  const bool root = verdict == Verdict::kRoot && query.size() >= kWhole;
  const Datagram returned = query.first(root ? kWhole : kHeaderSize);
  std::vector<unsigned char> reply(returned.begin(), returned.end());
  reply[kFlagsHighOffset] &= kOpcodeAndRecursionDesired;
  reply[kFlagsHighOffset] |= kResponseBit;
  reply[kFlagsLowOffset] = root ? kRefused : kFormatError;
  std::fill_n(&reply[kQuestionCountOffset], kHeaderSize - kQuestionCountOffset, 0);
  reply[kQuestionCountOffset + 1] = root ? 1 : 0;
  return reply;
}

std::size_t SizeWithoutOpt(Datagram query) {
  constexpr unsigned char kOneQuestionAndOneMore[] = {0, 1, 0, 0, 0, 0, 0, 1};
  if (query.size() < kHeaderSize ||
      !std::ranges::equal(query.first(kHeaderSize).subspan(kQuestionCountOffset),
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
