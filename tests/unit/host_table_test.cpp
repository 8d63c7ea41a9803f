// The static host map: prepared records by name.
#include "dns_proxy_mac/proxy/host_table.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "tests/support/dns_message_builder.h"
#include "tests/support/heap_watch.h"
#include "tests/support/socket_addresses.h"

static_assert(sizeof(HostRespData) == 16);
static_assert(offsetof(HostRespData, Type) == 2);
static_assert(offsetof(HostRespData, Class) == 4);
static_assert(offsetof(HostRespData, TimeToLive) == 6);
static_assert(offsetof(HostRespData, DataLength) == 10);
static_assert(offsetof(HostRespData, Address) == 12);

namespace {

using support::Bytes;
using support::BytesOf;

class HostTableTest : public testing::Test {
 protected:
  ~HostTableTest() override { table_.Clear(); }  // nothing else frees the records

  void Add(std::string name, const char* address) { table_.Add(name.data(), address); }

  // The record's 16 bytes; empty when the name is not found.
  Bytes Find(const std::string& name) {
    HostRespData* record = nullptr;
    return table_.Find(name, record) ? BytesOf(*record) : Bytes();
  }

  HostTable table_;
};

Bytes RecordFor(unsigned char a, unsigned char b, unsigned char c, unsigned char d) {
  return {
      0xC0, 0x0C,              // name: pointer to offset 12
      0x00, 0x01,              // type A
      0x00, 0x01,              // class IN
      0x00, 0x01, 0x51, 0x80,  // 86400 seconds
      0x00, 0x04,              // four bytes of data
      a,    b,    c,    d,
  };
}

TEST_F(HostTableTest, RecordIsAWholeAnswerRecordInWireForm) {
  Add("alpha.internal", "10.1.2.3");
  EXPECT_EQ(Find("alpha.internal"), RecordFor(10, 1, 2, 3));
}

TEST_F(HostTableTest, QuestionIsFoldedToLowerCase) {
  Add("alpha.internal", "10.1.2.3");
  Add("@[]^.internal", "10.1.2.4");  // what stands beside the capitals in ASCII is no letter
  EXPECT_EQ(Find("@[]^.INTERNAL"), RecordFor(10, 1, 2, 4));
  for (const char* question : {"alpha.internal", "ALPHA.internal", "Alpha.INTERNAL"}) {
    EXPECT_EQ(Find(question), RecordFor(10, 1, 2, 3)) << question;
  }
}

TEST_F(HostTableTest, MappingWithAnUpperCaseLetterIsNeverFound) {
  // The question is folded and the mapping is not, so no spelling meets it. Hosts that want a name
  // found give it in lower case; folding here would answer names that they rely on being forwarded.
  Add("Alpha.internal", "10.1.2.3");
  for (const char* question : {"Alpha.internal", "alpha.internal", "ALPHA.INTERNAL"}) {
    EXPECT_EQ(Find(question), Bytes()) << question;
  }
}

TEST_F(HostTableTest, FirstMappingOfANameWins) {
  Add("alpha.internal", "10.1.2.3");
  Add("alpha.internal", "10.9.9.9");
  EXPECT_EQ(Find("alpha.internal"), RecordFor(10, 1, 2, 3));
}

TEST_F(HostTableTest, OnlyTheWholeNameIsFound) {
  Add("alpha.internal", "10.1.2.3");
  for (const char* question : {"mail.alpha.internal", "internal", "alpha", "alpha.internal.",
                               ".alpha.internal", "alpha.interna", " alpha.internal", "*", ""}) {
    EXPECT_EQ(Find(question), Bytes()) << question;
  }
}

TEST_F(HostTableTest, NameIsKeptAsGivenTrailingDotAndBlanksIncluded) {
  Add("dotted.internal.", "10.1.2.3");
  Add(" padded.internal ", "10.1.2.4");
  EXPECT_EQ(Find("dotted.internal"), Bytes());
  EXPECT_EQ(Find("dotted.internal."), RecordFor(10, 1, 2, 3));
  EXPECT_EQ(Find(" padded.internal "), RecordFor(10, 1, 2, 4));
}

TEST_F(HostTableTest, EmptyNameIsAnOrdinaryKey) {
  Add("", "10.1.2.3");
  EXPECT_EQ(Find(""), RecordFor(10, 1, 2, 3));
}

TEST_F(HostTableTest, AddressThatIsNoneIsStoredAsAllOnes) {
  for (const char* address : {"none", "", "10.1.2.256", "fe80::1", "alpha.internal"}) {
    Add(std::string("of ") + address, address);
    EXPECT_EQ(Find(std::string("of ") + address), RecordFor(0xFF, 0xFF, 0xFF, 0xFF)) << address;
  }
}

TEST_F(HostTableTest, FindLeavesTheCallersNameAsItIs) {
  Add("alpha.internal", "10.1.2.3");
  const std::string question = "ALPHA.internal";
  EXPECT_NE(Find(question), Bytes());
  EXPECT_EQ(question, "ALPHA.internal");
}

TEST_F(HostTableTest, BytesAbove127AreComparedAsTheyAre) {
  Add("b\xC3\xBC"
      "cher.internal",
      "10.1.2.3");
  EXPECT_EQ(Find("B\xC3\xBC"
                 "CHER.internal"),
            RecordFor(10, 1, 2, 3));
}

TEST_F(HostTableTest, EmptyTableFindsNothingAndLeavesTheRecordUnchanged) {
  HostRespData marker;
  HostRespData* record = &marker;
  EXPECT_FALSE(table_.Find("alpha.internal", record));
  EXPECT_EQ(record, &marker);
}

TEST_F(HostTableTest, MissLeavesTheRecordUnchanged) {
  Add("alpha.internal", "10.1.2.3");
  HostRespData marker;
  HostRespData* record = &marker;
  EXPECT_FALSE(table_.Find("beta.internal", record));
  EXPECT_EQ(record, &marker);
}

TEST_F(HostTableTest, RecordStaysTheTablesAcrossFinds) {
  Add("alpha.internal", "10.1.2.3");
  HostRespData* first = nullptr;
  HostRespData* second = nullptr;
  ASSERT_TRUE(table_.Find("alpha.internal", first));
  for (int i = 0; i < 1000; ++i) {
    Add("filler" + std::to_string(i), "10.0.0.1");
  }
  ASSERT_TRUE(table_.Find("alpha.internal", second));
  EXPECT_EQ(first, second);
}

TEST_F(HostTableTest, ClearEmptiesTheTable) {
  Add("alpha.internal", "10.1.2.3");
  Add("beta.internal", "10.1.2.4");
  HostRespData* record = nullptr;
  ASSERT_TRUE(table_.Find("alpha.internal", record));
  const support::FreeWatch freed(record);
  table_.Clear();
  EXPECT_EQ(freed.Count(), 1);
  EXPECT_EQ(Find("alpha.internal"), Bytes());
  EXPECT_EQ(Find("beta.internal"), Bytes());
}

TEST_F(HostTableTest, ClearOfAnEmptyTableDoesNothing) {
  table_.Clear();
  table_.Clear();
  EXPECT_EQ(Find("alpha.internal"), Bytes());
}

TEST_F(HostTableTest, ClearedTableTakesMappingsAgain) {
  Add("alpha.internal", "10.1.2.3");
  table_.Clear();
  Add("alpha.internal", "10.9.9.9");
  EXPECT_EQ(Find("alpha.internal"), RecordFor(10, 9, 9, 9));
}

TEST(HostTableLife, DestructorLeavesTheRecordsToTheProcess) {
  // Only Clear frees them: who holds a record may read it after the table is gone.
  HostRespData* record = nullptr;
  {
    HostTable table;
    std::string name = "alpha.internal";
    table.Add(name.data(), "10.1.2.3");
    ASSERT_TRUE(table.Find(name, record));
  }
  EXPECT_EQ(BytesOf(*record), RecordFor(10, 1, 2, 3));
  delete record;
}

}  // namespace
