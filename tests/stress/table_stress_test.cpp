// The table alone: workers inside a Pass, and a third thread that only removes, over identifiers so
// few that they meet in every round.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "dns_proxy_mac/proxy/request_table.h"
#include "tests/support/heap_watch.h"
#include "tests/support/requests.h"
#include "tests/support/run_length.h"

namespace stress {
namespace {

using Pass = PendingRequests::Pass;
using Position = RequestTable::Position;
using support::RecordsAlive;
using support::RecordsMade;

// Rounds of each thread. A sanitizer sees two accesses that nothing orders, whichever came first, and
// the label interleavings takes every order: so few of them do there.
constexpr long kShare = support::kSanitized ? 40'000 : 1'000'000;

// Too long for the string's own space: the text lies in a block that is freed with the record.
std::string NameOf(int stamp) { return "record-number-" + std::to_string(stamp) + ".example"; }

// A record whose every part can be told from its stamp.
std::unique_ptr<DnsRequest> MakeRecord(int id, int stamp) {
  const support::Bytes query(sizeof(DnsRequest::QueryBuf),
                             static_cast<unsigned char>(stamp & 0xFF));
  auto record = support::MakeRequest(static_cast<unsigned short>(id), query, NameOf(stamp), 1,
                                     {HostMapMethod(), HostMapMethod()});
  record->AppQueryID = static_cast<unsigned short>(stamp);
  record->iRecvLen = stamp;
  record->iQueryLen = stamp;
  return record;
}

// True if `record` is one of MakeRecord's for `id`, whole: what a record in another worker's hands,
// freed or half made, is not.
bool IsWhole(const DnsRequest& record, int id) {
  const int stamp = record.iRecvLen;
  const auto byte = static_cast<unsigned char>(stamp & 0xFF);
  return record.QueryID == id && record.AppQueryID == static_cast<unsigned short>(stamp) &&
         record.iQueryLen == stamp && record.QueryBuf[2] == byte &&
         record.QueryBuf[sizeof(record.QueryBuf) - 1] == byte &&
         record.strDomain == NameOf(stamp) && record.vecDnsMethods.size() == 2;
}

struct Meeting {
  int identifiers;
  bool withRemover;
};

std::ostream& operator<<(std::ostream& out, const Meeting& meeting) {
  return out << meeting.identifiers << " identifiers"
             << (meeting.withRemover ? " and a third thread that removes" : "");
}

// Each thread works until the slowest has done its share, so that they overlap all the time.
class Shares {
 public:
  Shares(std::size_t threads, long share) : done_(threads), share_(share) {}

  // Counts one round of `thread`; false when everybody has done enough.
  bool Another(std::size_t thread) {
    done_[thread].fetch_add(1, std::memory_order_relaxed);
    return std::any_of(done_.begin(), done_.end(), [this](const std::atomic<long>& done) {
      return done.load(std::memory_order_relaxed) <= share_;
    });
  }

 private:
  std::vector<std::atomic<long>> done_;
  long share_;
};

class TableStressTest : public testing::TestWithParam<Meeting> {
 protected:
  // A worker's looks at a record it has found. Everything it read has to belong together.
  void LookAt(const Position& position, int id, std::atomic<long>& torn, std::atomic<long>& found) {
    found.fetch_add(1, std::memory_order_relaxed);
    if (!IsWhole(*position->second, id)) {
      torn.fetch_add(1, std::memory_order_relaxed);
    }
    AdvanceMethodIndex(*position->second, MethodIndex(*position->second));
    const std::size_t method = MethodIndex(*position->second) % 2;
    if (position->second->vecDnsMethods[method].iDNSMethodType != DNS_METHOD_HOSTMAP) {
      torn.fetch_add(1, std::memory_order_relaxed);
    }
  }

  RequestTable table_;
};

TEST_P(TableStressTest, EveryRecordIsWholeWhileItIsHeldAndFreedOnce) {
  const Meeting meeting = GetParam();
  const long aliveBefore = RecordsAlive();
  const long madeBefore = RecordsMade();
  std::atomic<long> torn{0};
  std::atomic<long> foundByQuery{0};
  std::atomic<long> foundByAnswer{0};
  Shares shares(meeting.withRemover ? 3 : 2, kShare);

  std::thread query([&] {
    std::minstd_rand random(1);
    int stamp = 0;
    do {
      const Pass pass(table_.mapRequests, Worker::kQuery);
      const int id = static_cast<int>(random() % static_cast<unsigned>(meeting.identifiers));
      table_.Add(MakeRecord(id, ++stamp));  // refused when the identifier is taken
      Position position;
      if (!table_.Find(static_cast<unsigned short>(id), position)) {
        continue;
      }
      LookAt(position, id, torn, foundByQuery);
      switch (random() % 4) {
        case 0:  // as the dispatch does after a host-map miss
          if (Position again; table_.Find(static_cast<unsigned short>(id), again)) {
            LookAt(again, id, torn, foundByQuery);
            table_.Delete(again);
          }
          break;
        case 1:
          table_.Delete(position);
          break;
        case 2:
          table_.Delete(static_cast<unsigned short>(id));
          break;
        default:
          break;  // left to the others
      }
    } while (shares.Another(0));
  });
  std::thread answer([&] {
    std::minstd_rand random(2);
    int stamp = 1'000'000'000;
    do {
      const Pass pass(table_.mapRequests, Worker::kAnswer);
      const int id = static_cast<int>(random() % static_cast<unsigned>(meeting.identifiers));
      if (random() % 8 == 0) {  // the service's does not, the table allows it
        table_.Add(MakeRecord(id, ++stamp));
      }
      Position position;
      if (!table_.Find(static_cast<unsigned short>(id), position)) {
        continue;
      }
      LookAt(position, id, torn, foundByAnswer);
      if (random() % 4 == 0) {
        const int other = (id + 1) % meeting.identifiers;
        if (Position next; table_.Find(static_cast<unsigned short>(other), next)) {
          LookAt(next, other, torn, foundByAnswer);
          table_.Delete(next);
        }
        continue;
      }
      if (random() % 2 == 0) {
        table_.Delete(position);
      }
      // The record is this worker's to look at until it lets go, though it may be removed by now;
      // but not after its own Delete.
    } while (shares.Another(1));
  });
  std::thread remover;
  if (meeting.withRemover) {
    remover = std::thread([&] {
      std::minstd_rand random(3);
      do {
        const auto id =
            static_cast<unsigned short>(random() % static_cast<unsigned>(meeting.identifiers));
        unsigned short application = 0;
        sockaddr address = {};
        switch (random() % 8) {
          case 0:
            table_.Clear();
            break;
          case 1:
            table_.Delete(id, application, address);
            break;
          case 2:
            if (table_.mapRequests.size() > static_cast<std::size_t>(meeting.identifiers)) {
              torn.fetch_add(1, std::memory_order_relaxed);
            }
            break;
          default:
            table_.Delete(id);
            break;
        }
      } while (shares.Another(2));
    });
  }
  query.join();
  answer.join();
  if (remover.joinable()) {
    remover.join();
  }

  table_.Clear();
  EXPECT_EQ(torn.load(), 0);
  EXPECT_GT(foundByQuery.load(), 0);
  EXPECT_GT(foundByAnswer.load(), 0) << "the workers never met: nothing was tested";
  EXPECT_EQ(RecordsAlive(), aliveBefore) << "of " << RecordsMade() - madeBefore << " records";
}

INSTANTIATE_TEST_SUITE_P(Meetings, TableStressTest,
                         testing::Values(Meeting{1, false}, Meeting{1, true}, Meeting{4, false},
                                         Meeting{4, true}, Meeting{700, true}),
                         [](const testing::TestParamInfo<Meeting>& meeting) {
                           return std::to_string(meeting.param.identifiers) + "Identifiers" +
                                  (meeting.param.withRemover ? "AndARemover" : "");
                         });

}  // namespace
}  // namespace stress
