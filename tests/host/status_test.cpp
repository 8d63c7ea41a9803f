#include "host/parent/status.h"

#include <gtest/gtest.h>

namespace {

TEST(Status, TextIsEscapedAsJsonMustBe) {
  EXPECT_EQ(Quoted("a \"quoted\" \\ reason\n\x1b[2J"), "\"a \\\"quoted\\\" \\\\ reason??[2J\"");
  EXPECT_EQ(Quoted(""), "\"\"");
}

TEST(Status, TableIsTheJsonWithoutItsPunctuationAndItsValuesStandInAColumn) {
  const std::string json = Outermost(
      {{"state", Quoted("serving")},
       {"uptime_s", Seconds(Milliseconds(61540))},
       {"upstreams",
        Array({Object({Member("address", Quoted("192.0.2.1")), Member("round_trip_ms", "12")}),
               Object({Member("why", Quoted("{one}, \"two\" \\"))})})},
       {"last_restarts", Array({})}});
  EXPECT_EQ(json,
            "{\"state\":              \"serving\",\n"
            "\"uptime_s\":           61.5,\n"
            "\"upstreams\":          [{\"address\": \"192.0.2.1\", \"round_trip_ms\": 12},\n"
            "                    {\"why\": \"{one}, \\\"two\\\" \\\\\"}],\n"
            "\"last_restarts\":      []}\n");
  EXPECT_EQ(AsTable(json),
            "state:              serving\n"
            "uptime_s:           61.5\n"
            "upstreams:          address: 192.0.2.1 round_trip_ms: 12\n"
            "                    why: {one}, \"two\" \\\n"
            "last_restarts:      \n");
}

}  // namespace
