#include "host/parent/supervisor.h"

#include <arpa/inet.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "host/common/exit_status.h"
#include "host/common/log.h"
#include "host/common/port.h"
#include "host/common/signals.h"
#include "host/common/unix_socket.h"
#include "host/parent/status.h"

namespace {

// A child that has served is followed at once, but not more often than this.
constexpr Milliseconds kBetweenStarts{20};

// One that has not: after 100 ms, 200 ms and so on up to 5 s.
constexpr Milliseconds kFirstDelay{100};
constexpr Milliseconds kLongestDelay{5000};

// A child is asked again and again until it answers for the first time.
constexpr Milliseconds kStartTimeout{2000};
constexpr int kMaxDoublings = 5;  // of that time
constexpr Milliseconds kStartInterval{20};

constexpr Milliseconds kProbeTimeout{200};

// Without queries for this long the host slows down. What ends or stops the service is reported at
// once all the same; only a service that hangs is found later.
constexpr Milliseconds kIdleAfter{10000};
constexpr Milliseconds kIdleInterval{2000};

constexpr std::size_t kRestartsKept = 5;
constexpr Milliseconds kBetweenLogLines{1000};

// A name that the service turns away as a reverse look-up. It has a random part, so that no
// application can pass its own queries off as probes, which are kept out of the trace.
std::string MakeProbeName() {
  std::random_device random;
  char name[64];
  std::snprintf(name, sizeof(name), "%08x%08x.probe.in-addr.arpa", random(), random());
  return name;
}

}  // namespace

Supervisor::Supervisor(const Options& options, const Configuration& configuration, const User& user,
                       Trace& trace, int statusListener)
    : options_(options),
      configuration_(configuration),
      trace_(trace),
      statusListener_(statusListener),
      probeName_(MakeProbeName()),
      service_(trace, user, probeName_) {
  monitor_.Watch(configuration.servers, now_);
}

void Supervisor::Run() {
  while (!TakeSignal(SIGTERM) && !TakeSignal(SIGINT)) {
    if (TakeSignal(SIGHUP)) {
      RenewTrace(false);
      Reload();
    }
    Receive();
    if (const std::optional<std::string> why = service_.Ended(ready_)) {
      Ended(*why);
    }
    if (service_.id() == 0 && now_ >= startAt_) {
      Start();
    }
    if (service_.id() != 0 && now_ >= probeAt_) {
      LookAround();
      Probe();
    }
    FollowUpstreams();
    AnswerStatus(statusListener_, [this] { return Report(); });
    WaitFor({questions_, statusListener_}, std::min(service_.id() == 0 ? startAt_ : probeAt_,
                                                    Idle() ? TimePoint::max() : monitor_.due()));
    now_ = Clock::now();
  }
  NotifyManager("STOPPING=1");
}

void Supervisor::Start() {
  startedAt_ = now_;
  running_ = {monitor_.Choice(), configuration_.names};
  serving_ = false;
  waiting_ = false;
  probeAt_ = now_;
  probeId_ = static_cast<std::uint16_t>(random_());
  passesAtStart_ = service_.passes();
  try {
    const std::optional<Failure> fault = service_.KeepsPort() ? std::nullopt : PortFault();
    if (fault) {
      throw Failure(*fault);
    }
    service_.Start(running_);
    complaint_.clear();
  } catch (const Failure& failure) {
    Complain(failure.why);
    StartAgain(false);
  }
}

void Supervisor::Ended(const std::string& why) {
  ++restartCount_;
  restarts_.push_front({now_, why});
  restarts_.resize(std::min(restarts_.size(), kRestartsKept));
  if (now_ - loggedAt_ >= kBetweenLogLines) {
    loggedAt_ = now_;
    Log("warning",
        "starting the service again: " + why + " (number " + std::to_string(restartCount_) + ")");
  }
  StartAgain(service_.passes() != passesAtStart_);
}

void Supervisor::StartAgain(bool served) {
  failedStarts_ = served ? 0 : std::min(failedStarts_ + 1, 8);
  startAt_ = served ? startedAt_ + kBetweenStarts
                    : now_ + std::min(kLongestDelay, kFirstDelay * (1 << (failedStarts_ - 1)));
}

// Everything that is done now and then is done here, so that it costs one wake-up together.
void Supervisor::LookAround() {
  if (Queries() != queriesSeen_) {
    queriesSeen_ = Queries();
    queriedAt_ = now_;
  }
  if (trace_.Full()) {
    RenewTrace(true);
  }
  if (options_.servers.empty() && ReadResolvConf() != resolvConf_) {
    Reload();
  }
}

void Supervisor::Probe() {
  // A query thread that takes up datagrams is alive: the probe, or its answer, was lost to load.
  const bool late = waiting_ && service_.passes() == passesAtProbe_;
  // A start that takes too long may have many names to take in: the next one has more time.
  const Milliseconds timeout = kStartTimeout * (1 << std::min(failedStarts_, kMaxDoublings));
  if (late && (serving_ || now_ >= startedAt_ + timeout)) {
    service_.Kill(serving_ ? "service does not answer" : "service does not come up");
  }
  passesAtProbe_ = service_.passes();
  waiting_ = true;
  askedAt_ = now_;
  probeAt_ = now_ + (serving_ ? kProbeTimeout : kStartInterval);
  Ask(questions_, htonl(INADDR_LOOPBACK), probeId_, probeName_, kTypePtr);
}

void Supervisor::Receive() {
  for (const Response& response : ReceiveResponses(questions_)) {
    if (response.server != htonl(INADDR_LOOPBACK)) {
      monitor_.Answered(now_, response);
      continue;
    }
    ++probesAnswered_;
    if (response.id != probeId_) {
      continue;  // the last child's
    }
    waiting_ = false;
    serving_ = true;
    answeredAt_ = now_;
    const Milliseconds interval(options_.probeInterval);
    probeAt_ = askedAt_ + (Idle() ? std::max(kIdleInterval, interval) : interval);
    if (!ready_) {
      ready_ = true;
      Log("info", "serving on UDP 127.0.0.1 port 53");
      NotifyManager("READY=1");
    }
  }
}

void Supervisor::FollowUpstreams() {
  if (!Idle()) {
    monitor_.AskDue(now_, questions_);
  }
  const std::vector<std::string> choice = monitor_.Choice();
  if (choice != running_.servers) {
    service_.Kill("upstream servers are now " + Joined(choice));
  }
}

void Supervisor::Reload() {
  resolvConf_ = ReadResolvConf();
  // Each by itself: a hosts file that went wrong does not keep the servers of a new network away.
  try {
    configuration_.names = LoadNames(options_);
  } catch (const Failure& failure) {
    Log("warning", failure.why + "; the service runs on with the names that it has");
  }
  try {
    configuration_.servers = LoadServers(options_);
  } catch (const Failure& failure) {
    Log("warning", failure.why + "; the service runs on with the servers that it has");
  }
  monitor_.Watch(configuration_.servers, now_);
  if (configuration_.names != running_.names) {
    service_.Kill("static names have changed");
  }
}

void Supervisor::RenewTrace(bool rotate) {
  if (!trace_.IsFile()) {
    return;
  }
  try {
    rotate ? trace_.Rotate() : trace_.Open();
    service_.RenewTrace();
    complaint_.clear();
  } catch (const Failure& failure) {
    Complain(failure.why);
  }
}

// Says the same thing once, however often it is found.
void Supervisor::Complain(const std::string& why) {
  if (std::exchange(complaint_, why) != why) {
    Log("error", why);
  }
}

bool Supervisor::Idle() const { return now_ - queriedAt_ >= kIdleAfter; }

std::string Supervisor::Report() const {
  std::vector<std::string> upstreams;
  for (const UpstreamMonitor::Upstream& upstream : monitor_.upstreams()) {
    const std::optional<Milliseconds> roundTrip = upstream.health.roundTrip();
    const char* const state = !monitor_.Watching()       ? "not watched"
                              : upstream.health.silent() ? "silent"
                                                         : "alive";
    upstreams.push_back(
        Object({Member("address", Quoted(upstream.name)), Member("state", Quoted(state)),
                Member("round_trip_ms", roundTrip ? std::to_string(roundTrip->count()) : "null")}));
  }
  std::vector<std::string> restarts;
  for (const Restart& restart : restarts_) {
    restarts.push_back(
        Object({Member("s_ago", Seconds(now_ - restart.at)), Member("why", Quoted(restart.why))}));
  }
  const char* const state = service_.id() == 0 ? "waiting to start again"
                            : serving_         ? "serving"
                                               : "starting";
  return Outermost({{"state", Quoted(state)},
                    {"uptime_s", Seconds(now_ - begun_)},
                    {"host_process", std::to_string(getpid())},
                    {"service_process", std::to_string(service_.id())},
                    {"queries", std::to_string(Queries())},
                    {"error", complaint_.empty() ? "null" : Quoted(complaint_)},
                    {"last_probe_s_ago", answeredAt_ ? Seconds(now_ - *answeredAt_) : "null"},
                    {"upstreams", Array(upstreams)},
                    {"restarts", std::to_string(restartCount_)},
                    {"last_restarts", Array(restarts)}});
}
