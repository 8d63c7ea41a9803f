// A datagram from a server: whose answer it is, and what becomes of it.
#include "dns_proxy_mac/proxy/response_path.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <string>

#include "tests/support/heap_watch.h"
#include "tests/unit/request_fixture.h"

namespace {

using support::Bytes;
using support::BytesOf;
using support::DnsMessageBuilder;
using support::FreeWatch;
using support::Ipv4Address;
using support::Ipv6Address;
using support::TraceIs;
using support::TraceLineIs;
using support::TraceLines;
using support::TraceOf;

const std::string kFunc = "func: RecvAndProcessPacketsFromDNSServer(line:%d)";

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
    return Under(id, DnsMessageBuilder()
                         .Flags(0x8180)
                         .Question("alpha.internal", 1, 1)
                         .Answer(1, {0xC0, 0xA8, 0x01, 0x01})
                         .Build());
  }

  // The same without a record.
  static Bytes NoAnswer(unsigned short id, unsigned short flags = 0x8183) {
    return Under(id, DnsMessageBuilder().Flags(flags).Question("alpha.internal", 1, 1).Build());
  }

  static std::string Received(std::size_t length, const char* from) {
    return kFunc + " FromDNSServer: recv " + std::to_string(length) + " data from " + from;
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
  EXPECT_THAT(trace_,
              TraceIs({kFunc + " RecvAndProcessPacketsFromDNSServer: socket fd is invalid"}));
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
    EXPECT_THAT(trace_, TraceIs({kFunc + " RecvAndProcessPacketsFromDNSServer: recv nothing..."}));
  }
}

TEST_F(ResponsePathTest, FewerThan12BytesFromAnySenderEndTheThread) {
  // By design: the answer thread ends and the service with it; the hosting process starts it anew.
  AddRequest(0, twoServers_);
  for (std::size_t length = 0; length < 12; ++length) {
    EXPECT_FALSE(Handle(Bytes(length, 0), Ipv4Address("203.0.113.9", 9)));
    EXPECT_THAT(trace_, TraceIs({Received(length, "203.0.113.9"),
                                 kFunc + " FromDNSServer: do_answer: answer too short: " +
                                     std::to_string(length) + ", from: 203.0.113.9"}));
  }
  ExpectUntouched(0, 0);
}

// --------------------------------------------------------------------------- whose answer it is

TEST_F(ResponsePathTest, UnknownIdentifierIsDropped) {
  AddRequest(7, twoServers_);
  EXPECT_TRUE(Handle(Answer(65535), first_));
  EXPECT_THAT(trace_, TraceIs({Received(Answer(0).size(), "192.0.2.1"),
                               kFunc + " rsp from: 192.0.2.1, id: 65535, request not found"}));
  ExpectUntouched(7, 0);
}

TEST_F(ResponsePathTest, HeaderAloneIsLongEnough) {
  EXPECT_TRUE(Handle(Bytes(12, 0), first_));
  EXPECT_THAT(trace_, TraceIs({Received(12, "192.0.2.1"),
                               kFunc + " rsp from: 192.0.2.1, id: 0, request not found"}));
}

TEST_F(ResponsePathTest, IdentifierIsReadInMachineOrder) {
  AddRequest(0x0102, twoServers_);
  EXPECT_TRUE(Handle(Answer(0x0102), first_));
  EXPECT_EQ(Pending(0x0102), nullptr);
}

TEST_F(ResponsePathTest, AnswerFromAnotherAddressIsDroppedAndTheRequestWaitsOn) {
  AddRequest(7, twoServers_);
  EXPECT_TRUE(Handle(Answer(7), second_));
  EXPECT_THAT(trace_,
              TraceIs({Received(Answer(7).size(), "192.0.2.2"),
                       kFunc + " id: 7, dns_index:0 current dns rsp from: 192.0.2.2, should from: "
                               "192.0.2.1, it seems error"}));
  ExpectUntouched(7, 0);

  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_EQ(sent_.All().size(), 1U) << "and is answered when the right server does";
  EXPECT_EQ(Pending(7), nullptr);
}

TEST_F(ResponsePathTest, LateAnswerOfTheServerBeforeIsFromTheWrongSender) {
  AddRequest(7, twoServers_)->CurrentDNSMethodIndex = 1;
  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_THAT(
      trace_.back(),
      TraceLineIs(kFunc + " id: 7, dns_index:1 current dns rsp from: 192.0.2.1, should from: "
                          "192.0.2.2, it seems error"));
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
  EXPECT_THAT(
      trace_,
      TraceIs({Received(Answer(7).size(), "192.0.2.1"),
               kFunc + " id: 7, dns_index:159 current dns rsp from: 192.0.2.1, should from: , "
                       "it seems error"}));
  ExpectUntouched(7, 159);
}

TEST_F(ResponsePathTest, RequestWithoutMethodsHasNoRightSender) {
  AddRequest(7, {});
  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_THAT(
      trace_.back(),
      TraceLineIs(kFunc + " id: 7, dns_index:0 current dns rsp from: 192.0.2.1, should from: , it "
                          "seems error"));
  ExpectUntouched(7, 0);
}

TEST_F(ResponsePathTest, RequestAtItsHostMapEntryIsAnsweredByNoServer) {
  // The entry's address is all zero, which as the text of a family that is not IPv4 is "::".
  AddRequest(7, {HostMapMethod(), DnsServerMethod("192.0.2.1")});
  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_THAT(
      trace_.back(),
      TraceLineIs(kFunc +
                  " id: 7, dns_index:0 current dns rsp from: 192.0.2.1, should from: ::, it "
                  "seems error"));
  ExpectUntouched(7, 0);
}

TEST_F(ResponsePathTest, SenderOfIpv6IsTracedAndComparedAsSuch) {
  AddRequest(7, twoServers_);
  arriving_.Arrive(Answer(7), Ipv6Address("2001:db8::7", 53));
  EXPECT_TRUE(Handle());
  EXPECT_THAT(
      trace_,
      TraceIs({Received(Answer(7).size(), "2001:db8::7"),
               kFunc + " id: 7, dns_index:0 current dns rsp from: 2001:db8::7, should from: "
                       "192.0.2.1, it seems error"}));
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
  EXPECT_THAT(trace_, TraceIs({Received(Answer(7).size(), "2001::5"),
                               kFunc + " rsp from: 2001::5, id: 7, request not found"}));
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
      TraceIs({Received(answer.size(), "192.0.2.1"),
               kFunc + " domain rather-long.alpha.internal received answer -64.-88.1.1 from "
                       "192.0.2.1, we have to delete id:258"}))
      << "the last four bytes are printed signed";

  Bytes expected = answer;
  expected[0] = 0xAB;
  expected[1] = 0xCD;
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].sock, kSockToApps);
  EXPECT_EQ(sent_.All()[0].flags, 0);
  EXPECT_EQ(sent_.All()[0].bytes, expected) << "byte for byte the server's otherwise";
  EXPECT_EQ(sent_.All()[0].address, BytesOf(kApplication)) << "and 16 bytes of it";
  EXPECT_EQ(Pending(258), nullptr);
  EXPECT_EQ(watch.Count(), 1);
}

TEST_F(ResponsePathTest, SecondAnswerToARequestIsNotFound) {
  AddRequest(7, twoServers_);
  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_TRUE(Handle(Answer(7), first_));
  EXPECT_THAT(trace_.back(), TraceLineIs(kFunc + " rsp from: 192.0.2.1, id: 7, request not found"));
  EXPECT_EQ(sent_.All().size(), 1U);
}

TEST_F(ResponsePathTest, NothingOfTheAnswerButItsCountIsLookedAt) {
  // No QR bit, another question, an error code, truncated: it is relayed as it came.
  AddRequest(7, twoServers_);
  const Bytes answer = Under(7, DnsMessageBuilder()
                                    .Flags(0x0205)
                                    .QuestionCount(9)
                                    .AnswerCount(1)
                                    .Raw({0xFF, 0xFF, 0xFF})
                                    .Build());
  EXPECT_TRUE(Handle(answer, first_));
  ASSERT_EQ(sent_.All().size(), 1U);
  Bytes expected = answer;
  expected[0] = 0xAB;
  expected[1] = 0xCD;
  EXPECT_EQ(sent_.All()[0].bytes, expected);
}

TEST_F(ResponsePathTest, HeaderThatAnnouncesARecordIsRelayedAndItsCountsAreTracedAsAnAddress) {
  AddRequest(7, twoServers_);
  const Bytes answer = Under(
      7, DnsMessageBuilder().AnswerCount(1).AuthorityCount(0x7F80).AdditionalCount(0xFF00).Build());
  EXPECT_TRUE(Handle(answer, first_));
  EXPECT_EQ(sent_.All().size(), 1U);
  EXPECT_THAT(
      trace_.back(),
      TraceLineIs(kFunc + " domain alpha.internal received answer 127.-128.-1.0 from 192.0.2.1, we "
                          "have to delete id:7"));
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
  EXPECT_THAT(
      trace_,
      TraceIs({Received(Answer(7).size(), "192.0.2.1"),
               kFunc + " id: 7: sendto failed: " + std::to_string(EPERM),
               kFunc + " domain alpha.internal received answer -64.-88.1.1 from 192.0.2.1, we "
                       "have to delete id:7"}))
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
    Bytes answer = Answer(7);
    answer[6] = static_cast<unsigned char>(test.count >> 8);
    answer[7] = static_cast<unsigned char>(test.count & 0xFF);
    EXPECT_TRUE(Handle(answer, first_));
    EXPECT_EQ(sent_.All().back().sock, test.relayed ? kSockToApps : kSockToServers) << test.count;
    g_DnsRequestTable.Clear();
  }
}

TEST_F(ResponsePathTest, AnswerWithoutRecordsSendsTheQueryToTheNextServer) {
  AddRequest(7, twoServers_);
  EXPECT_TRUE(Handle(NoAnswer(7), first_));
  EXPECT_THAT(
      trace_,
      TraceIs({Received(NoAnswer(7).size(), "192.0.2.1"),
               kFunc + " rsp from: 192.0.2.1, id: 7, for : alpha.internal, no such name",
               "func: TryNextDNSQueryMethod(line:%d)TryNextDNSQueryMethod: id: 7, "
               "bReasonIsTimeout:0",
               "func: TryNextDNSQueryMethod(line:%d) CurrentDNSMethodIndex: 1, DnsListSize:2",
               "**********hostmap****TryNextDNSQueryMethod: iCurrentDNSMethodType:0(0: dns, "
               "1:hostmap)"}));
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].sock, kSockToServers);
  EXPECT_EQ(sent_.All()[0].bytes, Under(7, AppQuery()));
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
  EXPECT_THAT(
      trace_,
      TraceIs(
          {Received(NoAnswer(7).size(), "192.0.2.2"),
           kFunc + " rsp from: 192.0.2.2, id: 7, for : alpha.internal, no such name",
           "func: TryNextDNSQueryMethod(line:%d)TryNextDNSQueryMethod: id: 7, bReasonIsTimeout:0",
           "func: TryNextDNSQueryMethod(line:%d) CurrentDNSMethodIndex: 2, DnsListSize:2",
           "func: TryNextDNSQueryMethod(line:%d) no more DNS methods, send no such name "
           "response"}));
  ASSERT_EQ(sent_.All().size(), 1U);
  Bytes expected = AppQuery();
  expected[2] = 0x80;
  expected[3] = 0x03;
  EXPECT_EQ(sent_.All()[0].sock, kSockToApps);
  EXPECT_EQ(sent_.All()[0].bytes, expected);
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
  EXPECT_THAT(trace_.back(), TraceLineIs("TryNextDNSQueryMethod: id: 7,sendto failed: " +
                                         std::to_string(ENETUNREACH)));
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
