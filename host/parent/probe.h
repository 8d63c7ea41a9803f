// Does the service live? The rules, without sockets and with the time handed in.
//
//   starting  asked every 20 ms until it has taken up something, or its patience is at an end
//   serving   asked once an interval, and every 20 ms then until it has, for 500 ms at the most
//
// A query thread that takes up datagrams is alive, whatever they are: it need not answer. Patience
// is counted in questions: when the whole machine stands still, or sleeps, none is asked, and the
// time is not the service's fault.
#ifndef HOST_PARENT_PROBE_H_
#define HOST_PARENT_PROBE_H_

#include <cstdint>
#include <optional>

#include "host/common/waiting.h"

class Probe {
 public:
  static constexpr Milliseconds kRepeat{20};
  static constexpr Milliseconds kTimeout{500};

  enum class Finding {
    kAsk,    // it is to be asked now
    kLives,  // it has taken up something since it was asked
    kFailed  // there is no hope any more
  };

  // A child has been started that has `patience` to come up. Due at once.
  void Start(TimePoint now, Milliseconds patience) {
    due_ = now;
    questionsLeft_ = patience / kRepeat;
    serving_ = false;
    pending_ = false;
  }

  // When to look next.
  TimePoint due() const { return due_; }

  // It is due, and the child has taken up `received` datagrams up to now. `interval` is the time
  // from the first asking to the next one.
  Finding Look(TimePoint now, std::uint64_t received, Milliseconds interval) {
    if (pending_ && received != receivedBefore_) {
      pending_ = false;
      serving_ = true;
      livedAt_ = now;
      due_ = askedAt_ + interval;
      return Finding::kLives;
    }
    if (!pending_) {
      pending_ = true;
      askedAt_ = now;
      receivedBefore_ = received;
      questionsLeft_ = serving_ ? kTimeout / kRepeat : questionsLeft_;
    }
    due_ = now + kRepeat;
    return questionsLeft_-- > 0 ? Finding::kAsk : Finding::kFailed;
  }

  bool serving() const { return serving_; }

  // When any child was last found alive.
  std::optional<TimePoint> livedAt() const { return livedAt_; }

 private:
  TimePoint due_;
  TimePoint askedAt_;
  Milliseconds::rep questionsLeft_ = 0;  // to ask before there is no hope any more
  bool serving_ = false;
  bool pending_ = false;  // asked, and nothing taken up yet
  std::uint64_t receivedBefore_ = 0;
  std::optional<TimePoint> livedAt_;
};

#endif  // HOST_PARENT_PROBE_H_
