// The builder that the other tests take their messages from, checked against bytes written by hand.
#include "tests/support/dns_message_builder.h"

#include <gtest/gtest.h>

namespace support {
namespace {

TEST(DnsMessageBuilder, WritesAQueryWithEdns) {
  const Bytes expected = {
      0x12, 0x34,                          // identifier
      0x01, 0x00,                          // flags: RD
      0x00, 0x01,                          // one question
      0x00, 0x00,                          // no answer
      0x00, 0x00,                          // no authority
      0x00, 0x01,                          // one additional record
      0x04, 'm',  'a',  'i',  'l',         // label
      0x04, 'c',  'o',  'r',  'p',         // label
      0x03, 'l',  'a',  'n',               // label
      0x00,                                // root
      0x00, 0x1C,                          // type AAAA
      0x00, 0x01,                          // class IN
      0x00,                                // OPT: root name
      0x00, 0x29,                          // OPT
      0x04, 0xD0,                          // payload size 1232
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // flags, no options
  };
  const DnsMessageBuilder message =
      DnsMessageBuilder().Id(0x1234).Flags(0x0100).Question("mail.corp.lan", 28, 1).EdnsOpt(1232);
  EXPECT_EQ(message.Build(), expected);
}

TEST(DnsMessageBuilder, WritesAnAnswerWithItsRecord) {
  const Bytes expected = {
      0x00, 0x07,              // identifier
      0x81, 0x80,              // flags: QR, RD, RA
      0x00, 0x01,              // one question
      0x00, 0x01,              // one answer
      0x00, 0x00,              // no authority
      0x00, 0x00,              // no additional
      0x01, 'a',  0x00,        // name
      0x00, 0x01,              // type A
      0x00, 0x01,              // class IN
      0xC0, 0x0C,              // pointer to the question's name
      0x00, 0x01,              // type A
      0x00, 0x01,              // class IN
      0x00, 0x00, 0x01, 0x2C,  // 300 seconds
      0x00, 0x04,              // four bytes of data
      0xC0, 0x00, 0x02, 0x01,  // 192.0.2.1
  };
  const DnsMessageBuilder message =
      DnsMessageBuilder().Id(7).Flags(0x8180).Question("a", 1, 1).Answer(1,
                                                                         {0xC0, 0x00, 0x02, 0x01});
  EXPECT_EQ(message.Build(), expected);
}

}  // namespace
}  // namespace support
