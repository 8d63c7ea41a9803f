#include "host/dns_question.h"

#include <gtest/gtest.h>

namespace {

TEST(DnsQuestion, IsTheseBytes) {
  const std::vector<unsigned char> expected = {
      0x12, 0x34,                        // identifier
      0x01, 0x00,                        // recursion desired
      0,    1,    0,   0, 0,   0, 0, 0,  // one question
      2,    'a',  'b', 1, 'c', 0,        // ab.c
      0,    12,                          // PTR
      0,    1,                           // Internet
  };
  EXPECT_EQ(MakeQuestion(0x1234, "ab.c", kTypePtr), expected);
}

TEST(DnsQuestion, EmptyNameIsTheRoot) {
  const std::vector<unsigned char> question = MakeQuestion(1, "", kTypeNs);
  ASSERT_EQ(question.size(), 17u);
  EXPECT_EQ(question[12], 0);
  EXPECT_EQ(question[14], 2);
}

TEST(DnsResponse, NeedsAHeaderAndTheResponseBit) {
  std::uint16_t id = 0;
  unsigned char message[12] = {0x12, 0x34, 0x80};
  EXPECT_TRUE(ReadResponse(message, sizeof(message), id));
  EXPECT_EQ(id, 0x1234);
  EXPECT_FALSE(ReadResponse(message, sizeof(message) - 1, id));
  message[2] = 0x01;
  EXPECT_FALSE(ReadResponse(message, sizeof(message), id));
}

}  // namespace
