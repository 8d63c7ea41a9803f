#include "host/parent/status.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "dns_proxy_mac/proxy/socket_address.h"
#include "host/common/log.h"
#include "host/common/unix_socket.h"
#include "host/parent/supervisor.h"

namespace {

using Json = nlohmann::ordered_json;

// Bytes: a hundred servers are not a tenth of it.
constexpr int kMaxStatus = 256 * 1024;

std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

int Listen(const std::string& path, bool asked) try {
  asked || mkdir(FolderOf(path).c_str(), 0755);
  return path.empty() ? -1 : ListenUnix(path);
} catch (const Failure& failure) {
  if (asked) {
    throw;
  }
  Log("warning", failure.why + "; --status will find no host (--socket names another place)");
  return -1;
}

double Seconds(Clock::duration time) {
  using Tenths = std::chrono::duration<std::int64_t, std::deci>;
  return static_cast<double>(std::chrono::duration_cast<Tenths>(time).count()) / 10;
}

}  // namespace

StatusListener::StatusListener(const std::string& path, bool asked)
    : path_(path), asked_(asked), fd_(Listen(path, asked)) {}

StatusListener::~StatusListener() {
  if (fd_ != -1) {
    unlink(path_.c_str());
    asked_ || rmdir(FolderOf(path_).c_str());
    close(fd_);
  }
}

void StatusListener::Answer(const std::function<std::string()>& report) const {
  const int client = fd_ == -1 ? -1 : accept(fd_, nullptr, nullptr);
  if (client != -1) {
    setsockopt(client, SOL_SOCKET, SO_SNDBUF, &kMaxStatus, sizeof(kMaxStatus));
    const std::string text = report();
    send(client, text.data(), text.size(), MSG_DONTWAIT);  // the buffer takes all of it at once
    close(client);
  }
}

std::string Supervisor::Report() const {
  const SharedMemory& shared = service_.shared();
  // Answers are looked at before queries: so no fewer than none wait.
  Json outcomes;
  std::uint64_t answered = 0;
  const auto add = [&](const char* name, std::uint64_t count) {
    outcomes[name] = count;
    answered += count;
  };
  add("static_name", shared.staticNames);
  for (const SharedMemory::Server& server : shared.servers) {
    if (const in_addr_t address = server.address) {
      add(Ipv4Text(address).text, server.answers);
    }
  }
  add("no_such_name", shared.noSuchNames);
  const std::uint64_t queries = Queries();
  outcomes["lost_in_restarts"] = lost_;
  outcomes["still_waiting"] = queries - lost_ - answered;
  Json keptAway;
  for (std::size_t verdict = 1; verdict < kVerdictNames.size(); ++verdict) {
    keptAway[kVerdictNames[verdict]] = shared.verdicts[verdict].load();
  }
  Json upstreams = Json::array();
  for (const UpstreamMonitor::Upstream& upstream : monitor_.upstreams()) {
    const UpstreamHealth& health = upstream.health;
    const auto roundTrip = health.roundTrip();
    upstreams.push_back(
        {{"address", upstream.name},
         {"state", health.silent() ? "silent"
                   : roundTrip     ? "alive"
                                   : "not asked yet"},
         {"round_trip_ms", roundTrip ? Json(roundTrip->count()) : Json()},
         {"silent_s", health.silent() ? Json(Seconds(now_ - health.silentSince())) : Json()}});
  }
  Json restarts = Json::array();
  for (const Restart& restart : restarts_) {
    restarts.push_back({{"s_ago", Seconds(now_ - restart.at)}, {"why", restart.why}});
  }
  const auto livedAt = probe_.livedAt();
  const Json report = {{"state", service_.id() == 0 ? "waiting to start again"
                                 : probe_.serving() ? "serving"
                                                    : "starting"},
                       {"uptime_s", Seconds(now_ - begun_)},
                       {"host_process", getpid()},
                       {"service_process", service_.id()},
                       {"queries", queries},
                       {"outcomes", outcomes},
                       {"kept_away", keptAway},
                       {"opt_records_taken", shared.optRecords.load()},
                       {"stray_answers", shared.strayAnswers.load()},
                       {"error", failure_.empty() ? Json() : Json(failure_)},
                       {"last_probe_s_ago", livedAt ? Json(Seconds(now_ - *livedAt)) : Json()},
                       {"upstreams", upstreams},
                       {"restarts", restartCount_},
                       {"last_restarts", restarts}};
  // As ASCII: nothing in a text can draw on the terminal of who reads it.
  return report.dump(2, ' ', true, Json::error_handler_t::replace) + '\n';
}
