#include "host/upstreams.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Upstreams, ValuesAreCutAtTheFirstBlank) {
  EXPECT_THAT(ChooseUpstreams({"192.0.2.1 # office", "\t192.0.2.2\r", "192.0.2.3"}).taken,
              ElementsAre("192.0.2.1", "192.0.2.2", "192.0.2.3"));
}

TEST(Upstreams, WhatCannotServeIsDroppedWithTheReason) {
  const LocalUpstreams chosen =
      ChooseUpstreams({"127.0.0.53", "2001:db8::1", "0.0.0.0", "255.255.255.255", "router"});
  EXPECT_THAT(chosen.taken, IsEmpty());
  EXPECT_THAT(
      chosen.dropped,
      ElementsAre("127.0.0.53 (this machine)", "2001:db8::1 (not an IPv4 address)",
                  "0.0.0.0 (this machine)", "255.255.255.255 (a multicast or broadcast address)",
                  "router (not an IPv4 address)"));
}

TEST(Upstreams, EmptyAndRepeatedValuesAreLeftOut) {
  const LocalUpstreams chosen = ChooseUpstreams({"192.0.2.1", "", "192.0.2.1"});
  EXPECT_THAT(chosen.taken, ElementsAre("192.0.2.1"));
  EXPECT_THAT(chosen.dropped, IsEmpty());
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
