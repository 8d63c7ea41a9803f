#include "host/status_report.h"

#include <gtest/gtest.h>

namespace {

StatusReport Example() {
  StatusReport report;
  report.uptime = Milliseconds(61500);
  report.host = 100;
  report.service = 101;
  report.state = "serving";
  report.queries = 42;
  report.restartCount = 7;
  report.restarts = {{Milliseconds(1200), "a \"quoted\" \\ reason\x1b[2J"}};
  report.upstreams = {{"192.0.2.1", "alive", Milliseconds(12)}, {"192.0.2.2", "silent", {}}};
  report.probeAgo = Milliseconds(100);
  report.probeRoundTrip = Milliseconds(1);
  return report;
}

TEST(StatusReport, TableHasALineForEachThing) {
  EXPECT_EQ(AsTable(Example()),
            "state      serving\n"
            "uptime     61.5 s\n"
            "processes  host 100, service 101\n"
            "queries    42\n"
            "probe      answered 0.1 s ago in 1 ms\n"
            "upstream   192.0.2.1 alive, 12 ms\n"
            "upstream   192.0.2.2 silent\n"
            "restarts   7\n"
            "           1.2 s ago: a \"quoted\" \\ reason?[2J\n");
}

TEST(StatusReport, JsonEscapesWhatItMust) {
  EXPECT_EQ(AsJson(Example()),
            "{\"state\": \"serving\", \"uptime_ms\": 61500, \"host_process\": 100, "
            "\"service_process\": 101, \"queries\": 42, \"restarts\": 7, \"last_restarts\": "
            "[{\"ms_ago\": 1200, \"why\": \"a \\\"quoted\\\" \\\\ reason?[2J\"}], \"upstreams\": "
            "[{\"address\": \"192.0.2.1\", \"state\": \"alive\", \"round_trip_ms\": 12}, "
            "{\"address\": \"192.0.2.2\", \"state\": \"silent\", \"round_trip_ms\": null}], "
            "\"last_probe\": {\"ms_ago\": 100, \"round_trip_ms\": 1}}\n");
}

TEST(StatusReport, BeforeTheFirstProbeThereIsNothingToTellOfIt) {
  EXPECT_NE(AsTable(StatusReport()).find("probe      not answered yet\n"), std::string::npos);
  EXPECT_NE(AsJson(StatusReport()).find("\"last_probe\": {\"ms_ago\": null"), std::string::npos);
}

}  // namespace
