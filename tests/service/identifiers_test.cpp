// The two identifiers of a query: the application's, given back as it came, and the service's own.
#include <gtest/gtest.h>

#include "dns_proxy_mac/proxy/service_state.h"
#include "tests/service/service_test.h"

namespace service {
namespace {

const Bytes kOtherAddress = {198, 51, 100, 9};

using Identifiers = ServiceTest;

TEST_F(Identifiers, CountFromZeroAndTravelInTheMachinesByteOrder) {
  Serve({.servers = {"127.0.0.2"}});
  Server server("127.0.0.2");
  const Application application;

  for (unsigned short id = 0; id < 300; ++id) {
    application.Asks(Query(0x1234, "www.example"));
    const Bytes forwarded = server.IsAsked();
    ASSERT_EQ(forwarded, UnderProxyId(Query(0x1234, "www.example"), id));
    if constexpr (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__) {
      ASSERT_EQ(forwarded[0], id % 256);
      ASSERT_EQ(forwarded[1], id / 256);
    }
  }
}

TEST_F(Identifiers, OfTheApplicationAreGivenBackAsTheyCame) {
  Serve({.servers = {"127.0.0.2"}, .hostMaps = {{"mapped.example", "10.1.2.3"}}});
  Server server("127.0.0.2");
  const Application application;

  constexpr unsigned short kIdentifiers[] = {0x0000, 0x0001, 0x0100, 0x1234,
                                             0x8000, 0xFF00, 0xFFFF};
  for (const unsigned short id : kIdentifiers) {
    application.Asks(Query(id, "www.example"));
    const Bytes answer = AnswerTo(server.IsAsked(), kAddress);
    server.Answers(answer);
    EXPECT_EQ(application.Hears(), UnderId(answer, id));

    application.Asks(Query(id, "mapped.example"));
    EXPECT_EQ(application.Hears(), HostAnswer(Query(id, "mapped.example"), kTypeA, {10, 1, 2, 3}));

    application.Asks(Query(id, "1.2.0.192.in-addr.arpa"));
    EXPECT_EQ(application.Hears(), NoSuchName(Query(id, "1.2.0.192.in-addr.arpa")));
  }
}

TEST_F(Identifiers, ThatTwoApplicationsShareAreToldApart) {
  Serve({.servers = {"127.0.0.2"}});
  Server server("127.0.0.2");
  const Application one;
  const Application other;

  one.Asks(Query(0x7777, "one.example"));
  const Bytes ones = server.IsAsked();
  other.Asks(Query(0x7777, "other.example"));
  const Bytes others = server.IsAsked();

  // Answered the other way round.
  server.Answers(AnswerTo(others, kOtherAddress));
  EXPECT_EQ(other.Hears(), UnderId(AnswerTo(others, kOtherAddress), 0x7777));
  EXPECT_TRUE(one.HasHeardNothing());
  server.Answers(AnswerTo(ones, kAddress));
  EXPECT_EQ(one.Hears(), UnderId(AnswerTo(ones, kAddress), 0x7777));
  EXPECT_TRUE(other.HasHeardNothing());
}

TEST_F(Identifiers, ThatOneApplicationUsesTwiceAreTwoQueries) {
  Serve({.servers = {"127.0.0.2"}});
  Server server("127.0.0.2");
  const Application application;

  application.Asks(Query(0x7777, "www.example"));
  application.Asks(Query(0x7777, "www.example"));
  const Bytes first = server.IsAsked();
  const Bytes second = server.IsAsked();
  EXPECT_EQ(first, UnderProxyId(second, 0));
  EXPECT_EQ(second, UnderProxyId(first, 1));
  server.Answers(AnswerTo(first, kAddress));
  server.Answers(AnswerTo(second, kOtherAddress));
  EXPECT_EQ(application.Hears(), UnderId(AnswerTo(first, kAddress), 0x7777));
  EXPECT_EQ(application.Hears(), UnderId(AnswerTo(second, kOtherAddress), 0x7777));
}

TEST_F(Identifiers, WrapFrom65535To0) {
  Serve({.servers = {"127.0.0.2"}, .beforeTheCall = [] { g_QueryID = 65534; }});
  Server server("127.0.0.2");
  const Application application;

  const Bytes query = Query(0x1234, "www.example");
  constexpr unsigned short kInOrder[] = {65534, 65535, 0, 1};
  for (const unsigned short id : kInOrder) {
    application.Asks(query);
    EXPECT_EQ(server.IsAsked(), UnderProxyId(query, id));
  }
}

// After 65,536 queries the next identifier is one that a silent server still has. The new query is
// dropped and the dispatch acts on the older one: its server is asked again.
TEST_F(Identifiers, WrappingOntoAPendingQueryLeavesThatOneInPlace) {
  Serve({.servers = {"127.0.0.2"}, .hostMaps = {{"mapped.example", "10.1.2.3"}}, .traced = false});
  Server server("127.0.0.2");
  const Application older;
  const Application between;
  const Application newer;

  const Bytes olderQuery = Query(0x0101, "older.example");
  older.Asks(olderQuery);
  const Bytes forwarded = server.IsAsked();
  EXPECT_EQ(forwarded, UnderProxyId(olderQuery, 0));

  // The other 65,535 identifiers, each taken and given back.
  constexpr int kBetween = 65535;
  constexpr int kAtOnce = 51;
  static_assert(kBetween % kAtOnce == 0);
  const Bytes mapped = Query(0x0202, "mapped.example");
  const Bytes mappedAnswer = HostAnswer(mapped, kTypeA, {10, 1, 2, 3});
  for (int done = 0; done < kBetween; done += kAtOnce) {
    for (int i = 0; i < kAtOnce; ++i) {
      between.Asks(mapped);
    }
    for (int i = 0; i < kAtOnce; ++i) {
      ASSERT_EQ(between.Hears(), mappedAnswer);
    }
  }

  newer.Asks(Query(0x0303, "newer.example"));
  EXPECT_EQ(server.IsAsked(), forwarded) << "the older query, sent again";
  server.Answers(AnswerTo(forwarded, kAddress));
  EXPECT_EQ(older.Hears(), UnderId(AnswerTo(forwarded, kAddress), 0x0101));

  // The identifier is free again, and the counter has gone on.
  newer.Asks(Query(0x0303, "newer.example"));
  EXPECT_EQ(server.IsAsked(), UnderProxyId(Query(0x0303, "newer.example"), 1));
  EXPECT_TRUE(newer.HasHeardNothing());
}

}  // namespace
}  // namespace service
