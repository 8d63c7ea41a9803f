// The table of pending requests, as one thread sees it.
#include "dns_proxy_mac/proxy/request_table.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/heap_watch.h"
#include "tests/support/platform_calls.h"
#include "tests/support/requests.h"

static_assert(offsetof(DnsRequest, QueryID) == 0);
static_assert(offsetof(DnsRequest, AppQueryID) == 2);
static_assert(offsetof(DnsRequest, CurrentDNSMethodIndex) == 4);
static_assert(sizeof(DnsRequest::ClientAddr) == 16);
static_assert(sizeof(DnsRequest::QueryBuf) == 8192);
static_assert(
    std::is_same_v<RequestTable::Position, decltype(RequestTable::mapRequests)::iterator>);

namespace {

using support::BytesOf;
using support::FreeWatch;
using support::Ipv4Address;

// Longer than a string keeps within itself, so that freeing the record can be seen.
const std::string kName = "a-name-that-is-rather-long.alpha.internal";

// The caller's, so that the table's first form of Add is met.
DnsRequest* MakeRequest(unsigned short id) {
  return support::MakeRequest(id, support::Query(0x1234, kName, 28), kName, 28,
                              {HostMapMethod(), DnsServerMethod("192.0.2.1")})
      .release();
}

class RequestTableTest : public testing::Test {
 protected:
  // The record under `id`; null if there is none.
  DnsRequest* Find(unsigned short id) {
    RequestTable::Position position;
    return table_.Find(id, position) ? position->second : nullptr;
  }

  RequestTable table_;
};

TEST(DnsRequestLife, StartsWithAnEmptyNameAndNoMethods) {
  const auto request = std::make_unique<DnsRequest>();
  EXPECT_EQ(request->strDomain, "");
  EXPECT_TRUE(request->vecDnsMethods.empty());
}

void ExpectSame(const DnsRequest& copy, const DnsRequest& source) {
  EXPECT_EQ(copy.QueryID, source.QueryID);
  EXPECT_EQ(copy.AppQueryID, source.AppQueryID);
  EXPECT_EQ(copy.CurrentDNSMethodIndex, source.CurrentDNSMethodIndex);
  EXPECT_EQ(copy.iRecvLen, source.iRecvLen);
  EXPECT_EQ(BytesOf(copy.ClientAddr), BytesOf(source.ClientAddr));
  EXPECT_EQ(BytesOf(copy.QueryBuf), BytesOf(source.QueryBuf));
  EXPECT_EQ(copy.iQueryLen, source.iQueryLen);
  EXPECT_EQ(copy.strDomain, source.strDomain);
  EXPECT_EQ(copy.QueryType, source.QueryType);
  EXPECT_EQ(copy.QueryClass, source.QueryClass);
  ASSERT_EQ(copy.vecDnsMethods.size(), source.vecDnsMethods.size());
  EXPECT_EQ(BytesOf(copy.vecDnsMethods[1]), BytesOf(source.vecDnsMethods[1]));
  EXPECT_EQ(copy.bFlag, source.bFlag);
}

TEST(DnsRequestLife, AssignmentCopiesEveryFieldAndItselfToo) {
  const std::unique_ptr<DnsRequest> source(MakeRequest(7));
  source->CurrentDNSMethodIndex = 1;
  source->bFlag = true;
  DnsRequest copy;
  copy = *source;
  copy = static_cast<const DnsRequest&>(copy);
  ExpectSame(copy, *source);
}

TEST(DnsRequestLife, PositionWrapsFrom255To0) {
  const std::unique_ptr<DnsRequest> request(MakeRequest(7));
  request->CurrentDNSMethodIndex = 255;
  AdvanceMethodIndex(*request, 255);
  EXPECT_EQ(MethodIndex(*request), 0);
  AdvanceMethodIndex(*request, 0);
  EXPECT_EQ(MethodIndex(*request), 1);
}

TEST(DnsRequestLife, PositionThatTheOtherWorkerHasMovedIsNotMovedAgain) {
  // Both have read 4 and give up on that method; the one that comes second must not skip the fifth.
  const std::unique_ptr<DnsRequest> request(MakeRequest(7));
  request->CurrentDNSMethodIndex = 4;
  AdvanceMethodIndex(*request, 4);
  AdvanceMethodIndex(*request, 4);
  EXPECT_EQ(MethodIndex(*request), 5);
}

TEST_F(RequestTableTest, IsEmptyAtFirst) {
  EXPECT_TRUE(table_.mapRequests.empty());
  EXPECT_EQ(table_.mapRequests.size(), 0U);
  EXPECT_TRUE(table_.mapRequests.begin() == table_.mapRequests.end());
}

TEST_F(RequestTableTest, FindsWhatWasAddedAtItsPosition) {
  DnsRequest* const request = MakeRequest(0x1234);
  table_.Add(request);
  RequestTable::Position position;
  ASSERT_TRUE(table_.Find(0x1234, position));
  EXPECT_EQ(position->first, 0x1234);
  EXPECT_EQ(position->second, request);
}

TEST_F(RequestTableTest, FindOfAnAbsentIdentifierSetsTheEndPosition) {
  table_.Add(MakeRequest(1));
  RequestTable::Position position = table_.mapRequests.begin();
  EXPECT_FALSE(table_.Find(2, position));
  EXPECT_TRUE(position == table_.mapRequests.end());
  EXPECT_FALSE(table_.Find(0xFFFF, position)) << "an identifier far from any in use";
}

TEST_F(RequestTableTest, RecordIsChangedInPlace) {
  table_.Add(MakeRequest(1));
  Find(1)->CurrentDNSMethodIndex = 9;
  EXPECT_EQ(Find(1)->CurrentDNSMethodIndex, 9);
}

TEST_F(RequestTableTest, EveryIdentifierIsAnOrdinaryKeyZeroToo) {
  std::vector<DnsRequest*> added;
  for (const int id : {0, 1, 255, 256, 257, 32767, 32768, 65534, 65535}) {
    added.push_back(MakeRequest(static_cast<unsigned short>(id)));
    table_.Add(added.back());
  }
  for (DnsRequest* const request : added) {
    EXPECT_EQ(Find(request->QueryID), request);
  }
  EXPECT_EQ(table_.mapRequests.size(), added.size());
}

TEST_F(RequestTableTest, AddOfATakenIdentifierKeepsTheOlderRecord) {
  // The newer record is neither stored nor freed: it remains the caller's.
  DnsRequest* const older = MakeRequest(5);
  const std::unique_ptr<DnsRequest> newer(MakeRequest(5));
  newer->strDomain = "another-name-that-is-rather-long.internal";
  table_.Add(older);
  const FreeWatch watch(*newer);
  table_.Add(newer.get());
  EXPECT_EQ(Find(5), older);
  EXPECT_EQ(older->strDomain, kName);
  EXPECT_EQ(table_.mapRequests.size(), 1U);
  EXPECT_EQ(watch.Count(), 0);
}

TEST_F(RequestTableTest, RecordThatIsGivenAwayAndRefusedIsFreed) {
  table_.Add(MakeRequest(5));
  std::unique_ptr<DnsRequest> newer(MakeRequest(5));
  const FreeWatch watch(*newer);
  table_.Add(std::move(newer));
  EXPECT_EQ(watch.Count(), 1);
  EXPECT_EQ(table_.mapRequests.size(), 1U);
}

TEST_F(RequestTableTest, RecordThatIsGivenAwayAndTakenIsStored) {
  std::unique_ptr<DnsRequest> request(MakeRequest(5));
  DnsRequest* const record = request.get();
  table_.Add(std::move(request));
  EXPECT_EQ(Find(5), record);
}

TEST_F(RequestTableTest, DeleteRemovesTheRecordAndHasFreedItWhenItReturns) {
  DnsRequest* const request = MakeRequest(5);
  table_.Add(request);
  table_.Add(MakeRequest(6));
  const FreeWatch watch(*request);
  table_.Delete(5);
  EXPECT_EQ(watch.Count(), 1);
  EXPECT_EQ(Find(5), nullptr);
  EXPECT_NE(Find(6), nullptr);
}

TEST_F(RequestTableTest, DeleteOfAnAbsentIdentifierDoesNothing) {
  table_.Add(MakeRequest(5));
  table_.Delete(6);
  table_.Delete(40000);
  EXPECT_EQ(table_.mapRequests.size(), 1U);
}

TEST_F(RequestTableTest, IdentifierIsFreeAgainAfterDelete) {
  table_.Add(MakeRequest(5));
  table_.Delete(5);
  DnsRequest* const next = MakeRequest(5);
  table_.Add(next);
  EXPECT_EQ(Find(5), next);
}

TEST_F(RequestTableTest, DeleteAtAPositionRemovesTheRecordFoundThere) {
  DnsRequest* const request = MakeRequest(5);
  table_.Add(request);
  RequestTable::Position position;
  ASSERT_TRUE(table_.Find(5, position));
  const FreeWatch watch(*request);
  table_.Delete(position);
  EXPECT_EQ(watch.Count(), 1);
  EXPECT_EQ(Find(5), nullptr);
}

TEST_F(RequestTableTest, DeleteAtAPositionLeavesALaterRequestUnderTheSameIdentifierAlone) {
  // The identifier wrapped between the finding and the deleting: the newer record is another
  // application's.
  table_.Add(MakeRequest(5));
  RequestTable::Position position;
  ASSERT_TRUE(table_.Find(5, position));
  const std::unique_ptr<DnsRequest> keepsTheAddressTaken(table_.mapRequests.Remove(5));
  DnsRequest* const later = MakeRequest(5);
  table_.Add(later);
  table_.Delete(position);
  EXPECT_EQ(Find(5), later);
}

TEST_F(RequestTableTest, DeleteIntoARecordReturnsAFullCopy) {
  DnsRequest* const request = MakeRequest(5);
  table_.Add(request);
  const FreeWatch watch(*request);
  DnsRequest copy;
  copy.bFlag = true;
  ASSERT_TRUE(table_.Delete(5, copy));
  EXPECT_EQ(watch.Count(), 1);
  EXPECT_EQ(Find(5), nullptr);
  ExpectSame(copy, *std::unique_ptr<DnsRequest>(MakeRequest(5)));
}

TEST_F(RequestTableTest, DeleteOfAnAbsentIdentifierIntoARecordLeavesItUntouched) {
  DnsRequest copy;
  copy.QueryID = 77;
  copy.strDomain = "untouched";
  EXPECT_FALSE(table_.Delete(5, copy));
  EXPECT_EQ(copy.QueryID, 77);
  EXPECT_EQ(copy.strDomain, "untouched");
}

TEST_F(RequestTableTest, DeleteIntoIdentifierAndAddressGivesBothAsTheyCame) {
  DnsRequest* const request = MakeRequest(5);
  table_.Add(request);
  const FreeWatch watch(*request);
  unsigned short appQueryID = 0;
  sockaddr clientAddr = {};
  ASSERT_TRUE(table_.Delete(5, appQueryID, clientAddr));
  EXPECT_EQ(watch.Count(), 1);
  EXPECT_EQ(Find(5), nullptr);
  EXPECT_EQ(appQueryID, support::IdOf({0x12, 0x34}));
  EXPECT_EQ(BytesOf(clientAddr), BytesOf(support::kApplication));
}

TEST_F(RequestTableTest, DeleteOfAnAbsentIdentifierIntoIdentifierAndAddressLeavesBothUntouched) {
  unsigned short appQueryID = 77;
  sockaddr clientAddr = support::AsSockaddr(Ipv4Address("192.0.2.9", 9));
  EXPECT_FALSE(table_.Delete(5, appQueryID, clientAddr));
  EXPECT_EQ(appQueryID, 77);
  EXPECT_EQ(BytesOf(clientAddr), BytesOf(Ipv4Address("192.0.2.9", 9)));
}

TEST_F(RequestTableTest, ClearFreesEveryRecordAndLeavesTheTableEmpty) {
  for (const int id : {0, 3, 300, 65535}) {
    table_.Add(MakeRequest(static_cast<unsigned short>(id)));
  }
  const FreeWatch watch(*Find(300));
  table_.Clear();
  EXPECT_EQ(watch.Count(), 1);
  EXPECT_TRUE(table_.mapRequests.empty());
  EXPECT_EQ(Find(300), nullptr);
}

TEST_F(RequestTableTest, ClearOfAnEmptyTableDoesNothing) {
  table_.Clear();
  table_.Clear();
  EXPECT_TRUE(table_.mapRequests.empty());
}

TEST_F(RequestTableTest, FullTableHoldsEveryIdentifierAndClearEmptiesIt) {
  for (int id = 0; id < 65536; ++id) {
    auto* const request = new DnsRequest;
    request->QueryID = static_cast<unsigned short>(id);
    table_.Add(request);
  }
  EXPECT_EQ(table_.mapRequests.size(), 65536U);
  table_.Clear();
  EXPECT_EQ(table_.mapRequests.size(), 0U);
}

TEST(RequestTableLife, DestructorFreesWhatIsStillPending) {
  auto table = std::make_unique<RequestTable>();
  DnsRequest* const request = MakeRequest(5);
  table->Add(request);
  const FreeWatch watch(*request);
  table.reset();
  EXPECT_EQ(watch.Count(), 1);
}

TEST(RequestTableLife, MutexIsInitialisedOnceWithDefaultAttributes) {
  const pthread_mutex_t* mutex = nullptr;
  const pthread_mutexattr_t* attributes = nullptr;
  int calls = 0;
  std::unique_ptr<RequestTable> table;
  {
    const support::Replaced counting(
        support::platform::pthread_mutex_init,
        [&](pthread_mutex_t* given, const pthread_mutexattr_t* givenAttributes) {
          ++calls;
          mutex = given;
          attributes = givenAttributes;
          return support::platform::pthread_mutex_init.System(given, givenAttributes);
        });
    table = std::make_unique<RequestTable>();
  }
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(mutex, &table->mutexTable);
  EXPECT_EQ(attributes, nullptr);
}

TEST(RequestTableLife, MutexThatCannotBeInitialisedIsNotMissed) {
  // Nothing ever takes it.
  std::unique_ptr<RequestTable> table;
  {
    const support::Failing failing(support::platform::pthread_mutex_init, 1, ENOMEM, 0);
    table = std::make_unique<RequestTable>();
  }
  table->Add(MakeRequest(5));
  EXPECT_EQ(table->mapRequests.size(), 1U);
  table->Delete(5);
  EXPECT_TRUE(table->mapRequests.empty());
}

TEST(InitLock, DoesNothing) {
  init_lock();
  EXPECT_TRUE(RequestTable().mapRequests.empty());
}

}  // namespace
