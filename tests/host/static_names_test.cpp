#include "host/static_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

std::string ErrorOfMapping(const std::string& text) {
  StaticNames names;
  std::string error;
  EXPECT_FALSE(names.AddMapping(text, error)) << text;
  return error;
}

TEST(StaticNames, AreKeptInTheFormThatTheServiceFindsThemBy) {
  StaticNames names;
  std::string error;
  EXPECT_TRUE(names.AddMapping("Intranet.Example.=192.0.2.1", error));
  EXPECT_TRUE(names.AddMapping("_srv.a-1=192.0.2.2", error));
  EXPECT_THAT(names.names(),
              ElementsAre(Pair("intranet.example", "192.0.2.1"), Pair("_srv.a-1", "192.0.2.2")));
}

TEST(StaticNames, MappingThatIsNoneIsRefusedWithAReason) {
  const std::string longLabel(64, 'a');
  std::string longName;
  for (int i = 0; i < 127; ++i) {
    longName += "a.";
  }
  longName += "aa";
  const struct {
    std::string text;
    std::string reason;
  } cases[] = {
      {"", "not NAME=ADDRESS"},
      {"name", "not NAME=ADDRESS"},
      {"name=", "not an IPv4 address"},
      {"name=192.0.2", "not an IPv4 address"},
      {"name=192.0.2.256", "not an IPv4 address"},
      {"name=192.0.2.1 ", "not an IPv4 address"},
      {"name=2001:db8::1", "not an IPv4 address"},
      {"=192.0.2.1", "empty"},
      {".=192.0.2.1", "empty"},
      {"a..b=192.0.2.1", "a label of the name is empty"},
      {".a=192.0.2.1", "a label of the name is empty"},
      {"a b=192.0.2.1", "a character other than"},
      {"*.a=192.0.2.1", "a character other than"},
      {longLabel + "=192.0.2.1", "longer than 63"},
      {longName + "=192.0.2.1", "longer than 253"},
      {"1.2.0.192.in-addr.arpa=192.0.2.1", "reverse look-ups"},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(ErrorOfMapping(c.text), HasSubstr(c.reason)) << c.text;
  }
}

TEST(StaticNames, HostsFileGivesEveryNameOfEveryIpv4Line) {
  std::istringstream file(
      "# made by hand\n"
      "\n"
      "192.0.2.1\tone.example  ONE # and a comment\n"
      "  192.0.2.2 two.example.\r\n"
      "::1 localhost ip6-localhost\n"
      "fe80::1%lo0 localhost\n"
      "192.0.2.3 three.example");
  StaticNames names;
  std::string error;
  ASSERT_TRUE(names.AddHosts(file, "hosts", error)) << error;
  EXPECT_THAT(names.names(),
              ElementsAre(Pair("one.example", "192.0.2.1"), Pair("one", "192.0.2.1"),
                          Pair("two.example", "192.0.2.2"), Pair("three.example", "192.0.2.3")));
  EXPECT_EQ(names.ipv6Lines(), 2u);
}

TEST(StaticNames, HostsFileErrorNamesFileLineAndReason) {
  const struct {
    const char* file;
    const char* error;
  } cases[] = {
      {"192.0.2.1 a\nnonsense b\n", "hosts:2: 'nonsense' is not an IPv4 address"},
      {"\n\n192.0.2.1\n", "hosts:3: no name behind 192.0.2.1"},
      {"192.0.2.1 a b!c\n", "hosts:1: 'b!c': the name has a character other than"},
  };
  for (const auto& c : cases) {
    std::istringstream file(c.file);
    StaticNames names;
    std::string error;
    EXPECT_FALSE(names.AddHosts(file, "hosts", error)) << c.file;
    EXPECT_THAT(error, HasSubstr(c.error));
  }
}

TEST(StaticNames, OfANameGivenTwiceTheFirstWinsAndIsSaidSo) {
  StaticNames names;
  std::string error;
  std::istringstream file("192.0.2.2 A.example\n");
  ASSERT_TRUE(names.AddMapping("a.example=192.0.2.1", error));
  ASSERT_TRUE(names.AddHosts(file, "hosts", error));
  EXPECT_THAT(names.names(), ElementsAre(Pair("a.example", "192.0.2.1")));
  EXPECT_THAT(names.duplicates(),
              ElementsAre("a.example: 192.0.2.1 (--map a.example=192.0.2.1) wins over 192.0.2.2 "
                          "(hosts:1)"));
}

TEST(StaticNames, HostsFileThatIsNotThereIsAnError) {
  StaticNames names;
  std::string error;
  EXPECT_FALSE(names.AddHostsFile("/nonexistent/hosts", error));
  EXPECT_EQ(error, "/nonexistent/hosts: cannot be read");
  EXPECT_THAT(names.names(), IsEmpty());
}

}  // namespace
