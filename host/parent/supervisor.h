// The parent: keeps one child serving, and tells how that goes. One thread, one wait.
#ifndef HOST_PARENT_SUPERVISOR_H_
#define HOST_PARENT_SUPERVISOR_H_

#include <cstdint>
#include <deque>
#include <string>

#include "host/parent/configuration.h"
#include "host/parent/probe.h"
#include "host/parent/service_process.h"
#include "host/parent/status.h"
#include "host/parent/upstream_monitor.h"

class Supervisor {
 public:
  // The references and the socket at `port` stay the caller's and outlive this. Throws Failure if
  // something is not to be had that all children need, or that was asked for.
  Supervisor(const Options& options, const Configuration& configuration, const User& user,
             Trace& trace, int port);

  // Runs until SIGTERM or SIGINT. Throws Failure when no child can become the user, unless one
  // has before. Leaves nothing behind either way.
  void Run();

 private:
  // The child's life. One that ends, is stopped, does not come up or no longer answers is followed
  // by the next: at once when it has taken up a datagram, later and later when starting fails again
  // and again.
  void Start();
  void OnChildEnd(const Failure& end);
  void DelayStart();

  // While it serves.
  void NoteQueries();
  void CheckFiles();
  void TellKeptAway();
  void LookAtService();

  void Reload();
  void RenewTrace(void (Trace::*how)());
  void LogOnce(const std::string& why);
  std::string Report() const;

  std::uint64_t Queries() const { return service_.shared().verdict(Verdict::kPasses); }
  bool Idle() const;  // no application has asked anything for a while

  const Options& options_;
  Configuration configuration_;  // what the child runs with, or the next one will
  Trace& trace_;
  const StatusListener listener_;
  UpstreamMonitor monitor_;
  ServiceProcess service_;
  Probe probe_;

  TimePoint now_ = Clock::now();
  const TimePoint begun_ = now_;
  TimePoint startAt_ = now_;  // no earlier than that
  std::uint64_t lost_ = 0;    // queries that waited when their service ended
  int failedStarts_ = 0;      // in a row
  bool ready_ = false;        // a child has served, and the service manager has been told so
  std::string failure_;  // what went wrong last; empty since a start or a trace file that did not
  std::uint64_t queriesSeen_ = 0;
  TimePoint queriedAt_ = now_;  // when new ones were seen last
  std::uint64_t keptAwayTold_ = 0;
  TimePoint toldAt_;
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
