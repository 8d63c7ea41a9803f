#include "host/supervisor.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/exit_status.h"
#include "host/log.h"
#include "host/notify.h"
#include "host/port.h"

namespace {

// A child that has served is followed at once, but not more often than this.
constexpr Milliseconds kBetweenStarts{50};

// One that has not: after 100 ms, 200 ms and so on up to 5 s.
constexpr Milliseconds kFirstDelay{100};
constexpr Milliseconds kLongestDelay{5000};
constexpr Milliseconds kStartTimeout{2000};

// Without queries for this long the host slows down. What ends or stops the service is reported at
// once all the same; only a service that hangs is found later.
constexpr Milliseconds kIdleAfter{10000};
constexpr Milliseconds kIdleInterval{2000};

// Probes in a row that may stay unanswered.
constexpr int kMaxUnanswered = 2;

constexpr std::size_t kRestartsKept = 5;
constexpr Milliseconds kBetweenLogLines{1000};

Milliseconds Since(TimePoint then, TimePoint now) {
  return std::chrono::duration_cast<Milliseconds>(now - then);
}

std::string HowItEnded(const Child::Ending& ending) {
  if (!ending.heard.empty() && ending.heard.back() != "serving") {
    return ending.heard.back();
  }
  if (ending.stopped) {
    return "service was stopped by a signal";
  }
  if (WIFSIGNALED(ending.status)) {
    return "service was ended by signal " + std::to_string(WTERMSIG(ending.status));
  }
  return "service left with status " + std::to_string(WEXITSTATUS(ending.status));
}

}  // namespace

Supervisor::Supervisor(const Options& options, const Configuration& configuration, const User& user,
                       TraceFile& trace, TraceSink& sink, const StatusSocket& status)
    : options_(options),
      configuration_(configuration),
      trace_(trace),
      sink_(sink),
      status_(status),
      prober_(MakeProbeName()),
      child_(sink, user, prober_.name()) {
  monitor_.Watch(configuration.servers, now_);
}

int Supervisor::Run() {
  if (signals_.fd() == -1 || prober_.fd() == -1) {
    Log(Level::kError, "no socket to ask 127.0.0.1 with: %s", std::strerror(errno));
    return kExitFailure;
  }
  while (exitStatus_ == -1) {
    if (state_ == State::kWaiting && now_ >= startAt_) {
      Start();
    }
    Wait();
  }
  NotifyManager("STOPPING=1");
  if (child_.IsThere()) {
    child_.Kill();
    child_.AwaitEnd();
  }
  Log(Level::kInfo, "stopped");
  return exitStatus_;
}

void Supervisor::Wait() {
  // Negative descriptors are skipped by poll.
  enum { kSignals, kProbe, kMonitor, kStatus, kLine, kCount };
  pollfd descriptors[kCount] = {{signals_.fd(), POLLIN, 0},
                                {prober_.fd(), POLLIN, 0},
                                {monitor_.fd(), POLLIN, 0},
                                {status_.fd(), POLLIN, 0},
                                {child_.line(), POLLIN, 0}};
  // Rounded up: not to wake a moment too early and go round again.
  const auto left = std::chrono::ceil<Milliseconds>(NextDue() - Clock::now()).count();
  poll(descriptors, kCount, static_cast<int>(std::max<Milliseconds::rep>(left, 0)));
  now_ = Clock::now();

  // The child first: everything else depends on its state.
  if (descriptors[kLine].revents != 0) {
    for (const std::string& message : child_.Heard()) {
      if (message == "serving") {
        Serving();
      } else {
        endWhy_ = message;  // its end follows
      }
    }
  }
  if (signals_.Take(SIGCHLD)) {
    if (const std::optional<Child::Ending> ending = child_.Gone()) {
      Ended(*ending);
    }
  }
  if (signals_.Take(SIGTERM) || signals_.Take(SIGINT)) {
    exitStatus_ = exitStatus_ == -1 ? kExitDone : exitStatus_;
    return;
  }
  if (signals_.Take(SIGHUP)) {
    RenewTrace(false);
    Reload();
  }
  if (prober_.Answered(now_)) {
    unanswered_ = 0;
    if (!ready_) {
      ready_ = true;
      NotifyManager("READY=1");
    }
  }
  if (descriptors[kStatus].revents != 0) {
    status_.Answer(Report());
  }

  if (state_ == State::kStarting && now_ >= startedAt_ + kStartTimeout) {
    End("service does not come up");
  }
  if (state_ == State::kServing) {
    if (prober_.waitingSince() && now_ >= *prober_.waitingSince() + ProbeTimeout()) {
      ProbeLate();
    }
    if (now_ >= tickAt_) {
      Tick();
    }
  }
  LookAtUpstreams();
}

TimePoint Supervisor::NextDue() const {
  TimePoint due = monitor_.due().value_or(now_ + std::chrono::hours(1));
  switch (state_) {
    case State::kWaiting:
      return std::min(due, startAt_);
    case State::kStarting:
      return std::min(due, startedAt_ + kStartTimeout);
    case State::kServing:
      due = std::min(due, tickAt_);
      if (prober_.waitingSince()) {
        due = std::min(due, *prober_.waitingSince() + ProbeTimeout());
      }
  }
  return due;
}

void Supervisor::Start() {
  const int error = TryPort();
  if (error != 0 && error != portError_) {
    Log(Level::kError, "%s", ExplainPort(error).c_str());
  }
  portError_ = error;
  running_ = configuration_;
  running_.servers = monitor_.Choice();
  startedAt_ = now_;
  endWhy_.clear();
  if (error == 0 && child_.Start(running_)) {
    state_ = State::kStarting;
    return;
  }
  if (error == 0) {
    Log(Level::kError, "no child process: %s", std::strerror(errno));
  }
  ++failedStarts_;
  startAt_ = now_ + std::min(kLongestDelay, kFirstDelay * (1 << std::min(failedStarts_ - 1, 6)));
}

void Supervisor::Serving() {
  if (restartCount_ == 0) {
    Log(Level::kInfo, "serving on UDP 127.0.0.1 port 53");
  }
  state_ = State::kServing;
  failedStarts_ = 0;
  unanswered_ = 0;
  tickAt_ = now_;
}

// The parent wants the child to end; Ended comes by SIGCHLD.
void Supervisor::End(const std::string& why) {
  if (child_.IsThere() && endWhy_.empty()) {
    endWhy_ = why;
    child_.Kill();
  }
}

void Supervisor::Ended(const Child::Ending& ending) {
  const bool said = std::count(ending.heard.begin(), ending.heard.end(), "serving") != 0;
  failedStarts_ = state_ == State::kServing || said ? 0 : failedStarts_ + 1;
  const std::string why = endWhy_.empty() ? HowItEnded(ending) : endWhy_;
  if (WIFEXITED(ending.status) && WEXITSTATUS(ending.status) == kChildNoRights) {
    Log(Level::kError, "%s (--user names another)", why.c_str());
    exitStatus_ = kExitNoRight;
    return;
  }
  ++restartCount_;
  restarts_.push_front({now_, why});
  restarts_.resize(std::min(restarts_.size(), kRestartsKept));
  LogRestart(why);

  state_ = State::kWaiting;
  startAt_ =
      failedStarts_ == 0
          ? startedAt_ + kBetweenStarts
          : now_ + std::min(kLongestDelay, kFirstDelay * (1 << std::min(failedStarts_ - 1, 6)));
}

void Supervisor::LogRestart(const std::string& why) {
  if (now_ - loggedAt_ < kBetweenLogLines) {
    ++notLogged_;
    return;
  }
  const std::string more =
      notLogged_ == 0 ? "" : ", " + std::to_string(notLogged_) + " more before";
  Log(Level::kWarning, "starting the service again: %s (number %llu%s)", why.c_str(),
      static_cast<unsigned long long>(restartCount_), more.c_str());
  loggedAt_ = now_;
  notLogged_ = 0;
}

// Everything that is done now and then is done here, so that it costs one wake-up together.
void Supervisor::Tick() {
  const std::uint64_t queries = Queries();
  if (queries != queriesSeen_) {
    if (Idle()) {
      monitor_.AskSoon(now_);
    }
    queriedAt_ = now_;
    queriesSeen_ = queries;
  }
  if (trace_.Full()) {
    RenewTrace(true);
  }
  if (options_.servers.empty() && resolvConf_.Changed()) {
    Reload();
  }
  if (!prober_.waitingSince()) {
    Probe();
  }
  tickAt_ =
      now_ + (Idle() ? std::max(kIdleInterval, options_.probeInterval) : options_.probeInterval);
}

void Supervisor::Probe() {
  passesAtProbe_ = child_.passes();
  ++probes_;
  prober_.Ask(now_);
}

void Supervisor::ProbeLate() {
  // A query thread that takes up datagrams is alive: the probe, or its answer, was lost to load.
  unanswered_ = child_.passes() == passesAtProbe_ ? unanswered_ + 1 : 0;
  if (unanswered_ >= kMaxUnanswered) {
    End("service does not answer");
  }
  Probe();
}

void Supervisor::LookAtUpstreams() {
  if (monitor_.fd() == -1) {
    return;
  }
  monitor_.Receive(now_);
  monitor_.Ask(now_, Idle());
  const std::vector<std::string> choice = monitor_.Choice();
  if (choice != running_.servers && state_ != State::kWaiting && endWhy_.empty()) {
    std::string names;
    for (const std::string& server : choice) {
      names += " " + server;
    }
    End("upstream servers that are alive:" + names);
  }
}

void Supervisor::Reload() {
  if (LoadConfiguration(options_, configuration_) != kExitDone) {
    Log(Level::kWarning, "nothing changed: the service runs on with what it has");
    return;
  }
  monitor_.Watch(configuration_.servers, now_);
  if (configuration_.names != running_.names || monitor_.Choice() != running_.servers) {
    End("configuration has changed");
  }
}

void Supervisor::RenewTrace(bool rotate) {
  if (!trace_.IsFile()) {
    return;
  }
  std::string error;
  if ((rotate && !trace_.Rotate()) || !trace_.Open(error)) {
    Log(Level::kWarning, "the trace file stays as it is: %s",
        error.empty() ? std::strerror(errno) : error.c_str());
    return;
  }
  sink_.Attach(trace_.fd());
  if (child_.IsThere()) {
    child_.HandTraceFile(trace_.fd());
  }
}

std::uint64_t Supervisor::Queries() const {
  return child_.passes() > probes_ ? child_.passes() - probes_ : 0;
}

bool Supervisor::Idle() const { return now_ - queriedAt_ >= kIdleAfter; }

Milliseconds Supervisor::ProbeTimeout() const { return options_.probeInterval * 2 / 5; }

StatusReport Supervisor::Report() const {
  StatusReport report;
  report.uptime = Since(begun_, now_);
  report.host = getpid();
  report.service = child_.process();
  report.state = state_ == State::kServing    ? "serving"
                 : state_ == State::kStarting ? "starting"
                                              : "waiting to start again";
  report.queries = Queries();
  report.restartCount = restartCount_;
  for (const Restart& restart : restarts_) {
    report.restarts.push_back({Since(restart.at, now_), restart.why});
  }
  for (const UpstreamMonitor::Upstream& upstream : monitor_.upstreams()) {
    report.upstreams.push_back({upstream.name,
                                monitor_.fd() == -1        ? "not watched"
                                : upstream.health.silent() ? "silent"
                                                           : "alive",
                                upstream.health.roundTrip()});
  }
  if (prober_.answeredAt()) {
    report.probeAgo = Since(*prober_.answeredAt(), now_);
  }
  report.probeRoundTrip = prober_.roundTrip();
  return report;
}
