#include "status_view/snapshot.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/common/log.h"

namespace {

using Json = nlohmann::ordered_json;

std::string Text(const Json& json) {
  return Printable(json.is_null() ? "" : json.get<std::string>());
}

std::optional<double> Number(const Json& json) {
  return json.is_null() ? std::nullopt : std::optional(json.get<double>());
}

// The object's numbers, with their names in words.
std::vector<Snapshot::Count> Counts(const Json& json) {
  std::vector<Snapshot::Count> counts;
  for (const auto& [key, value] : json.items()) {
    std::string name = Printable(key);
    std::replace(name.begin(), name.end(), '_', ' ');
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
                         .queries = told.at("queries"),
                         .outcomes = Counts(told.at("outcomes")),
                         .keptAway = Counts(told.at("kept_away")),
                         .optRecords = told.at("opt_records_taken"),
                         .strayAnswers = told.at("stray_answers"),
                         .servers = {},
                         .restarts = told.at("restarts"),
                         .lastRestarts = {}};
    for (const Json& server : told.at("upstreams")) {
      snapshot.servers.push_back({Text(server.at("address")), Text(server.at("state")),
                                  Number(server.at("round_trip_ms")),
                                  Number(server.at("silent_s"))});
    }
    for (const Json& restart : told.at("last_restarts")) {
      snapshot.lastRestarts.push_back({restart.at("s_ago"), Text(restart.at("why"))});
    }
    return snapshot;
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}
