// Threads that earlier starts in one process have left behind: several act as one worker, more than
// there are words, while a later start appends to the lists that they read.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "dns_proxy_mac/proxy/request_table.h"
#include "tests/support/heap_watch.h"
#include "tests/support/run_length.h"

namespace stress {
namespace {

using support::RecordsAlive;
using support::Sized;

constexpr int kIdentifiers = 3;

std::unique_ptr<DnsRequest> MakeRecord(unsigned short id, const DNSMethodList& methods) {
  std::unique_ptr<DnsRequest> record(new DnsRequest);
  record->QueryID = id;
  record->CurrentDNSMethodIndex = 0;
  record->strDomain = "too-long-for-the-string-itself-" + std::to_string(id) + ".example";
  record->vecDnsMethods = methods;
  return record;
}

TEST(LeftoverWorkersTest, ShareTheTableAndTheListsWithALaterStart) {
  const long aliveBefore = RecordsAlive();
  RequestTable table;
  DNSMethodList methods(1, HostMapMethod());
  std::atomic<bool> done{false};
  std::atomic<long> torn{0};
  std::atomic<long> found{0};

  const auto work = [&](Worker worker, unsigned seed) {
    std::minstd_rand random(seed);
    while (!done.load(std::memory_order_relaxed)) {
      const auto id = static_cast<unsigned short>(random() % kIdentifiers);
      const PendingRequests::Pass pass(table.mapRequests, worker);
      if (worker == Worker::kQuery) {
        table.Add(MakeRecord(id, methods));
      }
      RequestTable::Position position;
      if (!table.Find(id, position)) {
        continue;
      }
      found.fetch_add(1, std::memory_order_relaxed);
      const DnsRequest& record = *position->second;
      if (record.QueryID != id || record.strDomain.back() != 'e' ||
          record.vecDnsMethods.back().iDNSMethodType != DNS_METHOD_HOSTMAP) {
        torn.fetch_add(1, std::memory_order_relaxed);
      }
      if (random() % 2 == 0) {
        table.Delete(position);
      }
    }
  };
  std::vector<std::thread> workers;
  for (unsigned seed = 1; seed <= 6; ++seed) {
    workers.emplace_back(work, seed <= 4 ? Worker::kQuery : Worker::kAnswer, seed);
  }
  for (long start = 0; start < Sized(10'000); ++start) {
    const long foundBefore = found.load(std::memory_order_relaxed);
    {
      const PendingRequests::NoPass noPass(table.mapRequests);
      methods.push_back(HostMapMethod());
      if (methods.size() > 64) {
        methods.erase(methods.begin() + 1, methods.end());
        methods.shrink_to_fit();
      }
    }
    while (found.load(std::memory_order_relaxed) == foundBefore) {
      std::this_thread::yield();  // until the workers have been at it again
    }
  }
  done.store(true, std::memory_order_relaxed);
  for (std::thread& worker : workers) {
    worker.join();
  }

  table.Clear();
  EXPECT_EQ(torn.load(), 0);
  EXPECT_GT(found.load(), 0);
  EXPECT_EQ(RecordsAlive(), aliveBefore);
}

}  // namespace
}  // namespace stress
