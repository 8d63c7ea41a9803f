// How the other tests see and compare the program's trace.
#include "tests/support/trace_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

namespace support {
namespace {

using testing::ElementsAre;
using testing::Not;

TEST(TraceCapture, GivesStandardOutputBack) {
  TraceCapture outer;
  TraceOf([] { std::printf("inner\n"); });
  std::printf("outer\n");
  EXPECT_EQ(outer.Stop(), TraceLines{"outer"});
}

TEST(TraceCapture, MarksALastLineWithoutLineFeed) {
  EXPECT_THAT(SplitLines("a\n\nb"), ElementsAre("a", "", "b<no line feed>"));
  EXPECT_THAT(SplitLines("a\n"), ElementsAre("a"));
  EXPECT_THAT(SplitLines(""), ElementsAre());
}

TEST(TraceLineMatches, TakesAnyLineNumberAndNothingElse) {
  const std::string expected = "func: f(line:%d) text %d";
  EXPECT_TRUE(TraceLineMatches(expected, "func: f(line:7) text %d"));
  EXPECT_TRUE(TraceLineMatches(expected, "func: f(line:120) text %d"));

  const char* const others[] = {
      "func: f(line:) text %d",     // no number
      "func: f(line:%d) text %d",   // the placeholder itself
      "func: f(line:012) text %d",  // no number that printf writes
      "func: f(line:-1) text %d",   // negative
      "func: f(line:7)text %d",     // a blank less
      "func: f(line:7)  text %d",   // a blank more
      "func: g(line:7) text %d",    // another function
      "func: f(line:7) text %d ",   // more behind
      " func: f(line:7) text %d",   // more before
      "func: f(line:7) text 1",     // the pattern stands for the line number only
      "func: f(line:7",             // cut
      "",
  };
  for (const char* other : others) {
    EXPECT_FALSE(TraceLineMatches(expected, other)) << other;
  }
}

TEST(TraceIs, WantsEveryLineInOrderAndNoOther) {
  EXPECT_THAT((TraceLines{"a", "f(line:3)"}), TraceIs({"a", "f(line:%d)"}));
  EXPECT_THAT((TraceLines{"a", "b"}), Not(TraceIs({"b", "a"})));
  EXPECT_THAT((TraceLines{"a", "b"}), Not(TraceIs({"a"})));
  EXPECT_THAT((TraceLines{"a"}), Not(TraceIs({"a", "b"})));
}

}  // namespace
}  // namespace support
