// The two answers that the service makes up, byte by byte.
#include "dns_proxy_mac/proxy/answers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>

#include "tests/support/messages.h"

static_assert(kMaxHostAnswerQuery == 8175);

namespace {

using support::Bytes;
using support::DnsMessageBuilder;

const unsigned short kApplicationId = support::IdOf({0xAB, 0xCD});

const Bytes kRecordBytes = {0xC0, 0x0C, 0x00, 0x01, 0x00, 0x01, 0x00, 0x01,
                            0x51, 0x80, 0x00, 0x04, 0x0A, 0x01, 0x02, 0x03};

HostRespData Record() {
  HostRespData record;
  std::memcpy(&record, kRecordBytes.data(), sizeof(record));
  return record;
}

// The answer to `query`, made in a block of exactly the size that a message may have.
Bytes HostAnswer(const Bytes& query, unsigned short queryType) {
  const auto message = std::make_unique<unsigned char[]>(kMaxMessageSize);
  std::copy(query.begin(), query.end(), message.get());
  const int length = MakeHostAnswer(message.get(), static_cast<int>(query.size()), Record(),
                                    kApplicationId, queryType);
  return Bytes(message.get(), message.get() + length);
}

Bytes NoSuchNameTo(const Bytes& query) {
  const auto response = std::make_unique<unsigned char[]>(query.size());
  std::memset(response.get(), 0xEE, query.size());
  MakeNoSuchNameResponse(query.data(), static_cast<int>(query.size()), kApplicationId,
                         response.get());
  return Bytes(response.get(), response.get() + query.size());
}

// A query as it is stored: under the proxy's identifier 1, machine order.
DnsMessageBuilder Query(const std::string& name, unsigned short type) {
  return DnsMessageBuilder().Id(0x0100).Flags(0x0100).Question(name, type, 1);
}

// ------------------------------------------------------------------------------- host-map answer

TEST(HostAnswer, IsTheQueryTurnedIntoAnAnswerWithTheRecordBehind) {
  const Bytes query = Query("alpha.internal", 1).Build();
  const Bytes expected = {
      0xAB, 0xCD,                                           // the application's identifier
      0x81,                                                 // QR, RD as sent
      0x00,                                                 // RCODE 0
      0x00, 0x01,                                           // one question
      0x00, 0x01,                                           // one answer
      0x00, 0x00,                                           // no authority
      0x00, 0x00,                                           // no additional
      0x05, 'a',  'l',  'p',  'h',  'a',                    // the question
      0x08, 'i',  'n',  't',  'e',  'r',  'n',  'a',  'l',  //
      0x00, 0x00, 0x01, 0x00, 0x01,                         //
      0xC0, 0x0C, 0x00, 0x01, 0x00, 0x01, 0x00, 0x01,       // the record
      0x51, 0x80, 0x00, 0x04, 0x0A, 0x01, 0x02, 0x03,       //
  };
  EXPECT_EQ(HostAnswer(query, 1), expected);
}

TEST(HostAnswer, AnnouncesTwoRecordsToAnAaaaQuestionAndCarriesOne) {
  // A client that asks for both families drops a name whose AAAA answer has no records; the one
  // record carried is the A record that it gets for the other question.
  const Bytes query = Query("alpha.internal", 28).Build();
  const Bytes answer = HostAnswer(query, 28);
  EXPECT_EQ(answer[6], 0x00);
  EXPECT_EQ(answer[7], 0x02);
  ASSERT_EQ(answer.size(), query.size() + 16);
  EXPECT_EQ(Bytes(answer.end() - 16, answer.end()), kRecordBytes);
}

TEST(HostAnswer, AnnouncesOneRecordToAQuestionOfAnyOtherType) {
  for (const unsigned short type :
       std::initializer_list<unsigned short>{0, 1, 2, 5, 15, 16, 27, 29, 65, 255, 0x1C00, 0xFFFF}) {
    const Bytes answer = HostAnswer(Query("alpha.internal", type).Build(), type);
    EXPECT_EQ(answer[6], 0x00) << type;
    EXPECT_EQ(answer[7], 0x01) << type;
    EXPECT_EQ(Bytes(answer.end() - 16, answer.end()), kRecordBytes) << type;
  }
}

TEST(HostAnswer, SetsQrAndClearsRcodeAndKeepsEveryOtherFlag) {
  const struct {
    unsigned short sent;
    unsigned short answered;
  } cases[] = {
      {0x0000, 0x8000}, {0x0100, 0x8100},  // RD
      {0x7800, 0xF800},                    // opcode
      {0x0600, 0x8600},                    // AA and TC as sent
      {0x00F0, 0x80F0},                    // RA, Z, AD, CD
      {0x000F, 0x8000},                    // RCODE
      {0x8003, 0x8000},                    // an answer sent as a query
      {0xFFFF, 0xFFF0},
  };
  for (const auto& test : cases) {
    const Bytes answer = HostAnswer(Query("alpha.internal", 1).Flags(test.sent).Build(), 1);
    EXPECT_EQ(answer[2] << 8 | answer[3], test.answered) << std::hex << test.sent;
  }
}

TEST(HostAnswer, KeepsTheOtherCountsAndPutsTheRecordBehindAdditionalRecords) {
  // A query with EDNS: the OPT record stays where it was, before the answer, and is counted as
  // before.
  const Bytes query =
      Query("alpha.internal", 1).EdnsOpt(1232).QuestionCount(1).AuthorityCount(0x0203).Build();
  const Bytes answer = HostAnswer(query, 1);
  Bytes expected = query;
  expected[0] = 0xAB;
  expected[1] = 0xCD;
  expected[2] = 0x81;
  expected[7] = 0x01;
  expected.insert(expected.end(), kRecordBytes.begin(), kRecordBytes.end());
  EXPECT_EQ(answer, expected) << support::HexText(answer);
}

TEST(HostAnswer, OverwritesTheAnswerCountThatTheQueryCarried) {
  const Bytes answer = HostAnswer(Query("alpha.internal", 1).AnswerCount(0xFFFF).Build(), 1);
  EXPECT_EQ(answer[6], 0x00);
  EXPECT_EQ(answer[7], 0x01);
}

TEST(HostAnswer, WritesOneZeroByteBehindTheEnd) {
  unsigned char message[64];
  std::memset(message, 0xEE, sizeof(message));
  const Bytes query = Query("a", 1).Build();
  std::copy(query.begin(), query.end(), message);
  const int length = MakeHostAnswer(message, static_cast<int>(query.size()), Record(), 0, 1);
  EXPECT_EQ(length, static_cast<int>(query.size()) + 16);
  EXPECT_EQ(message[length], 0);
  EXPECT_EQ(message[length + 1], 0xEE) << "and nothing behind it";
}

TEST(HostAnswer, LongestQueryThatHasRoomFillsTheMessageToItsLastByte) {
  Bytes query = Query("alpha.internal", 1).Build();
  query.resize(8175, 0x55);
  const Bytes answer = HostAnswer(query, 1);
  ASSERT_EQ(answer.size(), 8191U);
  EXPECT_EQ(Bytes(answer.end() - 16, answer.end()), kRecordBytes);
}

// ----------------------------------------------------------------------------------- no such name

TEST(NoSuchName, IsAHeaderOfItsOwnAndTheQuestionAsAsked) {
  const Bytes expected = {
      0xAB, 0xCD,                                        // the application's identifier
      0x80,                                              // QR; RD 0 though it was asked for
      0x03,                                              // RCODE 3
      0x00, 0x01,                                        // one question
      0x00, 0x00,                                        // no answer
      0x00, 0x00,                                        // no authority
      0x00, 0x00,                                        // no additional
      0x05, 'a',  'l',  'p',  'h',  'a',                 // the question
      0x08, 'i',  'n',  't',  'e',  'r', 'n', 'a', 'l',  //
      0x00, 0x00, 0x1C, 0x00, 0x01,                      //
  };
  EXPECT_EQ(NoSuchNameTo(Query("alpha.internal", 28).Build()), expected);
}

TEST(NoSuchName, TakesNothingFromTheQuerysHeader) {
  // RD stays 0 whatever was asked: clients of this proxy were built against that header.
  Bytes query = Query("alpha.internal", 1).Build();
  std::fill_n(query.begin(), 12, static_cast<unsigned char>(0xFF));
  const Bytes response = NoSuchNameTo(query);
  EXPECT_EQ(Bytes(response.begin(), response.begin() + 12),
            (Bytes{0xAB, 0xCD, 0x80, 0x03, 0, 1, 0, 0, 0, 0, 0, 0}));
}

TEST(NoSuchName, CopiesWhatStandsBehindTheQuestionThoughItCountsNone) {
  // An OPT record stays in the response while the additional count says 0: intended, the response
  // is as long as the query.
  const Bytes query = Query("alpha.internal", 1).EdnsOpt(1232).Build();
  const Bytes response = NoSuchNameTo(query);
  ASSERT_EQ(response.size(), query.size());
  EXPECT_EQ(Bytes(response.begin() + 12, response.end()), Bytes(query.begin() + 12, query.end()));
  EXPECT_EQ(response[11], 0);
}

TEST(NoSuchName, OfAHeaderAloneIsAHeader) {
  EXPECT_EQ(NoSuchNameTo(Bytes(12, 0xFF)), (Bytes{0xAB, 0xCD, 0x80, 0x03, 0, 1, 0, 0, 0, 0, 0, 0}));
}

TEST(NoSuchName, OfTheLongestQueryIsAsLong) {
  Bytes query = Query("alpha.internal", 1).Build();
  query.resize(8192, 0x55);
  EXPECT_EQ(NoSuchNameTo(query).size(), 8192U);
  EXPECT_EQ(NoSuchNameTo(query).back(), 0x55);
}

TEST(NoSuchNameResponse, ToWhatIsShorterThanAHeaderIsTheHeaderAlone) {
  // No such query is accepted; its length must not wrap.
  const Bytes query(11, 0x55);
  Bytes response(32, 0xEE);
  MakeNoSuchNameResponse(query.data(), 11, 0x1234, response.data());
  EXPECT_EQ(Bytes(response.begin() + 2, response.begin() + 12),
            (Bytes{0x80, 0x03, 0x00, 0x01, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Bytes(response.begin() + 12, response.end()), Bytes(20, 0xEE));
}

}  // namespace
