#include "host/parent/probe.h"

#include <gtest/gtest.h>

namespace {

constexpr Milliseconds kPatience{2000};
constexpr Milliseconds kInterval{250};

using enum Probe::Finding;

class ProbeTest : public ::testing::Test {
 protected:
  ProbeTest() { probe_.Start(now_, kPatience); }

  // Looks when it is due.
  Probe::Finding Look(std::uint64_t received) {
    now_ = probe_.due();
    return probe_.Look(now_, received, kInterval);
  }

  // Serving, with seven datagrams taken up.
  void Serve() {
    EXPECT_EQ(Look(6), kAsk);
    EXPECT_EQ(Look(7), kLives);
  }

  TimePoint now_ = Clock::now();
  Probe probe_;
};

TEST_F(ProbeTest, NewChildIsAskedAtOnceAndUntilItsPatienceIsAtAnEnd) {
  const TimePoint end = now_ + kPatience;
  EXPECT_EQ(probe_.due(), now_);
  while (now_ + Probe::kRepeat < end) {
    EXPECT_EQ(Look(3), kAsk);
    EXPECT_EQ(probe_.due(), now_ + Probe::kRepeat);
  }
  EXPECT_FALSE(probe_.serving());
  EXPECT_EQ(Look(3), kFailed);
}

TEST_F(ProbeTest, WhatItTakesUpAtTheLastMomentSavesIt) {
  while (Look(3) == kAsk) {
  }
  EXPECT_EQ(Look(4), kLives);
}

TEST_F(ProbeTest, ServiceThatLivesIsAskedAgainAfterTheInterval) {
  const TimePoint asked = now_;
  Serve();
  EXPECT_TRUE(probe_.serving());
  EXPECT_EQ(probe_.livedAt(), now_);
  EXPECT_EQ(probe_.due(), asked + kInterval);
  EXPECT_EQ(Look(7), kAsk);
}

TEST_F(ProbeTest, WhatWasTakenUpBeforeItWasAskedDoesNotCount) {
  Serve();
  EXPECT_EQ(Look(500), kAsk);
  EXPECT_EQ(Look(500), kAsk);
}

TEST_F(ProbeTest, ServiceThatTakesUpNothingHasFailedAfterTheTimeout) {
  Serve();
  const TimePoint asked = probe_.due();
  while (Look(7) == kAsk) {
    EXPECT_LT(now_, asked + Probe::kTimeout);
  }
  EXPECT_EQ(now_, asked + Probe::kTimeout);
  EXPECT_EQ(Look(7), kFailed);
  EXPECT_EQ(Look(8), kLives) << "it was late for load";
}

TEST_F(ProbeTest, MachineThatStandsStillIsNotTheServicesFault) {
  Serve();
  EXPECT_EQ(Look(7), kAsk);
  EXPECT_EQ(probe_.Look(now_ + 10 * Probe::kTimeout, 7, kInterval), kAsk);
}

TEST_F(ProbeTest, NextChildBeginsAnewAndWhenOneLivedLastIsRemembered) {
  Serve();
  const TimePoint lived = now_;
  EXPECT_EQ(Look(7), kAsk);
  probe_.Start(now_, kPatience);
  EXPECT_FALSE(probe_.serving());
  EXPECT_EQ(Look(8), kAsk) << "it has not been asked";
  EXPECT_EQ(probe_.livedAt(), lived);
}

}  // namespace
