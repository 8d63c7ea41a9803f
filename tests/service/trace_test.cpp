// The exact trace of two whole flows; the unit tests have every line by itself.
#include <gtest/gtest.h>

#include "tests/service/service_test.h"

namespace service {
namespace {

class TraceOfAFlow : public ServiceTest {
 protected:
  void Serve(const Plan& plan) {
    ServiceTest::Serve(plan);
    ASSERT_TRUE(Process().Traces(trace::kQueryThreadMade));
    seen_ = Process().Trace().size();
  }

  // What has been traced since the last time, once it is as many lines as `expected`, is that.
  void ExpectTraced(const TraceLines& expected) {
    Eventually([&] { return Process().Trace().size() >= seen_ + expected.size(); });
    const TraceLines all = Process().Trace();
    EXPECT_THAT(TraceLines(all.begin() + static_cast<std::ptrdiff_t>(seen_), all.end()),
                TraceIs(expected));
    seen_ = all.size();
  }

 private:
  std::size_t seen_ = 0;
};

TEST_F(TraceOfAFlow, MissForwardAndRelay) {
  Serve({.servers = {"127.0.0.2"}, .hostMaps = {{"mapped.example", "10.1.2.3"}}});
  Server server("127.0.0.2");
  const Application application;
  application.Asks(Query(0x1234, "www.example"));
  const Bytes forwarded = server.IsAsked();
  ExpectTraced(TraceLines{trace::kQueryCame} + trace::Accepted(29, "www.example", 0) +
               trace::Dispatched(0, 0, 2) + TraceLines{trace::kHostMapTried} +
               trace::Dispatched(0, 1, 2) + TraceLines{trace::kServerTried});

  // The last four bytes are traced as signed numbers.
  server.Answers(AnswerTo(forwarded, {192, 168, 1, 1}));
  application.Hears();
  ExpectTraced({trace::kAnswerCame, trace::Received(45, "127.0.0.2"),
                trace::Relayed("www.example", "-64.-88.1.1", "127.0.0.2", 0)});
}

TEST_F(TraceOfAFlow, FallThroughToNoSuchName) {
  Serve({.servers = {"127.0.0.2", "127.0.0.3"}});
  Server first("127.0.0.2");
  Server second("127.0.0.3");
  const Application application;
  application.Asks(Query(0x1234, "www.example"));
  const Bytes forwarded = first.IsAsked();
  ExpectTraced(TraceLines{trace::kQueryCame} + trace::Accepted(29, "www.example", 0) +
               trace::Dispatched(0, 0, 2) + TraceLines{trace::kServerTried});

  first.Answers(EmptyAnswerTo(forwarded, 3));
  second.IsAsked();
  ExpectTraced(TraceLines{trace::kAnswerCame, trace::Received(29, "127.0.0.2"),
                          trace::NoRecords("127.0.0.2", 0, "www.example")} +
               trace::Dispatched(0, 1, 2) + TraceLines{trace::kServerTried});

  second.Answers(EmptyAnswerTo(forwarded, 3));
  application.Hears();
  ExpectTraced(TraceLines{trace::kAnswerCame, trace::Received(29, "127.0.0.3"),
                          trace::NoRecords("127.0.0.3", 0, "www.example")} +
               trace::Dispatched(0, 2, 2) + TraceLines{trace::kNoMoreMethods});
}

}  // namespace
}  // namespace service
