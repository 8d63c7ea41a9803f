#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "status_view/page.h"
#include "status_view/snapshot.h"

namespace {

using Lines = std::vector<std::string>;

// What a host says, with one of its members in another way.
std::string Report(const std::string& member = "", const std::string& value = "") {
  std::string json =
      R"({"state": "serving", "uptime_s": 11525.2, "host_process": 12, "service_process": 13,
          "queries": 12345,
          "outcomes": {"static_name": 1234, "127.0.0.2": 10000, "127.0.0.3": 0,
                       "no_such_name": 1100, "lost_in_restarts": 1, "still_waiting": 10},
          "kept_away": {"short_query": 5, "root": 0, "other_question": 7},
          "opt_records_taken": 44, "stray_answers": 2, "error": null, "last_probe_s_ago": 0.1,
          "upstreams": [
            {"address": "127.0.0.2", "state": "alive", "round_trip_ms": 11, "silent_s": null},
            {"address": "127.0.0.3", "state": "silent", "round_trip_ms": 9, "silent_s": 40.3},
            {"address": "127.0.0.4", "state": "not asked yet", "round_trip_ms": null,
             "silent_s": null}],
          "restarts": 1,
          "last_restarts": [{"s_ago": 2.1, "why": "service was ended by signal 9"}]})";
  if (!member.empty()) {
    const std::size_t begin = json.find('"' + member + "\": ") + member.size() + 4;
    json.replace(begin, json.find_first_of(",}", begin) - begin, value);
  }
  return json;
}

Lines StatusOf(const std::string& json) { return StatusLines(ReadSnapshot(json).value()); }

// A moment, so many seconds after the first.
Moment After(int seconds, const std::string& json) {
  return {TimePoint{} + std::chrono::seconds(seconds), ReadSnapshot(json)};
}

// One that has gone on for `seconds`: in each of them a static name was asked for as many times as
// the second's number.
Moment Busy(int seconds) {
  const int asked = seconds * (seconds + 1) / 2;
  Moment moment = After(seconds, Report());
  moment.told->outcomes[0].count += asked;
  moment.told->roundTrips[0].count = 10 + seconds;
  return moment;
}

History BusyFor(int seconds) {
  History seen;
  for (int second = 0; second <= seconds; ++second) {
    seen.push_back(Busy(second));
  }
  return seen;
}

// The columns that `line` takes on a terminal.
std::size_t Columns(const std::string& line) {
  std::size_t columns = 0;
  bool escape = false;
  for (const char c : line) {
    escape = escape || c == '\x1b';
    columns += !escape && (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
    escape = escape && c != 'm';
  }
  return columns;
}

std::string LineWith(const Lines& lines, const std::string& text) {
  for (const std::string& line : lines) {
    if (line.find(text) != std::string::npos) {
      return line;
    }
  }
  return "no line with " + text;
}

std::string Joined(const Lines& lines) {
  std::string joined;
  for (const std::string& line : lines) {
    joined += line + "\n";
  }
  return joined;
}

TEST(StatusView, StatusIsColumnsAndSentences) {
  EXPECT_EQ(Joined(StatusOf(Report())),
            "serving for 3 h 12 min\n"
            "host process 12, service process 13\n"
            "\n"
            "queries                  12,345\n"
            "  static name             1,234  10 %\n"
            "  127.0.0.2              10,000  81 %\n"
            "  no such name            1,100   9 %\n"
            "  lost in restarts            1   0 %\n"
            "  still waiting              10   0 %\n"
            "kept away                    12\n"
            "  short query                 5  42 %\n"
            "  other question              7  58 %\n"
            "OPT records taken            44\n"
            "stray answers                 2\n"
            "\n"
            "servers\n"
            "  127.0.0.2         alive                11 ms\n"
            "  127.0.0.3         silent for 40 s\n"
            "  127.0.0.4         not asked yet\n"
            "\n"
            "restarts                      1\n"
            "  started again 2 s ago: service was ended by signal 9\n");
}

TEST(StatusView, HostThatDoesNotServeSaysSoAndWhy) {
  Lines lines = StatusOf(Report("state", R"("waiting to start again")"));
  EXPECT_EQ(lines[0], "waiting to start again; the host has run for 3 h 12 min");
  lines = StatusOf(Report("error", R"("the port is taken")"));
  EXPECT_EQ(lines[1], "what is wrong: the port is taken");
  EXPECT_EQ(LineWith(StatusOf(Report("service_process", "0")), "host process"),
            "host process 12, no service process");
}

TEST(StatusView, TimesHaveTwoUnitsAtTheMost) {
  const struct {
    const char* seconds;
    const char* words;
  } cases[] = {{"0.4", "0 s"},          {"119", "119 s"},      {"120", "2 min 0 s"},
               {"3599", "59 min 59 s"}, {"3600", "1 h 0 min"}, {"86399", "23 h 59 min"},
               {"90061", "1 d 1 h"},    {"864000", "10 d 0 h"}};
  for (const auto& [seconds, words] : cases) {
    EXPECT_EQ(StatusOf(Report("uptime_s", seconds))[0], std::string("serving for ") + words);
  }
}

TEST(StatusView, WhatIsNoReportIsNone) {
  EXPECT_FALSE(ReadSnapshot(""));
  EXPECT_FALSE(ReadSnapshot("[]"));
  EXPECT_FALSE(ReadSnapshot(Report().substr(0, Report().size() - 1)));
  EXPECT_FALSE(ReadSnapshot(Report("uptime_s", "\"long\"")));
  EXPECT_FALSE(ReadSnapshot(Report("upstreams", "7")));
}

TEST(StatusView, NoTextDrawsOnTheTerminal) {
  for (const char* const member : {"state", "error", "address", "why"}) {
    const std::string drawn = Joined(StatusOf(Report(member, R"("\u001b[2J\n\u00e9\"\\{}")")));
    EXPECT_NE(drawn.find("?[2J??"), std::string::npos) << member;
    EXPECT_EQ(drawn.find('\x1b'), std::string::npos) << member;
  }
}

TEST(StatusView, PageDrawsTheLastMinute) {
  const Lines page = PageLines(BusyFor(90), 80, false);
  EXPECT_EQ(LineWith(page, "queries in"), "queries in the last 60 s: at most 90.0 a second");
  const std::string line = LineWith(page, "     90.0 a second");
  EXPECT_EQ(Columns(line), 80U);
  EXPECT_EQ(line.substr(0, 20), "     90.0 a second  ");
  EXPECT_EQ(line.substr(20, 3), "▄") << "31 of 90";
  EXPECT_TRUE(line.ends_with("▇█")) << line;
  // 31 + 32 + ... + 90 of them.
  EXPECT_EQ(LineWith(page, "queries   "),
            "queries                  16,440          3,630  in the last 60 s");
  EXPECT_EQ(LineWith(page, "static name"),
            "  static name             5,329  32 %    3,630  ████████████████████████████████");
}

TEST(StatusView, WiderPageShowsMore) {
  const Lines page = PageLines(BusyFor(150), 120, false);
  EXPECT_EQ(LineWith(page, "queries in"), "queries in the last 100 s: at most 150 a second");
  EXPECT_EQ(Columns(LineWith(page, "150 a second  ")), 120U);
  EXPECT_EQ(Columns(LineWith(page, "static name")), 120U);
  EXPECT_EQ(Columns(LineWith(page, "127.0.0.2         alive")), 120U);
}

TEST(StatusView, EachServerHasALineOfItsRoundTripsWhileItIsAlive) {
  History seen = BusyFor(3);
  for (Moment& moment : seen) {
    moment.told->servers[1] = {"127.0.0.3", "alive", std::nullopt};
    moment.told->roundTrips.push_back({"127.0.0.3", 5});
  }
  seen.back().told->servers[1] = {"127.0.0.3", "silent", 1.0};
  seen.back().told->roundTrips.pop_back();
  const Lines page = PageLines(seen, 80, false);
  EXPECT_EQ(LineWith(page, "127.0.0.2         alive"),
            "  127.0.0.2         alive                13 ms  " + std::string(28, ' ') + "▆▇▇█");
  EXPECT_EQ(LineWith(page, "silent"),
            "  127.0.0.3         silent for 1 s" + std::string(42, ' ') + "███");
}

TEST(StatusView, TimeWithoutAHostIsBlankAndCountsBeginAnewWithTheNextOne) {
  History seen = BusyFor(4);
  seen.push_back(After(5, ""));
  Lines page = PageLines(seen, 80, false);
  EXPECT_EQ(page[0], "no host answers; the last one said:");
  EXPECT_EQ(page[1], "serving for 3 h 12 min");
  for (int second = 6; second <= 8; ++second) {
    seen.push_back(Busy(second));
    seen.back().told->hostProcess = 99;
  }
  page = PageLines(seen, 80, false);
  EXPECT_EQ(page[0], "serving for 3 h 12 min");
  EXPECT_TRUE(LineWith(page, "8.0 a second  ").ends_with("▂▃▄▅  ▇█")) << Joined(page);
  EXPECT_EQ(LineWith(page, "queries   "),
            "queries                  12,381             15  in the last 2 s");
}

TEST(StatusView, ColoursAreThereIfWanted) {
  const History seen = BusyFor(2);
  EXPECT_EQ(Joined(PageLines(seen, 80, false)).find('\x1b'), std::string::npos);
  const Lines page = PageLines(seen, 80, true);
  EXPECT_EQ(page[0], "\x1b[32mserving for 3 h 12 min\x1b[m");
  EXPECT_NE(LineWith(page, "silent").find("\x1b[31msilent"), std::string::npos);
}

TEST(StatusView, WithoutATerminalItIsALine) {
  EXPECT_EQ(
      OneLine(BusyFor(2)),
      "serving, 2.0 queries a second, 10 waiting, 127.0.0.2 alive 12 ms, 127.0.0.3 silent for "
      "40 s, 127.0.0.4 not asked yet, 12 kept away, 1 restarts");
  EXPECT_EQ(OneLine({After(0, "")}), "no host answers");
}

}  // namespace
