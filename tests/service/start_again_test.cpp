// StartDnsSrv called again and again in one process, under load.
//
// The query thread of an earlier call is never waited for. One that is between two datagrams when
// the next call makes its sockets goes on with those: it serves beside the new one, and reads the
// lists while they are appended to. Nothing of that may be a fault.
//
//   DNS_PROXY_TEST_SECONDS   how long (3)
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>

#include "dns_proxy_mac/proxy/service_state.h"
#include "tests/service/service_test.h"

namespace service {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kMapped[] = "mapped.example";

// After so many answers the server ends the answer thread, and so the call.
constexpr int kAnswersBetweenRunts = 500;

std::chrono::seconds Duration() {
  const char* const seconds = std::getenv("DNS_PROXY_TEST_SECONDS");
  return std::chrono::seconds(seconds == nullptr ? 3 : std::strtol(seconds, nullptr, 10));
}

// In the service's process, between two calls. A query thread that waits on a socket which has been
// closed keeps the port, and the next call fails, until a datagram wakes it while its descriptor's
// number names no other socket.
void MakeWayAfterAFailedStart() {
  close(g_SockToClientApps);
  close(g_SockToDNSServers);
  usleep(1000);
}

using StartAgain = ServiceTest;

TEST_F(StartAgain, UnderLoadIsWithoutAFaultAndEveryAnswerIsRight) {
  const Clock::time_point deadline = Clock::now() + Duration();
  Server server("127.0.0.2");
  Start({.servers = {"127.0.0.2"},
         .hostMaps = {{kMapped, "192.0.2.7"}},
         .betweenCalls =
             [=](bool started) {
               if (!started) {
                 MakeWayAfterAFailedStart();
               }
               return Clock::now() < deadline;
             },
         .traced = false});

  const Application application;
  unsigned short id = 0;
  int answers = 0;
  int runts = 0;
  int threads = 0;
  long wrong = 0;
  long heard = 0;
  while (!Process().HasReturned() && !Process().HasEnded()) {
    for (int question = 0; question < 4; ++question, ++id) {
      application.Asks(Query(id, id % 4 == 0 ? kMapped : std::to_string(id) + ".example"));
    }
    while (const auto asked = server.Arrived()) {
      ++answers;
      server.Send(AnswerTo(asked->bytes, kAddress), asked->from);
      if (answers % kAnswersBetweenRunts == 0) {
        server.Send({}, asked->from);
        ++runts;
      }
    }
    while (const auto answer = application.Arrived()) {
      ++heard;
      const Bytes& bytes = answer->bytes;
      const auto under = static_cast<unsigned short>(bytes.at(0) << 8 | bytes.at(1));
      const Bytes query =
          Query(under, under % 4 == 0 ? kMapped : std::to_string(under) + ".example");
      wrong += bytes !=
               (under % 4 == 0 ? HostAnswer(query, kTypeA, kAddress) : AnswerTo(query, kAddress));
    }
    if (id % 1024 == 0) {
      threads = std::max(threads, Process().Threads());
    }
    usleep(30);
  }
  EXPECT_FALSE(Process().HasEnded()) << "a crash, or a sanitizer's report";
  EXPECT_GT(heard, 0);
  EXPECT_EQ(wrong, 0);
  EXPECT_GT(runts, 1) << "was started but once";
  std::cout << runts << " calls, " << heard << " answers, at the most " << threads << " threads\n";
}

}  // namespace
}  // namespace service
