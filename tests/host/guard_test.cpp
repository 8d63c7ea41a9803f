#include "host/child/guard.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/dns_message_builder.h"

// Where GoogleTest looks for it: beside the type.
static void PrintTo(Verdict verdict, std::ostream* out) {
  *out << kVerdictNames[static_cast<std::size_t>(verdict)];
}

namespace {

using support::Bytes;
using support::DnsMessageBuilder;
using support::HexText;

constexpr unsigned short kTypeA = 1;
constexpr unsigned short kInternet = 1;
constexpr unsigned short kRecursionDesired = 0x0100;

// A header that announces one question.
DnsMessageBuilder OneQuestion() { return DnsMessageBuilder().Id(0x1234).QuestionCount(1); }

DnsMessageBuilder Query(const std::string& name = "a.example", unsigned short type = kTypeA) {
  return DnsMessageBuilder().Id(0x1234).Flags(kRecursionDesired).Question(name, type, kInternet);
}

Bytes WithoutLast(Bytes message, std::size_t count) {
  message.resize(message.size() - count);
  return message;
}

TEST(Guard, QueryPassesIfTheServiceCanReadIt) {
  const Bytes header = OneQuestion().Build();
  const struct {
    const char* what;
    Bytes query;
    Verdict verdict;
  } cases[] = {
      {"ordinary", Query().Build(), Verdict::kPasses},
      {"with a response bit", Query().Flags(0x8000).Build(), Verdict::kPasses},
      {"nothing behind a byte of the name", OneQuestion().Raw({1, 'a'}).Build(), Verdict::kPasses},
      {"label beyond the datagram", OneQuestion().Raw({127, 'a'}).Build(), Verdict::kPasses},
      {"pointer behind a label", OneQuestion().Raw({1, 'a', 0xC0, 12}).Build(), Verdict::kPasses},
      {"zero later in a label", OneQuestion().Raw({2, 'a', 0}).Build(), Verdict::kPasses},

      {"empty", {}, Verdict::kShortQuery},
      {"a byte short of a header", WithoutLast(header, 1), Verdict::kShortQuery},
      {"no question", Query().QuestionCount(0).Build(), Verdict::kQuestionCount},
      {"two questions", Query().QuestionCount(2).Build(), Verdict::kQuestionCount},
      {"256 questions", Query().QuestionCount(256).Build(), Verdict::kQuestionCount},
      {"257 questions", Query().QuestionCount(257).Build(), Verdict::kQuestionCount},
      {"the root", Query("").Build(), Verdict::kRoot},
      {"the root, cut", OneQuestion().Root().Build(), Verdict::kRoot},
      {"nothing behind the header", header, Verdict::kUnreadableName},
      {"nothing behind a length", OneQuestion().Raw({1}).Build(), Verdict::kUnreadableName},
      {"zero at a label's begin", OneQuestion().Raw({1, 0, 0}).Build(), Verdict::kUnreadableName},
      {"length of 128", OneQuestion().Raw({128, 'a'}).Build(), Verdict::kUnreadableName},
      {"pointer", OneQuestion().Raw({0xC0, 12}).Build(), Verdict::kUnreadableName},
  };
  for (const auto& [what, query, verdict] : cases) {
    EXPECT_EQ(JudgeQuery(query), verdict) << what << ": " << HexText(query);
  }
}

TEST(Guard, AnswerPassesIfItHasTheQuestionOrNoRecords) {
  const Bytes pending = Query().EdnsOpt(1232).Build();
  const auto answer = [](const std::string& name, unsigned short type = kTypeA,
                         unsigned short questionClass = kInternet) {
    return DnsMessageBuilder()
        .Flags(0x8180)
        .Question(name, type, questionClass)
        .Answer(kTypeA, {192, 0, 2, 1});
  };
  const struct {
    const char* what;
    Bytes answer;
    Verdict verdict;
  } cases[] = {
      {"the right one", answer("a.example").Build(), Verdict::kPasses},
      {"in another case", answer("A.eXampLE").Build(), Verdict::kPasses},
      {"another name without records", answer("b.example").AnswerCount(0).Build(),
       Verdict::kPasses},
      {"a count that reads as negative", answer("b.example").AnswerCount(128).Build(),
       Verdict::kPasses},
      {"a header", Bytes(12), Verdict::kPasses},

      {"empty", {}, Verdict::kShortAnswer},
      {"a byte short of a header", Bytes(11), Verdict::kShortAnswer},
      {"another name", answer("b.example").Build(), Verdict::kOtherQuestion},
      {"a name that goes on", answer("a.example.net").Build(), Verdict::kOtherQuestion},
      {"a part of the name", answer("a").Build(), Verdict::kOtherQuestion},
      {"other labels", answer("a-example").Build(), Verdict::kOtherQuestion},
      {"another type", answer("a.example", 28).Build(), Verdict::kOtherQuestion},
      {"another class", answer("a.example", kTypeA, 3).Build(), Verdict::kOtherQuestion},
      {"no question", answer("a.example").QuestionCount(0).Build(), Verdict::kOtherQuestion},
      {"a question that is cut", WithoutLast(Query().AnswerCount(1).Build(), 1),
       Verdict::kOtherQuestion},
      {"records alone", DnsMessageBuilder().QuestionCount(1).AnswerCount(256).Build(),
       Verdict::kOtherQuestion},
  };
  for (const auto& [what, datagram, verdict] : cases) {
    EXPECT_EQ(JudgeAnswer(datagram, pending), verdict) << what << ": " << HexText(datagram);
  }
}

TEST(Guard, CaseCountsInTypeAndClass) {
  const Bytes pending = Query("a.example", 0x4161).Build();
  EXPECT_EQ(JudgeAnswer(Query("a.example", 0x6161).AnswerCount(1).Build(), pending),
            Verdict::kOtherQuestion);
}

TEST(Guard, AnswerThatNobodyWaitsForIsLeftToTheService) {
  EXPECT_EQ(JudgeAnswer(Query().AnswerCount(1).Build(), {}), Verdict::kPasses);
}

TEST(Guard, SenderHearsWhyUnlessItMustNot) {
  const struct {
    const char* what;
    Bytes query;
    Bytes reply;
  } cases[] = {
      {"two questions",
       Query().QuestionCount(2).Build(),
       {0x12, 0x34, 0x81, 1, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"an opcode and an unreadable name",
       OneQuestion().Flags(0x2810).Build(),
       {0x12, 0x34, 0xA8, 1, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"the root, with EDNS",
       Query("", 2).EdnsOpt(1232).Build(),
       {0x12, 0x34, 0x81, 5, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 1}},
      {"the root, cut",
       WithoutLast(Query("").Build(), 1),
       {0x12, 0x34, 0x81, 1, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"a response", Query("").Flags(0x8000).Build(), {}},
      {"fewer bytes than a header", Bytes(11), {}},
      {"one that passes", Query().Build(), {}},
  };
  for (const auto& [what, query, reply] : cases) {
    EXPECT_EQ(HexText(ErrorReply(query, JudgeQuery(query))), HexText(reply)) << what;
  }
}

TEST(Guard, OptRecordIsFoundIfItIsAllThatStandsBehindTheQuestion) {
  const std::size_t bare = Query().Build().size();
  const Bytes withOpt = Query().EdnsOpt(1232).Build();
  EXPECT_EQ(SizeWithoutOpt(withOpt), bare);

  const Bytes cookie = Query()
                           .AdditionalCount(1)
                           .Root()
                           .Number16(41)    // OPT
                           .Number16(1232)  // the largest answer that is wanted
                           .Number32(0)
                           .Number16(6)
                           .Raw({0, 10, 0, 2, 1, 2})
                           .Build();
  EXPECT_EQ(SizeWithoutOpt(cookie), bare);

  Bytes named = withOpt;
  named[bare] = 1;
  Bytes otherType = withOpt;
  otherType[bare + 2] = 250;
  Bytes surplus = withOpt;
  surplus.push_back(0);
  const Bytes kept[] = {
      Query().Build(),
      Query().AdditionalCount(1).Build(),
      Query().EdnsOpt(1232).AdditionalCount(2).Build(),
      Query().EdnsOpt(1232).AdditionalCount(0).Build(),
      Query().EdnsOpt(1232).AnswerCount(1).Build(),
      Query().EdnsOpt(1232).AuthorityCount(1).Build(),
      Query().EdnsOpt(1232).QuestionCount(2).Build(),
      WithoutLast(withOpt, 1),
      named,
      otherType,
      surplus,
      OneQuestion().Raw({0xC0, 12, 0, 1, 0, 1}).EdnsOpt(1232).Build(),
      Bytes(11),
  };
  for (const Bytes& query : kept) {
    EXPECT_EQ(SizeWithoutOpt(query), query.size()) << HexText(query);
  }
}

}  // namespace
