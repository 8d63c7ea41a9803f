// The dumps of docs/wire.md against the bytes that the code makes of one another.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "dns_proxy_mac/proxy/answers.h"
#include "dns_proxy_mac/proxy/host_table.h"

namespace {

using Bytes = std::vector<unsigned char>;

// The bytes at the start of a dump's line: pairs of hexadecimal digits up to two blanks in a row.
void AppendBytes(const std::string& line, Bytes& bytes) {
  std::istringstream words(line.substr(0, line.find("  ")));
  std::string word;
  while (words >> word) {
    ASSERT_EQ(word.size(), 2U) << line;
    bytes.push_back(static_cast<unsigned char>(std::stoi(word, nullptr, 16)));
  }
}

// The page's dumps by the name behind "```hex".
std::map<std::string, Bytes> ReadDumps() {
  std::ifstream page(WIRE_PAGE);
  std::map<std::string, Bytes> dumps;
  Bytes* current = nullptr;
  std::string line;
  while (std::getline(page, line)) {
    if (line.rfind("```hex ", 0) == 0) {
      current = &dumps[line.substr(7)];
    } else if (line.rfind("```", 0) == 0) {
      current = nullptr;
    } else if (current != nullptr) {
      AppendBytes(line, *current);
    }
  }
  return dumps;
}

class WirePage : public testing::Test {
 protected:
  const Bytes& Dump(const std::string& name) {
    const auto dump = dumps_.find(name);
    EXPECT_NE(dump, dumps_.end()) << "no dump named " << name;
    return dump->second;
  }

  unsigned short ApplicationId() {
    unsigned short id = 0;
    std::memcpy(&id, Dump("query").data(), sizeof(id));
    return id;
  }

  HostRespData Record() {
    HostRespData record;
    EXPECT_EQ(Dump("record").size(), sizeof(record));
    std::memcpy(&record, Dump("record").data(), sizeof(record));
    return record;
  }

 private:
  std::map<std::string, Bytes> dumps_ = ReadDumps();
};

TEST_F(WirePage, ShowsTheQuestionThatItNames) {
  const Bytes& query = Dump("query");
  char domain[kDomainTextSize] = {};
  unsigned short type = 0;
  unsigned short queryClass = 0;
  ExtractDomain(query.data() + kDnsHeaderSize, static_cast<int>(query.size()) - kDnsHeaderSize,
                domain, kDomainTextSize, type, queryClass);
  EXPECT_STREQ(domain, "alpha.internal");
  EXPECT_EQ(type, 1);
  EXPECT_EQ(queryClass, 1);
}

TEST_F(WirePage, ShowsTheForwardedQueryUnderIdentifierOne) {
  Bytes forwarded = Dump("query");
  const unsigned short id = 1;
  std::memcpy(forwarded.data(), &id, sizeof(id));
  EXPECT_EQ(forwarded, Dump("forwarded"));
}

TEST_F(WirePage, ShowsThePreparedRecord) {
  HostTable hostmaps;
  char name[] = "alpha.internal";
  hostmaps.Add(name, "10.1.2.3");
  HostRespData* record = nullptr;
  ASSERT_TRUE(hostmaps.Find(name, record));
  const auto* const bytes = reinterpret_cast<const unsigned char*>(record);
  EXPECT_EQ(Bytes(bytes, bytes + sizeof(*record)), Dump("record"));
  hostmaps.Clear();
}

TEST_F(WirePage, ShowsTheHostMapAnswer) {
  Bytes message = Dump("query");
  const int queryLength = static_cast<int>(message.size());
  message.resize(kMaxMessageSize);
  const int length = MakeHostAnswer(message.data(), queryLength, Record(), ApplicationId(), 1);
  message.resize(static_cast<std::size_t>(length));
  EXPECT_EQ(message, Dump("host answer"));
}

TEST_F(WirePage, ShowsTheNoSuchNameResponse) {
  const Bytes& query = Dump("query");
  Bytes response(query.size());
  MakeNoSuchNameResponse(query.data(), static_cast<int>(query.size()), ApplicationId(),
                         response.data());
  EXPECT_EQ(response, Dump("no such name"));
}

}  // namespace
