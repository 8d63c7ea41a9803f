#include "tests/service/hostile_datagrams.h"

#include <algorithm>
#include <cctype>

namespace service {

namespace {

using support::Bytes;
using support::DnsMessageBuilder;

// Mostly what resolvers ask for.
unsigned short AnyType(Dice& dice) {
  constexpr unsigned short kUsual[] = {1, 28, 15, 16, 255};
  return dice.OnceIn(4) ? dice.Number16() : kUsual[dice.Roll(5)];
}

std::string InAnyCase(Dice& dice, std::string name) {
  for (char& character : name) {
    if (dice.OnceIn(3)) {
      character = static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
    }
  }
  return name;
}

void AppendLabels(Dice& dice, DnsMessageBuilder& query, std::size_t count, std::size_t longest) {
  for (std::size_t i = 0; i < count; ++i) {
    query.Label(dice.Label(1 + dice.Roll(longest)));
  }
}

void AppendName(Dice& dice, DnsMessageBuilder& query, const std::string& mappedName) {
  switch (dice.Roll(10)) {
    case 0:
    case 1:
      query.Name(InAnyCase(dice, mappedName));
      return;
    case 2:
      query.Name("1.0.168.192.in-addr.arpa");
      return;
    case 3:  // the text that makes a reverse look-up, within a label
      query.Label("x.in-addr.arpa" + dice.Label(2)).Root();
      return;
    case 4:  // the mapped name as one label, dots and all
      query.Label(InAnyCase(dice, mappedName)).Root();
      return;
    case 5:  // labels longer than the 63 bytes of the standard
      AppendLabels(dice, query, 1 + dice.Roll(6), 127);
      query.Root();
      return;
    case 6:  // about the 1024 bytes that the text of a name may have
      AppendLabels(dice, query, 8 + dice.Roll(3), 127);
      query.Root();
      return;
    case 7:  // a pointer, or another length byte with its high bit set, behind some labels
      AppendLabels(dice, query, 1 + dice.Roll(3), 20);
      query.Raw({static_cast<unsigned char>(0x80 | dice.Byte()), dice.Byte()});
      return;
    case 8:  // any bytes in the labels
      for (std::size_t i = 0; i <= dice.Roll(4); ++i) {
        const Bytes bytes = dice.Bytes(1 + dice.Roll(20));
        query.Label(std::string(bytes.begin(), bytes.end()));
      }
      query.Root();
      return;
    default:
      AppendLabels(dice, query, 1 + dice.Roll(5), 63);
      query.Root();
      return;
  }
}

}  // namespace

Bytes HostileQuery(Dice& dice, const std::string& mappedName) {
  DnsMessageBuilder builder;
  builder.Id(dice.Number16()).Flags(dice.OnceIn(2) ? 0x0100 : dice.Number16()).QuestionCount(1);
  if (dice.OnceIn(8)) {
    builder.AnswerCount(dice.Number16())
        .AuthorityCount(dice.Number16())
        .AdditionalCount(dice.Number16());
  }
  AppendName(dice, builder, mappedName);
  builder.Number16(AnyType(dice)).Number16(1);
  if (dice.OnceIn(4)) {
    builder.EdnsOpt(dice.Number16());
  }
  if (dice.OnceIn(8)) {
    builder.Raw(dice.Bytes(dice.Roll(200)));
  }

  Bytes query = builder.Build();
  if (dice.OnceIn(6)) {
    query.resize(std::min(query.size(), 10 + dice.Roll(query.size())));
  }
  if (dice.OnceIn(6)) {
    for (std::size_t i = 0; i <= dice.Roll(4); ++i) {
      query[dice.Roll(query.size())] = dice.Byte();
    }
  }
  return query;
}

Bytes HostileAnswer(Dice& dice) {
  // Now and then up to the greatest length that is relayed whole, and beyond.
  Bytes answer = dice.Bytes(dice.OnceIn(50) ? 8180 + dice.Roll(30) : 12 + dice.Roll(120));
  if (dice.OnceIn(2)) {  // counts near the borders between records and none
    constexpr unsigned char kBorders[] = {0x00, 0x01, 0x7F, 0x80, 0xFF};
    answer[6] = kBorders[dice.Roll(5)];
    answer[7] = kBorders[dice.Roll(5)];
  }
  return answer;
}

}  // namespace service
