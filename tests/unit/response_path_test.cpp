// A datagram from a server: whose answer it is, and what becomes of it.
#include "dns_proxy_mac/proxy/response_path.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <string>

#include "tests/support/heap_watch.h"
#include "tests/support/trace_texts.h"
#include "tests/unit/request_fixture.h"

namespace {

using support::Bytes;
using support::BytesOf;
using support::DnsMessageBuilder;
using support::FreeWatch;
using support::Ipv4Address;
using support::Ipv6Address;
using support::kApplication;
using support::TraceIs;
using support::TraceLineIs;
using support::TraceLines;
using support::TraceOf;
using support::UnderId;
using support::UnderProxyId;
using support::operator+;

namespace trace = support::trace;

class ResponsePathTest : public RequestFixture {
 protected:
  bool Handle(int sock = kSockToServers) {
    bool result = false;
    trace_ = TraceOf([&] { result = RecvAndProcessPacketsFromDNSServer(sock); });
    return result;
  }

  bool Handle(const Bytes& answer, const sockaddr_in& from) {
    arriving_.Arrive(answer, from);
    return Handle();
  }

  // An answer to the application's query under `id`, with one A record.
  static Bytes Answer(unsigned short id) {
    return UnderProxyId(support::AnswerTo(AppQuery(), {0xC0, 0xA8, 0x01, 0x01}), id);
  }

  // The same without a record.
  static Bytes NoAnswer(unsigned short id, unsigned short flags = 0x8183) {
    return UnderProxyId(support::BeginAnswerTo(AppQuery(), flags).Build(), id);
  }

  // What is traced of an answer from `from` to request `id` at `position`, of which `expected` was
  // to answer.
  static std::string WrongSender(int id, int position, const std::string& from,
                                 const std::string& expected) {
    return trace::ResponsePath(
        " id: " + std::to_string(id) + ", dns_index:" + std::to_string(position) +
        " current dns rsp from: " + from + ", should from: " + expected + ", it seems error");
  }

  void ExpectUntouched(unsigned short id, unsigned char position) {
    ASSERT_NE(Pending(id), nullptr);
    EXPECT_EQ(Pending(id)->CurrentDNSMethodIndex, position);
    EXPECT_TRUE(sent_.All().empty());
  }

  const DNSMethodList twoServers_ = {DnsServerMethod("192.0.2.1"), DnsServerMethod("192.0.2.2")};
  const sockaddr_in first_ = Ipv4Address("192.0.2.1", 53);
  const sockaddr_in second_ = Ipv4Address("192.0.2.2", 53);
  support::ArrivingDatagrams arriving_;
  TraceLines trace_;
};

// ------------------------------------------------------------------------- what ends the thread

TEST_F(ResponsePathTest, SocketMinusOneIsInvalid) {
  EXPECT_FALSE(Handle(-1));
  EXPECT_THAT(
      trace_,
      TraceIs({trace::ResponsePath(" RecvAndProcessPacketsFromDNSServer: socket fd is invalid")}));
  EXPECT_TRUE(arriving_.Calls().empty()) << "nothing is received";
}

TEST_F(ResponsePathTest, AnyOtherSocketIsUsedAsItStands) {
  for (const int sock : {-2, 0, 100000}) {
    arriving_.Arrive(Answer(1), first_);
    EXPECT_TRUE(Handle(sock));
    EXPECT_EQ(arriving_.Calls().back().sock, sock);
  }
}

TEST_F(ResponsePathTest, ReceiveIsGiven8192BytesNoFlagsAndTheAddressLength28) {
  Handle(Answer(1), first_);
  ASSERT_EQ(arriving_.Calls().size(), 1U);
  EXPECT_EQ(arriving_.Calls()[0].sock, kSockToServers);
  EXPECT_EQ(arriving_.Calls()[0].size, 8192U);
  EXPECT_EQ(arriving_.Calls()[0].flags, 0);
  EXPECT_EQ(arriving_.Calls()[0].addressLength, 28U);
}

TEST_F(ResponsePathTest, FailedReceiveReturnsFalse) {
  for (const int error : {EINTR, EBADF, ECONNREFUSED}) {
    arriving_.Fail(error);
    EXPECT_FALSE(Handle());
    EXPECT_THAT(
        trace_,
        TraceIs({trace::ResponsePath(" RecvAndProcessPacketsFromDNSServer: recv nothing...")}));
  }
}

TEST_F(ResponsePathTest, FewerThan12BytesFromAnySenderEndTheThread) {
  // By design: the answer thread ends and the service with it; the hosting process starts it anew.
  AddRequest(0, twoServers_);
  for (std::size_t length = 0; length < 12; ++length) {
    EXPECT_FALSE(Handle(Bytes(length, 0), Ipv4Address("203.0.113.9", 9)));
    EXPECT_THAT(trace_,
                TraceIs({trace::Received(length, "203.0.113.9"),
                         trace::ResponsePath(" FromDNSServer: do_answer: answer too short: " +
                                             std::to_string(length) + ", from: 203.0.113.9")}));
  }
  ExpectUntouched(0, 0);
}

// --------------------------------------------------------------------------- whose answer it is

TEST_F(ResponsePathTest, UnknownIdentifierIsDropped) {
  AddRequest(7, twoServers_);
  EXPECT_TRUE(Handle(Answer(65535), first_));
  EXPECT_THAT(trace_,
              TraceIs({trace::Received(Answer(0).size(), "192.0.2.1"),
                       trace::ResponsePath(" rsp from: 192.0.2.1, id: 65535, request not found")}));
  ExpectUntouched(7, 0);
}

TEST_F(ResponsePathTest, HeaderAloneIsLongEnough) {
  EXPECT_TRUE(Handle(Bytes(12, 0), first_));
  EXPECT_THAT(trace_,
              TraceIs({trace::Received(12, "192.0.2.1"),
                       trace::ResponsePath(" rsp from: 192.0.2.1, id: 0, request not found")}));
}

TEST_F(ResponsePathTest, IdentifierIsReadInMachineOrder) {
  AddRequest(0x0102, twoServers_);
  EXPECT_TRUE(Handle(Answer(0x0102), first_));
  EXPECT_EQ(Pending(0x0102), nullptr);
}

TEST_F(ResponsePathTest, AnswerFromAnotherAddressIsDroppedAndTheRequestWaitsOn) {
  AddRequest(7, twoServers_);
  EXPECT_TRUE(Handle(Answer(7), second_));
  EXPECT_THAT(trace_, TraceIs({trace::Received(Answer(7).size(), "192.0.2.2"),
                               WrongSender(7, 0, "192.0.2.2", "192.0.2.1")}));
  ExpectUntouched(7, 0);

  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_EQ(sent_.All().size(), 1U) << "and is answered when the right server does";
  EXPECT_EQ(Pending(7), nullptr);
}

TEST_F(ResponsePathTest, LateAnswerOfTheServerBeforeIsFromTheWrongSender) {
  AddRequest(7, twoServers_)->CurrentDNSMethodIndex = 1;
  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_THAT(trace_.back(), TraceLineIs(WrongSender(7, 1, "192.0.2.1", "192.0.2.2")));
  ExpectUntouched(7, 1);
}

TEST_F(ResponsePathTest, PortOfTheSenderPlaysNoPart) {
  AddRequest(7, twoServers_);
  EXPECT_TRUE(Handle(Answer(7), Ipv4Address("192.0.2.1", 40053)));
  EXPECT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(Pending(7), nullptr);
}

TEST_F(ResponsePathTest, PositionOutsideTheListIsHandledAsAWrongSender) {
  // A forged answer hits a reverse look-up before it is answered: there is no server to compare
  // with, and nothing is indexed.
  AddRequest(7, twoServers_)->CurrentDNSMethodIndex = 159;
  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_THAT(trace_, TraceIs({trace::Received(Answer(7).size(), "192.0.2.1"),
                               WrongSender(7, 159, "192.0.2.1", "")}));
  ExpectUntouched(7, 159);
}

TEST_F(ResponsePathTest, RequestWithoutMethodsHasNoRightSender) {
  AddRequest(7, {});
  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_THAT(trace_.back(), TraceLineIs(WrongSender(7, 0, "192.0.2.1", "")));
  ExpectUntouched(7, 0);
}

TEST_F(ResponsePathTest, RequestAtItsHostMapEntryIsAnsweredByNoServer) {
  // The entry's address is all zero, which as the text of a family that is not IPv4 is "::".
  AddRequest(7, {HostMapMethod(), DnsServerMethod("192.0.2.1")});
  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_THAT(trace_.back(), TraceLineIs(WrongSender(7, 0, "192.0.2.1", "::")));
  ExpectUntouched(7, 0);
}

TEST_F(ResponsePathTest, SenderOfIpv6IsTracedAndComparedAsSuch) {
  AddRequest(7, twoServers_);
  arriving_.Arrive(Answer(7), Ipv6Address("2001:db8::7", 53));
  EXPECT_TRUE(Handle());
  EXPECT_THAT(trace_, TraceIs({trace::Received(Answer(7).size(), "2001:db8::7"),
                               WrongSender(7, 0, "2001:db8::7", "192.0.2.1")}));
  ExpectUntouched(7, 0);
}

TEST_F(ResponsePathTest, SenderOfAnyOtherFamilyIsReadAsAnIpv6Address) {
  Bytes from(28, 0);
  sockaddr unixAddress = {};
  unixAddress.sa_family = AF_UNIX;
  const Bytes head = BytesOf(unixAddress);
  std::copy(head.begin(), head.begin() + 2, from.begin());
  from[8] = 0x20;
  from[9] = 0x01;
  from[23] = 0x05;
  arriving_.Arrive(Answer(7), from);
  EXPECT_TRUE(Handle());
  EXPECT_THAT(trace_,
              TraceIs({trace::Received(Answer(7).size(), "2001::5"),
                       trace::ResponsePath(" rsp from: 2001::5, id: 7, request not found")}));
}

TEST_F(ResponsePathTest, ServerOfAnotherFamilyIsComparedByItsSixteenBytesAndZeros) {
  DNSMethodInfo method = DnsServerMethod("192.0.2.1");
  method.serverAddr.sin_family = AF_INET6;
  std::memset(method.serverAddr.sin_zero, 0x11, sizeof(method.serverAddr.sin_zero));
  AddRequest(7, {method});
  arriving_.Arrive(Answer(7), Ipv6Address("1111:1111:1111:1111::", 53));
  EXPECT_TRUE(Handle());
  EXPECT_EQ(sent_.All().size(), 1U) << "bytes behind the stored sixteen read as zero";
}

// -------------------------------------------------------------------------- answers with records

TEST_F(ResponsePathTest, AnswerGoesToTheApplicationUnderItsOwnIdentifier) {
  const FreeWatch watch(*AddRequest(258, twoServers_, "rather-long.alpha.internal"));
  const Bytes answer = Answer(258);
  EXPECT_TRUE(Handle(answer, first_));
  EXPECT_THAT(
      trace_,
      TraceIs({trace::Received(answer.size(), "192.0.2.1"),
               trace::Relayed("rather-long.alpha.internal", "-64.-88.1.1", "192.0.2.1", 258)}))
      << "the last four bytes are printed signed";

  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].sock, kSockToApps);
  EXPECT_EQ(sent_.All()[0].flags, 0);
  EXPECT_EQ(sent_.All()[0].bytes, UnderId(answer, 0xABCD))
      << "byte for byte the server's otherwise";
  EXPECT_EQ(sent_.All()[0].address, BytesOf(kApplication)) << "and 16 bytes of it";
  EXPECT_EQ(Pending(258), nullptr);
  EXPECT_EQ(watch.Count(), 1);
}

TEST_F(ResponsePathTest, SecondAnswerToARequestIsNotFound) {
  AddRequest(7, twoServers_);
  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_THAT(trace_.back(),
              TraceLineIs(trace::ResponsePath(" rsp from: 192.0.2.1, id: 7, request not found")));
  EXPECT_EQ(sent_.All().size(), 1U);
}

TEST_F(ResponsePathTest, NothingOfTheAnswerButItsCountIsLookedAt) {
  // No QR bit, another question, an error code, truncated: it is relayed as it came.
  AddRequest(7, twoServers_);
  const Bytes answer = UnderProxyId(DnsMessageBuilder()
                                        .Flags(0x0205)
                                        .QuestionCount(9)
                                        .AnswerCount(1)
                                        .Raw({0xFF, 0xFF, 0xFF})
                                        .Build(),
                                    7);
  EXPECT_TRUE(Handle(answer, first_));
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].bytes, UnderId(answer, 0xABCD));
}

TEST_F(ResponsePathTest, HeaderThatAnnouncesARecordIsRelayedAndItsCountsAreTracedAsAnAddress) {
  AddRequest(7, twoServers_);
  const Bytes answer = UnderProxyId(
      DnsMessageBuilder().AnswerCount(1).AuthorityCount(0x7F80).AdditionalCount(0xFF00).Build(), 7);
  EXPECT_TRUE(Handle(answer, first_));
  EXPECT_EQ(sent_.All().size(), 1U);
  EXPECT_THAT(trace_.back(),
              TraceLineIs(trace::Relayed("alpha.internal", "127.-128.-1.0", "192.0.2.1", 7)));
}

TEST_F(ResponsePathTest, LongerAnswerIsCutTo8192Bytes) {
  AddRequest(7, twoServers_);
  Bytes answer = Answer(7);
  answer.resize(9000, 0x55);
  EXPECT_TRUE(Handle(answer, first_));
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].bytes.size(), 8192U);
}

TEST_F(ResponsePathTest, FailedSendIsTracedAndTheRequestDeletedAllTheSame) {
  AddRequest(7, twoServers_);
  sent_.FailWith(EPERM);
  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_THAT(trace_,
              TraceIs({trace::Received(Answer(7).size(), "192.0.2.1"),
                       trace::ResponsePath(" id: 7: sendto failed: " + std::to_string(EPERM)),
                       trace::Relayed("alpha.internal", "-64.-88.1.1", "192.0.2.1", 7)}))
      << "the numbers are the identifier and errno";
  EXPECT_EQ(Pending(7), nullptr);
}

TEST_F(ResponsePathTest, ApplicationOfAnotherFamilyIsGivenTheAddressLength28) {
  DnsRequest* const request = AddRequest(7, twoServers_);
  request->ClientAddr.sa_family = AF_INET6;
  Bytes expected = BytesOf(request->ClientAddr);
  expected.resize(28, 0);
  EXPECT_TRUE(Handle(Answer(7), first_));
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].address, expected);
}

// ----------------------------------------------------------------------- answers without records

TEST_F(ResponsePathTest, AnswerCountIsReadLowByteFirstAndSigned) {
  // Kept although the wire is big-endian: a count of 128 to 255 (or any with such a low byte)
  // counts as none and the next server is asked.
  const struct {
    unsigned short count;
    bool relayed;
  } cases[] = {
      {0, false},      {1, true},       {2, true},      {127, true},
      {128, false},    {255, false},    {256, true},    {0x0100 + 127, true},
      {0x0180, false}, {0x7FFF, false}, {0x8000, true}, {0xFF00, true},
      {0xFFFF, false},
  };
  for (const auto& test : cases) {
    AddRequest(7, twoServers_);
    EXPECT_TRUE(Handle(support::WithAnswerCount(Answer(7), test.count), first_));
    EXPECT_EQ(sent_.All().back().sock, test.relayed ? kSockToApps : kSockToServers) << test.count;
    g_DnsRequestTable.Clear();
  }
}

TEST_F(ResponsePathTest, AnswerWithoutRecordsSendsTheQueryToTheNextServer) {
  AddRequest(7, twoServers_);
  EXPECT_TRUE(Handle(NoAnswer(7), first_));
  EXPECT_THAT(trace_, TraceIs(TraceLines{trace::Received(NoAnswer(7).size(), "192.0.2.1"),
                                         trace::NoRecords("192.0.2.1", 7, "alpha.internal")} +
                              trace::Dispatched(7, 1, 2) + TraceLines{trace::kServerTried}));
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].sock, kSockToServers);
  EXPECT_EQ(sent_.All()[0].bytes, UnderProxyId(AppQuery(), 7));
  EXPECT_EQ(sent_.All()[0].address, BytesOf(second_));
  ASSERT_NE(Pending(7), nullptr);
  EXPECT_EQ(Pending(7)->CurrentDNSMethodIndex, 1);
}

TEST_F(ResponsePathTest, FlagsOfAnAnswerWithoutRecordsPlayNoPart) {
  // Any code, the truncation bit (0x0200) too: no application asks again by TCP because of it.
  for (const unsigned short flags :
       std::initializer_list<unsigned short>{0x8180, 0x8182, 0x8183, 0x8185, 0x8380, 0x0000}) {
    AddRequest(7, twoServers_);
    EXPECT_TRUE(Handle(NoAnswer(7, flags), first_));
    EXPECT_EQ(sent_.All().back().address, BytesOf(second_)) << std::hex << flags;
    g_DnsRequestTable.Clear();
  }
}

TEST_F(ResponsePathTest, AnswerWithoutRecordsOfTheLastServerIsNoSuchName) {
  // The server's own answer, whatever it said, never reaches the application.
  AddRequest(7, twoServers_)->CurrentDNSMethodIndex = 1;
  EXPECT_TRUE(Handle(NoAnswer(7, 0x8180), second_));
  EXPECT_THAT(trace_, TraceIs(TraceLines{trace::Received(NoAnswer(7).size(), "192.0.2.2"),
                                         trace::NoRecords("192.0.2.2", 7, "alpha.internal")} +
                              trace::Dispatched(7, 2, 2) + TraceLines{trace::kNoMoreMethods}));
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].sock, kSockToApps);
  EXPECT_EQ(sent_.All()[0].bytes, support::NoSuchName(AppQuery()));
  EXPECT_EQ(Pending(7), nullptr);
}

TEST_F(ResponsePathTest, ServerThatIsListedTwiceIsAskedAgain) {
  AddRequest(7, {DnsServerMethod("192.0.2.1"), DnsServerMethod("192.0.2.1")});
  EXPECT_TRUE(Handle(NoAnswer(7), first_));
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].address, BytesOf(first_));
  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_EQ(sent_.All().back().sock, kSockToApps);
}

TEST_F(ResponsePathTest, NextServerThatCannotBeReachedEndsTheRequest) {
  AddRequest(7, twoServers_);
  sent_.FailWith(ENETUNREACH);
  EXPECT_TRUE(Handle(NoAnswer(7), first_)) << "and the thread goes on";
  EXPECT_THAT(trace_.back(), TraceLineIs(trace::ForwardFailed(7, ENETUNREACH)));
  EXPECT_EQ(Pending(7), nullptr);
}

TEST_F(ResponsePathTest, PositionBehind255IsTheFirstMethodAgain) {
  DNSMethodList methods(256, DnsServerMethod("192.0.2.1"));
  AddRequest(7, methods)->CurrentDNSMethodIndex = 255;
  EXPECT_TRUE(Handle(NoAnswer(7), first_));
  ASSERT_NE(Pending(7), nullptr);
  EXPECT_EQ(Pending(7)->CurrentDNSMethodIndex, 0);
}

}  // namespace
