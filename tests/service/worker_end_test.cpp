// Each way in which a worker ends, and what becomes of the service then.
//
// There is no way to stop the service, and none of these is mended: the process that hosts it ends
// and starts it anew. The service's life is the answer thread's; when the query thread ends the
// call does not return, and nothing is answered any more.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include "tests/service/service_test.h"

namespace service {
namespace {

class WorkerEnd : public ServiceTest {
 protected:
  // The call has returned true, and closed both sockets before.
  void ExpectReturnedAfterClosing() const {
    const Outcome outcome = Process().WaitForReturn();
    EXPECT_TRUE(outcome.result);
    EXPECT_FALSE(outcome.applicationSocketOpen);
    EXPECT_FALSE(outcome.serverSocketOpen);
  }

  // The query thread has ended: it is one thread less, what is asked now stays unread, and the call
  // is where it was.
  void ExpectNoQueryThread(int threadsBefore) const {
    EXPECT_TRUE(Eventually([&] { return Process().Threads() == threadsBefore - 1; }));
    const std::size_t traced = Process().Trace().size();
    const Application application;
    application.Asks(Query(0x0099, "1.0.0.127.in-addr.arpa"));
    usleep(100 * 1000);  // in which a thread that is still there would have answered
    EXPECT_TRUE(application.HasHeardNothing());
    EXPECT_EQ(Process().Trace().size(), traced);
    EXPECT_FALSE(Process().HasReturned());
  }
};

// The query thread: a datagram that is no query that can be served.

TEST_F(WorkerEnd, OfTheQueryThreadByAnUnservableDatagramIsSilentAndTheCallDoesNotReturn) {
  const struct {
    const char* what;
    Bytes datagram;
    const char* lastLine;
  } cases[] = {
      {"empty", {}, "FromAPP: query too short from 127.0.0.1"},
      {"shorter than a header", Bytes(11, 1), "FromAPP: query too short from 127.0.0.1"},
      {"no question", support::DnsMessageBuilder().Id(1).Build(),
       "FromAPP: QuestionCount invalid: 0, from: 127.0.0.1"},
      {"two questions", WithQuestionCount(Query(1, "a.example"), 2),
       "FromAPP: QuestionCount invalid: 2, from: 127.0.0.1"},
      {"a question that is announced and missing",
       support::DnsMessageBuilder().Id(1).QuestionCount(1).Build(),
       "FromAPP: domain is empty, from: 127.0.0.1"},
      {"the root", Query(1, ""), "FromAPP: domain is empty, from: 127.0.0.1"},
      {"a name that begins with a pointer",
       support::DnsMessageBuilder().Id(1).QuestionCount(1).Raw({0xC0, 0x0C, 0, 1, 0, 1}).Build(),
       "FromAPP: domain is empty, from: 127.0.0.1"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    Serve({.servers = {"127.0.0.2"}});
    SettleQueries();
    const int threads = Process().Threads();
    const Application application;
    application.Asks(test.datagram);
    EXPECT_TRUE(Process().Traces(trace::QueryPath(test.lastLine)));
    ExpectNoQueryThread(threads);
    EXPECT_TRUE(application.HasHeardNothing());
  }
}

TEST_F(WorkerEnd, OfTheQueryThreadLeavesTheAnswerThreadAtWork) {
  Serve({.servers = {"127.0.0.2", "127.0.0.3"}});
  Server first("127.0.0.2");
  Server second("127.0.0.3");
  const Application application;
  application.Asks(Query(0x0001, "www.example"));
  const Bytes forwarded = first.IsAsked();

  const int threads = Process().Threads();
  application.Asks({});
  ExpectNoQueryThread(threads);

  first.Answers(EmptyAnswerTo(forwarded, 3));
  EXPECT_EQ(second.IsAsked(), forwarded);
  second.Answers(AnswerTo(forwarded, kAddress));
  EXPECT_EQ(application.Hears(), UnderId(AnswerTo(forwarded, kAddress), 0x0001));
}

TEST_F(WorkerEnd, OfTheQueryThreadByAHandledSignalHasItsOwnLineAndTheCallDoesNotReturn) {
  Serve({});
  SettleQueries();
  const int threads = Process().Threads();
  EXPECT_TRUE(Process().InterruptQueryThread(trace::kQueryWaitFailed));
  ExpectNoQueryThread(threads);
}

// The answer thread: a datagram shorter than a header, from whomever.

TEST_F(WorkerEnd, OfTheAnswerThreadByARuntMakesTheCallReturnTrueAfterClosingBothSockets) {
  for (const std::size_t length : {0U, 1U, 11U}) {
    SCOPED_TRACE(length);
    Serve({.servers = {"127.0.0.2"}});
    Server server("127.0.0.2");
    const Application application;
    application.Asks(Query(0x0001, "www.example"));
    server.IsAsked();
    server.Answers(Bytes(length));
    ExpectReturnedAfterClosing();
    EXPECT_TRUE(
        Process().Traces(trace::ResponsePath(" FromDNSServer: do_answer: answer too short: " +
                                             std::to_string(length) + ", from: 127.0.0.2")));
    EXPECT_TRUE(Process().Traces(trace::kAnswerHandlerFailed));
    EXPECT_TRUE(application.HasHeardNothing());
  }
}

TEST_F(WorkerEnd, OfTheAnswerThreadByARuntFromAStranger) {
  Serve({.servers = {"127.0.0.2"}});
  Server server("127.0.0.2");
  const UdpPeer stranger("127.0.0.99");
  const Application application;
  application.Asks(Query(0x0001, "www.example"));
  server.IsAsked();
  stranger.Send({1, 2, 3}, server.Asker());
  ExpectReturnedAfterClosing();
  EXPECT_TRUE(Process().Traces(trace::kAnswerHandlerFailed));
}

TEST_F(WorkerEnd, OfTheAnswerThreadByAHandledSignalMakesTheCallReturnTrue) {
  Serve({.servers = {"127.0.0.2"}});
  SettleQueries();
  EXPECT_TRUE(Process().InterruptAnswerThread(trace::kAnswerWaitFailed));
  ExpectReturnedAfterClosing();
}

// Both waits go without a limit on a closed socket's descriptor: the query thread learns of it by
// the next datagram, which it can no longer receive.
TEST_F(WorkerEnd, OfTheAnswerThreadLeavesTheQueryThreadInItsWaitUntilTheNextDatagram) {
  Serve({.servers = {"127.0.0.2"}});
  SettleQueries();
  EXPECT_TRUE(Process().InterruptAnswerThread(trace::kAnswerWaitFailed));
  ExpectReturnedAfterClosing();
  const Application application;
  application.Asks(Query(0x0001, "www.example"));
  EXPECT_TRUE(
      Process().Traces(trace::QueryPath("RecvAndProcessPacketsFromLocalApps: recv nothing...")));
  EXPECT_TRUE(application.HasHeardNothing());
}

// A descriptor that has no bit in select's set.

// In the service's process: takes every descriptor below FD_SETSIZE but `free` of them.
void TakeDescriptors(int free) {
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = FD_SETSIZE + 16;
  setrlimit(RLIMIT_NOFILE, &limit);
  int last = open("/dev/null", O_RDONLY | O_CLOEXEC);
  while (last < FD_SETSIZE - 1) {
    last = fcntl(last, F_DUPFD_CLOEXEC, 0);
  }
  for (int i = 0; i < free; ++i) {
    close(FD_SETSIZE - 1 - i);
  }
}

TEST_F(WorkerEnd, OfBothByDescriptorsThatDoNotFitTheWait) {
  Start({.servers = {"127.0.0.2"}, .beforeTheCall = [] { TakeDescriptors(0); }});
  ExpectReturnedAfterClosing();
  EXPECT_TRUE(Process().Traces(trace::kAnswerWaitFailed));
  EXPECT_TRUE(Process().Traces(trace::kQueryWaitFailed));
}

TEST_F(WorkerEnd, OfTheAnswerThreadAloneWhenTheFirstDescriptorJustFits) {
  Start({.servers = {"127.0.0.2"}, .beforeTheCall = [] { TakeDescriptors(1); }});
  ExpectReturnedAfterClosing();
  EXPECT_TRUE(Process().Traces(trace::kAnswerWaitFailed));
}

TEST_F(WorkerEnd, DoesNotComeWithTheGreatestDescriptorsThatFit) {
  Serve({.servers = {"127.0.0.2"}, .beforeTheCall = [] { TakeDescriptors(2); }});
  Server server("127.0.0.2");
  const Application application;
  application.Asks(Query(0x0001, "www.example"));
  const Bytes answer = AnswerTo(server.IsAsked(), kAddress);
  server.Answers(answer);
  EXPECT_EQ(application.Hears(), UnderId(answer, 0x0001));
  EXPECT_FALSE(Process().HasReturned());
}

}  // namespace
}  // namespace service
