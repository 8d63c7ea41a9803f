// Starting where the system itself says no. Every other way in which a start fails, and what a
// start sets up, stands in tests/unit/service_test.cpp.
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/service/service_test.h"
#include "tests/support/platform_calls.h"

namespace service {
namespace {

using StartUp = ServiceTest;

// In the service's process: the second thread from now on is refused.
void RefuseSecondThread() {
  static const support::Failing refusal(support::platform::pthread_create, 2, EAGAIN, EAGAIN);
}

TEST_F(StartUp, FailsWhenThePortIsTakenAndLeavesBothSocketsOpen) {
  const UdpPeer other("127.0.0.1", 53);
  Start({.servers = {"127.0.0.2"}, .hostMaps = {{"a.example", "10.0.0.1"}}});
  const Outcome outcome = Process().WaitForReturn();
  EXPECT_FALSE(outcome.result);
  EXPECT_TRUE(outcome.applicationSocketOpen);
  EXPECT_TRUE(outcome.serverSocketOpen);
  EXPECT_EQ(outcome.methods, 0U);
  EXPECT_THAT(Process().Trace(), TraceIs({trace::kNotBound}));
}

TEST_F(StartUp, FailsWhenAnotherServiceHasThePortAndDoesNotDisturbIt) {
  Serve({});
  {
    const ServiceUnderTest second(Plan{});
    EXPECT_FALSE(second.WaitForReturn().result);
    EXPECT_THAT(second.Trace(), TraceIs({trace::kNotBound}));
  }
  SettleQueries();
}

TEST_F(StartUp, FailsWhenTheQueryThreadIsRefusedAndLeavesTheAnswerThreadRunning) {
  Start({.servers = {"127.0.0.2"}, .beforeTheCall = RefuseSecondThread});
  const Outcome outcome = Process().WaitForReturn();
  EXPECT_FALSE(outcome.result);
  EXPECT_TRUE(outcome.applicationSocketOpen);
  EXPECT_TRUE(outcome.serverSocketOpen);
  EXPECT_THAT(Process().Trace(), TraceIs({trace::kBound, trace::ServerAdded("127.0.0.2"),
                                          trace::kAnswerThreadMade, trace::kQueryThreadRefused}));

  // Only a thread that runs has a wait that can be interrupted.
  EXPECT_TRUE(Process().InterruptAnswerThread(trace::kAnswerWaitFailed));
}

}  // namespace
}  // namespace service
