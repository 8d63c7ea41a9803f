// The answers that the service makes up itself, and that no server has a part in.
#include <gtest/gtest.h>

#include "tests/service/service_test.h"

namespace service {
namespace {

const Bytes kMapped = {10, 1, 2, 3};
const Bytes kForged = {6, 6, 6, 6};

using MadeUpAnswers = ServiceTest;

TEST_F(MadeUpAnswers, AMappedNameIsAnsweredAndNeverForwarded) {
  Serve({.servers = {"127.0.0.2"}, .hostMaps = {{"mapped.example", "10.1.2.3"}}});
  const Server server("127.0.0.2");
  const Application application;

  for (const char* const name : {"mapped.example", "Mapped.Example", "MAPPED.EXAMPLE"}) {
    for (const unsigned short type : {kTypeA, kTypeAaaa, kTypeTxt}) {
      SCOPED_TRACE(testing::Message() << name << ' ' << type);
      const Bytes query = Query(0xABCD, name, type);
      application.Asks(query);
      EXPECT_EQ(application.Hears(), HostAnswer(query, type, kMapped));
    }
  }
  EXPECT_TRUE(server.HasNotBeenAsked());
}

TEST_F(MadeUpAnswers, AMappedNameThatLeavesNoRoomForTheRecordIsForwarded) {
  Serve({.servers = {"127.0.0.2"}, .hostMaps = {{"mapped.example", "10.1.2.3"}}});
  Server server("127.0.0.2");
  const Application application;

  Bytes query = Query(0xABCD, "mapped.example");
  query.resize(8175);
  application.Asks(query);
  EXPECT_EQ(application.Hears(), HostAnswer(query, kTypeA, kMapped));

  query.resize(8176);
  application.Asks(query);
  EXPECT_EQ(server.IsAsked(), UnderProxyId(query, 1));
}

TEST_F(MadeUpAnswers, AReverseLookUpIsNoSuchNameAndNeverForwarded) {
  Serve({.servers = {"127.0.0.2"}, .hostMaps = {{"1.0.0.10.in-addr.arpa", "10.1.2.3"}}});
  const Server server("127.0.0.2");
  const Application application;

  for (const char* const name :
       {"1.0.168.192.in-addr.arpa", "x.in-addr.arpa.example", "1.0.0.10.in-addr.arpa"}) {
    SCOPED_TRACE(name);
    const Bytes query = Query(0xABCD, name, 12);
    application.Asks(query);
    EXPECT_EQ(application.Hears(), NoSuchName(query));
  }
  EXPECT_TRUE(server.HasNotBeenAsked());
}

TEST_F(MadeUpAnswers, WhatOnlyLooksLikeAReverseLookUpIsForwarded) {
  Serve({.servers = {"127.0.0.2"}});
  Server server("127.0.0.2");
  const Application application;

  unsigned short id = 0;
  for (const char* const name : {"X.IN-ADDR.ARPA", "in-addr.arpa", "1.ip6.arpa"}) {
    SCOPED_TRACE(name);
    const Bytes query = Query(0xABCD, name);
    application.Asks(query);
    EXPECT_EQ(server.IsAsked(), UnderProxyId(query, id++));
  }
}

// A reverse look-up has a position behind any list of servers while it is in the table. An answer
// forged for its identifier meets it there, or is late, or early: it never changes the outcome.
TEST_F(MadeUpAnswers, AForgedAnswerNeverReachesAReverseLookUp) {
  Serve({.servers = {"127.0.0.2"}, .traced = false});
  Server server("127.0.0.2");
  const Application application;

  application.Asks(Query(0x0001, "www.example"));
  const Bytes forwarded = server.IsAsked();  // from now on the forger knows where to

  constexpr unsigned short kRounds = 2000;
  const Bytes query = Query(0x0002, "1.0.168.192.in-addr.arpa", 12);
  for (unsigned short id = 1; id <= kRounds; ++id) {
    server.Answers(UnderProxyId(AnswerTo(forwarded, kForged), id));
    application.Asks(query);
    server.Answers(UnderProxyId(EmptyAnswerTo(forwarded, 3), id));
    server.Answers(UnderProxyId(AnswerTo(forwarded, kForged), id));
    ASSERT_EQ(application.Hears(), NoSuchName(query));
    ASSERT_TRUE(application.HasHeardNothing());
  }
  EXPECT_TRUE(server.HasNotBeenAsked());
}

// Likewise for a request that is still at its host-map entry, which no server's address matches.
TEST_F(MadeUpAnswers, AForgedAnswerNeverReachesAMappedName) {
  Serve({.servers = {"127.0.0.2"}, .hostMaps = {{"mapped.example", "10.1.2.3"}}, .traced = false});
  Server server("127.0.0.2");
  const Application application;

  application.Asks(Query(0x0001, "www.example"));
  const Bytes forwarded = server.IsAsked();

  constexpr unsigned short kRounds = 2000;
  const Bytes query = Query(0x0002, "mapped.example");
  for (unsigned short id = 1; id <= kRounds; ++id) {
    server.Answers(UnderProxyId(AnswerTo(forwarded, kForged), id));
    application.Asks(query);
    server.Answers(UnderProxyId(EmptyAnswerTo(forwarded, 3), id));
    server.Answers(UnderProxyId(AnswerTo(forwarded, kForged), id));
    ASSERT_EQ(application.Hears(), HostAnswer(query, kTypeA, kMapped));
    ASSERT_TRUE(application.HasHeardNothing());
  }
  EXPECT_TRUE(server.HasNotBeenAsked());
}

TEST_F(MadeUpAnswers, AForgedAnswerToAnIdentifierThatIsNotYetInUseIsDropped) {
  Serve({.servers = {"127.0.0.2"}});
  Server server("127.0.0.2");
  const Application application;

  application.Asks(Query(0x0001, "www.example"));
  const Bytes first = server.IsAsked();
  server.Answers(UnderProxyId(AnswerTo(first, kForged), 1));
  SettleAnswers(server.Asker());

  application.Asks(Query(0x0002, "www.example"));
  const Bytes second = server.IsAsked();
  EXPECT_EQ(second, UnderProxyId(Query(0x0002, "www.example"), 1));
  server.Answers(AnswerTo(second, {192, 0, 2, 7}));
  EXPECT_EQ(application.Hears(), UnderId(AnswerTo(second, {192, 0, 2, 7}), 0x0002));
  EXPECT_TRUE(application.HasHeardNothing());
}

}  // namespace
}  // namespace service
