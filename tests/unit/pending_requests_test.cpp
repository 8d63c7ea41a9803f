// What two workers may do with one record at the same time. The order of their steps is forced:
// each step of the other worker is a thread of its own that has ended before the next step.
#include "dns_proxy_mac/proxy/pending_requests.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/heap_watch.h"
#include "tests/support/requests.h"
#include "tests/support/run_length.h"

namespace {

using support::FreeWatch;

DnsRequest* NewRequest(unsigned short id) {
  const std::string name = "a-name-that-is-rather-long.alpha.internal";
  return support::MakeRequest(id, support::Query(0, name), name, 1, {}).release();
}

class PendingRequestsTest : public testing::Test {
 protected:
  ~PendingRequestsTest() override {
    for (const auto& [id, request] : requests_) {
      delete requests_.Remove(id);
    }
  }

  DnsRequest* Insert(unsigned short id) {
    DnsRequest* const request = NewRequest(id);
    EXPECT_TRUE(requests_.Insert(request));
    return request;
  }

  DnsRequest* Find(unsigned short id) {
    const auto position = requests_.find(id);
    return position == requests_.end() ? nullptr : position->second;
  }

  // The other worker removes and frees the record under `id` within a pass of its own.
  void OtherWorkerDeletes(unsigned short id, Worker worker) {
    std::thread([&] {
      const PendingRequests::Pass pass(requests_, worker);
      DnsRequest* const removed = requests_.Remove(id);
      if (removed != nullptr) {
        requests_.Free(removed);
      }
    }).join();
  }

  PendingRequests requests_;
};

// --------------------------------------------------------------- as a container, one thread

TEST_F(PendingRequestsTest, InsertRefusesATakenIdentifier) {
  DnsRequest* const first = Insert(7);
  const std::unique_ptr<DnsRequest> second(NewRequest(7));
  EXPECT_FALSE(requests_.Insert(second.get()));
  EXPECT_EQ(Find(7), first);
}

TEST_F(PendingRequestsTest, RemoveGivesTheRecordOnce) {
  DnsRequest* const request = Insert(7);
  EXPECT_EQ(requests_.count(7), 1U);
  EXPECT_EQ(requests_.Remove(7), request);
  EXPECT_EQ(requests_.count(7), 0U);
  EXPECT_EQ(requests_.Remove(7), nullptr);
  EXPECT_EQ(requests_.Remove(60000), nullptr);
  delete request;
}

TEST_F(PendingRequestsTest, RemoveByIdentityWantsTheSameRecord) {
  DnsRequest* const request = Insert(7);
  const std::unique_ptr<DnsRequest> other(NewRequest(7));
  EXPECT_FALSE(requests_.Remove(7, other.get()));
  EXPECT_FALSE(requests_.Remove(60000, other.get()));
  EXPECT_TRUE(requests_.Remove(7, request));
  EXPECT_FALSE(requests_.Remove(7, request));
  delete request;
}

TEST_F(PendingRequestsTest, IsWalkedInTheOrderOfTheIdentifiers) {
  const std::vector<unsigned short> ids = {65535, 0, 256, 255, 4096, 3};
  for (const unsigned short id : ids) {
    Insert(id);
  }
  std::vector<unsigned short> walked;
  for (auto position = requests_.begin(); position != requests_.end(); position++) {
    EXPECT_EQ((*position).second->QueryID, position->first);
    walked.push_back(position->first);
  }
  EXPECT_EQ(walked, (std::vector<unsigned short>{0, 3, 255, 256, 4096, 65535}));
  EXPECT_EQ(requests_.size(), ids.size());
  EXPECT_FALSE(requests_.empty());
}

TEST_F(PendingRequestsTest, PositionsCompareByTableAndIdentifier) {
  PendingRequests other;
  Insert(1);
  Insert(2);
  EXPECT_TRUE(requests_.find(1) == requests_.begin());
  EXPECT_TRUE(requests_.find(1) != requests_.find(2));
  EXPECT_TRUE(requests_.end() != other.end());
  auto position = requests_.begin();
  const auto before = position++;
  EXPECT_TRUE(before == requests_.find(1));
  EXPECT_TRUE(position == requests_.find(2));
  EXPECT_TRUE(++position == requests_.end());
}

TEST_F(PendingRequestsTest, PositionKeepsThePointerThatWasFound) {
  DnsRequest* const request = Insert(1);
  const auto position = requests_.find(1);
  const std::unique_ptr<DnsRequest> removed(requests_.Remove(1));
  Insert(1);
  EXPECT_EQ(position->second, request) << "however often it is read";
}

// --------------------------------------------------------------------------------- two workers

TEST_F(PendingRequestsTest, WithoutAPassARecordIsFreedAtOnce) {
  const FreeWatch watch(*Insert(7));
  requests_.Free(requests_.Remove(7));
  EXPECT_EQ(watch.Count(), 1);
}

TEST_F(PendingRequestsTest, WorkerFreesItsOwnRecordAtOnce) {
  const PendingRequests::Pass pass(requests_, Worker::kQuery);
  const FreeWatch watch(*Insert(7));
  ASSERT_NE(Find(7), nullptr);
  requests_.Free(requests_.Remove(7));
  EXPECT_EQ(watch.Count(), 1);
}

TEST_F(PendingRequestsTest, RecordThatTheOtherWorkerRemovesStaysUntilThePassEnds) {
  for (const auto& [holder, remover] :
       {std::pair{Worker::kQuery, Worker::kAnswer}, std::pair{Worker::kAnswer, Worker::kQuery}}) {
    const FreeWatch watch(*Insert(7));
    {
      const PendingRequests::Pass pass(requests_, holder);
      DnsRequest* const held = Find(7);
      OtherWorkerDeletes(7, remover);
      EXPECT_EQ(watch.Count(), 0);
      EXPECT_EQ(held->strDomain, "a-name-that-is-rather-long.alpha.internal");
      EXPECT_EQ(Find(7), nullptr) << "it is out of the table all the same";
    }
    EXPECT_EQ(watch.Count(), 1);
  }
}

TEST_F(PendingRequestsTest, RecordThatTheOtherWorkerRemovesStaysUntilAnotherOneIsFound) {
  const FreeWatch watch(*Insert(7));
  Insert(8);
  const PendingRequests::Pass pass(requests_, Worker::kQuery);
  ASSERT_NE(Find(7), nullptr);
  OtherWorkerDeletes(7, Worker::kAnswer);
  EXPECT_EQ(watch.Count(), 0);
  ASSERT_NE(Find(8), nullptr);
  EXPECT_EQ(watch.Count(), 1);
}

TEST_F(PendingRequestsTest, RecordThatBothWorkersHaveFoundIsFreedOnce) {
  // The answer worker holds it as well and is the one that removes it.
  const FreeWatch watch(*Insert(7));
  {
    const PendingRequests::Pass pass(requests_, Worker::kQuery);
    ASSERT_NE(Find(7), nullptr);
    std::thread([&] {
      const PendingRequests::Pass other(requests_, Worker::kAnswer);
      const auto position = requests_.find(7);
      EXPECT_TRUE(requests_.Remove(7, position->second));
      requests_.Free(position->second);
    }).join();
    EXPECT_EQ(watch.Count(), 0);
  }
  EXPECT_EQ(watch.Count(), 1);
}

TEST_F(PendingRequestsTest, RecordThatAThirdThreadRemovesIsFreedByTheLastWorkerToLetGo) {
  const FreeWatch watch(*Insert(7));
  {
    const PendingRequests::Pass pass(requests_, Worker::kAnswer);
    ASSERT_NE(Find(7), nullptr);
    std::thread([&] {
      const PendingRequests::Pass other(requests_, Worker::kQuery);
      ASSERT_NE(Find(7), nullptr);
      std::thread([&] { requests_.Free(requests_.Remove(7)); }).join();
    }).join();
    EXPECT_EQ(watch.Count(), 0) << "one of the two holds it still";
  }
  EXPECT_EQ(watch.Count(), 1);
}

TEST_F(PendingRequestsTest, RecordThatTheOtherWorkerOnlyFoundBeforeIsFreedAtOnce) {
  const FreeWatch watch(*Insert(7));
  std::thread([&] {
    const PendingRequests::Pass pass(requests_, Worker::kAnswer);
    EXPECT_NE(Find(7), nullptr);
  }).join();
  const PendingRequests::Pass pass(requests_, Worker::kQuery);
  ASSERT_NE(Find(7), nullptr);
  requests_.Free(requests_.Remove(7));
  EXPECT_EQ(watch.Count(), 1) << "the other pass has ended";
}

TEST_F(PendingRequestsTest, RecordThatIsRemovedWhileItIsBeingFoundIsNotFound) {
  // The narrowest moment: the slot has been read and the record is not yet held. It is met by
  // letting the finder free the record that it held before, and removing the next one within that.
  DnsRequest* const first = Insert(7);
  Insert(8);
  const PendingRequests::Pass pass(requests_, Worker::kQuery);
  ASSERT_EQ(Find(7), first);
  OtherWorkerDeletes(7, Worker::kAnswer);
  const FreeWatch watch(*first, [&] { OtherWorkerDeletes(8, Worker::kAnswer); });
  EXPECT_EQ(Find(8), nullptr);
  EXPECT_EQ(watch.Count(), 1);
  EXPECT_TRUE(requests_.empty());
}

TEST_F(PendingRequestsTest, FindingARecordAgainKeepsIt) {
  const FreeWatch watch(*Insert(7));
  const PendingRequests::Pass pass(requests_, Worker::kQuery);
  DnsRequest* const first = Find(7);
  EXPECT_EQ(Find(7), first);
  EXPECT_EQ(watch.Count(), 0);
}

TEST_F(PendingRequestsTest, PassOfAnotherTableDoesNotHoldThisOnesRecords) {
  PendingRequests other;
  DnsRequest* const held = NewRequest(8);
  ASSERT_TRUE(other.Insert(held));
  const FreeWatch watchOfHeld(*held);
  const FreeWatch watch(*Insert(7));
  const PendingRequests::Pass pass(other, Worker::kQuery);
  ASSERT_NE(other.find(8), other.end());
  ASSERT_NE(Find(7), nullptr);
  OtherWorkerDeletes(7, Worker::kAnswer);
  EXPECT_EQ(watch.Count(), 1);
  std::thread([&] { other.Free(other.Remove(8)); }).join();
  EXPECT_EQ(watchOfHeld.Count(), 0) << "the pass has let go of what it holds in its own table";
}

TEST_F(PendingRequestsTest, WorkersThatMeetOnFewIdentifiersTearNothing) {
  // No order is forced here: one worker stores and looks, the other looks and removes, as fast as
  // they can. The sanitizers are the judges; in a plain build the names are.
  constexpr long kRounds = support::Sized(200'000);
  constexpr unsigned short kIdentifiers = 4;
  std::atomic<int> stored{0};
  std::atomic<int> wrong{0};
  std::atomic<bool> done{false};

  std::thread query([&] {
    for (long round = 0; round < kRounds; ++round) {
      const PendingRequests::Pass pass(requests_, Worker::kQuery);
      // Blocks of the table as well as slots are met: each identifier lies in another one.
      const auto id = static_cast<unsigned short>(round % kIdentifiers * 256);
      DnsRequest* const request = NewRequest(id);
      if (requests_.Insert(request)) {
        ++stored;
      } else {
        delete request;
      }
      const auto position = requests_.find(id);
      if (position != requests_.end() && position->second->strDomain.size() != 41) {
        ++wrong;
      }
    }
    done = true;
  });
  int removed = 0;
  std::thread answer([&] {
    for (int round = 0; !done || !requests_.empty(); ++round) {
      const PendingRequests::Pass pass(requests_, Worker::kAnswer);
      const auto position = requests_.find(static_cast<unsigned short>(round % kIdentifiers * 256));
      if (position == requests_.end()) {
        continue;
      }
      if (position->second->strDomain.size() != 41) {
        ++wrong;
      }
      if (requests_.Remove(position->first, position->second)) {
        requests_.Free(position->second);
        ++removed;
      }
    }
  });
  query.join();
  answer.join();
  EXPECT_EQ(removed, stored);
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(requests_.empty());
}

TEST_F(PendingRequestsTest, ThreadsThatMakeTheSameBlocksAtOnceStoreEveryRecord) {
  constexpr int kThreads = 2;
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&, number] {
      ++ready;
      while (ready < kThreads) {
      }
      for (int block = 0; block < 256; ++block) {
        EXPECT_TRUE(
            requests_.Insert(NewRequest(static_cast<unsigned short>(block * 256 + number))));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(requests_.size(), 512U);
}

}  // namespace
