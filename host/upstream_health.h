// Is an upstream server alive? The rules, without sockets and with the time handed in.
//
//   asked    every 2 s (1.6 to 2.4), a quarter as often while no application asks
//   doubted  an answer is 200 ms late: asked again every 200 ms
//   silent   nothing came back for 1.5 s, in which it was asked five times at least
//   alive    again after five questions in a row that were answered within 1 s
//
// A server that loses 30 % of its questions or answers would have to lose eight in a row to be
// taken for silent, and one that has just come back is not trusted at once: that is what keeps the
// order from going to and fro.
#ifndef HOST_UPSTREAM_HEALTH_H_
#define HOST_UPSTREAM_HEALTH_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "host/clock.h"

class UpstreamHealth {
 public:
  static constexpr Milliseconds kInterval{2000};
  static constexpr Milliseconds kJitter{400};
  static constexpr Milliseconds kDoubtInterval{200};
  static constexpr Milliseconds kSilentAfter{1500};
  static constexpr Milliseconds kTimeout{1000};
  static constexpr std::size_t kSilentQuestions = 5;
  static constexpr int kTrustedAnswers = 5;
  static constexpr int kIdleFactor = 4;

  // Due at once.
  explicit UpstreamHealth(TimePoint now) : due_(now) {}

  // When to ask next.
  TimePoint due() const { return due_; }

  // Applications have come back: asks at once, unless it is waiting for an answer anyway.
  void AskSoon(TimePoint now);

  // A question under `id` is being sent. `interval` is the time to the next one if all is well.
  void Asked(TimePoint now, std::uint16_t id, Milliseconds interval);

  // A response under `id` has arrived.
  void Answered(TimePoint now, std::uint16_t id);

  bool silent() const { return silent_; }

  // Of the last answer; nothing before the first.
  std::optional<Milliseconds> roundTrip() const { return roundTrip_; }

 private:
  struct Question {
    std::uint16_t id;
    TimePoint at;
  };

  TimePoint due_;
  Milliseconds interval_ = kInterval;
  std::vector<Question> open_;  // without an answer yet, since the last one
  bool silent_ = false;
  int answersInRow_ = 0;
  std::optional<Milliseconds> roundTrip_;
};

#endif  // HOST_UPSTREAM_HEALTH_H_
