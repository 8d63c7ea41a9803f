#include "host/parent/probe.h"

#include <gtest/gtest.h>

namespace {

constexpr Milliseconds kPatience{2000};
constexpr Milliseconds kInterval{250};

class ProbeTest : public ::testing::Test {
 protected:
  ProbeTest() { probe_.Start(now_, kPatience); }

  // Serving since just now.
  void Serve() {
    probe_.Asked(now_, 0);
    probe_.Answered(now_, kInterval);
  }

  TimePoint now_ = Clock::now();
  Probe probe_;
};

TEST_F(ProbeTest, NewChildIsAskedAtOnceAndUntilItsPatienceIsAtAnEnd) {
  const TimePoint end = now_ + kPatience;
  EXPECT_EQ(probe_.due(), now_);
  while (now_ < end) {
    EXPECT_FALSE(probe_.Failed(now_, 0));
    probe_.Asked(now_, 0);
    EXPECT_EQ(probe_.due(), now_ + Probe::kStartInterval);
    now_ = probe_.due();
  }
  EXPECT_FALSE(probe_.serving());
  EXPECT_TRUE(probe_.Failed(now_, 0));
  EXPECT_FALSE(probe_.Failed(now_, 1)) << "it takes up datagrams";
}

TEST_F(ProbeTest, ServiceThatAnswersIsAskedAgainAfterTheInterval) {
  Serve();
  EXPECT_TRUE(probe_.serving());
  EXPECT_EQ(probe_.answeredAt(), now_);
  EXPECT_EQ(probe_.due(), now_ + kInterval);
  EXPECT_FALSE(probe_.Failed(probe_.due(), 0));
}

TEST_F(ProbeTest, ServiceThatNeitherAnswersNorTakesUpAnythingHasFailed) {
  Serve();
  now_ = probe_.due();
  probe_.Asked(now_, 7);
  EXPECT_EQ(probe_.due(), now_ + Probe::kTimeout);
  EXPECT_TRUE(probe_.Failed(probe_.due(), 7));
  EXPECT_FALSE(probe_.Failed(probe_.due(), 8)) << "the probe was lost to load";
  probe_.Asked(now_, 8);
  EXPECT_TRUE(probe_.Failed(probe_.due(), 8));
}

TEST_F(ProbeTest, NextChildBeginsAnewAndTheLastAnswerIsRemembered) {
  Serve();
  const TimePoint answered = now_;
  probe_.Asked(now_, 0);
  now_ += kInterval;
  probe_.Start(now_, kPatience);
  EXPECT_FALSE(probe_.serving());
  EXPECT_FALSE(probe_.Failed(now_ + 2 * kPatience, 0)) << "it has not been asked";
  EXPECT_EQ(probe_.answeredAt(), answered);
}

}  // namespace
