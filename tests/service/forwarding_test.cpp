// A query that is forwarded: to whom, in which order, and what comes back of it.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/service/service_test.h"

namespace service {
namespace {

constexpr unsigned char kServerFailure = 2;
constexpr unsigned char kNameError = 3;

using Forwarding = ServiceTest;

TEST_F(Forwarding, TheQueryReachesTheServerByteForByteUnderTheServicesIdentifier) {
  Serve({.servers = {"127.0.0.2"}});
  Server server("127.0.0.2");
  const Application application;

  const Bytes query = support::DnsMessageBuilder()
                          .Id(0xBEEF)
                          .Flags(0x0130)
                          .Question("Mixed.Case.Example", kTypeTxt, 3)
                          .EdnsOpt(1232)
                          .Build();
  application.Asks(query);
  EXPECT_EQ(server.IsAsked(), UnderProxyId(query, 0));
}

TEST_F(Forwarding, TheAnswerIsRelayedByteForByteUnderTheApplicationsIdentifier) {
  Serve({.servers = {"127.0.0.2"}});
  Server server("127.0.0.2");
  const Application application;

  application.Asks(Query(0xBEEF, "www.example"));
  Bytes answer = AnswerTo(server.IsAsked(), kAddress);
  answer.insert(answer.end(), {0x00, 0xFF, 0xC0, 0x0C});  // not parsed, so not cut either
  server.Answers(answer);
  EXPECT_EQ(application.Hears(), UnderId(answer, 0xBEEF));
}

TEST_F(Forwarding, AnAnswerOfTheGreatestLengthIsRelayedWhole) {
  Serve({.servers = {"127.0.0.2"}});
  Server server("127.0.0.2");
  const Application application;

  application.Asks(Query(0x0102, "big.example"));
  Bytes answer = AnswerTo(server.IsAsked(), kAddress);
  answer.resize(8192, 0xEE);
  server.Answers(answer);
  EXPECT_EQ(application.Hears(), UnderId(answer, 0x0102));
}

TEST_F(Forwarding, WhatIsLongerThanTheGreatestLengthIsCutToIt) {
  Serve({.servers = {"127.0.0.2"}});
  Server server("127.0.0.2");
  const Application application;

  Bytes query = Query(0x0102, "big.example");
  query.resize(8193, 0xDD);
  application.Asks(query);
  query.resize(8192);
  const Bytes forwarded = server.IsAsked();
  EXPECT_EQ(forwarded, UnderProxyId(query, 0));

  Bytes answer = WithAnswerCount(forwarded, 1);
  answer.resize(9000, 0xEE);
  server.Answers(answer);
  answer.resize(8192);
  EXPECT_EQ(application.Hears(), UnderId(answer, 0x0102));
}

// Read low byte first and signed: what has the high bit in its second byte on the wire is negative.
TEST_F(Forwarding, TheAnswerCountDecidesWhetherAnAnswerIsRelayed) {
  Serve({.servers = {"127.0.0.2", "127.0.0.3"}});
  Server first("127.0.0.2");
  Server second("127.0.0.3");

  const struct {
    unsigned short count;
    bool relayed;
  } cases[] = {
      {0, false},     {1, true},       {0x7F, true},   {0x80, false},  {0xFF, false},
      {0x0100, true}, {0x0180, false}, {0x8000, true}, {0xFF7F, true}, {0xFFFF, false},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.count);
    const Application application;
    application.Asks(Query(0x4444, "count.example"));
    const Bytes forwarded = first.IsAsked();
    const Bytes answer = WithAnswerCount(AnswerTo(forwarded, kAddress), test.count);
    first.Answers(answer);
    if (test.relayed) {
      EXPECT_EQ(application.Hears(), UnderId(answer, 0x4444));
      EXPECT_TRUE(second.HasNotBeenAsked());
    } else {
      EXPECT_EQ(second.IsAsked(), forwarded);
      const Bytes other = AnswerTo(forwarded, kAddress);
      second.Answers(other);
      EXPECT_EQ(application.Hears(), UnderId(other, 0x4444));
    }
  }
}

TEST_F(Forwarding, AnswersWithoutRecordsLeadThroughAllServersInOrderToNoSuchName) {
  Serve({.servers = {"127.0.0.2", "127.0.0.3", "127.0.0.4", "127.0.0.5"}});
  Server servers[] = {Server("127.0.0.2"), Server("127.0.0.3"), Server("127.0.0.4"),
                      Server("127.0.0.5")};
  const unsigned char responseCodes[] = {kNameError, kServerFailure, 0, kNameError};
  const Application application;

  const Bytes query = Query(0xCAFE, "nowhere.example");
  application.Asks(query);
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    EXPECT_TRUE(application.HasHeardNothing());
    const Bytes forwarded = servers[i].IsAsked();
    EXPECT_EQ(forwarded, UnderProxyId(query, 0));
    servers[i].Answers(EmptyAnswerTo(forwarded, responseCodes[i]));
  }
  EXPECT_EQ(application.Hears(), NoSuchName(query));
}

TEST_F(Forwarding, AQueryThatASilentServerHasWaitsWhileOthersAreServed) {
  Serve({.servers = {"127.0.0.2", "127.0.0.3"}});
  Server first("127.0.0.2");
  Server second("127.0.0.3");
  const Application waiting;
  waiting.Asks(Query(0x0001, "silence.example"));
  const Bytes unanswered = first.IsAsked();

  for (unsigned short id = 100; id < 120; ++id) {
    const Application other;
    other.Asks(Query(id, "other.example"));
    const Bytes answer = AnswerTo(first.IsAsked(), kAddress);
    first.Answers(answer);
    EXPECT_EQ(other.Hears(), UnderId(answer, id));
  }
  EXPECT_TRUE(waiting.HasHeardNothing());
  EXPECT_TRUE(second.HasNotBeenAsked()) << "nothing moves a query on but an answer";

  // However late, the answer finds it.
  first.Answers(AnswerTo(unanswered, kAddress));
  EXPECT_EQ(waiting.Hears(), UnderId(AnswerTo(unanswered, kAddress), 0x0001));
}

TEST_F(Forwarding, AnAnswerFromAnotherAddressIsDroppedAndTheQueryWaitsOn) {
  Serve({.servers = {"127.0.0.2", "127.0.0.3"}});
  Server first("127.0.0.2");
  const Server second("127.0.0.3");  // a server of the list too, but not the one that was asked
  const Application application;

  application.Asks(Query(0x0001, "www.example"));
  const Bytes forwarded = first.IsAsked();
  second.Send(AnswerTo(forwarded, {6, 6, 6, 6}), first.Asker());
  second.Send(EmptyAnswerTo(forwarded, kNameError), first.Asker());
  SettleAnswers(first.Asker());
  EXPECT_TRUE(application.HasHeardNothing());
  EXPECT_TRUE(second.HasNotBeenAsked());

  first.Answers(AnswerTo(forwarded, kAddress));
  EXPECT_EQ(application.Hears(), UnderId(AnswerTo(forwarded, kAddress), 0x0001));
}

// The address decides, the port plays no part: servers behind address translation answer so.
TEST_F(Forwarding, AnAnswerFromTheRightAddressAndAnotherPortIsRelayed) {
  Serve({.servers = {"127.0.0.2"}});
  Server server("127.0.0.2");
  const UdpPeer otherPort("127.0.0.2");
  const Application application;

  application.Asks(Query(0x0001, "www.example"));
  const Bytes answer = AnswerTo(server.IsAsked(), kAddress);
  otherPort.Send(answer, server.Asker());
  EXPECT_EQ(application.Hears(), UnderId(answer, 0x0001));
}

TEST_F(Forwarding, TheAnswerOfAServerThatWasPassedByIsDropped) {
  Serve({.servers = {"127.0.0.2", "127.0.0.3"}});
  Server first("127.0.0.2");
  Server second("127.0.0.3");
  const Application application;

  application.Asks(Query(0x0001, "www.example"));
  const Bytes forwarded = first.IsAsked();
  first.Answers(EmptyAnswerTo(forwarded, kNameError));
  EXPECT_EQ(second.IsAsked(), forwarded);
  first.Answers(AnswerTo(forwarded, {6, 6, 6, 6}));
  SettleAnswers(first.Asker());
  EXPECT_TRUE(application.HasHeardNothing());

  second.Answers(AnswerTo(forwarded, kAddress));
  EXPECT_EQ(application.Hears(), UnderId(AnswerTo(forwarded, kAddress), 0x0001));
}

TEST_F(Forwarding, ADoubledAnswerIsRelayedOnce) {
  Serve({.servers = {"127.0.0.2"}});
  Server server("127.0.0.2");
  const Application application;

  application.Asks(Query(0x0001, "www.example"));
  const Bytes answer = AnswerTo(server.IsAsked(), kAddress);
  server.Answers(answer);
  server.Answers(answer);
  server.Answers(EmptyAnswerTo(answer, kNameError));
  EXPECT_EQ(application.Hears(), UnderId(answer, 0x0001));
  SettleAnswers(server.Asker());
  EXPECT_TRUE(application.HasHeardNothing());
}

// The first one moves the query on; the second one comes from the server that is asked no longer.
TEST_F(Forwarding, ADoubledAnswerWithoutRecordsMovesTheQueryOnOnce) {
  Serve({.servers = {"127.0.0.2", "127.0.0.3", "127.0.0.4"}});
  Server first("127.0.0.2");
  Server second("127.0.0.3");
  const Server third("127.0.0.4");
  const Application application;

  application.Asks(Query(0x0001, "www.example"));
  const Bytes forwarded = first.IsAsked();
  first.Answers(EmptyAnswerTo(forwarded, kNameError));
  first.Answers(EmptyAnswerTo(forwarded, kNameError));
  EXPECT_EQ(second.IsAsked(), forwarded);
  SettleAnswers(first.Asker());
  EXPECT_TRUE(third.HasNotBeenAsked());
  EXPECT_TRUE(application.HasHeardNothing());
}

TEST_F(Forwarding, AnAnswerToAnUnknownIdentifierIsDropped) {
  Serve({.servers = {"127.0.0.2"}});
  Server server("127.0.0.2");
  const Application application;

  application.Asks(Query(0x0001, "www.example"));
  const Bytes forwarded = server.IsAsked();
  server.Answers(UnderProxyId(AnswerTo(forwarded, {6, 6, 6, 6}), 1));
  server.Answers(UnderProxyId(AnswerTo(forwarded, {6, 6, 6, 6}), 0xFFFF));
  SettleAnswers(server.Asker());
  EXPECT_TRUE(application.HasHeardNothing());

  server.Answers(AnswerTo(forwarded, kAddress));
  EXPECT_EQ(application.Hears(), UnderId(AnswerTo(forwarded, kAddress), 0x0001));
}

// A text that is no address is listed as 255.255.255.255, to which no route leads here: the forward
// fails.
TEST_F(Forwarding, AQueryThatCannotBeSentToItsServerIsDroppedAndNoOtherServerAsked) {
  Serve({.servers = {"dns.example", "127.0.0.2"}});
  const Server server("127.0.0.2");
  const Application application;

  application.Asks(Query(0x0001, "www.example"));
  SettleQueries();
  EXPECT_TRUE(application.HasHeardNothing());
  EXPECT_TRUE(server.HasNotBeenAsked());
  EXPECT_TRUE(Process().Traces(trace::ForwardFailed(0, ENETUNREACH)));
}

}  // namespace
}  // namespace service
