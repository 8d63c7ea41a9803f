// DNS messages for tests, part by part and in the order of the wire.
#ifndef TESTS_SUPPORT_DNS_MESSAGE_BUILDER_H_
#define TESTS_SUPPORT_DNS_MESSAGE_BUILDER_H_

#include <cstddef>
#include <string>
#include <vector>

namespace support {

using Bytes = std::vector<unsigned char>;

// Starts as a header of twelve zero bytes. The parts that are records of a section count themselves
// in the header; a later call of a count's function overrules what was counted. Numbers are given
// in machine order and written big-endian.
//
//   const Bytes query =
//       DnsMessageBuilder().Id(0x1234).Flags(0x0100).Question("a.example", 1, 1).Build();
class DnsMessageBuilder {
 public:
  // The header.
  DnsMessageBuilder& Id(unsigned short id);
  DnsMessageBuilder& Flags(unsigned short flags);
  DnsMessageBuilder& QuestionCount(unsigned short count);
  DnsMessageBuilder& AnswerCount(unsigned short count);
  DnsMessageBuilder& AuthorityCount(unsigned short count);
  DnsMessageBuilder& AdditionalCount(unsigned short count);

  // Pieces of a question, which count nothing.
  DnsMessageBuilder& Label(const std::string& text);  // length byte and text
  DnsMessageBuilder& Root();                          // the zero byte that ends a name
  DnsMessageBuilder& Name(const std::string& text);   // the labels between dots, and the root
  DnsMessageBuilder& Number16(unsigned short number);
  DnsMessageBuilder& Number32(unsigned int number);
  DnsMessageBuilder& Raw(const Bytes& bytes);

  // Whole entries.
  DnsMessageBuilder& Question(const std::string& name, unsigned short type,
                              unsigned short questionClass);
  // An answer whose name points to the question's, TTL 300. `data` without its length.
  DnsMessageBuilder& Answer(unsigned short type, const Bytes& data);
  // An OPT record without options (RFC 6891).
  DnsMessageBuilder& EdnsOpt(unsigned short udpPayloadSize);

  const Bytes& Build() const { return bytes_; }

 private:
  DnsMessageBuilder& Put16(std::size_t offset, unsigned short number);
  DnsMessageBuilder& CountOne(std::size_t offset);

  Bytes bytes_ = Bytes(12);
};

// `bytes` as "C0 0C 00 ...", for messages.
std::string HexText(const Bytes& bytes);

}  // namespace support

#endif  // TESTS_SUPPORT_DNS_MESSAGE_BUILDER_H_
