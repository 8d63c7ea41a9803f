// How many threads may be in a pass at a time, and what keeps all of them out of one.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <latch>
#include <memory>
#include <thread>
#include <vector>

#include "dns_proxy_mac/proxy/pending_requests.h"

namespace {

constexpr int kWords = 4;  // a pass needs one

// Long enough for a thread that does not wait to be seen.
void GiveOthersTime() { std::this_thread::sleep_for(std::chrono::milliseconds(50)); }

// Threads that act as one worker, each in a pass from its making until it is told to leave.
class InPass {
 public:
  InPass(PendingRequests& requests, int threads) : entered_(threads) {
    for (int number = 0; number < threads; ++number) {
      threads_.emplace_back([this, &requests] {
        const PendingRequests::Pass pass(requests, Worker::kQuery);
        entered_.count_down();
        leave_.wait(false);
      });
    }
    entered_.wait();
  }
  ~InPass() { Leave(); }

  InPass(const InPass&) = delete;
  InPass& operator=(const InPass&) = delete;

  void Leave() {
    leave_ = true;
    leave_.notify_all();
    for (std::thread& thread : threads_) {
      if (thread.joinable()) {
        thread.join();
      }
    }
  }

 private:
  std::latch entered_;
  std::atomic<bool> leave_{false};
  std::vector<std::thread> threads_;
};

// A thread that makes a `Stay` and goes, and whether it has got in.
template <typename Stay, typename... Arguments>
class Entering {
 public:
  explicit Entering(PendingRequests& requests, Arguments... arguments)
      : thread_([this, &requests, arguments...] {
          const Stay stay(requests, arguments...);
          in_ = true;
        }) {}
  ~Entering() { thread_.join(); }

  Entering(const Entering&) = delete;
  Entering& operator=(const Entering&) = delete;

  bool IsIn() const { return in_; }
  void WaitUntilIn() const {
    while (!in_) {
      std::this_thread::yield();
    }
  }

 private:
  std::atomic<bool> in_{false};
  std::thread thread_;
};

using EnteringPass = Entering<PendingRequests::Pass, Worker>;
using EnteringNoPass = Entering<PendingRequests::NoPass>;

TEST(Passes, AsManyThreadsAsThereAreWordsAreInOneAtATime) {
  PendingRequests requests;
  const InPass all(requests, kWords);  // returns when they are
}

TEST(Passes, OneMoreThreadWaitsUntilAnotherPassEnds) {
  PendingRequests requests;
  InPass all(requests, kWords);
  const EnteringPass oneMore(requests, Worker::kAnswer);
  GiveOthersTime();
  EXPECT_FALSE(oneMore.IsIn());
  all.Leave();
  oneMore.WaitUntilIn();
}

TEST(Passes, TwoThreadsThatActAsOneWorkerHoldARecordEach) {
  PendingRequests requests;
  for (const unsigned short id : std::array<unsigned short, 2>{7, 8}) {
    auto* const request = new DnsRequest;
    request->QueryID = id;
    ASSERT_TRUE(requests.Insert(request));
  }
  const PendingRequests::Pass pass(requests, Worker::kQuery);
  const auto seven = requests.find(7);
  std::thread([&] {
    const PendingRequests::Pass another(requests, Worker::kQuery);
    EXPECT_TRUE(requests.find(8) != requests.end());
    DnsRequest* const removed = requests.Remove(7);
    requests.Free(removed);  // left to the first
    requests.Free(requests.Remove(8));
  }).join();
  EXPECT_EQ(seven->second->QueryID, 7);
}

TEST(NoPass, WaitsForThePassesThatAreUnderWay) {
  PendingRequests requests;
  InPass one(requests, 1);
  const EnteringNoPass noPass(requests);
  GiveOthersTime();
  EXPECT_FALSE(noPass.IsIn());
  one.Leave();
  noPass.WaitUntilIn();
}

TEST(NoPass, KeepsEveryPassWaiting) {
  PendingRequests requests;
  auto noPass = std::make_unique<PendingRequests::NoPass>(requests);
  const EnteringPass query(requests, Worker::kQuery);
  const EnteringPass answer(requests, Worker::kAnswer);
  GiveOthersTime();
  EXPECT_FALSE(query.IsIn() || answer.IsIn());
  noPass.reset();
  query.WaitUntilIn();
  answer.WaitUntilIn();
}

TEST(PendingRequestsAsAMap, CountsAnIdentifierOnceAndIsWalkedWithoutChange) {
  PendingRequests requests;
  EXPECT_EQ(requests.count(7), 0U) << "no identifier of its block has been in use";
  auto* const request = new DnsRequest;
  request->QueryID = 7;
  ASSERT_TRUE(requests.Insert(request));
  EXPECT_EQ(requests.count(7), 1U);
  EXPECT_EQ(requests.count(8), 0U);
  const PendingRequests::const_iterator first = requests.cbegin();
  EXPECT_EQ(first->second, request);
  EXPECT_TRUE(first == requests.begin());
  EXPECT_TRUE(requests.cend() == requests.end());
  requests.Free(requests.Remove(7));
}

}  // namespace
