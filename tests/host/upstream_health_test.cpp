#include "host/parent/upstream_health.h"

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <random>

namespace {

using Seconds = std::chrono::duration<double>;

// A server and who asks it, over hours that pass at once.
class Simulation {
 public:
  // Whether and after what time a question that is asked at `at` is answered.
  using Server = std::function<std::optional<Milliseconds>(Seconds at)>;

  explicit Simulation(Server server) : server_(std::move(server)) {}

  void RunUntil(Seconds end) {
    while (Seconds(now_ - begin_) < end) {
      while (!answers_.empty() && answers_.front().first <= now_) {
        if (answers_.front().second == id_) {
          health_.Answered(now_);
        }
        answers_.pop_front();
      }
      if (now_ >= health_.due()) {
        id_ += health_.repeats() ? 0 : 1;
        health_.Asked(now_, UpstreamHealth::kInterval + jitter_(random_));
        ++questions_;
        if (const auto after = server_(now_ - begin_)) {
          answers_.emplace_back(now_ + *after, id_);
        }
      }
      if (health_.silent() != wasSilent_) {
        wasSilent_ = health_.silent();
        ++changes_;
        changedAt_ = now_ - begin_;
      }
      now_ += Milliseconds(1);
    }
  }

  const UpstreamHealth& health() const { return health_; }
  int changes() const { return changes_; }
  Seconds changedAt() const { return changedAt_; }
  int questions() const { return questions_; }
  std::mt19937& random() { return random_; }

 private:
  struct Jitter {
    Milliseconds operator()(std::mt19937& random) {
      return Milliseconds(std::uniform_int_distribution<Milliseconds::rep>(
          -UpstreamHealth::kJitter.count(), UpstreamHealth::kJitter.count())(random));
    }
  };

  Server server_;
  const TimePoint begin_{};
  TimePoint now_{};
  std::mt19937 random_{20};  // the same run every time
  Jitter jitter_;
  UpstreamHealth health_{begin_};
  std::deque<std::pair<TimePoint, int>> answers_;  // under way, in order
  int id_ = 0;
  bool wasSilent_ = false;
  int changes_ = 0;
  int questions_ = 0;
  Seconds changedAt_{0};
};

TEST(UpstreamHealth, ServerThatAnswersIsAskedEveryTwoSeconds) {
  Simulation run([](Seconds) { return Milliseconds(20); });
  run.RunUntil(Seconds(600));
  EXPECT_FALSE(run.health().silent());
  EXPECT_EQ(run.health().roundTrip(), Milliseconds(20));
  EXPECT_NEAR(run.questions(), 300, 15);
}

TEST(UpstreamHealth, SilenceIsFoundWithinFourSeconds) {
  for (double fallsSilentAt = 10; fallsSilentAt < 14; fallsSilentAt += 0.1) {
    Simulation run([&](Seconds at) {
      return at.count() < fallsSilentAt ? std::optional(Milliseconds(5)) : std::nullopt;
    });
    run.RunUntil(Seconds(30));
    EXPECT_TRUE(run.health().silent());
    EXPECT_LT(run.changedAt().count() - fallsSilentAt, 4.2) << fallsSilentAt;
    const Seconds since = run.health().silentSince() - TimePoint{};
    EXPECT_GE(since.count(), fallsSilentAt - 0.002);
    EXPECT_LT(since.count(), fallsSilentAt + 2.5);
  }
}

TEST(UpstreamHealth, ServerThatComesBackIsTrustedAfterFiveAnswersInARow) {
  Simulation run(
      [](Seconds at) { return at.count() > 60 ? std::optional(Milliseconds(5)) : std::nullopt; });
  run.RunUntil(Seconds(60));
  EXPECT_TRUE(run.health().silent());
  run.RunUntil(Seconds(120));
  EXPECT_FALSE(run.health().silent());
  EXPECT_EQ(run.changes(), 2);
  EXPECT_GT(run.changedAt().count(), 60 + 4 * 1.6);
  EXPECT_LT(run.changedAt().count(), 60 + 6 * 2.4);
}

TEST(UpstreamHealth, FourAnswersInARowAreNotEnoughAndFiveAre) {
  TimePoint now{};
  UpstreamHealth health{now};
  for (int question = 0; question < 20; ++question) {
    health.Asked(now += UpstreamHealth::kDoubtInterval, UpstreamHealth::kInterval);
  }
  for (int answers = 1; answers <= 5; ++answers) {
    EXPECT_TRUE(health.silent()) << answers;
    health.Asked(now += UpstreamHealth::kInterval, UpstreamHealth::kInterval);
    health.Answered(now);
  }
  EXPECT_FALSE(health.silent());
}

TEST(UpstreamHealth, LosingThreeOfTenForAnHourIsNotSilence) {
  std::mt19937 random(1);
  std::bernoulli_distribution lost(0.3);
  Simulation run(
      [&](Seconds) { return lost(random) ? std::nullopt : std::optional(Milliseconds(30)); });
  run.RunUntil(Seconds(3600));
  EXPECT_EQ(run.changes(), 0);
}

TEST(UpstreamHealth, SlowServerIsAliveUpToOneSecondAndSilentBeyond) {
  Simulation slow([](Seconds) { return Milliseconds(950); });
  slow.RunUntil(Seconds(60));
  EXPECT_EQ(slow.changes(), 0);
  EXPECT_EQ(slow.health().roundTrip(), Milliseconds(950));
  Simulation tooSlow([](Seconds) { return Milliseconds(1100); });
  tooSlow.RunUntil(Seconds(60));
  EXPECT_TRUE(tooSlow.health().silent());
  EXPECT_EQ(tooSlow.changes(), 1);
}

TEST(UpstreamHealth, SecondAnswerToAQuestionDoesNotCount) {
  UpstreamHealth health{TimePoint{}};
  health.Asked(TimePoint{}, UpstreamHealth::kInterval);
  health.Answered(TimePoint{} + Milliseconds(5));
  health.Answered(TimePoint{} + Milliseconds(50));
  EXPECT_EQ(health.roundTrip(), Milliseconds(5));
}

}  // namespace
