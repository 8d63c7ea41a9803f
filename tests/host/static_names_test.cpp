#include "host/parent/configuration.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "host/common/log.h"

namespace {

using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::Pair;

// By name, as the map keeps them.
auto Is(const std::string& name, const std::string& address) {
  return Pair(name, Field(&StaticNames::Entry::address, address));
}

std::string ErrorOfMapping(const std::string& text) {
  StaticNames names;
  try {
    names.AddMapping(text);
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status, kExitBadInput);
    return failure.why;
  }
  ADD_FAILURE() << text;
  return {};
}

TEST(StaticNames, AreKeptInTheFormThatTheServiceFindsThemBy) {
  StaticNames names;
  names.AddMapping("Intranet.Example.=192.0.2.1");
  names.AddMapping("_srv.a-1=192.0.2.2");
  EXPECT_THAT(names.names,
              ElementsAre(Is("_srv.a-1", "192.0.2.2"), Is("intranet.example", "192.0.2.1")));
}

TEST(StaticNames, MappingThatIsNoneIsRefusedWithAReason) {
  const std::string longLabel(64, 'a');
  std::string longName;
  for (int i = 0; i < 126; ++i) {
    longName += "a.";
  }
  longName += "aa";  // one more than fits
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
      {"=192.0.2.1", "a label of the name is empty"},
      {".=192.0.2.1", "a label of the name is empty"},
      {"a..=192.0.2.1", "a label of the name is empty"},
      {"a..b=192.0.2.1", "a label of the name is empty"},
      {".a=192.0.2.1", "a label of the name is empty"},
      {"a b=192.0.2.1", "a character other than"},
      {"*.a=192.0.2.1", "a character other than"},
      {longLabel + "=192.0.2.1", "longer than 63"},
      {longName + "=192.0.2.1", "than 253"},
      {"1.2.0.192.in-addr.arpa=192.0.2.1", "reverse look-ups"},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(ErrorOfMapping(c.text), HasSubstr(c.reason)) << c.text;
  }
}

TEST(StaticNames, HostsFileGivesEveryNameOfEveryIpv4Line) {
  const std::string text =
      "# made by hand\n"
      "\n"
      "192.0.2.1\tone.example  ONE # and a comment\n"
      "  192.0.2.2 two.example.\r\n"
      "::1 localhost ip6-localhost\n"
      "fe80::1%lo0 localhost\n"
      "192.0.2.3 three.example";
  StaticNames names;
  names.AddHosts(text, "hosts");
  EXPECT_THAT(names.names,
              ElementsAre(Is("one", "192.0.2.1"), Is("one.example", "192.0.2.1"),
                          Is("three.example", "192.0.2.3"), Is("two.example", "192.0.2.2")));
  EXPECT_EQ(names.ipv6Lines, 2u);
}

TEST(StaticNames, HostsFileErrorNamesFileLineAndReason) {
  const struct {
    const char* file;
    const char* error;
  } cases[] = {
      {"192.0.2.1 a\nnonsense b\n", "hosts:2: 'nonsense' is not an IPv4 address"},
      {"1:2 a\n", "hosts:1: '1:2' is not an IPv4 address"},
      {"\n\n192.0.2.1\n", "hosts:3: no name behind 192.0.2.1"},
      {"192.0.2.1 a b!c\n", "hosts:1: 'b!c': the name has a character other than"},
  };
  for (const auto& c : cases) {
    StaticNames names;
    try {
      names.AddHosts(c.file, "hosts");
      ADD_FAILURE() << c.file;
    } catch (const Failure& failure) {
      EXPECT_THAT(failure.why, HasSubstr(c.error));
    }
  }
}

TEST(StaticNames, OfANameGivenTwiceTheFirstWinsAndIsSaidSo) {
  StaticNames names;
  names.AddMapping("a.example=192.0.2.1");
  names.AddHosts("192.0.2.2 A.example\n", "hosts");
  EXPECT_THAT(names.names, ElementsAre(Is("a.example", "192.0.2.1")));
  EXPECT_THAT(names.duplicates,
              ElementsAre("a.example: 192.0.2.1 (--map a.example=192.0.2.1) wins over 192.0.2.2 "
                          "(hosts:1)"));
}

TEST(StaticNames, HostsFileThatCannotBeReadIsAnErrorAndAnEmptyOneIsNot) {
  // The last one is a regular file that can be opened and not be read.
  for (const char* const path : {"/nonexistent/hosts", "/", "/dev/null", "/proc/self/mem"}) {
    EXPECT_EQ(ReadFile(path), std::nullopt) << path;
  }
  const std::string empty = ::testing::TempDir() + "empty_hosts";
  close(open(empty.c_str(), O_CREAT | O_WRONLY, 0600));
  EXPECT_EQ(ReadFile(empty), "");
  unlink(empty.c_str());
  EXPECT_NO_THROW(StaticNames().AddHosts("", "hosts"));
}

}  // namespace
