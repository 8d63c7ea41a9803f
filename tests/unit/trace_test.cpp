// The service's trace lines.
#include "dns_proxy_mac/proxy/trace.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <thread>

#include "tests/support/trace_capture.h"

namespace {

using support::TraceIs;
using support::TraceLines;
using support::TraceOf;

TEST(Trace, LineBeginsWithTheFunctionAndTheLineOfTheCall) {
  const int line = __LINE__ + 1;
  const TraceLines trace = TraceOf([] { TraceFrom("thread_query")(" text %d\n", 7); });
  EXPECT_EQ(trace, (TraceLines{"func: thread_query(line:" + std::to_string(line) + ") text 7"}));
}

// Compilers differ about the line of a macro call that spans several.
TEST(Trace, LineOfACallThatSpansSeveralLinesIsTheFirst) {
  const int line = __LINE__ + 2;
  const TraceLines trace = TraceOf([] {
    TraceFrom("ExtractDomain")(" a text that leaves no room for its two numbers: %d, %d\n",
                               1000000000, 2000000000);
  });
  EXPECT_THAT(trace, testing::ElementsAre(testing::StartsWith(
                         "func: ExtractDomain(line:" + std::to_string(line) + ") a text")));
}

TEST(Trace, LineNeedsNoArguments) {
  EXPECT_THAT(TraceOf([] { TraceFrom("ExtractDomain")("text\n"); }),
              TraceIs({"func: ExtractDomain(line:%d)text"}));
}

TEST(Trace, LinesOfTwoThreadsNeverMixAndEachThreadsKeepTheirOrder) {
  constexpr int kLines = 5000;
  const std::string padding(150, '.');
  const auto write = [&](int thread) {
    for (int number = 0; number < kLines; ++number) {
      TraceFrom("worker")(" %d %s %d\n", thread, padding.c_str(), number);
    }
  };
  const TraceLines trace = TraceOf([&] {
    std::thread first(write, 1);
    std::thread second(write, 2);
    first.join();
    second.join();
  });
  ASSERT_EQ(trace.size(), 2U * kLines);
  std::map<int, int> next;
  for (const std::string& line : trace) {
    const int thread = line.find(") 1 ") != std::string::npos ? 1 : 2;
    const std::string expected = "func: worker(line:%d) " + std::to_string(thread) + " " + padding +
                                 " " + std::to_string(next[thread]++);
    ASSERT_TRUE(support::TraceLineMatches(expected, line)) << line;
  }
}

}  // namespace
