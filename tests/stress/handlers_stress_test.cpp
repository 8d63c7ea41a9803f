// Both workers at full speed on one table, while servers and forgers send what they should not.
// What is looked for: a report of a sanitizer, a crash, a record that is freed twice or never.
#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "dns_proxy_mac/proxy/service_state.h"
#include "tests/stress/traffic.h"
#include "tests/stress/workers.h"
#include "tests/support/heap_watch.h"
#include "tests/support/run_length.h"

namespace stress {
namespace {

using support::RecordsAlive;
using support::RecordsMade;
using support::Sized;

// Orders of methods, as letters: H the host map, 0 and 1 the servers.
struct Storm {
  const char* name;
  const char* methods;
  std::vector<std::string> names;
  Manners manners;
};

std::ostream& operator<<(std::ostream& out, const Storm& storm) { return out << storm.name; }

DNSMethodList MethodsOf(const std::string& letters, const Traffic& traffic) {
  DNSMethodList methods;
  for (const char letter : letters) {
    methods.push_back(letter == 'H' ? HostMapMethod()
                                    : traffic.Server(static_cast<std::size_t>(letter - '0')));
  }
  return methods;
}

const std::vector<std::pair<std::string, std::string>> kHostMaps = {{"mapped.example", "10.1.2.3"}};
constexpr char kPlain[] = "plain.example";
constexpr char kMapped[] = "mapped.example";
constexpr char kReverse[] = "1.0.168.192.in-addr.arpa";

const Storm kStorms[] = {
    {"LateAndDoubledAnswers",
     "01",
     {kPlain},
     {.answered = 80, .empty = 20, .doubled = 60, .late = 60}},
    {"AnswersToIdentifiersNotYetSent", "0", {kPlain}, {.answered = 50, .ahead = 100}},
    {"EmptyAnswersToIdentifiersNotYetSent", "01", {kPlain}, {.answered = 30, .aheadEmpty = 100}},
    {"WrongSenders", "01", {kPlain}, {.answered = 90, .strange = 100}},
    {"ForgedAnswersToReverseLookups",
     "01",
     {kReverse, kPlain},
     {.answered = 90, .ahead = 100, .aheadEmpty = 100}},
    {"ForgedAnswersToRequestsAtTheHostMap",
     "H0",
     {kPlain, kMapped},
     {.answered = 60, .empty = 20, .ahead = 100, .aheadEmpty = 100}},
    {"EmptyForgeriesWhereTheHostMapStandsBehindAServer",
     "0H1",
     {kPlain, kMapped},
     {.answered = 20, .empty = 60, .doubled = 50, .late = 30, .ahead = 30, .aheadEmpty = 100}},
    {"EverythingAtOnce",
     "0H10",
     {kPlain, kMapped, kReverse},
     {.answered = 40,
      .empty = 30,
      .doubled = 30,
      .late = 50,
      .ahead = 50,
      .aheadEmpty = 50,
      .strange = 50}},
};

constexpr long kQuestions = support::kSanitized ? 12'000 : 40'000;

class HandlersStressTest : public testing::TestWithParam<Storm> {};

TEST_P(HandlersStressTest, EveryRecordIsFreedOnceAndEveryAnswerIsUnderTheApplicationsIdentifier) {
  const Storm& storm = GetParam();
  const long aliveBefore = RecordsAlive();
  const long madeBefore = RecordsMade();
  Traffic traffic;
  {
    const Workers workers(MethodsOf(storm.methods, traffic), kHostMaps);
    traffic.Run(workers, storm.names, storm.manners, kQuestions);
  }
  const Tally& seen = traffic.Seen();
  EXPECT_EQ(RecordsAlive(), aliveBefore);
  EXPECT_EQ(seen.foreign, 0);

  // Was there a storm at all? The system may drop what it likes of it, but not most.
  EXPECT_GT(RecordsMade() - madeBefore, seen.asked / 2);
  EXPECT_GT(seen.heard, seen.asked / 10);
  EXPECT_GT(seen.forged, seen.asked / 10);
}

INSTANTIATE_TEST_SUITE_P(Storms, HandlersStressTest, testing::ValuesIn(kStorms),
                         [](const testing::TestParamInfo<Storm>& storm) {
                           return std::string(storm.param.name);
                         });

// A server that stays silent leaves its requests in the table until every identifier is taken. From
// then on a new query is dropped and the older one under its identifier is sent once more, while
// late answers take the older ones away.
TEST(SilentServerTest, IdentifiersWrapOntoPendingRequestsWhileLateAnswersDeleteThem) {
  constexpr long kIdentifiers = 65'536;
  constexpr Manners kSilence = {};
  constexpr Manners kLateAnswers = {
      .answered = 50, .empty = 30, .doubled = 30, .late = 50, .ahead = 100, .aheadEmpty = 50};
  const long aliveBefore = RecordsAlive();
  Traffic traffic;
  std::size_t pending = 0;
  long alive = 0;
  {
    const Workers workers({traffic.Server(0), traffic.Server(1)}, {});
    while (pending < kIdentifiers) {
      traffic.Run(workers, {kPlain}, kSilence, 4096);
      pending = g_DnsRequestTable.mapRequests.size();
    }
    // Twice round: every new record is refused.
    traffic.Run(workers, {kPlain}, kSilence, Sized(40'000));
    alive = RecordsAlive() - aliveBefore;
    traffic.Run(workers, {kPlain}, kLateAnswers, Sized(80'000));
    pending = g_DnsRequestTable.mapRequests.size();
  }
  // A worker may have been at its last datagram, with a record of its own in the making.
  EXPECT_LE(alive, kIdentifiers + 1) << "refused records are freed";
  EXPECT_LE(pending, static_cast<std::size_t>(kIdentifiers));
  EXPECT_GT(traffic.Seen().heard, 0) << "late answers reached the application";
  EXPECT_EQ(traffic.Seen().foreign, 0);
  EXPECT_EQ(RecordsAlive(), aliveBefore);
}

}  // namespace
}  // namespace stress
