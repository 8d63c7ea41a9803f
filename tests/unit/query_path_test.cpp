// A datagram from a local application, from its receipt to the dispatch.
#include "dns_proxy_mac/proxy/query_path.h"

#include <cerrno>
#include <initializer_list>
#include <string>

#include "tests/support/heap_watch.h"
#include "tests/support/trace_texts.h"
#include "tests/unit/request_fixture.h"

namespace {

using support::Bytes;
using support::BytesOf;
using support::DnsMessageBuilder;
using support::Ipv4Address;
using support::Ipv6Address;
using support::kApplication;
using support::TraceIs;
using support::TraceLineIs;
using support::TraceLines;
using support::TraceOf;
using support::UnderProxyId;
using support::operator+;

namespace trace = support::trace;

class QueryPathTest : public RequestFixture {
 protected:
  bool Handle(int sock = kSockToApps) {
    bool result = false;
    trace_ = TraceOf([&] { result = RecvAndProcessPacketsFromLocalApps(sock); });
    return result;
  }

  // Handles `query` from the application's address.
  bool Handle(const Bytes& query) {
    arriving_.Arrive(query, kApplication);
    return Handle();
  }

  // The trace without the lines of other functions.
  TraceLines OwnTrace() const {
    TraceLines own;
    for (const std::string& line : trace_) {
      if (line.rfind("func: RecvAndProcessPacketsFromLocalApps(", 0) == 0) {
        own.push_back(line);
      }
    }
    return own;
  }

  void ExpectNothingKept() {
    EXPECT_TRUE(g_DnsRequestTable.mapRequests.empty());
    EXPECT_EQ(g_QueryID, 0);
    EXPECT_TRUE(sent_.All().empty());
  }

  support::ArrivingDatagrams arriving_;
  TraceLines trace_;
};

// ------------------------------------------------------------------------- what ends the thread

TEST_F(QueryPathTest, SocketMinusOneIsInvalid) {
  EXPECT_FALSE(Handle(-1));
  EXPECT_THAT(
      trace_,
      TraceIs({trace::QueryPath("RecvAndProcessPacketsFromLocalApps: socket fd is invalid")}));
  EXPECT_TRUE(arriving_.Calls().empty()) << "nothing is received";
}

TEST_F(QueryPathTest, AnyOtherSocketIsUsedAsItStands) {
  for (const int sock : {-2, 0, 100000}) {
    arriving_.Arrive(AppQuery(), kApplication);
    EXPECT_TRUE(Handle(sock));
    EXPECT_EQ(arriving_.Calls().back().sock, sock);
  }
}

TEST_F(QueryPathTest, ReceiveIsGiven8192BytesNoFlagsAndTheAddressLength28) {
  // 28 though the socket is IPv4 and 16 suffice: kept, and the space is as large as that.
  Handle(AppQuery());
  ASSERT_EQ(arriving_.Calls().size(), 1U);
  EXPECT_EQ(arriving_.Calls()[0].size, 8192U);
  EXPECT_EQ(arriving_.Calls()[0].flags, 0);
  EXPECT_EQ(arriving_.Calls()[0].addressLength, 28U);
}

TEST_F(QueryPathTest, FailedReceiveReturnsFalse) {
  for (const int error : {EINTR, EBADF, ENOMEM}) {
    arriving_.Fail(error);
    EXPECT_FALSE(Handle());
    EXPECT_THAT(trace_,
                TraceIs({trace::QueryPath("RecvAndProcessPacketsFromLocalApps: recv nothing...")}));
  }
  ExpectNothingKept();
}

TEST_F(QueryPathTest, FewerThan12BytesAreTooShort) {
  for (std::size_t length = 0; length < 12; ++length) {
    EXPECT_FALSE(Handle(Bytes(length, 0x01)));
    EXPECT_THAT(trace_, TraceIs({trace::Accepted(length, "", 0)[0],
                                 trace::QueryPath("FromAPP: query too short from 127.0.0.1")}));
  }
  ExpectNothingKept();
}

TEST_F(QueryPathTest, QuestionCountOtherThanOneIsInvalid) {
  for (const unsigned short count :
       std::initializer_list<unsigned short>{0, 2, 256, 0x0101, 0x7FFF, 0xFFFF}) {
    const Bytes query =
        DnsMessageBuilder().Question("alpha.internal", 1, 1).QuestionCount(count).Build();
    EXPECT_FALSE(Handle(query)) << count;
    const std::string number = std::to_string(count);
    EXPECT_THAT(trace_, TraceIs({trace::Accepted(query.size(), "", 0)[0],
                                 trace::QueryPath(" pDNSHeader QuestionCount :" + number),
                                 trace::QueryPath("FromAPP: QuestionCount invalid: " + number +
                                                  ", from: 127.0.0.1")}));
  }
  ExpectNothingKept();
}

TEST_F(QueryPathTest, HeaderAloneHasAnEmptyName) {
  EXPECT_FALSE(Handle(DnsMessageBuilder().QuestionCount(1).Build()));
  EXPECT_THAT(trace_, TraceIs({trace::QueryPath("FromAPP: received 12 data from 127.0.0.1"),
                               trace::QueryPath(" pDNSHeader QuestionCount :1"),
                               trace::QueryPath("FromAPP: domain is empty, from: 127.0.0.1")}));
  ExpectNothingKept();
}

TEST_F(QueryPathTest, QueryForTheRootHasAnEmptyNameAndEndsTheThread) {
  // A bare `dig` sends one. By design: the hosting process starts the service anew.
  EXPECT_FALSE(Handle(DnsMessageBuilder().Question("", 2, 1).Build()));
  EXPECT_THAT(trace_.back(),
              TraceLineIs(trace::QueryPath("FromAPP: domain is empty, from: 127.0.0.1")));
  ExpectNothingKept();
}

TEST_F(QueryPathTest, NameThatBeginsWithAnInvalidLengthIsEmpty) {
  EXPECT_FALSE(Handle(DnsMessageBuilder().QuestionCount(1).Raw({0xC0, 0x0C, 0, 1, 0, 1}).Build()));
  EXPECT_THAT(trace_, TraceIs({trace::QueryPath("FromAPP: received 18 data from 127.0.0.1"),
                               trace::QueryPath(" pDNSHeader QuestionCount :1"),
                               "func: ExtractDomain(line:%d)ExtractDomain invalid value:-64",
                               trace::QueryPath("FromAPP: domain is empty, from: 127.0.0.1")}));
  ExpectNothingKept();
}

TEST_F(QueryPathTest, NameThatBeginsWithAZeroByteIsEmpty) {
  EXPECT_FALSE(Handle(DnsMessageBuilder()
                          .QuestionCount(1)
                          .Label(std::string("\0hidden", 7))
                          .Root()
                          .Raw({0, 1, 0, 1})
                          .Build()));
  EXPECT_THAT(trace_.back(),
              TraceLineIs(trace::QueryPath("FromAPP: domain is empty, from: 127.0.0.1")));
}

// --------------------------------------------------------------------------------- the sender

TEST_F(QueryPathTest, SenderOfIpv6IsTracedAsSuch) {
  arriving_.Arrive(Bytes(3), Ipv6Address("2001:db8::7", 4000));
  EXPECT_FALSE(Handle());
  EXPECT_THAT(trace_, TraceIs({trace::QueryPath("FromAPP: received 3 data from 2001:db8::7"),
                               trace::QueryPath("FromAPP: query too short from 2001:db8::7")}));
}

TEST_F(QueryPathTest, SenderOfAnyOtherFamilyHasAnEmptyText) {
  sockaddr unixAddress = {};
  unixAddress.sa_family = AF_UNIX;
  arriving_.Arrive(Bytes(3), BytesOf(unixAddress));
  EXPECT_FALSE(Handle());
  EXPECT_THAT(trace_, TraceIs({trace::QueryPath("FromAPP: received 3 data from "),
                               trace::QueryPath("FromAPP: query too short from ")}));
}

TEST_F(QueryPathTest, AddressThatTheReceiveCallDoesNotGiveReadsAsZero) {
  arriving_.Arrive(AppQuery(), Bytes());
  EXPECT_TRUE(Handle());
  EXPECT_THAT(trace_.front(),
              TraceLineIs(trace::QueryPath("FromAPP: received " +
                                           std::to_string(AppQuery().size()) + " data from ")));
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].address, Bytes(28, 0));
}

TEST_F(QueryPathTest, FirstSixteenBytesOfTheSenderAreKept) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.1")};
  const sockaddr_in6 from = Ipv6Address("2001:db8::7", 4000);
  arriving_.Arrive(AppQuery(), from);
  EXPECT_TRUE(Handle());
  const Bytes all = BytesOf(from);
  EXPECT_EQ(BytesOf(Pending(0)->ClientAddr), Bytes(all.begin(), all.begin() + 16));
}

// ------------------------------------------------------------------------- what is made pending

TEST_F(QueryPathTest, AcceptedQueryIsTracedRecordedAndDispatched) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.1")};
  const Bytes query = AppQuery("Mail.Corp.lan", 28);
  EXPECT_TRUE(Handle(query));
  EXPECT_THAT(trace_, TraceIs(trace::Accepted(query.size(), "Mail.Corp.lan", 0) +
                              trace::Dispatched(0, 0, 1) + TraceLines{trace::kServerTried}));

  const DnsRequest* const request = Pending(0);
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->QueryID, 0);
  EXPECT_EQ(request->AppQueryID, support::IdOf({0xAB, 0xCD})) << "as it came";
  EXPECT_EQ(request->CurrentDNSMethodIndex, 0);
  EXPECT_EQ(request->iRecvLen, static_cast<int>(query.size()));
  EXPECT_EQ(request->iQueryLen, static_cast<int>(query.size()));
  EXPECT_EQ(BytesOf(request->ClientAddr), BytesOf(kApplication));
  EXPECT_EQ(request->strDomain, "Mail.Corp.lan");
  EXPECT_EQ(request->QueryType, 28);
  EXPECT_EQ(request->QueryClass, 1);
  EXPECT_FALSE(request->bFlag);

  Bytes stored = UnderProxyId(query, 0);
  stored.resize(8192, 0);
  EXPECT_EQ(BytesOf(request->QueryBuf), stored) << "zero behind the query";
}

TEST_F(QueryPathTest, ProxyIdentifierTravelsInMachineOrder) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.1")};
  g_QueryID = 0x0102;
  const Bytes query = AppQuery();
  EXPECT_TRUE(Handle(query));
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].bytes, UnderProxyId(query, 0x0102));
  if (BytesOf<unsigned short>(1) == Bytes{0x01, 0x00}) {
    EXPECT_EQ(sent_.All()[0].bytes[0], 0x02) << "low byte first on this machine";
    EXPECT_EQ(sent_.All()[0].bytes[1], 0x01);
  }
}

TEST_F(QueryPathTest, IdentifiersAreHandedOutInOrderFromZero) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.1")};
  for (unsigned short id = 0; id < 3; ++id) {
    EXPECT_TRUE(Handle(AppQuery()));
    EXPECT_NE(Pending(id), nullptr);
  }
  EXPECT_EQ(g_QueryID, 3);
  EXPECT_EQ(g_DnsRequestTable.mapRequests.size(), 3U);
}

TEST_F(QueryPathTest, EqualIdentifiersOfTwoApplicationsAreToldApart) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.1")};
  const sockaddr_in other = Ipv4Address("127.0.0.1", 40001);
  arriving_.Arrive(AppQuery(), kApplication);
  arriving_.Arrive(AppQuery(), other);
  EXPECT_TRUE(Handle());
  EXPECT_TRUE(Handle());
  ASSERT_NE(Pending(0), nullptr);
  EXPECT_EQ(BytesOf(Pending(0)->ClientAddr), BytesOf(kApplication));
  ASSERT_NE(Pending(1), nullptr);
  EXPECT_EQ(BytesOf(Pending(1)->ClientAddr), BytesOf(other));
  EXPECT_EQ(Pending(0)->AppQueryID, Pending(1)->AppQueryID);
}

TEST_F(QueryPathTest, IdentifierWrapsFrom65535To0) {
  g_QueryID = 65535;
  EXPECT_TRUE(Handle(AppQuery()));
  EXPECT_THAT(OwnTrace(), TraceIs(trace::Accepted(AppQuery().size(), "alpha.internal", 65535)));
  EXPECT_EQ(g_QueryID, 0);
}

TEST_F(QueryPathTest, RequestUnderATakenIdentifierIsDroppedAndTheOlderOneDispatched) {
  // After 65,536 queries the identifiers begin again. The newer request is freed and its
  // application gets nothing; the older one is carried out once more: by design, no identifier is
  // looked for.
  const DNSMethodList methods = {DnsServerMethod("192.0.2.1")};
  g_DnsMethodList = methods;
  DnsRequest* const older = AddRequest(0, methods, "older.internal");
  const long alive = support::RecordsAlive();
  EXPECT_TRUE(Handle(AppQuery("newer.internal")));
  EXPECT_EQ(support::RecordsAlive(), alive);
  EXPECT_THAT(OwnTrace(),
              TraceIs(trace::Accepted(AppQuery("newer.internal").size(), "newer.internal", 0)));
  EXPECT_EQ(Pending(0), older);
  EXPECT_EQ(g_DnsRequestTable.mapRequests.size(), 1U);
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].bytes, UnderProxyId(AppQuery("older.internal"), 0));
  EXPECT_EQ(g_QueryID, 1);
}

TEST_F(QueryPathTest, RequestKeepsItsOwnCopyOfTheMethods) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.1"), DnsServerMethod("192.0.2.2")};
  EXPECT_TRUE(Handle(AppQuery()));
  g_DnsMethodList.clear();
  ASSERT_EQ(Pending(0)->vecDnsMethods.size(), 2U);
  EXPECT_EQ(BytesOf(Pending(0)->vecDnsMethods[1]), BytesOf(DnsServerMethod("192.0.2.2")));
}

TEST_F(QueryPathTest, OnlyTheQuestionCountOfTheHeaderIsLookedAt) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.1")};
  const Bytes query = DnsMessageBuilder()
                          .Flags(0xFFFF)  // an answer, by its flags
                          .Question("alpha.internal", 1, 1)
                          .AnswerCount(7)
                          .AuthorityCount(8)
                          .AdditionalCount(9)
                          .Build();
  EXPECT_TRUE(Handle(query));
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].bytes, UnderProxyId(query, 0));
}

TEST_F(QueryPathTest, TypeAndClassThatAreCutOffAreZero) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.1")};
  EXPECT_TRUE(Handle(DnsMessageBuilder().QuestionCount(1).Name("alpha.internal").Build()));
  EXPECT_EQ(Pending(0)->QueryType, 0);
  EXPECT_EQ(Pending(0)->QueryClass, 0);
}

TEST_F(QueryPathTest, QueryOf8192BytesIsTakenWhole) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.1")};
  Bytes query = AppQuery();
  query.resize(8192, 0x55);
  EXPECT_TRUE(Handle(query));
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].bytes, UnderProxyId(query, 0));
}

TEST_F(QueryPathTest, LongestNameThatFitsHas1023Characters) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.1")};
  DnsMessageBuilder query;
  query.QuestionCount(1);
  std::string name;
  for (int label = 0; label < 8; ++label) {
    query.Label(std::string(127, 'x'));
    name += (label == 0 ? "" : ".") + std::string(127, 'x');
  }
  ASSERT_EQ(name.size(), 1023U);
  EXPECT_TRUE(Handle(query.Raw({0, 0, 1, 0, 1}).Build()));
  EXPECT_EQ(Pending(0)->strDomain, name);
}

TEST_F(QueryPathTest, LongerDatagramIsCutTo8192Bytes) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.1")};
  Bytes query = AppQuery();
  query.resize(9000, 0x55);
  EXPECT_TRUE(Handle(query));
  EXPECT_EQ(Pending(0)->iQueryLen, 8192);
  EXPECT_EQ(sent_.All()[0].bytes.size(), 8192U);
}

TEST_F(QueryPathTest, SecondQueryFindsNothingOfALongerFirstOne) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.1")};
  Bytes first = AppQuery();
  first.resize(4000, 0x55);
  EXPECT_TRUE(Handle(first));
  // A label of 60 of which none came: its bytes are zero and not the first query's.
  EXPECT_TRUE(Handle(DnsMessageBuilder().QuestionCount(1).Label("a").Raw({60}).Build()));
  EXPECT_EQ(Pending(1)->strDomain, "a.");
  Bytes stored = BytesOf(Pending(1)->QueryBuf);
  EXPECT_EQ(Bytes(stored.begin() + 15, stored.end()), Bytes(8192 - 15, 0));
}

TEST_F(QueryPathTest, ResultIsTrueWhateverTheDispatchDid) {
  g_DnsMethodList = {DnsServerMethod("192.0.2.1")};
  sent_.FailWith(ENETUNREACH);
  EXPECT_TRUE(Handle(AppQuery()));
  EXPECT_EQ(Pending(0), nullptr);
}

TEST_F(QueryPathTest, EmptyMethodListAnswersNoSuchNameAtOnce) {
  EXPECT_TRUE(Handle(AppQuery()));
  EXPECT_TRUE(g_DnsRequestTable.mapRequests.empty());
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].sock, kSockToApps);
  EXPECT_EQ(sent_.All()[0].bytes[0], 0xAB);
  EXPECT_EQ(sent_.All()[0].bytes[1], 0xCD);
  EXPECT_EQ(sent_.All()[0].bytes[3], 0x03);
}

TEST_F(QueryPathTest, MappedNameIsAnsweredWithoutAskingAServer) {
  MapHost("alpha.internal", "10.1.2.3");
  g_DnsMethodList = {HostMapMethod(), DnsServerMethod("192.0.2.1")};
  EXPECT_TRUE(Handle(AppQuery("Alpha.Internal")));
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].sock, kSockToApps);
  EXPECT_TRUE(g_DnsRequestTable.mapRequests.empty());
}

// ------------------------------------------------------------------------------ reverse look-ups

TEST_F(QueryPathTest, NameWithInAddrArpaStartsAtPosition159AndIsNoSuchName) {
  // Names of local networks never leave the machine, and the host map does not know addresses.
  const char* const names[] = {"1.0.168.192.in-addr.arpa", "x.in-addr.arpa.example",
                               "a.in-addr.arpanet"};
  MapHost("1.0.168.192.in-addr.arpa", "10.1.2.3");
  g_DnsMethodList = {HostMapMethod(), DnsServerMethod("192.0.2.1")};
  unsigned short id = 0;
  for (const char* name : names) {
    const Bytes query = AppQuery(name, 12);
    EXPECT_TRUE(Handle(query)) << name;
    EXPECT_THAT(trace_, TraceIs(trace::Accepted(query.size(), name, id) +
                                trace::Dispatched(id, 159, 2) + TraceLines{trace::kNoMoreMethods}));
    EXPECT_EQ(sent_.All().back().sock, kSockToApps) << name;
    EXPECT_EQ(sent_.All().back().bytes[3], 0x03) << name;
    ++id;
  }
  EXPECT_EQ(sent_.All().size(), 3U);
}

TEST_F(QueryPathTest, NameLikeAReverseLookupIsHandledLikeAnyOther) {
  const char* const names[] = {"X.IN-ADDR.ARPA", "in-addr.arpa", "1.In-Addr.arpa",
                               "8.b.d.0.1.0.0.2.ip6.arpa", "xin-addr.arpa"};
  g_DnsMethodList = {DnsServerMethod("192.0.2.1")};
  unsigned short id = 0;
  for (const char* name : names) {
    EXPECT_TRUE(Handle(AppQuery(name, 12))) << name;
    EXPECT_EQ(sent_.All().back().sock, kSockToServers) << name;
    EXPECT_EQ(Pending(id)->CurrentDNSMethodIndex, 0) << name;
    ++id;
  }
}

TEST_F(QueryPathTest, ReverseLookupReachesTheMethodAt159OfALongerList) {
  // 159 is behind the end of every list of up to 159 methods, and only of those.
  g_DnsMethodList.assign(159, DnsServerMethod("192.0.2.1"));
  EXPECT_TRUE(Handle(AppQuery("1.0.168.192.in-addr.arpa", 12)));
  EXPECT_EQ(sent_.All().back().sock, kSockToApps);

  g_DnsMethodList.push_back(DnsServerMethod("192.0.2.160"));
  EXPECT_TRUE(Handle(AppQuery("1.0.168.192.in-addr.arpa", 12)));
  EXPECT_EQ(sent_.All().back().sock, kSockToServers);
  EXPECT_EQ(sent_.All().back().address, BytesOf(Ipv4Address("192.0.2.160", 53)));
}

}  // namespace
