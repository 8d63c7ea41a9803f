// The process-wide objects: what they are before the service, and what becomes of them at exit.
#include "dns_proxy_mac/proxy/service_state.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "dns_proxy_mac/proxy/dispatch.h"
#include "tests/support/heap_watch.h"
#include "tests/unit/request_fixture.h"

namespace {

using support::FreeWatch;

// Taken while the process's objects are constructed, before any test has run.
struct AtStart {
  int sockToClientApps = g_SockToClientApps;
  int sockToDNSServers = g_SockToDNSServers;
  unsigned short queryID = g_QueryID;
  pthread_t threadAnswer = g_thread_answer;
  pthread_t threadQuery = g_thread_query;
};
const AtStart kAtStart;

TEST(ServiceState, DescriptorsHandlesAndTheIdentifierAreZeroAtFirst) {
  EXPECT_EQ(kAtStart.sockToClientApps, 0);
  EXPECT_EQ(kAtStart.sockToDNSServers, 0);
  EXPECT_EQ(kAtStart.queryID, 0);
  EXPECT_EQ(support::BytesOf(kAtStart.threadAnswer), support::Bytes(sizeof(pthread_t), 0));
  EXPECT_EQ(support::BytesOf(kAtStart.threadQuery), support::Bytes(sizeof(pthread_t), 0));
}

using ServiceStateTest = RequestFixture;

TEST_F(ServiceStateTest, TableIsUsedWhoeverHoldsItsMutex) {
  // The mutex is initialised and never taken. Would the service take it, this test would not end.
  ASSERT_EQ(pthread_mutex_trylock(&g_DnsRequestTable.mutexTable), 0) << "it is initialised";
  AddRequest(1, {DnsServerMethod("192.0.2.1")});
  AddRequest(2, {});
  const auto trace = support::TraceOf([] {
    TryNextDNSQueryMethod(1, false);
    TryNextDNSQueryMethod(2, false);
  });
  DnsRequest copy;
  unsigned short id = 0;
  sockaddr address = {};
  EXPECT_TRUE(g_DnsRequestTable.Delete(1, copy));
  EXPECT_FALSE(g_DnsRequestTable.Delete(1, id, address));
  g_DnsRequestTable.Clear();
  EXPECT_EQ(pthread_mutex_unlock(&g_DnsRequestTable.mutexTable), 0);
  EXPECT_EQ(trace.size(), 6U);
}

TEST_F(ServiceStateTest, AtExitThePendingRequestsGoBeforeTheMethodList) {
  // The reverse of their construction. operator delete tells of the two blocks that are watched.
  EXPECT_EXIT(
      {
        g_DnsMethodList.assign(8, DnsServerMethod("192.0.2.1"));
        const FreeWatch methods(g_DnsMethodList.data(), [] { std::fputs("methods ", stderr); });
        const DnsRequest* const request = AddRequest(1, {}, "a-name-that-is-rather-long.internal");
        const FreeWatch requests(*request, [] { std::fputs("requests ", stderr); });
        std::exit(0);
      },
      testing::ExitedWithCode(0), "requests .*methods ");
}

}  // namespace
