// Starting: what is set up, and every way in which that fails.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "tests/service/service_test.h"
#include "tests/support/platform_calls.h"

namespace service {
namespace {

using support::TraceIs;

using StartUp = ServiceTest;

const support::TraceLines kNoSocket = {"func: StartDnsSrv(line:%d) socket invalid"};
const support::TraceLines kNotBound = {"func: StartDnsSrv(line:%d) bind 127.0.0.1:53 failed"};

// In the service's process: `free` more descriptors can be opened, and then none.
void LeaveDescriptors(int free) {
  const int lowest = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(lowest);
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = static_cast<rlim_t>(lowest + free);
  setrlimit(RLIMIT_NOFILE, &limit);
}

// In the service's process: every privilege is given up.
void DropCapabilities() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
  syscall(SYS_capset, &header, none);
}

// In the service's process: the `which`th thread from now on is refused.
void RefuseThread(int which) {
  static std::unique_ptr<
      support::Failing<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>>
      refusal;
  refusal.reset(new support::Failing(support::platform::pthread_create, which, EAGAIN, EAGAIN));
}

TEST_F(StartUp, BindsListsAndStartsInThisOrder) {
  Serve({.servers = {"127.0.0.2", "dns.example"},
         .hostMaps = {{"a.example", "10.0.0.1"}, {"b.example", "10.0.0.2"}}});
  EXPECT_THAT(Process().Trace(),
              TraceIs({"func: StartDnsSrv(line:%d) bind 127.0.0.1:53 success",
                       "func: StartDnsSrv(line:%d) Add host map: a.example -> 10.0.0.1",
                       "func: StartDnsSrv(line:%d) Add host map: b.example -> 10.0.0.2",
                       "func: StartDnsSrv(line:%d) Add SP DNS to list: 127.0.0.2",
                       "func: StartDnsSrv(line:%d) Add SP DNS to list: dns.example",
                       "func: StartDnsSrv(line:%d) pthread_create g_thread_answer success",
                       "func: StartDnsSrv(line:%d) pthread_create thread_query success"}));
  EXPECT_FALSE(Process().HasReturned());
}

TEST_F(StartUp, WithNothingToListStartsAllTheSame) {
  Serve({});
  EXPECT_THAT(Process().Trace(),
              TraceIs({"func: StartDnsSrv(line:%d) bind 127.0.0.1:53 success",
                       "func: StartDnsSrv(line:%d) pthread_create g_thread_answer success",
                       "func: StartDnsSrv(line:%d) pthread_create thread_query success"}));
}

TEST_F(StartUp, FailsWhenThePortIsTakenAndLeavesBothSocketsOpen) {
  const UdpPeer other("127.0.0.1", 53);
  Start({.servers = {"127.0.0.2"}, .hostMaps = {{"a.example", "10.0.0.1"}}});
  const Outcome outcome = Process().WaitForReturn();
  EXPECT_FALSE(outcome.result);
  EXPECT_TRUE(outcome.applicationSocketOpen);
  EXPECT_TRUE(outcome.serverSocketOpen);
  EXPECT_EQ(outcome.methods, 0U);
  EXPECT_THAT(Process().Trace(), TraceIs(kNotBound));
}

TEST_F(StartUp, FailsWhenAnotherServiceHasThePortAndDoesNotDisturbIt) {
  Serve({});
  {
    const ServiceProcess second(Plan{});
    EXPECT_FALSE(second.WaitForReturn().result);
    EXPECT_THAT(second.Trace(), TraceIs(kNotBound));
  }
  SettleQueries();
}

TEST_F(StartUp, FailsWithoutTheRightToThePortAndLeavesBothSocketsOpen) {
  Start({.beforeTheCall = DropCapabilities});
  const Outcome outcome = Process().WaitForReturn();
  EXPECT_FALSE(outcome.result);
  EXPECT_TRUE(outcome.applicationSocketOpen);
  EXPECT_TRUE(outcome.serverSocketOpen);
  EXPECT_THAT(Process().Trace(), TraceIs(kNotBound));
}

TEST_F(StartUp, FailsWhenNoDescriptorIsLeftForTheFirstSocket) {
  Start({.servers = {"127.0.0.2"}, .beforeTheCall = [] { LeaveDescriptors(0); }});
  const Outcome outcome = Process().WaitForReturn();
  EXPECT_FALSE(outcome.result);
  EXPECT_FALSE(outcome.applicationSocketOpen);
  EXPECT_FALSE(outcome.serverSocketOpen);
  EXPECT_EQ(outcome.methods, 0U);
  EXPECT_THAT(Process().Trace(), TraceIs(kNoSocket));
}

TEST_F(StartUp, FailsWhenNoDescriptorIsLeftForTheSecondSocketAndLeavesTheFirstOpen) {
  Start({.servers = {"127.0.0.2"}, .beforeTheCall = [] { LeaveDescriptors(1); }});
  const Outcome outcome = Process().WaitForReturn();
  EXPECT_FALSE(outcome.result);
  EXPECT_TRUE(outcome.applicationSocketOpen);
  EXPECT_FALSE(outcome.serverSocketOpen);
  EXPECT_EQ(outcome.methods, 0U);
  EXPECT_THAT(Process().Trace(), TraceIs(kNoSocket));
}

TEST_F(StartUp, FailsWhenTheAnswerThreadIsRefusedAndLeavesSocketsAndMethods) {
  Start({.servers = {"127.0.0.2"}, .hostMaps = {{"a.example", "10.0.0.1"}}, .beforeTheCall = [] {
           RefuseThread(1);
         }});
  const Outcome outcome = Process().WaitForReturn();
  EXPECT_FALSE(outcome.result);
  EXPECT_TRUE(outcome.applicationSocketOpen);
  EXPECT_TRUE(outcome.serverSocketOpen);
  EXPECT_EQ(outcome.methods, 2U);
  EXPECT_THAT(Process().Trace(),
              TraceIs({"func: StartDnsSrv(line:%d) bind 127.0.0.1:53 success",
                       "func: StartDnsSrv(line:%d) Add host map: a.example -> 10.0.0.1",
                       "func: StartDnsSrv(line:%d) Add SP DNS to list: 127.0.0.2",
                       "func: StartDnsSrv(line:%d) pthread_create g_thread_answer failed"}));
}

TEST_F(StartUp, FailsWhenTheQueryThreadIsRefusedAndLeavesTheAnswerThreadRunning) {
  Start({.servers = {"127.0.0.2"}, .beforeTheCall = [] { RefuseThread(2); }});
  const Outcome outcome = Process().WaitForReturn();
  EXPECT_FALSE(outcome.result);
  EXPECT_TRUE(outcome.applicationSocketOpen);
  EXPECT_TRUE(outcome.serverSocketOpen);
  EXPECT_THAT(Process().Trace(),
              TraceIs({"func: StartDnsSrv(line:%d) bind 127.0.0.1:53 success",
                       "func: StartDnsSrv(line:%d) Add SP DNS to list: 127.0.0.2",
                       "func: StartDnsSrv(line:%d) pthread_create g_thread_answer success",
                       "func: StartDnsSrv(line:%d) pthread_create thread_query failed"}));

  // Only a thread that runs has a wait that can be interrupted.
  EXPECT_TRUE(Process().InterruptAnswerThread(
      "func: thread_answer(line:%d) AnswerThread: select failed. exit."));
}

}  // namespace
}  // namespace service
