// StartDnsSrv and the two workers, every platform call scripted.
#include "dns_proxy_mac/proxy/service.h"

#include <sys/select.h>

#include <cerrno>
#include <chrono>
#include <deque>
#include <functional>
#include <latch>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "dns_proxy_mac/proxy/dns_proxy.h"
#include "tests/support/platform_calls.h"
#include "tests/support/trace_texts.h"
#include "tests/unit/request_fixture.h"

static_assert(FD_SETSIZE == 1024);

namespace {

using support::Bytes;
using support::BytesOf;
using support::Ipv4Address;
using support::Replaced;
using support::TraceIs;
using support::TraceLines;
using support::TraceOf;
using support::operator+;

namespace platform = support::platform;
namespace trace = support::trace;

using HostMaps = std::vector<std::pair<std::string, std::string>>;

const TraceLines kThreadLines = {trace::kAnswerThreadMade, trace::kQueryThreadMade};

// ------------------------------------------------------------------------------------ StartDnsSrv

// A world in which every call of the start succeeds unless a test says otherwise. The acts are kept
// in order, as text.
class StartDnsSrvTest : public RequestFixture {
 protected:
  static constexpr int kFirstSocket = 901;
  static constexpr int kSecondSocket = 902;

  StartDnsSrvTest() { ResetState(); }

  bool Start(const std::vector<std::string>& servers = {}, const HostMaps& maps = {}) {
    bool result = false;
    trace_ = TraceOf([&] { result = StartDnsSrv(servers, maps); });
    return result;
  }

  int Socket(int family, int type, int protocol) {
    acts_.push_back(family == AF_INET && type == SOCK_DGRAM && protocol == 17 ? "socket"
                                                                              : "other socket");
    const int result = socketResults_.front();
    socketResults_.pop_front();
    errno = EMFILE;
    return result;
  }

  int Bind(int sock, const sockaddr* address, socklen_t length) {
    acts_.push_back("bind " + std::to_string(sock));
    const auto* const first = reinterpret_cast<const unsigned char*>(address);
    boundTo_.assign(first, first + length);
    errno = EADDRINUSE;
    return bindResult_;
  }

  int Create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
             void* argument) {
    const bool answer = body == thread_answer && thread == &g_thread_answer;
    const bool query = body == thread_query && thread == &g_thread_query;
    const bool plain = attributes == nullptr && argument == nullptr;
    acts_.push_back(!plain   ? "create with extras"
                    : answer ? "create answer"
                    : query  ? "create query"
                             : "create something else");
    methodsAtCreate_.push_back(g_DnsMethodList.size());
    const int result = createResults_.front();
    createResults_.pop_front();
    // A handle that is told apart from the other one and from none.
    if (result == 0) {
      *thread = pthread_self();
    }
    return result;
  }

  int Join(pthread_t thread, void** result) {
    acts_.push_back(pthread_equal(thread, pthread_self()) && result == nullptr ? "join"
                                                                               : "other join");
    return joinResult_;
  }

  int Close(int descriptor) {
    if (descriptor < kFirstSocket) {
      return platform::close.System(descriptor);
    }
    acts_.push_back("close " + std::to_string(descriptor));
    errno = EIO;
    return closeResult_;
  }

  // A thread that is none of the service's.
  static std::thread RealThread(const std::function<void()>& body) {
    const Replaced create(platform::pthread_create,
                          [](auto... a) { return platform::pthread_create.System(a...); });
    return std::thread(body);
  }
  static void JoinReal(std::thread& thread) {
    const Replaced join(platform::pthread_join,
                        [](auto... a) { return platform::pthread_join.System(a...); });
    thread.join();
  }

  std::deque<int> socketResults_ = {kFirstSocket, kSecondSocket};
  int bindResult_ = 0;
  std::deque<int> createResults_ = {0, 0};
  int joinResult_ = 0;
  int closeResult_ = 0;

  std::vector<std::string> acts_;
  Bytes boundTo_;
  std::vector<std::size_t> methodsAtCreate_;
  TraceLines trace_;

 private:
  Replaced<int(int, int, int)> socket_{platform::socket,
                                       [this](auto... a) { return Socket(a...); }};
  Replaced<int(int, const sockaddr*, socklen_t)> bind_{platform::bind,
                                                       [this](auto... a) { return Bind(a...); }};
  Replaced<int(int, int, int, const void*, socklen_t)> setsockopt_{platform::setsockopt,
                                                                   [this](auto...) {
                                                                     acts_.push_back("setsockopt");
                                                                     return 0;
                                                                   }};
  Replaced<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> create_{
      platform::pthread_create, [this](auto... a) { return Create(a...); }};
  Replaced<int(pthread_t, void**)> join_{platform::pthread_join,
                                         [this](auto... a) { return Join(a...); }};
  Replaced<int(int)> close_{platform::close, [this](int descriptor) { return Close(descriptor); }};
};

TEST_F(StartDnsSrvTest, StepsAreTakenInOrderAndTheResultIsTrue) {
  EXPECT_TRUE(Start({"192.0.2.1"}, {{"alpha.internal", "10.1.2.3"}}));
  EXPECT_EQ(acts_,
            (std::vector<std::string>{"socket", "socket", "bind 901", "create answer",
                                      "create query", "join", "join", "close 901", "close 902"}))
      << "no socket option is set, and both sockets are made before either is looked at";
  EXPECT_THAT(trace_, TraceIs(TraceLines{trace::kBound} +
                              TraceLines{trace::MappingAdded("alpha.internal", "10.1.2.3"),
                                         trace::ServerAdded("192.0.2.1")} +
                              kThreadLines));
}

TEST_F(StartDnsSrvTest, ListsAreLeftAloneWhileAPassOfAnEarlierStartIsUnderWay) {
  std::latch underWay(1);
  std::thread pass = RealThread([&] {
    const PendingRequests::Pass ofAnEarlierStart(g_DnsRequestTable.mapRequests, Worker::kQuery);
    underWay.count_down();
    // Long enough for a start that does not wait to be seen.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(g_DnsMethodList.empty());
  });
  underWay.wait();
  EXPECT_TRUE(Start({"192.0.2.1"}, {{"alpha.internal", "10.1.2.3"}}));
  JoinReal(pass);
  EXPECT_EQ(g_DnsMethodList.size(), 2U);
}

TEST_F(StartDnsSrvTest, AnswerThreadIsWaitedForTwiceAndTheQueryThreadNever) {
  // The service's life is the answer thread's. The second wait fails and is not looked at; hosts
  // rely on the query thread being left alone.
  std::vector<pthread_t> joined;
  const Replaced join(platform::pthread_join, [&](pthread_t thread, void**) {
    joined.push_back(thread);
    return joined.size() == 1 ? 0 : ESRCH;
  });
  // Two handles that are not threads: nothing but their value is used.
  const Replaced create(platform::pthread_create,
                        [](pthread_t* thread, const pthread_attr_t*, void* (*body)(void*), void*) {
                          static char handles[2];
                          *thread = (pthread_t)(handles + (body == thread_answer ? 0 : 1));
                          return 0;
                        });
  EXPECT_TRUE(Start());
  ASSERT_EQ(joined.size(), 2U);
  EXPECT_EQ(joined[0], g_thread_answer);
  EXPECT_EQ(joined[1], g_thread_answer);
  EXPECT_NE(g_thread_answer, g_thread_query);
}

TEST_F(StartDnsSrvTest, BindIsTo127_0_0_1Port53WithTheAddressLength16) {
  // Any other length is an error on macOS.
  Start();
  EXPECT_EQ(boundTo_.size(), 16U);
  EXPECT_EQ(boundTo_, BytesOf(Ipv4Address("127.0.0.1", 53))) << "the rest is zero";
}

TEST_F(StartDnsSrvTest, DescriptorsKeepTheirNumbersAfterTheEnd) {
  EXPECT_TRUE(Start());
  EXPECT_EQ(g_SockToClientApps, kFirstSocket);
  EXPECT_EQ(g_SockToDNSServers, kSecondSocket);
}

TEST_F(StartDnsSrvTest, SocketThatCannotBeMadeIsInvalidWhicheverItIs) {
  // Both are made before either is looked at, and nothing is cleaned up.
  const struct {
    const char* rule;
    int first;
    int second;
  } cases[] = {
      {"the first", -1, kSecondSocket},
      {"the second", kFirstSocket, -1},
      {"both", -1, -1},
      {"any negative number", -2, kSecondSocket},
  };
  for (const auto& test : cases) {
    acts_.clear();
    socketResults_ = {test.first, test.second};
    EXPECT_FALSE(Start({"192.0.2.1"}, {{"alpha.internal", "10.1.2.3"}})) << test.rule;
    EXPECT_THAT(trace_, TraceIs({"func: StartDnsSrv(line:%d) socket invalid"})) << test.rule;
    EXPECT_EQ(acts_, (std::vector<std::string>{"socket", "socket"})) << test.rule;
    EXPECT_TRUE(g_DnsMethodList.empty()) << test.rule;
  }
}

TEST_F(StartDnsSrvTest, SocketZeroIsAnOrdinaryDescriptor) {
  socketResults_ = {0, kSecondSocket};
  bindResult_ = -1;
  EXPECT_FALSE(Start());
  EXPECT_EQ(acts_.back(), "bind 0");
}

TEST_F(StartDnsSrvTest, FailedBindIsTracedAndBothSocketsStayOpen) {
  for (const int result : {-1, 1}) {
    acts_.clear();
    socketResults_ = {kFirstSocket, kSecondSocket};
    bindResult_ = result;
    EXPECT_FALSE(Start({"192.0.2.1"}, {{"alpha.internal", "10.1.2.3"}}));
    EXPECT_THAT(trace_, TraceIs({trace::kNotBound}));
    EXPECT_EQ(acts_, (std::vector<std::string>{"socket", "socket", "bind 901"}));
    EXPECT_TRUE(g_DnsMethodList.empty());
  }
}

TEST_F(StartDnsSrvTest, AnswerThreadThatCannotBeCreatedEndsTheStartAndEverythingStays) {
  createResults_ = {EAGAIN};
  EXPECT_FALSE(Start({"192.0.2.1"}, {{"alpha.internal", "10.1.2.3"}}));
  EXPECT_THAT(trace_.back(),
              support::TraceLineIs("func: StartDnsSrv(line:%d) pthread_create g_thread_answer "
                                   "failed"));
  EXPECT_EQ(trace_.size(), 4U);
  EXPECT_EQ(acts_, (std::vector<std::string>{"socket", "socket", "bind 901", "create answer"}))
      << "no socket is closed";
  EXPECT_EQ(g_DnsMethodList.size(), 2U);
  HostRespData* record = nullptr;
  EXPECT_TRUE(g_Hostmaps.Find("alpha.internal", record));
}

TEST_F(StartDnsSrvTest, QueryThreadThatCannotBeCreatedEndsTheStartAndTheAnswerThreadRunsOn) {
  createResults_ = {0, EAGAIN};
  EXPECT_FALSE(Start({"192.0.2.1"}));
  EXPECT_THAT(trace_, TraceIs(TraceLines{trace::kBound} +
                              TraceLines{trace::ServerAdded("192.0.2.1"), trace::kAnswerThreadMade,
                                         trace::kQueryThreadRefused}));
  EXPECT_EQ(acts_.back(), "create query") << "nothing is waited for and nothing closed";
}

TEST_F(StartDnsSrvTest, ResultsOfTheWaitsAndOfTheClosingAreNotLookedAt) {
  joinResult_ = EINVAL;
  closeResult_ = -1;
  EXPECT_TRUE(Start());
  EXPECT_THAT(trace_, TraceIs(TraceLines{trace::kBound} + kThreadLines));
}

TEST_F(StartDnsSrvTest, ListsAreCompleteBeforeTheFirstThreadIsCreated) {
  Start({"192.0.2.1", "192.0.2.2"}, {{"alpha.internal", "10.1.2.3"}});
  EXPECT_EQ(methodsAtCreate_, (std::vector<std::size_t>{3, 3}));
}

TEST_F(StartDnsSrvTest, HostMapComesFirstAndThenTheServersInTheirOrder) {
  Start({"192.0.2.2", "192.0.2.1", "192.0.2.1", "192.0.2.2"},
        {{"alpha.internal", "10.1.2.3"}, {"beta.internal", "10.1.2.4"}});
  EXPECT_THAT(trace_,
              TraceIs(TraceLines{trace::kBound} +
                      TraceLines{trace::MappingAdded("alpha.internal", "10.1.2.3"),
                                 trace::MappingAdded("beta.internal", "10.1.2.4"),
                                 trace::ServerAdded("192.0.2.2"), trace::ServerAdded("192.0.2.1"),
                                 trace::ServerAdded("192.0.2.1"), trace::ServerAdded("192.0.2.2")} +
                      kThreadLines));
  ASSERT_EQ(g_DnsMethodList.size(), 5U) << "one host-map entry, and duplicates are kept";
  EXPECT_EQ(BytesOf(g_DnsMethodList[0]), BytesOf(HostMapMethod()));
  EXPECT_EQ(BytesOf(g_DnsMethodList[1]), BytesOf(DnsServerMethod("192.0.2.2")));
  EXPECT_EQ(BytesOf(g_DnsMethodList[2]), BytesOf(DnsServerMethod("192.0.2.1")));
  EXPECT_EQ(BytesOf(g_DnsMethodList[3]), BytesOf(DnsServerMethod("192.0.2.1")));
  EXPECT_EQ(BytesOf(g_DnsMethodList[4]), BytesOf(DnsServerMethod("192.0.2.2")));
  HostRespData* record = nullptr;
  EXPECT_TRUE(g_Hostmaps.Find("alpha.internal", record));
  EXPECT_TRUE(g_Hostmaps.Find("beta.internal", record));
}

TEST_F(StartDnsSrvTest, WithoutMappingsThereIsNoHostMapEntry) {
  Start({"192.0.2.1"});
  ASSERT_EQ(g_DnsMethodList.size(), 1U);
  EXPECT_EQ(g_DnsMethodList[0].iDNSMethodType, DNS_METHOD_DNSSERVER);
}

TEST_F(StartDnsSrvTest, WithoutServersThereIsTheHostMapEntryAlone) {
  Start({}, {{"alpha.internal", "10.1.2.3"}});
  ASSERT_EQ(g_DnsMethodList.size(), 1U);
  EXPECT_EQ(g_DnsMethodList[0].iDNSMethodType, DNS_METHOD_HOSTMAP);
}

TEST_F(StartDnsSrvTest, WithNeitherTheListIsEmptyAndTheServiceStarts) {
  EXPECT_TRUE(Start());
  EXPECT_THAT(trace_, TraceIs(TraceLines{trace::kBound} + kThreadLines));
  EXPECT_TRUE(g_DnsMethodList.empty());
}

TEST_F(StartDnsSrvTest, ServerThatIsNoAddressIsTracedAndListedAs255_255_255_255) {
  EXPECT_TRUE(Start({"dns.example"}));
  EXPECT_THAT(trace_, TraceIs(TraceLines{trace::kBound} +
                              TraceLines{trace::ServerAdded("dns.example")} + kThreadLines));
  ASSERT_EQ(g_DnsMethodList.size(), 1U);
  EXPECT_EQ(BytesOf(g_DnsMethodList[0].serverAddr), BytesOf(Ipv4Address("255.255.255.255", 53)));
}

TEST_F(StartDnsSrvTest, MappingThatIsNoAddressIsTracedAndTaken) {
  EXPECT_TRUE(Start({}, {{"alpha.internal", "none"}}));
  EXPECT_THAT(trace_,
              TraceIs(TraceLines{trace::kBound} +
                      TraceLines{trace::MappingAdded("alpha.internal", "none")} + kThreadLines));
  HostRespData* record = nullptr;
  EXPECT_TRUE(g_Hostmaps.Find("alpha.internal", record));
}

TEST_F(StartDnsSrvTest, CallersMappingsAreNotChanged) {
  const HostMaps maps = {{"Alpha.Internal", "10.1.2.3"}};
  Start({}, maps);
  EXPECT_EQ(maps[0].first, "Alpha.Internal");
}

TEST_F(StartDnsSrvTest, SecondCallAppendsToWhatTheFirstLeft) {
  Start({"192.0.2.1"}, {{"alpha.internal", "10.1.2.3"}});
  socketResults_ = {kFirstSocket, kSecondSocket};
  createResults_ = {0, 0};
  Start({"192.0.2.2"}, {{"alpha.internal", "10.9.9.9"}, {"beta.internal", "10.1.2.4"}});
  ASSERT_EQ(g_DnsMethodList.size(), 4U);
  EXPECT_EQ(g_DnsMethodList[2].iDNSMethodType, DNS_METHOD_HOSTMAP);
  EXPECT_EQ(BytesOf(g_DnsMethodList[3]), BytesOf(DnsServerMethod("192.0.2.2")));
  HostRespData* record = nullptr;
  ASSERT_TRUE(g_Hostmaps.Find("alpha.internal", record));
  EXPECT_EQ(BytesOf(record->Address), (Bytes{10, 1, 2, 3})) << "the first mapping wins";
  EXPECT_TRUE(g_Hostmaps.Find("beta.internal", record));
}

// ----------------------------------------------------------------------------- the workers

// How select is to end a wait.
struct Wait {
  int result;
  bool bit = true;  // the socket's bit in the returned set
};

// Waits that end as scripted, and after them one that fails. What the workers give to select is
// looked at in every call.
class WorkerTest : public RequestFixture {
 protected:
  void RunAnswer() {
    trace_ = TraceOf([] { EXPECT_EQ(thread_answer(nullptr), nullptr); });
  }

  void RunQuery() {
    trace_ = TraceOf([] { EXPECT_EQ(thread_query(nullptr), nullptr); });
  }

  int Select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* timeout) {
    ++selectCalls_;
    std::set<int> watched;
    for (int descriptor = 0; descriptor < FD_SETSIZE; ++descriptor) {
      if (FD_ISSET(descriptor, readable)) {
        watched.insert(descriptor);
      }
    }
    if (writable != nullptr || failed != nullptr || timeout != nullptr || watched.size() != 1 ||
        count != *watched.begin() + 1) {
      ++wrongSelectCalls_;
    }
    watched_.push_back(watched.empty() ? -1 : *watched.begin());
    if (onSelect_) {
      onSelect_();
    }
    if (waits_.empty()) {
      errno = EINTR;
      return -1;
    }
    const Wait wait = waits_.front();
    waits_.pop_front();
    if (!wait.bit) {
      FD_ZERO(readable);
    }
    return wait.result;
  }

  void TearDown() override { EXPECT_EQ(wrongSelectCalls_, 0); }

  std::deque<Wait> waits_;
  std::function<void()> onSelect_;
  int selectCalls_ = 0;
  int wrongSelectCalls_ = 0;
  std::vector<int> watched_;
  support::ArrivingDatagrams arriving_;
  TraceLines trace_;

 private:
  Replaced<int(int, fd_set*, fd_set*, fd_set*, timeval*)> select_{
      platform::select, [this](auto... a) { return Select(a...); }};
};

TEST_F(WorkerTest, SocketMinusOneEndsTheAnswerThread) {
  g_SockToDNSServers = -1;
  RunAnswer();
  EXPECT_THAT(trace_, TraceIs({"func: thread_answer(line:%d) Socket SockToDNSServers is invalid, "
                               "AnswerThread exit"}));
  EXPECT_EQ(selectCalls_, 0);
}

TEST_F(WorkerTest, SocketMinusOneEndsTheQueryThread) {
  g_SockToClientApps = -1;
  RunQuery();
  EXPECT_THAT(trace_, TraceIs({"func: thread_query(line:%d) Socket SockToClientApps is invalid, "
                               "QueryThread exit"}));
  EXPECT_EQ(selectCalls_, 0);
}

TEST_F(WorkerTest, FailedWaitEndsTheAnswerThread) {
  waits_ = {{-1}};
  RunAnswer();
  EXPECT_THAT(trace_, TraceIs({trace::kAnswerWaitFailed}));
  EXPECT_EQ(watched_, (std::vector<int>{kSockToServers}));
}

TEST_F(WorkerTest, FailedWaitEndsTheQueryThread) {
  waits_ = {{-1}};
  RunQuery();
  EXPECT_THAT(trace_, TraceIs({trace::kQueryWaitFailed}));
  EXPECT_EQ(watched_, (std::vector<int>{kSockToApps}));
}

TEST_F(WorkerTest, WaitThatEndsWithNothingReadyIsATimeoutToTheAnswerThread) {
  waits_ = {{0}, {0}};
  RunAnswer();
  EXPECT_THAT(trace_, TraceIs({"func: thread_answer(line:%d) AnswerThread: select timeout.",
                               "func: thread_answer(line:%d) AnswerThread: select timeout.",
                               trace::kAnswerWaitFailed}));
}

TEST_F(WorkerTest, WaitThatEndsWithNothingReadyIsAFailureToTheQueryThread) {
  // Unlike the answer thread: kept on purpose.
  waits_ = {{0}, {1}};
  RunQuery();
  EXPECT_THAT(trace_, TraceIs({trace::kQueryWaitFailed}));
  EXPECT_EQ(selectCalls_, 1);
}

TEST_F(WorkerTest, DescriptorThatHasNoBitInASetEndsTheWorkerWithoutAWait) {
  // FD_SET would write outside the set.
  for (const int sock : {FD_SETSIZE, FD_SETSIZE + 1, 1 << 20, -2}) {
    g_SockToDNSServers = sock;
    g_SockToClientApps = sock;
    RunAnswer();
    EXPECT_THAT(trace_, TraceIs({trace::kAnswerWaitFailed})) << sock;
    RunQuery();
    EXPECT_THAT(trace_, TraceIs({trace::kQueryWaitFailed})) << sock;
  }
  EXPECT_EQ(selectCalls_, 0);
}

TEST_F(WorkerTest, HighestDescriptorWithABitIsWaitedFor) {
  g_SockToDNSServers = FD_SETSIZE - 1;
  g_SockToClientApps = FD_SETSIZE - 1;
  RunAnswer();
  RunQuery();
  EXPECT_EQ(watched_, (std::vector<int>{FD_SETSIZE - 1, FD_SETSIZE - 1}));
}

TEST_F(WorkerTest, SocketIsReadAfreshInEveryPassOfTheAnswerThread) {
  waits_ = {{0}, {0}};
  onSelect_ = [this] { g_SockToDNSServers = selectCalls_ == 1 ? 77 : -1; };
  RunAnswer();
  EXPECT_EQ(watched_, (std::vector<int>{kSockToServers, 77}));
  EXPECT_THAT(trace_.back(),
              support::TraceLineIs("func: thread_answer(line:%d) Socket SockToDNSServers is "
                                   "invalid, AnswerThread exit"));
}

TEST_F(WorkerTest, SocketIsReadAfreshInEveryPassOfTheQueryThread) {
  waits_ = {{1, false}};
  onSelect_ = [] { g_SockToClientApps = 77; };
  RunQuery();
  EXPECT_EQ(watched_, (std::vector<int>{kSockToApps, 77}));
  EXPECT_THAT(trace_, TraceIs({trace::kQueryCame, trace::kQueryWaitFailed}));
}

TEST_F(WorkerTest, SocketWhoseBitIsNotSetIsNotRead) {
  waits_ = {{1, false}};
  RunAnswer();
  EXPECT_THAT(trace_, TraceIs({trace::kAnswerCame, trace::kAnswerWaitFailed}));
  waits_ = {{1, false}};
  RunQuery();
  EXPECT_THAT(trace_, TraceIs({trace::kQueryCame, trace::kQueryWaitFailed}));
  EXPECT_TRUE(arriving_.Calls().empty());
}

TEST_F(WorkerTest, AnswerThreadHandlesOneDatagramAPass) {
  waits_ = {{1}, {1}};
  const Bytes answer(12, 0);
  for (int i = 0; i < 3; ++i) {
    arriving_.Arrive(answer, Ipv4Address("192.0.2.1", 53));
  }
  RunAnswer();
  const TraceLines pass = {trace::kAnswerCame, trace::Received(12, "192.0.2.1"),
                           trace::ResponsePath(" rsp from: 192.0.2.1, id: 0, request not found")};
  EXPECT_THAT(trace_, TraceIs(pass + pass + TraceLines{trace::kAnswerWaitFailed}));
  ASSERT_EQ(arriving_.Calls().size(), 2U);
  EXPECT_EQ(arriving_.Calls()[0].sock, kSockToServers);
}

TEST_F(WorkerTest, AnswerThreadEndsWithAMessageWhenItsHandlerSaysSo) {
  waits_ = {{1}, {1}};
  arriving_.Fail(ENOMEM);
  RunAnswer();
  EXPECT_THAT(trace_,
              TraceIs({trace::kAnswerCame,
                       trace::ResponsePath(" RecvAndProcessPacketsFromDNSServer: recv nothing..."),
                       trace::kAnswerHandlerFailed}));
  EXPECT_EQ(selectCalls_, 1);
}

TEST_F(WorkerTest, QueryThreadHandlesOneDatagramAPass) {
  waits_ = {{1}, {1}};
  for (int i = 0; i < 3; ++i) {
    arriving_.Arrive(AppQuery(), support::kApplication);
  }
  RunQuery();
  ASSERT_EQ(arriving_.Calls().size(), 2U);
  EXPECT_EQ(arriving_.Calls()[0].sock, kSockToApps);
  EXPECT_EQ(sent_.All().size(), 2U);
  EXPECT_THAT(trace_.front(), support::TraceLineIs(trace::kQueryCame));
  EXPECT_THAT(trace_.back(), support::TraceLineIs(trace::kQueryWaitFailed));
}

TEST_F(WorkerTest, QueryThreadEndsWithoutAMessageWhenItsHandlerSaysSo) {
  waits_ = {{1}, {1}};
  arriving_.Fail(ENOMEM);
  RunQuery();
  EXPECT_THAT(trace_,
              TraceIs({trace::kQueryCame,
                       trace::QueryPath("RecvAndProcessPacketsFromLocalApps: recv nothing...")}));
  EXPECT_EQ(selectCalls_, 1);
}

TEST_F(WorkerTest, ArgumentIsIgnored) {
  g_SockToDNSServers = -1;
  g_SockToClientApps = -1;
  int anything = 0;
  const TraceLines trace = TraceOf([&] {
    EXPECT_EQ(thread_answer(&anything), nullptr);
    EXPECT_EQ(thread_query(&anything), nullptr);
  });
  EXPECT_EQ(trace.size(), 2U);
}

// The whole of it with threads of its own. The descriptors are such that both workers end at once.
class ServiceLifeTest : public RequestFixture {};

TEST_F(ServiceLifeTest, StartReturnsTrueWhenTheAnswerThreadHasEnded) {
  ResetState();
  int sockets = 0;
  const Replaced socket(platform::socket, [&](int, int, int) { return FD_SETSIZE + sockets++; });
  const Replaced bind(platform::bind, [](int, const sockaddr*, socklen_t) { return 0; });
  std::vector<int> closed;
  const Replaced close(platform::close, [&](int descriptor) {
    if (descriptor < FD_SETSIZE) {
      return platform::close.System(descriptor);
    }
    closed.push_back(descriptor);
    return 0;
  });
  int joins = 0;
  const Replaced join(platform::pthread_join, [&](pthread_t thread, void** result) {
    // clang's thread sanitizer ends the process at the second wait for one thread.
    return ++joins == 1 ? platform::pthread_join.System(thread, result) : ESRCH;
  });

  bool result = false;
  const TraceLines trace = TraceOf([&] {
    result = StartDnsSrv({}, {});
    platform::pthread_join.System(g_thread_query, nullptr);
  });
  EXPECT_TRUE(result);
  EXPECT_EQ(joins, 2);
  EXPECT_EQ(closed, (std::vector<int>{FD_SETSIZE, FD_SETSIZE + 1}));
  EXPECT_THAT(trace, testing::Contains(support::TraceLineIs(trace::kAnswerWaitFailed)));
  EXPECT_THAT(trace, testing::Contains(support::TraceLineIs(trace::kQueryWaitFailed)));
}

}  // namespace
