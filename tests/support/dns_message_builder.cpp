#include "tests/support/dns_message_builder.h"

#include <algorithm>
#include <cstdio>

namespace support {

namespace {

constexpr std::size_t kIdOffset = 0;
constexpr std::size_t kFlagsOffset = 2;
constexpr std::size_t kQuestionCountOffset = 4;
constexpr std::size_t kAnswerCountOffset = 6;
constexpr std::size_t kAuthorityCountOffset = 8;
constexpr std::size_t kAdditionalCountOffset = 10;

constexpr unsigned short kPointerToQuestion = 0xC00C;
constexpr unsigned short kClassInternet = 1;
constexpr unsigned int kAnswerTimeToLive = 300;
constexpr unsigned short kTypeOpt = 41;

}  // namespace

DnsMessageBuilder& DnsMessageBuilder::Id(unsigned short id) { return Put16(kIdOffset, id); }

DnsMessageBuilder& DnsMessageBuilder::Flags(unsigned short flags) {
  return Put16(kFlagsOffset, flags);
}

DnsMessageBuilder& DnsMessageBuilder::QuestionCount(unsigned short count) {
  return Put16(kQuestionCountOffset, count);
}

DnsMessageBuilder& DnsMessageBuilder::AnswerCount(unsigned short count) {
  return Put16(kAnswerCountOffset, count);
}

DnsMessageBuilder& DnsMessageBuilder::AuthorityCount(unsigned short count) {
  return Put16(kAuthorityCountOffset, count);
}

DnsMessageBuilder& DnsMessageBuilder::AdditionalCount(unsigned short count) {
  return Put16(kAdditionalCountOffset, count);
}

DnsMessageBuilder& DnsMessageBuilder::Label(const std::string& text) {
  bytes_.push_back(static_cast<unsigned char>(text.size()));
  bytes_.insert(bytes_.end(), text.begin(), text.end());
  return *this;
}

DnsMessageBuilder& DnsMessageBuilder::Root() {
  bytes_.push_back(0);
  return *this;
}

DnsMessageBuilder& DnsMessageBuilder::Name(const std::string& text) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t end = std::min(text.find('.', begin), text.size());
    Label(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return Root();
}

DnsMessageBuilder& DnsMessageBuilder::Number16(unsigned short number) {
  bytes_.push_back(static_cast<unsigned char>(number >> 8));
  bytes_.push_back(static_cast<unsigned char>(number & 0xFF));
  return *this;
}

DnsMessageBuilder& DnsMessageBuilder::Number32(unsigned int number) {
  return Number16(static_cast<unsigned short>(number >> 16))
      .Number16(static_cast<unsigned short>(number & 0xFFFF));
}

DnsMessageBuilder& DnsMessageBuilder::Raw(const Bytes& bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  return *this;
}

DnsMessageBuilder& DnsMessageBuilder::Question(const std::string& name, unsigned short type,
                                               unsigned short questionClass) {
  return Name(name).Number16(type).Number16(questionClass).CountOne(kQuestionCountOffset);
}

DnsMessageBuilder& DnsMessageBuilder::Answer(unsigned short type, const Bytes& data) {
  return Number16(kPointerToQuestion)
      .Number16(type)
      .Number16(kClassInternet)
      .Number32(kAnswerTimeToLive)
      .Number16(static_cast<unsigned short>(data.size()))
      .Raw(data)
      .CountOne(kAnswerCountOffset);
}

DnsMessageBuilder& DnsMessageBuilder::EdnsOpt(unsigned short udpPayloadSize) {
  // The class is the payload size, the time to live the extended flags, and there are no options.
  return Root()
      .Number16(kTypeOpt)
      .Number16(udpPayloadSize)
      .Number32(0)
      .Number16(0)
      .CountOne(kAdditionalCountOffset);
}

DnsMessageBuilder& DnsMessageBuilder::Put16(std::size_t offset, unsigned short number) {
  bytes_[offset] = static_cast<unsigned char>(number >> 8);
  bytes_[offset + 1] = static_cast<unsigned char>(number & 0xFF);
  return *this;
}

DnsMessageBuilder& DnsMessageBuilder::CountOne(std::size_t offset) {
  const int count = (bytes_[offset] << 8 | bytes_[offset + 1]) + 1;
  return Put16(offset, static_cast<unsigned short>(count));
}

std::string HexText(const Bytes& bytes) {
  std::string text;
  for (const unsigned char byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof(digits), "%02X ", byte);
    text += digits;
  }
  if (!text.empty()) {
    text.pop_back();
  }
  return text;
}

}  // namespace support
