#include "host/parent/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// From a file with a line for each value.
LocalUpstreams Choose(const std::vector<std::string>& values) {
  std::string resolvConf;
  for (const std::string& value : values) {
    resolvConf += "nameserver " + value + "\n";
  }
  return ChooseUpstreams(values, resolvConf);
}

TEST(Upstreams, ValuesAreCutAtTheFirstBlank) {
  EXPECT_THAT(Choose({"192.0.2.1 # office", "\t192.0.2.2\r", "192.0.2.3"}).taken,
              ElementsAre("192.0.2.1", "192.0.2.2", "192.0.2.3"));
}

TEST(Upstreams, WhatCannotServeIsDroppedWithTheReason) {
  const LocalUpstreams chosen =
      Choose({"127.0.0.53", "2001:db8::1", "0.0.0.0", "255.255.255.255", "router"});
  EXPECT_THAT(chosen.taken, IsEmpty());
  EXPECT_THAT(
      chosen.dropped,
      ElementsAre("127.0.0.53 (this machine)", "2001:db8::1 (not an IPv4 address)",
                  "0.0.0.0 (this machine)", "255.255.255.255 (a multicast or broadcast address)",
                  "router (not an IPv4 address)"));
}

TEST(Upstreams, EmptyAndRepeatedValuesAreLeftOut) {
  const LocalUpstreams chosen = Choose({"192.0.2.1", "", "192.0.2.1"});
  EXPECT_THAT(chosen.taken, ElementsAre("192.0.2.1"));
  EXPECT_THAT(chosen.dropped, IsEmpty());
}

TEST(Upstreams, WhatACommentMentionsIsNotTaken) {
  const LocalUpstreams chosen =
      ChooseUpstreams({"192.0.2.1", "192.0.2.2", "192.0.2.3"},
                      "# nameserver 192.0.2.1\n;nameserver 192.0.2.2\n nameserver\t192.0.2.3 x\n");
  EXPECT_THAT(chosen.taken, ElementsAre("192.0.2.3"));
  EXPECT_THAT(chosen.dropped, ElementsAre("192.0.2.1 (in no line of its own)",
                                          "192.0.2.2 (in no line of its own)"));
}

TEST(Upstreams, GivenServerMayBeOnThisMachineButNotTheProxyItself) {
  EXPECT_EQ(ServerFault("127.0.0.2"), nullptr);
  EXPECT_EQ(ServerFault("192.0.2.1"), nullptr);
  for (const char* const bad : {"127.0.0.1", "0.0.0.0", "224.0.0.1", "255.255.255.255", "192.0.2",
                                "192.0.2.1 ", "::1", "router", ""}) {
    EXPECT_NE(ServerFault(bad), nullptr) << bad;
  }
}

}  // namespace
