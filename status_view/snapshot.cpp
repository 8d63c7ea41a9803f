#include "status_view/snapshot.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/common/log.h"

namespace {

using Json = nlohmann::ordered_json;

std::string Text(const Json& json) {
  return Printable(json.is_null() ? "" : json.get<std::string>());
}

// The object's numbers, with their names in words.
std::vector<Snapshot::Count> Counts(const Json& json) {
  std::vector<Snapshot::Count> counts;
  for (const auto& [key, value] : json.items()) {
    std::string name = Printable(key);
    std::ranges::replace(name, '_', ' ');
    counts.push_back({name, value.get<double>()});
  }
  return counts;
}

}  // namespace

std::optional<Snapshot> ReadSnapshot(const std::string& json) {
  try {
    const Json told = Json::parse(json);
    Snapshot snapshot = {.state = Text(told.at("state")),
                         .uptime = told.at("uptime_s"),
                         .hostProcess = told.at("host_process"),
                         .serviceProcess = told.at("service_process"),
                         .error = Text(told.at("error")),
                         .outcomes = Counts(told.at("outcomes")),
                         .keptAway = Counts(told.at("kept_away")),
                         .optRecords = told.at("opt_records_taken"),
                         .strayAnswers = told.at("stray_answers"),
                         .servers = {},
                         .roundTrips = {},
                         .restarts = told.at("restarts"),
                         .lastRestarts = {}};
    for (const Json& server : told.at("upstreams")) {
      const std::string address = Text(server.at("address"));
      const std::string state = Text(server.at("state"));
      snapshot.servers.push_back({address, state, {}});
      if (state == "silent") {
        snapshot.servers.back().silentFor = server.at("silent_s");
      } else if (state == "alive") {
        snapshot.roundTrips.push_back({address, server.at("round_trip_ms")});
      }
    }
    for (const Json& restart : told.at("last_restarts")) {
      snapshot.lastRestarts.push_back({Text(restart.at("why")), restart.at("s_ago")});
    }
    return snapshot;
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}
