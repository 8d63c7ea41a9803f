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
  const TraceLines trace = TraceOf([] { TRACE("thread_query", " text %d\n", 7); });
  EXPECT_EQ(trace, (TraceLines{"func: thread_query(line:" + std::to_string(line) + ") text 7"}));
}

TEST(Trace, LineNeedsNoArguments) {
  EXPECT_THAT(TraceOf([] { TRACE("ExtractDomain", "text\n"); }),
              TraceIs({"func: ExtractDomain(line:%d)text"}));
}

TEST(Trace, LinesOfTwoThreadsNeverMixAndEachThreadsKeepTheirOrder) {
  constexpr int kLines = 5000;
  const std::string padding(150, '.');
  const auto write = [&](int thread) {
    for (int number = 0; number < kLines; ++number) {
      TRACE("worker", " %d %s %d\n", thread, padding.c_str(), number);
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
