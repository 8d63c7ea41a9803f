// Is an upstream server alive? The rules, without sockets and with the time handed in.
//
//   asked    every 2 s (1.6 to 2.4)
//   doubted  an answer is 100 ms late: asked again every 100 ms
//   silent   none of these questions was answered for 1 s
//   alive    again after five questions in a row that were answered within 1 s
//
// A server that loses 30 % of its questions or answers would have to lose eleven in a row to be
// taken for silent, and one that has just come back is not trusted at once: that is what keeps the
// order from going to and fro.
#ifndef HOST_PARENT_UPSTREAM_HEALTH_H_
#define HOST_PARENT_UPSTREAM_HEALTH_H_

#include <optional>

#include "host/common/waiting.h"

class UpstreamHealth {
 public:
  static constexpr Milliseconds kInterval{2000};
  static constexpr Milliseconds kJitter{400};
  static constexpr Milliseconds kDoubtInterval{100};
  static constexpr Milliseconds kTimeout{1000};
  static constexpr int kSilentQuestions = kTimeout / kDoubtInterval;
  static constexpr int kTrustedAnswers = 5;

  // Due at once.
  explicit UpstreamHealth(TimePoint now) : due_(now), asked_(now) {}

  // When to ask next.
  TimePoint due() const { return due_; }

  // The next question repeats the last one: an answer to either will do.
  bool repeats() const { return waiting_ && !silent_; }

  // A question is being sent. `interval` is the time to the next one if all is well.
  void Asked(TimePoint now, Milliseconds interval) {
    asked_ = repeats() ? asked_ : now;
    silentSince_ = silent_ ? silentSince_ : asked_;
    if (waiting_) {
      answersInRow_ = 0;
      ++unanswered_;
      silent_ = silent_ || unanswered_ >= kSilentQuestions;
    }
    waiting_ = true;
    interval_ = interval;
    due_ = now + (silent_ ? interval : kDoubtInterval);
  }

  // The question has been answered.
  void Answered(TimePoint now) {
    if (waiting_ && now - asked_ <= kTimeout) {
      waiting_ = false;
      unanswered_ = 0;
      roundTrip_ = std::chrono::duration_cast<Milliseconds>(now - asked_);
      due_ = asked_ + interval_;
      ++answersInRow_;
      silent_ = silent_ && answersInRow_ < kTrustedAnswers;
    }
  }

  bool silent() const { return silent_; }

  // While it is silent: when the first question that was not answered was asked.
  TimePoint silentSince() const { return silentSince_; }

  // From the last answer back to the first question that it may belong to; nothing before the
  // first answer.
  std::optional<Milliseconds> roundTrip() const { return roundTrip_; }

 private:
  TimePoint due_;
  TimePoint asked_;  // the last question that was no repetition
  Milliseconds interval_ = kInterval;
  bool waiting_ = false;
  bool silent_ = false;
  TimePoint silentSince_;
  int unanswered_ = 0;  // questions in a row
  int answersInRow_ = 0;
  std::optional<Milliseconds> roundTrip_;
};

#endif  // HOST_PARENT_UPSTREAM_HEALTH_H_
