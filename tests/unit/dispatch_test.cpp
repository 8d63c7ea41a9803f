// The ladder: what is done next for a pending request.
#include "dns_proxy_mac/proxy/dispatch.h"

#include <cerrno>
#include <initializer_list>
#include <string>

#include "tests/support/heap_watch.h"
#include "tests/support/trace_texts.h"
#include "tests/unit/request_fixture.h"

namespace {

using support::Bytes;
using support::BytesOf;
using support::FreeWatch;
using support::Ipv4Address;
using support::kApplication;
using support::NoSuchName;
using support::TraceIs;
using support::TraceLineIs;
using support::TraceLines;
using support::TraceOf;
using support::UnderProxyId;
using support::operator+;

namespace trace = support::trace;

TraceLines NotFound(int id) {
  const std::string number = std::to_string(id);
  return {trace::Dispatched(id, 0, 0)[0],
          trace::Dispatch("TryNextDNSQueryMethod: " + number + ": id: " + number +
                          ", request not found")};
}

std::string Hit(const std::string& name, const std::string& address, int id) {
  return trace::Dispatch(" find " + name + " from hostmap, ip:" + address +
                         ", req id:" + std::to_string(id));
}

class DispatchTest : public RequestFixture {
 protected:
  void Dispatch(unsigned short id, bool bReasonIsTimeout = false) {
    trace_ = TraceOf([=] { TryNextDNSQueryMethod(id, bReasonIsTimeout); });
  }

  TraceLines trace_;  // of the last dispatch
};

// ------------------------------------------------------------------------------- request not found

TEST_F(DispatchTest, UnknownIdentifierIsTracedAndNothingIsSent) {
  Dispatch(65535);
  EXPECT_TRUE(sent_.All().empty());
  EXPECT_THAT(trace_, TraceIs(NotFound(65535)))
      << "the identifier stands in the place of the name too";
}

TEST_F(DispatchTest, AnsweredRequestIsNotFoundAgain) {
  AddRequest(3, {});
  Dispatch(3);
  Dispatch(3);
  EXPECT_EQ(sent_.All().size(), 1U);
  EXPECT_THAT(trace_, TraceIs(NotFound(3)));
}

TEST_F(DispatchTest, TimeoutAsReasonIsTracedAndChangesNothingElse) {
  AddRequest(3, {DnsServerMethod("192.0.2.1")});
  Dispatch(3, true);
  EXPECT_EQ(Pending(3)->CurrentDNSMethodIndex, 0);
  EXPECT_EQ(sent_.All().size(), 1U);
  EXPECT_THAT(trace_, TraceIs({trace::Dispatch("TryNextDNSQueryMethod: id: 3, bReasonIsTimeout:1"),
                               trace::Dispatched(3, 0, 1)[1], trace::kServerTried}));
}

// ------------------------------------------------------------------------------------ DNS server

TEST_F(DispatchTest, ServerGetsTheStoredQueryUnchangedAndTheRequestWaits) {
  AddRequest(0x0102, {DnsServerMethod("192.0.2.1")});
  Dispatch(0x0102);
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].sock, kSockToServers);
  EXPECT_EQ(sent_.All()[0].flags, 0);
  EXPECT_EQ(sent_.All()[0].bytes, UnderProxyId(AppQuery(), 0x0102));
  EXPECT_EQ(sent_.All()[0].address, BytesOf(Ipv4Address("192.0.2.1", 53))) << "and 16 bytes of it";
  ASSERT_NE(Pending(0x0102), nullptr);
  EXPECT_EQ(Pending(0x0102)->CurrentDNSMethodIndex, 0) << "so that the answer can be matched";
  EXPECT_THAT(trace_, TraceIs(trace::Dispatched(0x0102, 0, 1) + TraceLines{trace::kServerTried}))
      << "a successful forward has no line of its own";
}

TEST_F(DispatchTest, ServerAtTheRequestsPositionIsAsked) {
  AddRequest(3, {DnsServerMethod("192.0.2.1"), DnsServerMethod("192.0.2.2")})
      ->CurrentDNSMethodIndex = 1;
  Dispatch(3);
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].address, BytesOf(Ipv4Address("192.0.2.2", 53)));
  EXPECT_THAT(trace_, TraceIs(trace::Dispatched(3, 1, 2) + TraceLines{trace::kServerTried}));
}

TEST_F(DispatchTest, RequestsOwnMethodsCountAndNotTheProcessesList) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.9"), DnsServerMethod("192.0.2.10")};
  AddRequest(3, {DnsServerMethod("192.0.2.1")});
  Dispatch(3);
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].address, BytesOf(Ipv4Address("192.0.2.1", 53)));
}

TEST_F(DispatchTest, ServerOfAnotherFamilyIsGivenTheAddressLength28) {
  // No list of the service's own holds one: what lies behind the stored 16 bytes reads as zero.
  DNSMethodInfo method = DnsServerMethod("192.0.2.1");
  method.serverAddr.sin_family = AF_INET6;
  AddRequest(3, {method});
  Dispatch(3);
  ASSERT_EQ(sent_.All().size(), 1U);
  Bytes expected = BytesOf(method.serverAddr);
  expected.resize(28, 0);
  EXPECT_EQ(sent_.All()[0].address, expected);
}

TEST_F(DispatchTest, FailedForwardDeletesTheRequestAndTheApplicationGetsNothing) {
  // Not "no such name" and no other server either: the application's resolver asks again.
  const FreeWatch watch(*AddRequest(7, {DnsServerMethod("192.0.2.1"), DnsServerMethod("192.0.2.2")},
                                    "rather-long.alpha.internal"));
  sent_.FailWith(ENETUNREACH);
  Dispatch(7);
  EXPECT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(Pending(7), nullptr);
  EXPECT_EQ(watch.Count(), 1);
  EXPECT_THAT(trace_,
              TraceIs(trace::Dispatched(7, 0, 2) +
                      TraceLines{trace::kServerTried, trace::ForwardFailed(7, ENETUNREACH)}))
      << "the second number is errno";
}

// -------------------------------------------------------------------------------------- host map

TEST_F(DispatchTest, HostMapHitIsAnsweredAtOnceAndTheRequestDeleted) {
  MapHost("alpha.internal", "10.200.3.4");
  AddRequest(0x0102, {HostMapMethod(), DnsServerMethod("192.0.2.1")});
  Dispatch(0x0102);

  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].sock, kSockToApps);
  EXPECT_EQ(sent_.All()[0].flags, 0);
  EXPECT_EQ(sent_.All()[0].bytes, support::HostAnswer(AppQuery(), 1, {10, 200, 3, 4}));
  EXPECT_EQ(sent_.All()[0].address, BytesOf(kApplication)) << "and 16 bytes of it";
  EXPECT_EQ(Pending(0x0102), nullptr);
  EXPECT_THAT(trace_,
              TraceIs(trace::Dispatched(0x0102, 0, 2) +
                      TraceLines{trace::kHostMapTried, Hit("alpha.internal", "10.200.3.4", 258)}))
      << "the address bytes are unsigned, the identifier is the proxy's";
}

TEST_F(DispatchTest, HostMapHitIsFoundWhateverTheCaseOfTheQuestionAndTracedAsAsked) {
  MapHost("alpha.internal", "10.1.2.3");
  AddRequest(1, {HostMapMethod()}, "ALPHA.internal");
  Dispatch(1);
  EXPECT_THAT(trace_.back(), TraceLineIs(Hit("ALPHA.internal", "10.1.2.3", 1)));
}

TEST_F(DispatchTest, HostMapAnswerCountIsTwoForAaaaAndOneForAnyOtherType) {
  MapHost("alpha.internal", "10.1.2.3");
  for (const unsigned short type : std::initializer_list<unsigned short>{1, 28, 15, 16, 255}) {
    AddRequest(1, {HostMapMethod()}, "alpha.internal", type);
    Dispatch(1);
    const Bytes answer = sent_.All().back().bytes;
    EXPECT_EQ(answer[6], 0) << type;
    EXPECT_EQ(answer[7], type == 28 ? 2 : 1) << type;
    EXPECT_EQ(answer.size(), AppQuery().size() + 16) << type;
  }
}

TEST_F(DispatchTest, HostMapAnswerOf255IsTracedUnsigned) {
  MapHost("alpha.internal", "not an address");
  AddRequest(1, {HostMapMethod()});
  Dispatch(1);
  EXPECT_THAT(trace_.back(), TraceLineIs(Hit("alpha.internal", "255.255.255.255", 1)));
}

TEST_F(DispatchTest, FailedHostMapAnswerIsTracedAndTheRequestDeletedAllTheSame) {
  MapHost("alpha.internal", "10.1.2.3");
  AddRequest(1, {HostMapMethod(), DnsServerMethod("192.0.2.1")});
  sent_.FailWith(EPERM);
  Dispatch(1);
  EXPECT_EQ(Pending(1), nullptr);
  EXPECT_THAT(trace_,
              TraceIs(trace::Dispatched(1, 0, 2) +
                      TraceLines{trace::kHostMapTried, Hit("alpha.internal", "10.1.2.3", 1),
                                 trace::Dispatch("DNS service: sendto for host map failed")}));
}

TEST_F(DispatchTest, HostMapMissGoesOnToTheNextMethodInTheSameCall) {
  MapHost("beta.internal", "10.1.2.3");
  AddRequest(1, {HostMapMethod(), DnsServerMethod("192.0.2.1")});
  Dispatch(1);
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].sock, kSockToServers);
  EXPECT_EQ(sent_.All()[0].bytes, UnderProxyId(AppQuery(), 1)) << "the stored query is not touched";
  ASSERT_NE(Pending(1), nullptr);
  EXPECT_EQ(Pending(1)->CurrentDNSMethodIndex, 1);
  EXPECT_THAT(trace_, TraceIs(trace::Dispatched(1, 0, 2) + TraceLines{trace::kHostMapTried} +
                              trace::Dispatched(1, 1, 2) + TraceLines{trace::kServerTried}));
}

TEST_F(DispatchTest, HostMapMissWithoutServersIsNoSuchName) {
  AddRequest(1, {HostMapMethod()});
  Dispatch(1);
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].bytes, NoSuchName(AppQuery()));
  EXPECT_EQ(Pending(1), nullptr);
  EXPECT_THAT(trace_, TraceIs(trace::Dispatched(1, 0, 1) + TraceLines{trace::kHostMapTried} +
                              trace::Dispatched(1, 1, 1) + TraceLines{trace::kNoMoreMethods}));
}

TEST_F(DispatchTest, HostMapMissAtPosition255WrapsTo0) {
  // 256 methods: the 8-bit position meets the first one again, here a server.
  DNSMethodList methods(256, DnsServerMethod("192.0.2.1"));
  methods[255] = HostMapMethod();
  AddRequest(1, methods)->CurrentDNSMethodIndex = 255;
  Dispatch(1);
  EXPECT_THAT(trace_, TraceIs(trace::Dispatched(1, 255, 256) + TraceLines{trace::kHostMapTried} +
                              trace::Dispatched(1, 0, 256) + TraceLines{trace::kServerTried}));
}

TEST_F(DispatchTest, MappedNameIsNotLookedUpWithoutAHostMapMethod) {
  MapHost("alpha.internal", "10.1.2.3");
  AddRequest(1, {DnsServerMethod("192.0.2.1")});
  Dispatch(1);
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].sock, kSockToServers);
}

TEST_F(DispatchTest, HostMapAnswerHasRoomUpToAQueryOf8175Bytes) {
  MapHost("alpha.internal", "10.1.2.3");
  Bytes query = AppQuery();
  query.resize(8175, 0x55);
  AddRequestFor(query, 1, {HostMapMethod()}, "alpha.internal", 1);
  Dispatch(1);
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].bytes.size(), 8191U);
}

TEST_F(DispatchTest, QueryOfMoreThan8175BytesCountsAsAHostMapMiss) {
  // The record and the zero byte behind it would not fit the message.
  MapHost("alpha.internal", "10.1.2.3");
  for (const std::size_t length : {std::size_t{8176}, std::size_t{8191}, std::size_t{8192}}) {
    Bytes query = AppQuery();
    query.resize(length, 0x55);
    AddRequestFor(query, 1, {HostMapMethod(), DnsServerMethod("192.0.2.1")}, "alpha.internal", 1);
    Dispatch(1);
    EXPECT_EQ(sent_.All().back().sock, kSockToServers) << length;
    EXPECT_EQ(sent_.All().back().bytes, UnderProxyId(query, 1)) << length;
    g_DnsRequestTable.Delete(1);
    EXPECT_THAT(trace_, TraceIs(trace::Dispatched(1, 0, 2) + TraceLines{trace::kHostMapTried} +
                                trace::Dispatched(1, 1, 2) + TraceLines{trace::kServerTried}));
  }
}

// -------------------------------------------------------------------------------- no method left

TEST_F(DispatchTest, EmptyListIsNoSuchNameAtOnce) {
  const FreeWatch watch(*AddRequest(9, {}, "rather-long.alpha.internal"));
  Dispatch(9);
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].sock, kSockToApps);
  EXPECT_EQ(sent_.All()[0].flags, 0);
  EXPECT_EQ(sent_.All()[0].bytes, NoSuchName(AppQuery("rather-long.alpha.internal")));
  EXPECT_EQ(sent_.All()[0].address, BytesOf(kApplication)) << "and 16 bytes of it";
  EXPECT_EQ(Pending(9), nullptr);
  EXPECT_EQ(watch.Count(), 1);
  EXPECT_THAT(trace_, TraceIs(trace::Dispatched(9, 0, 0) + TraceLines{trace::kNoMoreMethods}));
}

TEST_F(DispatchTest, PositionBehindTheLastMethodIsNoSuchName) {
  AddRequest(9, {HostMapMethod(), DnsServerMethod("192.0.2.1")})->CurrentDNSMethodIndex = 2;
  Dispatch(9);
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].bytes, NoSuchName(AppQuery()));
  EXPECT_THAT(trace_, TraceIs(trace::Dispatched(9, 2, 2) + TraceLines{trace::kNoMoreMethods}));
}

TEST_F(DispatchTest, PositionFarBehindTheListIsNoSuchName) {
  AddRequest(9, {DnsServerMethod("192.0.2.1")})->CurrentDNSMethodIndex = 159;
  Dispatch(9);
  EXPECT_EQ(sent_.All()[0].sock, kSockToApps);
  EXPECT_THAT(trace_, TraceIs(trace::Dispatched(9, 159, 1) + TraceLines{trace::kNoMoreMethods}));
}

TEST_F(DispatchTest, NumberOfMethodsIsTakenModulo65536) {
  // 65,536 methods count as none. No host lists that many; the comparison stays as it is.
  AddRequest(9, DNSMethodList(65536, DnsServerMethod("192.0.2.1")));
  Dispatch(9);
  EXPECT_THAT(trace_, TraceIs(trace::Dispatched(9, 0, 65536) + TraceLines{trace::kNoMoreMethods}));
  AddRequest(9, DNSMethodList(65537, DnsServerMethod("192.0.2.1")));
  Dispatch(9);
  EXPECT_THAT(trace_, TraceIs(trace::Dispatched(9, 0, 65537) + TraceLines{trace::kServerTried}));
}

TEST_F(DispatchTest, NoSuchNameIsAsLongAsTheQueryWhateverStandsBehindTheQuestion) {
  const Bytes query = support::DnsMessageBuilder()
                          .Id(0xABCD)
                          .Flags(0x0120)
                          .Question("alpha.internal", 28, 1)
                          .EdnsOpt(1232)
                          .Build();
  AddRequestFor(query, 9, {}, "alpha.internal", 28);
  Dispatch(9);
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].bytes, NoSuchName(query));
}

TEST_F(DispatchTest, NoSuchNameOfTheLongestQueryIsSentWhole) {
  Bytes query = AppQuery();
  query.resize(8192, 0x55);
  AddRequestFor(query, 9, {}, "alpha.internal", 1);
  Dispatch(9);
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].bytes, NoSuchName(query));
}

TEST_F(DispatchTest, FailedNoSuchNameIsTracedAndTheRequestDeletedAllTheSame) {
  AddRequest(9, {});
  sent_.FailWith(EPERM);
  Dispatch(9);
  EXPECT_EQ(Pending(9), nullptr);
  EXPECT_THAT(trace_,
              TraceIs(trace::Dispatched(9, 0, 0) +
                      TraceLines{trace::kNoMoreMethods,
                                 trace::Dispatch("TryNextDNSQueryMethod: id: 9, sendto failed")}));
}

TEST_F(DispatchTest, ApplicationOfAnotherFamilyIsGivenTheAddressLength28) {
  MapHost("alpha.internal", "10.1.2.3");
  for (const DNSMethodList& methods : {DNSMethodList{}, DNSMethodList{HostMapMethod()}}) {
    DnsRequest* const request = AddRequest(9, methods);
    request->ClientAddr.sa_family = AF_INET6;
    Bytes expected = BytesOf(request->ClientAddr);
    expected.resize(28, 0);
    Dispatch(9);
    EXPECT_EQ(sent_.All().back().address, expected);
  }
}

// ---------------------------------------------------------------------------------- unknown type

TEST_F(DispatchTest, UnknownMethodTypeLeavesTheRequestUntouched) {
  for (const int type : {2, -1, 1000}) {
    DNSMethodInfo method = DnsServerMethod("192.0.2.1");
    method.iDNSMethodType = type;
    AddRequest(9, {method, DnsServerMethod("192.0.2.2")});
    Dispatch(9);
    ASSERT_NE(Pending(9), nullptr);
    EXPECT_EQ(Pending(9)->CurrentDNSMethodIndex, 0);
    g_DnsRequestTable.Delete(9);
    EXPECT_THAT(trace_, TraceIs(trace::Dispatched(9, 0, 2) + TraceLines{trace::Method(type)}));
  }
  EXPECT_TRUE(sent_.All().empty());
}

}  // namespace
