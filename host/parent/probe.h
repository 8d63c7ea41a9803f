// Does the service live? The rules, without sockets and with the time handed in.
//
//   starting  asked every 20 ms until it answers for the first time, or its patience is at an end
//   serving   asked once an interval, and every 200 ms until that is answered
//
// A query thread that takes up datagrams is alive: where one has since the last probe, that or its
// answer was lost to load.
#ifndef HOST_PARENT_PROBE_H_
#define HOST_PARENT_PROBE_H_

#include <cstdint>
#include <optional>

#include "host/common/clock.h"

class Probe {
 public:
  static constexpr Milliseconds kStartInterval{20};
  static constexpr Milliseconds kTimeout{200};

  // A child has been started that has `patience` to answer. Due at once.
  void Start(TimePoint now, Milliseconds patience) {
    answerBy_ = now + patience;
    due_ = now;
    serving_ = false;
    pending_ = false;
  }

  // When to ask next.
  TimePoint due() const { return due_; }

  // It is being asked, and has `received` so many datagrams up to now.
  void Asked(TimePoint now, std::uint64_t received) {
    pending_ = true;
    askedAt_ = now;
    receivedBefore_ = received;
    due_ = now + (serving_ ? kTimeout : kStartInterval);
  }

  // It has answered. `interval` is the time from the last question to the next one.
  void Answered(TimePoint now, Milliseconds interval) {
    pending_ = false;
    serving_ = true;
    answeredAt_ = now;
    due_ = askedAt_ + interval;
  }

  // When it is due and has `received` so many datagrams: there is no hope any more.
  bool Failed(TimePoint now, std::uint64_t received) const {
    return pending_ && received == receivedBefore_ && (serving_ || now >= answerBy_);
  }

  bool serving() const { return serving_; }

  // The last answer of any child.
  std::optional<TimePoint> answeredAt() const { return answeredAt_; }

 private:
  TimePoint due_;
  TimePoint askedAt_;
  TimePoint answerBy_;
  bool serving_ = false;
  bool pending_ = false;  // the last question has no answer yet
  std::uint64_t receivedBefore_ = 0;
  std::optional<TimePoint> answeredAt_;
};

#endif  // HOST_PARENT_PROBE_H_
