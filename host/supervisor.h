// The parent: keeps one child serving, and tells how that goes. One thread, one poll.
//
//   waiting   no child; the next start is due at startAt_
//   starting  forked; the child has not said "serving" yet
//   serving   probed, and its servers watched
//
// A child that ends, is stopped, does not come up or no longer answers leads back to waiting: for
// as good as no time after it has served, longer and longer when starting fails again and again.
#ifndef HOST_SUPERVISOR_H_
#define HOST_SUPERVISOR_H_

#include <deque>
#include <string>

#include "host/child.h"
#include "host/clock.h"
#include "host/configuration.h"
#include "host/options.h"
#include "host/prober.h"
#include "host/rights.h"
#include "host/service_output.h"
#include "host/signals.h"
#include "host/status_socket.h"
#include "host/trace_file.h"
#include "host/upstream_monitor.h"
#include "host/upstreams.h"

class Supervisor {
 public:
  // The references stay the caller's and outlive this.
  Supervisor(const Options& options, const Configuration& configuration, const User& user,
             TraceFile& trace, TraceSink& sink, const StatusSocket& status);

  // Runs until SIGTERM or SIGINT, with nothing left behind. An exit status.
  int Run();

 private:
  enum class State { kWaiting, kStarting, kServing };

  struct Restart {
    TimePoint at;
    std::string why;
  };

  // One wait, and what came of it.
  void Wait();
  TimePoint NextDue() const;

  // The child's life.
  void Start();
  void Serving();
  void End(const std::string& why);
  void Ended(const Child::Ending& ending);
  void LogRestart(const std::string& why);

  // While it serves.
  void Tick();
  void Probe();
  void ProbeLate();
  void LookAtUpstreams();

  void Reload();
  void RenewTrace(bool rotate);
  StatusReport Report() const;

  // Datagrams taken up by the service that were no probes.
  std::uint64_t Queries() const;
  bool Idle() const;
  Milliseconds ProbeTimeout() const;

  const Options& options_;
  Configuration configuration_;
  TraceFile& trace_;
  TraceSink& sink_;
  const StatusSocket& status_;

  Signals signals_;
  FileWatch resolvConf_{kResolvConf};
  Prober prober_;
  Child child_;
  UpstreamMonitor monitor_;

  TimePoint now_ = Clock::now();
  const TimePoint begun_ = now_;
  State state_ = State::kWaiting;
  int exitStatus_ = -1;  // set to end the loop

  Configuration running_;  // what the child was started with
  TimePoint startAt_ = now_;
  TimePoint startedAt_ = now_;
  int failedStarts_ = 0;  // in a row
  int portError_ = 0;     // the last one, so that it is explained once
  bool ready_ = false;    // the service manager has been told
  std::string endWhy_;    // why the parent ended the child; empty if it did not

  TimePoint tickAt_ = now_;
  int unanswered_ = 0;        // probes in a row
  std::uint64_t probes_ = 0;  // sent
  std::uint64_t passesAtProbe_ = 0;
  std::uint64_t queriesSeen_ = 0;  // at the last tick
  TimePoint queriedAt_ = now_;     // the last tick that saw new ones

  std::uint64_t restartCount_ = 0;
  std::deque<Restart> restarts_;  // newest first
  TimePoint loggedAt_;
  int notLogged_ = 0;
};

#endif  // HOST_SUPERVISOR_H_
