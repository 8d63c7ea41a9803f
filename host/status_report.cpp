#include "host/status_report.h"

#include <cstdio>

#include "host/log.h"

namespace {

std::string Seconds(Milliseconds time) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.1f s", static_cast<double>(time.count()) / 1000);
  return text;
}

std::string Row(const char* name, const std::string& value) {
  char row[512];
  std::snprintf(row, sizeof(row), "%-10s %s\n", name, value.c_str());
  return row;
}

// A JSON string. Printable leaves two characters to escape.
std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : Printable(text)) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
    }
    quoted += c;
  }
  return quoted + "\"";
}

std::string Number(std::optional<Milliseconds> time) {
  return time ? std::to_string(time->count()) : "null";
}

}  // namespace

std::string AsTable(const StatusReport& report) {
  std::string table =
      Row("state", report.state) + Row("uptime", Seconds(report.uptime)) +
      Row("processes", "host " + std::to_string(report.host) + ", service " +
                           (report.service == 0 ? "none" : std::to_string(report.service))) +
      Row("queries", std::to_string(report.queries)) +
      Row("probe", report.probeAgo ? "answered " + Seconds(*report.probeAgo) + " ago in " +
                                         std::to_string(report.probeRoundTrip.count()) + " ms"
                                   : std::string("not answered yet"));
  for (const StatusReport::Upstream& upstream : report.upstreams) {
    table += Row("upstream", upstream.address + " " + upstream.state +
                                 (upstream.roundTrip ? ", " + Number(upstream.roundTrip) + " ms"
                                                     : std::string()));
  }
  table += Row("restarts", std::to_string(report.restartCount));
  for (const StatusReport::Restart& restart : report.restarts) {
    table += Row("", Seconds(restart.ago) + " ago: " + Printable(restart.why));
  }
  return table;
}

std::string AsJson(const StatusReport& report) {
  std::string upstreams;
  for (const StatusReport::Upstream& upstream : report.upstreams) {
    upstreams += (upstreams.empty() ? "" : ", ") + ("{\"address\": " + Quoted(upstream.address)) +
                 ", \"state\": " + Quoted(upstream.state) +
                 ", \"round_trip_ms\": " + Number(upstream.roundTrip) + "}";
  }
  std::string restarts;
  for (const StatusReport::Restart& restart : report.restarts) {
    restarts += (restarts.empty() ? "" : ", ") + ("{\"ms_ago\": " + Number(restart.ago)) +
                ", \"why\": " + Quoted(restart.why) + "}";
  }
  return "{\"state\": " + Quoted(report.state) + ", \"uptime_ms\": " + Number(report.uptime) +
         ", \"host_process\": " + std::to_string(report.host) +
         ", \"service_process\": " + std::to_string(report.service) +
         ", \"queries\": " + std::to_string(report.queries) +
         ", \"restarts\": " + std::to_string(report.restartCount) + ", \"last_restarts\": [" +
         restarts + "], \"upstreams\": [" + upstreams +
         "], \"last_probe\": {\"ms_ago\": " + Number(report.probeAgo) +
         ", \"round_trip_ms\": " + Number(report.probeRoundTrip) + "}}\n";
}
