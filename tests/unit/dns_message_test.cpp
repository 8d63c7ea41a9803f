// The header and the reading of the question, on blocks of exactly the size that is given, so that
// an address sanitizer sees every byte read or written outside.
#include "dns_proxy_mac/proxy/dns_message.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/dns_message_builder.h"
#include "tests/support/trace_capture.h"

static_assert(sizeof(DNSHeader) == 12);
static_assert(offsetof(DNSHeader, ID) == 0);
static_assert(offsetof(DNSHeader, Flags) == 2);
static_assert(offsetof(DNSHeader, QuestionCount) == 4);
static_assert(offsetof(DNSHeader, AnswerCount) == 6);
static_assert(offsetof(DNSHeader, AuthorityCount) == 8);
static_assert(offsetof(DNSHeader, AdditionalCount) == 10);

namespace {

using support::Bytes;
using support::TraceIs;
using support::TraceLines;
using support::TraceOf;

constexpr unsigned short kUnset = 0xAAAA;

struct Question {
  std::string text;  // the space up to its first zero byte; all of it when there is none
  Bytes space;       // all of it
  unsigned short type = kUnset;
  unsigned short questionClass = kUnset;
  TraceLines trace;
};

Question Extract(const Bytes& packet, int outLen = 1024) {
  const auto input = std::make_unique<unsigned char[]>(packet.size());
  std::copy(packet.begin(), packet.end(), input.get());
  // Before the space stands the very character that a text ends in until it is cut.
  const auto block = std::make_unique<char[]>(static_cast<std::size_t>(1 + outLen));
  block[0] = '.';
  char* const space = block.get() + 1;

  Question question;
  question.trace = TraceOf([&] {
    ExtractDomain(input.get(), static_cast<int>(packet.size()), space, outLen, question.type,
                  question.questionClass);
  });
  EXPECT_EQ(block[0], '.');
  question.space.assign(space, space + outLen);
  const std::string all(space, static_cast<std::size_t>(outLen));
  question.text = all.substr(0, all.find('\0'));
  return question;
}

// The labels with their length bytes, without the root.
Bytes Labels(const std::vector<std::string>& labels) {
  support::DnsMessageBuilder message;
  for (const std::string& label : labels) {
    message.Label(label);
  }
  return Bytes(message.Build().begin() + kDnsHeaderSize, message.Build().end());
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

const Bytes kRoot = {0};
const Bytes kTypeAClassInternet = {0x00, 0x01, 0x00, 0x01};

// ------------------------------------------------------------------------------------ the header

TEST(DnsHeader, FieldsAreInWireOrder) {
  const unsigned char message[] = {0x12, 0x34, 0x81, 0x80, 0x00, 0x01,
                                   0x00, 0x02, 0x00, 0x03, 0x01, 0x04};
  const DNSHeader header = ReadHeader(message);
  EXPECT_EQ(Bytes(reinterpret_cast<const unsigned char*>(&header),
                  reinterpret_cast<const unsigned char*>(&header) + sizeof(header)),
            Bytes(message, message + sizeof(message)));
  EXPECT_EQ(_OSSwapInt16(header.QuestionCount), 1);
  EXPECT_EQ(_OSSwapInt16(header.AnswerCount), 2);
  EXPECT_EQ(_OSSwapInt16(header.AuthorityCount), 3);
  EXPECT_EQ(_OSSwapInt16(header.AdditionalCount), 0x104);
}

TEST(OSSwapInt16, ExchangesTheTwoBytes) {
  const struct {
    unsigned short value;
    unsigned short swapped;
  } cases[] = {{0x0000, 0x0000}, {0x0001, 0x0100}, {0x0100, 0x0001},
               {0x1234, 0x3412}, {0x80FF, 0xFF80}, {0xFFFF, 0xFFFF}};
  for (const auto& test : cases) {
    EXPECT_EQ(_OSSwapInt16(test.value), test.swapped);
  }
}

// ----------------------------------------------------------------------------- well-formed names

TEST(ExtractDomain, JoinsTheLabelsByDotsAndReadsTypeAndClass) {
  const Bytes packet = {0x04, 'm', 'a', 'i', 'l',  0x04, 'c',  'o',  'r', 'p',
                        0x03, 'l', 'a', 'n', 0x00, 0x00, 0x01, 0x00, 0x01};
  const Question question = Extract(packet);
  EXPECT_EQ(question.text, "mail.corp.lan");
  EXPECT_EQ(question.type, 1);
  EXPECT_EQ(question.questionClass, 1);
  EXPECT_THAT(question.trace, TraceIs({}));
}

TEST(ExtractDomain, TypeAndClassAreBigEndian) {
  const Question question = Extract(Labels({"a"}) + Bytes{0, 0x12, 0x34, 0xFE, 0xDC});
  EXPECT_EQ(question.type, 0x1234);
  EXPECT_EQ(question.questionClass, 0xFEDC);
}

TEST(ExtractDomain, RootIsEmptyAndItsTypeAndClassAreRead) {
  const Question question = Extract(kRoot + Bytes{0x00, 0x02, 0x00, 0x03});
  EXPECT_EQ(question.text, "");
  EXPECT_EQ(question.type, 2);
  EXPECT_EQ(question.questionClass, 3);
  EXPECT_THAT(question.trace, TraceIs({}));
}

TEST(ExtractDomain, OneLabelLosesItsDot) {
  const Question question = Extract(Labels({"localhost"}) + kRoot + kTypeAClassInternet, 16);
  EXPECT_EQ(question.space,
            (Bytes{'l', 'o', 'c', 'a', 'l', 'h', 'o', 's', 't', 0, 0, 0, 0, 0, 0, 0}));
}

TEST(ExtractDomain, LabelBytesAreCopiedAsTheyAre) {
  const Question question = Extract(Labels({"MiXeD", "\xC3\xBC \\ \"", "\x01\x7F\xFF"}) + kRoot);
  EXPECT_EQ(question.text, "MiXeD.\xC3\xBC \\ \".\x01\x7F\xFF") << "no folding and no escaping";
}

TEST(ExtractDomain, DotInALabelReadsAsABoundary) {
  EXPECT_EQ(Extract(Labels({"a.b", "c"}) + kRoot).text, "a.b.c");
}

TEST(ExtractDomain, DotAtTheEndOfTheLastLabelStays) {
  // Only the one dot that the last label was given is taken off again.
  EXPECT_EQ(Extract(Labels({"a."}) + kRoot).text, "a.");
}

TEST(ExtractDomain, ZeroByteInALabelEndsTheText) {
  const Question question =
      Extract(Labels({std::string("a\0b", 3), "c"}) + kRoot + kTypeAClassInternet, 8);
  EXPECT_EQ(question.text, "a");
  EXPECT_EQ(question.space, (Bytes{'a', 0, 'b', '.', 'c', 0, 0, 0}));
  EXPECT_EQ(question.type, 1);
}

TEST(ExtractDomain, LabelsOf64To127BytesAreCopiedLikeAnyOther) {
  for (const std::size_t length :
       {std::size_t{1}, std::size_t{63}, std::size_t{64}, std::size_t{100}, std::size_t{127}}) {
    const std::string label(length, 'x');
    const Question question = Extract(Labels({label, "y"}) + kRoot + kTypeAClassInternet);
    EXPECT_EQ(question.text, label + ".y") << length;
    EXPECT_EQ(question.type, 1) << length;
    EXPECT_THAT(question.trace, TraceIs({})) << length;
  }
}

TEST(ExtractDomain, NamesOfMoreThan255BytesAreTaken) {
  const std::string label(99, 'x');
  const Question question = Extract(Labels({label, label, label, label}) + kRoot);
  EXPECT_EQ(question.text, label + "." + label + "." + label + "." + label);
  EXPECT_THAT(question.trace, TraceIs({}));
}

TEST(ExtractDomain, OnlyTheQuestionIsRead) {
  const Question question =
      Extract(Labels({"a"}) + kRoot + kTypeAClassInternet + Bytes{0xC0, 0x0C, 0x7F, 0x00});
  EXPECT_EQ(question.text, "a");
  EXPECT_EQ(question.questionClass, 1);
}

// ------------------------------------------------------------------------------- cut-off questions

TEST(ExtractDomain, TypeAndClassStayAsTheyWereWhenTheirBytesAreMissing) {
  const Bytes name = Labels({"a"}) + kRoot;
  const struct {
    const char* rule;
    Bytes packet;
    unsigned short type;
    unsigned short questionClass;
  } cases[] = {
      {"the name alone", name, kUnset, kUnset},
      {"one byte of the type", name + Bytes{0x00}, kUnset, kUnset},
      {"the type", name + Bytes{0x00, 0x1C}, 28, kUnset},
      {"one byte of the class", name + Bytes{0x00, 0x1C, 0x00}, 28, kUnset},
      {"both", name + Bytes{0x00, 0x1C, 0x00, 0x01}, 28, 1},
  };
  for (const auto& test : cases) {
    const Question question = Extract(test.packet);
    EXPECT_EQ(question.text, "a") << test.rule;
    EXPECT_EQ(question.type, test.type) << test.rule;
    EXPECT_EQ(question.questionClass, test.questionClass) << test.rule;
  }
}

TEST(ExtractDomain, NoBytesGiveAnEmptyText) {
  const Question question = Extract({});
  EXPECT_EQ(question.text, "");
  EXPECT_EQ(question.type, kUnset);
  EXPECT_THAT(question.trace, TraceIs({}));
}

TEST(ExtractDomain, InputThatEndsBeforeTheZeroByteKeepsTheLabelsRead) {
  const Question question = Extract(Labels({"mail", "corp"}));
  EXPECT_EQ(question.text, "mail.corp");
  EXPECT_EQ(question.type, kUnset);
  EXPECT_EQ(question.questionClass, kUnset);
  EXPECT_THAT(question.trace, TraceIs({}));
}

TEST(ExtractDomain, LabelBytesThatTheInputDoesNotHoldReadAsZero) {
  // A label of 5 of which 2 came. The byte of the space that was not zero shows that zero is
  // written and not only left.
  const unsigned char packet[] = {0x05, 'a', 'b'};
  char space[8] = {0, 0, 0, 'z', 0, 0, 0, 0};
  unsigned short type = kUnset;
  unsigned short questionClass = kUnset;
  ExtractDomain(packet, sizeof(packet), space, sizeof(space), type, questionClass);
  EXPECT_EQ(Bytes(space, space + sizeof(space)), (Bytes{'a', 'b', 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(type, kUnset);
}

TEST(ExtractDomain, LengthByteAsLastByteOfTheInputReadsAllItsBytesAsZero) {
  const Question question = Extract(Labels({"a"}) + Bytes{0x7F}, 256);
  EXPECT_EQ(question.text, "a.") << "the dot before the missing label is no final dot";
  EXPECT_EQ(question.type, kUnset);
}

TEST(ExtractDomain, SpaceOfNoBytesStaysUnwritten) {
  const Question question = Extract(Labels({"a"}) + kRoot + kTypeAClassInternet, 0);
  EXPECT_EQ(question.space, Bytes());
  EXPECT_THAT(
      question.trace,
      TraceIs({"func: ExtractDomain(line:%d)ExtractDomain: buffer overflow when parsing qname, "
               "chunk_len: 1"}));
}

// ------------------------------------------------------------------------------ bad length bytes

TEST(ExtractDomain, LengthByteOf0x80AndAboveIsInvalidAndPrintedAsANegativeNumber) {
  for (int byte = 0x80; byte <= 0xFF; ++byte) {
    const Question question =
        Extract(Bytes{static_cast<unsigned char>(byte)} + kTypeAClassInternet);
    EXPECT_EQ(question.text, "");
    EXPECT_THAT(question.trace,
                TraceIs({"func: ExtractDomain(line:%d)ExtractDomain invalid value:" +
                         std::to_string(byte - 256)}));
  }
}

TEST(ExtractDomain, CompressionPointerIsNotFollowedAndPrintsMinus64) {
  const Question question = Extract({0xC0, 0x0C, 0x00, 0x01, 0x00, 0x01});
  EXPECT_EQ(question.text, "");
  EXPECT_THAT(question.trace,
              TraceIs({"func: ExtractDomain(line:%d)ExtractDomain invalid value:-64"}));
}

TEST(ExtractDomain, InvalidLengthByteBehindLabelsKeepsThem) {
  const Question question =
      Extract(Labels({"mail", "corp"}) + Bytes{0xC0, 0x00, 0x05, 0x00, 0x06, 0x00});
  EXPECT_EQ(question.text, "mail.corp");
  EXPECT_EQ(question.type, 5) << "read from the two bytes behind the offending one";
  EXPECT_EQ(question.questionClass, 6);
}

TEST(ExtractDomain, InvalidLengthByteAsLastByteLeavesTypeAndClass) {
  const Question question = Extract(Labels({"a"}) + Bytes{0xFF});
  EXPECT_EQ(question.text, "a");
  EXPECT_EQ(question.type, kUnset);
  EXPECT_THAT(question.trace,
              TraceIs({"func: ExtractDomain(line:%d)ExtractDomain invalid value:-1"}));
}

// ------------------------------------------------------------------------- the space and its end

TEST(ExtractDomain, TextThatFillsTheSpaceWithItsTerminatingZeroFits) {
  const Question question = Extract(Labels({"abc", "def"}) + kRoot + kTypeAClassInternet, 8);
  EXPECT_EQ(question.space, (Bytes{'a', 'b', 'c', '.', 'd', 'e', 'f', 0}));
  EXPECT_EQ(question.type, 1);
  EXPECT_THAT(question.trace, TraceIs({}));
}

TEST(ExtractDomain, LabelWhoseDotDoesNotFitIsCutForTheTerminatingZero) {
  // One character more than fits: the text ends in the space all the same.
  const Question question =
      Extract(Labels({"abc", "defg"}) + kRoot + Bytes{0x00, 0x1C, 0x00, 0x01}, 8);
  EXPECT_EQ(question.space, (Bytes{'a', 'b', 'c', '.', 'd', 'e', 'f', 0}));
  EXPECT_THAT(
      question.trace,
      TraceIs({"func: ExtractDomain(line:%d)ExtractDomain: buffer overflow when add suffix dot, "
               "chunk_len: 4"}));
  EXPECT_EQ(question.type, ('d' << 8) | 'e') << "read behind the length byte of the label";
  EXPECT_EQ(question.questionClass, ('f' << 8) | 'g');
}

TEST(ExtractDomain, LabelOfDotsThatFillsTheSpaceEndsInAZeroToo) {
  const Question question = Extract(Labels({"...."}) + kRoot, 4);
  EXPECT_EQ(question.space[3], 0);
  EXPECT_THAT(
      question.trace,
      TraceIs({"func: ExtractDomain(line:%d)ExtractDomain: buffer overflow when add suffix dot, "
               "chunk_len: 4"}));
}

TEST(ExtractDomain, LabelThatDoesNotFitIsNotCopied) {
  const Question question =
      Extract(Labels({"abc", "defgh"}) + kRoot + Bytes{0x00, 0x1C, 0x00, 0x01}, 8);
  EXPECT_EQ(question.space, (Bytes{'a', 'b', 'c', 0, 0, 0, 0, 0}));
  EXPECT_THAT(
      question.trace,
      TraceIs({"func: ExtractDomain(line:%d)ExtractDomain: buffer overflow when parsing qname, "
               "chunk_len: 5"}));
  EXPECT_EQ(question.type, ('d' << 8) | 'e') << "read behind the length byte of the label";
}

TEST(ExtractDomain, FirstLabelThatDoesNotFitLeavesAnEmptyText) {
  const Question question = Extract(Labels({"abcde"}) + kRoot, 4);
  EXPECT_EQ(question.text, "");
  EXPECT_THAT(
      question.trace,
      TraceIs({"func: ExtractDomain(line:%d)ExtractDomain: buffer overflow when parsing qname, "
               "chunk_len: 5"}));
}

TEST(ExtractDomain, NameOf1023CharactersIsTheLongestInTheCallersSpace) {
  const std::string overflow = "func: ExtractDomain(line:%d)ExtractDomain: buffer overflow when ";
  const struct {
    const char* rule;
    std::size_t characters;  // of the whole name with its dots
    std::size_t textLength;
    TraceLines trace;
  } cases[] = {
      {"one less than the most", 1022, 1022, {}},
      {"the most", 1023, 1023, {}},
      {"one more is cut", 1024, 1023, {overflow + "add suffix dot, chunk_len: 127"}},
      {"two more lose the label", 1025, 897, {overflow + "parsing qname, chunk_len: 127"}},
  };
  for (const auto& test : cases) {
    // Six labels of 127 and their dots, two that make up the length, and one more of 127.
    std::vector<std::string> labels(6, std::string(127, 'x'));
    labels.push_back(std::string(20, 'x'));
    labels.push_back(std::string(test.characters - 6 * 128 - 21 - 128, 'y'));
    labels.push_back(std::string(127, 'z'));
    const Question question = Extract(Labels(labels) + kRoot);
    EXPECT_EQ(question.text.size(), test.textLength) << test.rule;
    EXPECT_THAT(question.trace, TraceIs(test.trace)) << test.rule;
  }
}

}  // namespace
