// Asks the service at 127.0.0.1 port 53 a question that it answers by itself, without any server.
#ifndef HOST_PROBER_H_
#define HOST_PROBER_H_

#include <cstdint>
#include <optional>
#include <random>
#include <string>

#include "host/clock.h"

// A name that the service turns away as a reverse look-up. It has a random part, so that no
// application can pass its own queries off as probes, which are kept out of the trace.
std::string MakeProbeName();

class Prober {
 public:
  explicit Prober(std::string name);
  ~Prober();

  Prober(const Prober&) = delete;
  Prober& operator=(const Prober&) = delete;

  const std::string& name() const { return name_; }

  // -1 if there could be no socket.
  int fd() const { return sock_; }

  // Sends a question. Answers to earlier ones no longer count.
  void Ask(TimePoint now);

  // Takes what has arrived; true if the last question has been answered.
  bool Answered(TimePoint now);

  // When the question was sent that waits for its answer.
  std::optional<TimePoint> waitingSince() const { return asked_; }

  // The last answer: when, and how long it took.
  std::optional<TimePoint> answeredAt() const { return answeredAt_; }
  Milliseconds roundTrip() const { return roundTrip_; }

 private:
  const std::string name_;
  int sock_;
  std::mt19937 random_{std::random_device{}()};
  std::uint16_t id_ = 0;
  std::optional<TimePoint> asked_;
  std::optional<TimePoint> answeredAt_;
  Milliseconds roundTrip_{0};
};

#endif  // HOST_PROBER_H_
