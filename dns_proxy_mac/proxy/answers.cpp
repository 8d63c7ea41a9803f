#include "dns_proxy_mac/proxy/answers.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

// Offsets into the header (RFC 1035, section 4.1.1) and masks of its two bytes of flags.
constexpr int kIdOffset = 0;
constexpr int kFlagsHighOffset = 2;  // QR, Opcode, AA, TC, RD
constexpr int kFlagsLowOffset = 3;   // RA, Z, RCODE
constexpr int kQuestionCountOffset = 4;
constexpr int kAnswerCountOffset = 6;
constexpr unsigned char kResponseBit = 0x80;  // QR, in the high byte
constexpr unsigned char kRcodeMask = 0x0F;    // in the low byte
constexpr unsigned char kRcodeNameError = 3;

void WriteBigEndian16(unsigned char* bytes, unsigned short value) {
  bytes[0] = static_cast<unsigned char>(value >> 8);
  bytes[1] = static_cast<unsigned char>(value & 0xFF);
}

}  // namespace

int MakeHostAnswer(unsigned char* message, int queryLength, const HostRespData& record,
                   unsigned short appQueryID, unsigned short queryType) {
  std::memcpy(message + queryLength, &record, sizeof(record));
  const int length = queryLength + static_cast<int>(sizeof(record));
  message[length] = 0;  // behind the end: neither counted nor sent

  std::memcpy(message + kIdOffset, &appQueryID, sizeof(appQueryID));
  message[kFlagsHighOffset] |= kResponseBit;
  message[kFlagsLowOffset] &= static_cast<unsigned char>(~kRcodeMask);
  // The record is an A record whatever was asked. Two are announced to an AAAA question: clients
  // that ask for both families rely on not being told "no records" here.
  WriteBigEndian16(message + kAnswerCountOffset, queryType == kTypeAAAA ? 2 : 1);
  return length;
}

void MakeNoSuchNameResponse(const unsigned char* query, int queryLength, unsigned short appQueryID,
                            unsigned char* response) {
  std::memset(response, 0, kDnsHeaderSize);
  std::memcpy(response + kIdOffset, &appQueryID, sizeof(appQueryID));
  response[kFlagsHighOffset] = kResponseBit;
  response[kFlagsLowOffset] = kRcodeNameError;
  WriteBigEndian16(response + kQuestionCountOffset, 1);
  std::memcpy(response + kDnsHeaderSize, query + kDnsHeaderSize,
              static_cast<std::size_t>(std::max(queryLength - kDnsHeaderSize, 0)));
}
