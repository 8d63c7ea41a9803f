#include "host/parent/supervisor.h"

#include <signal.h>

#include <algorithm>
#include <utility>

#include "host/common/unix_socket.h"

namespace {

// A child that has served is followed at once, but not more often than this.
constexpr Milliseconds kBetweenStarts{20};

// One that has not: after 100 ms, 200 ms and so on up to 5 s.
constexpr Milliseconds kFirstDelay{100};
constexpr Milliseconds kLongestDelay{5000};

// How long a child may take to answer for the first time. A start that takes too long may have many
// names to take in: the next one has twice the time, and so on.
constexpr Milliseconds kStartTimeout{2000};
constexpr int kMaxDoublings = 5;

// Without queries for this long the host slows down. Whatever is an event, the next query too, is
// noticed at once all the same; only a service that hangs is found later.
constexpr Milliseconds kIdleAfter{10000};
constexpr Milliseconds kIdleInterval{9000};

constexpr std::size_t kRestartsKept = 5;
constexpr Milliseconds kBetweenRestartLines{1000};
constexpr Milliseconds kBetweenKeptAwayLines{60000};

}  // namespace

Supervisor::Supervisor(const Options& options, const Configuration& configuration, const User& user,
                       Trace& trace, int port)
    : options_(options),
      configuration_(configuration),
      trace_(trace),
      listener_(options.socket, options.socketAsked),
      service_(trace, user, !options.unguarded, port) {
  monitor_.Watch(configuration.servers, now_);
}

void Supervisor::Run() {
  while (!TakeSignal(SIGTERM) && !TakeSignal(SIGINT)) {
    if (TakeSignal(SIGHUP)) {
      RenewTrace(&Trace::Open);
      Reload();
    }
    NoteQueries();
    monitor_.Receive(now_);
    if (!Idle()) {
      monitor_.AskDue(now_);
    }
    monitor_.TellChanges();
    if (const std::optional<Failure> end = service_.Reap()) {
      OnChildEnd(*end);
    }
    if (service_.id() != 0 && now_ >= probe_.due()) {
      CheckFiles();
      TellKeptAway();
      LookAtService();
    }
    if (std::vector<std::string> choice = monitor_.Choice(); choice != configuration_.servers) {
      configuration_.servers = std::move(choice);
      service_.Kill("upstream servers are now " + Joined(configuration_.servers));
    }
    if (service_.id() == 0 && now_ >= startAt_) {
      Start();
    }
    listener_.Answer([this] { return Report(); });
    WaitFor({monitor_.fd(), service_.fd(), listener_.fd()},
            std::min(service_.id() == 0 ? startAt_ : probe_.due(),
                     Idle() ? TimePoint::max() : monitor_.due()));
    now_ = Clock::now();
  }
  NotifyManager("STOPPING=1");
}

void Supervisor::Start() {
  startAt_ = now_ + kBetweenStarts;
  lost_ = Queries() - service_.shared().Answered();
  probe_.Start(now_, kStartTimeout * (1 << std::min(failedStarts_, kMaxDoublings)));
  try {
    service_.Start(configuration_);
    failure_.clear();
  } catch (const Failure& failure) {
    LogOnce(failure.why);
    DelayStart();
  }
}

void Supervisor::OnChildEnd(const Failure& end) {
  if (!ready_ && end.status == kExitNoRight) {
    throw Failure(end);
  }
  ++restartCount_;
  restarts_.push_front({now_, end.why});
  restarts_.resize(std::min(restarts_.size(), kRestartsKept));
  if (now_ - loggedAt_ >= kBetweenRestartLines) {
    loggedAt_ = now_;
    Log("warning", "starting the service again: " + end.why + " (number " +
                       std::to_string(restartCount_) + ")");
  }
  if (service_.shared().received == 0) {
    DelayStart();
  } else {
    failedStarts_ = 0;
  }
}

void Supervisor::DelayStart() {
  startAt_ = now_ + std::min(kLongestDelay, kFirstDelay * (1 << failedStarts_));
  failedStarts_ = std::min(failedStarts_ + 1, 8);
}

void Supervisor::NoteQueries() {
  // In this order, as the gate counts first and looks then: no query is missed by both.
  service_.shared().wakeParent = Idle();
  const std::uint64_t queries = Queries();
  if (std::exchange(queriesSeen_, queries) != queries) {
    queriedAt_ = now_;
  }
}

// Everything that is looked at now and then is looked at here, so that it costs one wake-up
// together.
void Supervisor::CheckFiles() {
  if (trace_.Full()) {
    RenewTrace(&Trace::Rotate);
  }
  if (options_.servers.empty() && ReadResolvConf() != resolvConf_) {
    Reload();
  }
}

void Supervisor::TellKeptAway() {
  std::string counts;
  std::uint64_t sum = 0;
  for (std::size_t verdict = 1; verdict < kVerdictNames.size(); ++verdict) {
    const std::uint64_t count = service_.shared().verdicts[verdict];
    sum += count;
    counts += std::string(", ") + kVerdictNames[verdict] + " " + std::to_string(count);
  }
  if (sum != keptAwayTold_ && now_ - toldAt_ >= kBetweenKeptAwayLines) {
    keptAwayTold_ = sum;
    toldAt_ = now_;
    Log("warning", "kept away from the service so far: " + std::to_string(sum) + counts);
  }
}

void Supervisor::LookAtService() {
  const Milliseconds interval(options_.probeInterval);
  switch (probe_.Look(now_, service_.shared().received,
                      Idle() ? std::max(kIdleInterval, interval) : interval)) {
    case Probe::Finding::kAsk:
      return service_.Ask();
    case Probe::Finding::kFailed:
      return service_.Kill(probe_.serving() ? "service does not answer"
                                            : "service does not come up");
    case Probe::Finding::kLives:
      if (!std::exchange(ready_, true)) {
        Log("info", "serving on UDP 127.0.0.1 port 53");
        NotifyManager("READY=1");
      }
  }
}

void Supervisor::Reload() {
  resolvConf_ = ReadResolvConf();
  // Each by itself: a hosts file that went wrong does not keep the servers of a new network away.
  try {
    if (auto names = LoadNames(options_); names != configuration_.names) {
      configuration_.names = std::move(names);
      service_.Kill("static names have changed");
    }
  } catch (const Failure& failure) {
    Log("warning", failure.why + "; the service runs on with the names that it has");
  }
  try {
    monitor_.Watch(LoadServers(options_), now_);
  } catch (const Failure& failure) {
    Log("warning", failure.why + "; the service runs on with the servers that it has");
  }
}

void Supervisor::RenewTrace(void (Trace::*how)()) {
  if (!trace_.IsFile()) {
    return;
  }
  try {
    (trace_.*how)();
    service_.RenewTrace();
    failure_.clear();
  } catch (const Failure& failure) {
    LogOnce(failure.why);
  }
}

// Says the same thing once, however often it is found.
void Supervisor::LogOnce(const std::string& why) {
  if (std::exchange(failure_, why) != why) {
    Log("error", why);
  }
}

bool Supervisor::Idle() const { return now_ - queriedAt_ >= kIdleAfter; }
