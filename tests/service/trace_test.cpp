// The exact trace of whole flows. What stands in the first parentheses is the number of the source
// line that wrote it, which any number may be.
#include <gtest/gtest.h>

#include "tests/service/service_test.h"

namespace service {
namespace {

using support::TraceIs;
using support::TraceLines;

class TraceOfAFlow : public ServiceTest {
 protected:
  void Serve(const Plan& plan) {
    ServiceTest::Serve(plan);
    ASSERT_TRUE(Process().Traces("func: StartDnsSrv(line:%d) pthread_create thread_query success"));
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
  ExpectTraced({
      "func: thread_query(line:%d) ****QureyThread***: received dns request",
      "func: RecvAndProcessPacketsFromLocalApps(line:%d)FromAPP: received 29 data from 127.0.0.1",
      "func: RecvAndProcessPacketsFromLocalApps(line:%d) pDNSHeader QuestionCount :1",
      "func: RecvAndProcessPacketsFromLocalApps(line:%d) received dns request............"
      "www.example",
      "func: RecvAndProcessPacketsFromLocalApps(line:%d)FromAPP: the request domain is "
      "www.example, id:0",
      "func: TryNextDNSQueryMethod(line:%d)TryNextDNSQueryMethod: id: 0, bReasonIsTimeout:0",
      "func: TryNextDNSQueryMethod(line:%d) CurrentDNSMethodIndex: 0, DnsListSize:2",
      "**********hostmap****TryNextDNSQueryMethod: iCurrentDNSMethodType:1(0: dns, 1:hostmap)",
      "func: TryNextDNSQueryMethod(line:%d)TryNextDNSQueryMethod: id: 0, bReasonIsTimeout:0",
      "func: TryNextDNSQueryMethod(line:%d) CurrentDNSMethodIndex: 1, DnsListSize:2",
      "**********hostmap****TryNextDNSQueryMethod: iCurrentDNSMethodType:0(0: dns, 1:hostmap)",
  });

  // The last four bytes are traced as signed numbers.
  server.Answers(AnswerTo(forwarded, {192, 168, 1, 1}));
  application.Hears();
  ExpectTraced({
      "func: thread_answer(line:%d) AnswerThread: received dns response.",
      "func: RecvAndProcessPacketsFromDNSServer(line:%d) FromDNSServer: recv 45 data from "
      "127.0.0.2",
      "func: RecvAndProcessPacketsFromDNSServer(line:%d) domain www.example received answer "
      "-64.-88.1.1 from 127.0.0.2, we have to delete id:0",
  });
}

TEST_F(TraceOfAFlow, FallThroughToNoSuchName) {
  Serve({.servers = {"127.0.0.2", "127.0.0.3"}});
  Server first("127.0.0.2");
  Server second("127.0.0.3");
  const Application application;
  application.Asks(Query(0x1234, "www.example"));
  const Bytes forwarded = first.IsAsked();
  ExpectTraced({
      "func: thread_query(line:%d) ****QureyThread***: received dns request",
      "func: RecvAndProcessPacketsFromLocalApps(line:%d)FromAPP: received 29 data from 127.0.0.1",
      "func: RecvAndProcessPacketsFromLocalApps(line:%d) pDNSHeader QuestionCount :1",
      "func: RecvAndProcessPacketsFromLocalApps(line:%d) received dns request............"
      "www.example",
      "func: RecvAndProcessPacketsFromLocalApps(line:%d)FromAPP: the request domain is "
      "www.example, id:0",
      "func: TryNextDNSQueryMethod(line:%d)TryNextDNSQueryMethod: id: 0, bReasonIsTimeout:0",
      "func: TryNextDNSQueryMethod(line:%d) CurrentDNSMethodIndex: 0, DnsListSize:2",
      "**********hostmap****TryNextDNSQueryMethod: iCurrentDNSMethodType:0(0: dns, 1:hostmap)",
  });

  first.Answers(EmptyAnswerTo(forwarded, 3));
  second.IsAsked();
  ExpectTraced({
      "func: thread_answer(line:%d) AnswerThread: received dns response.",
      "func: RecvAndProcessPacketsFromDNSServer(line:%d) FromDNSServer: recv 29 data from "
      "127.0.0.2",
      "func: RecvAndProcessPacketsFromDNSServer(line:%d) rsp from: 127.0.0.2, id: 0, for : "
      "www.example, no such name",
      "func: TryNextDNSQueryMethod(line:%d)TryNextDNSQueryMethod: id: 0, bReasonIsTimeout:0",
      "func: TryNextDNSQueryMethod(line:%d) CurrentDNSMethodIndex: 1, DnsListSize:2",
      "**********hostmap****TryNextDNSQueryMethod: iCurrentDNSMethodType:0(0: dns, 1:hostmap)",
  });

  second.Answers(EmptyAnswerTo(forwarded, 3));
  application.Hears();
  ExpectTraced({
      "func: thread_answer(line:%d) AnswerThread: received dns response.",
      "func: RecvAndProcessPacketsFromDNSServer(line:%d) FromDNSServer: recv 29 data from "
      "127.0.0.3",
      "func: RecvAndProcessPacketsFromDNSServer(line:%d) rsp from: 127.0.0.3, id: 0, for : "
      "www.example, no such name",
      "func: TryNextDNSQueryMethod(line:%d)TryNextDNSQueryMethod: id: 0, bReasonIsTimeout:0",
      "func: TryNextDNSQueryMethod(line:%d) CurrentDNSMethodIndex: 2, DnsListSize:2",
      "func: TryNextDNSQueryMethod(line:%d) no more DNS methods, send no such name response",
  });
}

}  // namespace
}  // namespace service
