// The parent: keeps one child serving, and tells how that goes. One thread, one wait.
//
//   waiting   no child; the next start is due at startAt_
//   starting  forked; no probe has been answered yet
//   serving   probed, and its servers watched
//
// A child that ends, is stopped, does not come up or no longer answers leads back to waiting: for
// as good as no time after it has taken up a datagram, longer and longer when starting fails again
// and again.
#ifndef HOST_PARENT_SUPERVISOR_H_
#define HOST_PARENT_SUPERVISOR_H_

#include <cstdint>
#include <deque>
#include <optional>
#include <random>
#include <string>

#include "host/common/clock.h"
#include "host/common/rights.h"
#include "host/common/trace.h"
#include "host/options.h"
#include "host/parent/configuration.h"
#include "host/parent/questions.h"
#include "host/parent/service_process.h"
#include "host/parent/upstream_monitor.h"
#include "host/parent/upstreams.h"

class Supervisor {
 public:
  // The references stay the caller's and outlive this.
  Supervisor(const Options& options, const Configuration& configuration, const User& user,
             Trace& trace, int statusListener);

  // Runs until SIGTERM or SIGINT. Throws Failure when no child can become the user, unless one
  // has before. Leaves nothing behind either way.
  void Run();

 private:
  // The child's life.
  void Start();
  void Ended(const std::string& why);
  void StartAgain(bool served);

  // While it serves.
  void Probe();
  void LookAround();
  void Receive();
  void FollowUpstreams();

  void Reload();
  void RenewTrace(bool rotate);
  void Complain(const std::string& why);
  std::string Report() const;

  // Datagrams taken up by the service that were no probes.
  std::uint64_t Queries() const { return service_.passes() - probesAnswered_; }
  bool Idle() const;  // no application has asked anything for a while

  const Options& options_;
  Configuration configuration_;
  Trace& trace_;
  const int statusListener_;  // -1: none

  std::mt19937 random_{std::random_device{}()};
  const std::string probeName_;
  const int questions_ = OpenQuestionSocket();  // to the end of the process
  UpstreamMonitor monitor_;
  ServiceProcess service_;

  TimePoint now_ = Clock::now();
  const TimePoint begun_ = now_;
  Configuration running_;  // what the child was started with
  TimePoint startAt_ = now_;
  TimePoint startedAt_ = now_;
  int failedStarts_ = 0;   // in a row
  bool serving_ = false;   // the child has answered
  bool ready_ = false;     // one has, and the service manager has been told so
  std::string complaint_;  // what went wrong last; empty since a start or a trace file that did not

  TimePoint probeAt_ = now_;  // the next one
  bool waiting_ = false;      // the last one has no answer yet
  TimePoint askedAt_ = now_;
  std::optional<TimePoint> answeredAt_;
  std::uint16_t probeId_ = 0;  // one for each child
  std::uint64_t passesAtStart_ = 0;
  std::uint64_t passesAtProbe_ = 0;
  std::uint64_t probesAnswered_ = 0;

  std::uint64_t queriesSeen_ = 0;  // at the last probe
  TimePoint queriedAt_ = now_;     // the last probe that saw new ones
  std::string resolvConf_ = ReadResolvConf();

  struct Restart {
    TimePoint at;
    std::string why;
  };
  std::uint64_t restartCount_ = 0;
  std::deque<Restart> restarts_;  // the last ones, newest first
  TimePoint loggedAt_;            // the last that was logged
};

#endif  // HOST_PARENT_SUPERVISOR_H_
