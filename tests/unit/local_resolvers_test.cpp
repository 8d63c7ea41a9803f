// get_localdns_dnsproxy, on an /etc/resolv.conf of the test's own.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "dns_proxy_mac/proxy/dns_proxy.h"
#include "tests/support/isolation.h"
#include "tests/support/trace_capture.h"

namespace {

using support::TraceIs;
using support::TraceLines;
using support::TraceOf;

constexpr char kUntouched = '#';

class LocalResolversTest : public testing::Test {
 protected:
  void SetUp() override {
    SKIP_UNLESS_ISOLATED();
    ASSERT_EQ(support::CoverFolder("/etc"), "");
    Fill('\0');
  }

  static void WriteFile(const std::string& text) {
    std::ofstream("/etc/resolv.conf", std::ios::binary) << text;
  }

  // What the three buffers hold before the call.
  void Fill(char byte) {
    for (std::string& buffer : buffers_) {
      buffer.assign(256, byte);
    }
  }

  void Read() {
    trace_ = TraceOf([this] {
      get_localdns_dnsproxy(buffers_[0].data(), buffers_[1].data(), buffers_[2].data());
    });
  }

  // A zero-filled buffer as text.
  std::string Dns(std::size_t number) const { return buffers_[number - 1].c_str(); }

  std::vector<std::string> buffers_ = std::vector<std::string>(3);
  TraceLines trace_;
};

TEST_F(LocalResolversTest, FirstThreeServersAreCopiedAndTheFourthOnlyCounted) {
  WriteFile(
      "nameserver 192.0.2.1\n"
      "nameserver 192.0.2.2\n"
      "nameserver 192.0.2.3\n"
      "nameserver 192.0.2.4\n"
      "nameserver 192.0.2.5\n"
      "search example\n");
  Read();
  EXPECT_EQ(Dns(1), "192.0.2.1");
  EXPECT_EQ(Dns(2), "192.0.2.2");
  EXPECT_EQ(Dns(3), "192.0.2.3");
  EXPECT_THAT(trace_, TraceIs({"read dns: nameserver 192.0.2.1", "read dns: nameserver 192.0.2.2",
                               "read dns: nameserver 192.0.2.3", "read dns: nameserver 192.0.2.4"}))
      << "the fifth line is read and not traced";
}

TEST_F(LocalResolversTest, EveryLineIsTracedWhateverItHolds) {
  WriteFile("# made by hand\n\nsearch corp.lan\noptions ndots:1\nnameserver 192.0.2.1\n");
  Read();
  EXPECT_THAT(trace_,
              TraceIs({"read dns: # made by hand", "read dns: ", "read dns: search corp.lan",
                       "read dns: options ndots:1", "read dns: nameserver 192.0.2.1"}));
  EXPECT_EQ(Dns(1), "192.0.2.1");
}

TEST_F(LocalResolversTest, MissingFileIsNotReportedAndLeavesTheBuffersUntouched) {
  Fill(kUntouched);
  Read();
  EXPECT_THAT(trace_, TraceIs({}));
  for (const std::string& buffer : buffers_) {
    EXPECT_EQ(buffer, std::string(256, kUntouched));
  }
}

TEST_F(LocalResolversTest, UnreadableFileIsNotReportedAndLeavesTheBuffersUntouched) {
  // A folder can be opened and not be read, by root neither.
  ASSERT_EQ(mkdir("/etc/resolv.conf", 0755), 0);
  Fill(kUntouched);
  Read();
  EXPECT_THAT(trace_, TraceIs({}));
  for (const std::string& buffer : buffers_) {
    EXPECT_EQ(buffer, std::string(256, kUntouched));
  }
}

TEST_F(LocalResolversTest, EmptyFileWritesNothing) {
  WriteFile("");
  Fill(kUntouched);
  Read();
  EXPECT_THAT(trace_, TraceIs({}));
  EXPECT_EQ(buffers_[0], std::string(256, kUntouched));
}

TEST_F(LocalResolversTest, BuffersWithoutAServerStayUntouched) {
  WriteFile("nameserver 192.0.2.1\n");
  Fill(kUntouched);
  Read();
  EXPECT_EQ(buffers_[0].substr(0, 9), "192.0.2.1");
  EXPECT_EQ(buffers_[1], std::string(256, kUntouched));
  EXPECT_EQ(buffers_[2], std::string(256, kUntouched));
}

TEST_F(LocalResolversTest, NoTerminatorIsWritten) {
  // The host zero-fills; whoever does not finds the old text's tail behind the value, by design.
  WriteFile("nameserver 192.0.2.1\n");
  std::strcpy(buffers_[0].data(), "203.0.113.254");
  Read();
  EXPECT_EQ(Dns(1), "192.0.2.1.254");
}

TEST_F(LocalResolversTest, LastLineWithoutLineFeedIsReadTracedAndStored) {
  WriteFile("search corp.lan\nnameserver 192.0.2.1");
  Read();
  EXPECT_THAT(trace_, TraceIs({"read dns: search corp.lan", "read dns: nameserver 192.0.2.1"}));
  EXPECT_EQ(Dns(1), "192.0.2.1");
}

TEST_F(LocalResolversTest, ValueIsTheRestOfTheLineAsItStands) {
  const struct {
    const char* rule;
    const char* line;
    const char* value;
  } cases[] = {
      {"one blank", "nameserver 192.0.2.1", "192.0.2.1"},
      {"several blanks", "nameserver    192.0.2.1", "192.0.2.1"},
      {"no blank at all", "nameserver192.0.2.1", "192.0.2.1"},
      {"a tab is no blank: it is copied", "nameserver\t192.0.2.1", "\t192.0.2.1"},
      {"a tab behind a blank too", "nameserver \t192.0.2.1", "\t192.0.2.1"},
      {"a carriage return is copied", "nameserver 192.0.2.1\r", "192.0.2.1\r"},
      {"trailing blanks are copied", "nameserver 192.0.2.1  ", "192.0.2.1  "},
      {"a comment behind is copied", "nameserver 192.0.2.1 # office", "192.0.2.1 # office"},
      {"further words are copied", "nameserver 192.0.2.1 192.0.2.2", "192.0.2.1 192.0.2.2"},
      {"a comment line counts", "# nameserver 192.0.2.1", "192.0.2.1"},
      {"the word counts anywhere", "mynameserver 192.0.2.1", "192.0.2.1"},
      {"its first occurrence counts", "nameserver nameserver 192.0.2.1", "nameserver 192.0.2.1"},
      {"what follows is not validated", "nameservers are here", "s are here"},
      {"IPv6 is copied", "nameserver 2001:db8::1", "2001:db8::1"},
  };
  for (const auto& test : cases) {
    WriteFile(std::string(test.line) + "\n");
    Fill('\0');
    Read();
    EXPECT_EQ(Dns(1), test.value) << test.rule;
    EXPECT_EQ(Dns(2), "") << test.rule;
    EXPECT_THAT(trace_, TraceIs({std::string("read dns: ") + test.line})) << test.rule;
  }
}

TEST_F(LocalResolversTest, LinesWithoutAValueAreNotCounted) {
  const struct {
    const char* rule;
    const char* line;
  } cases[] = {
      {"nothing behind the word", "nameserver"},
      {"blanks only", "nameserver   "},
      {"another case", "NameServer 192.0.2.9"},
      {"another word", "name server 192.0.2.9"},
      {"empty", ""},
  };
  for (const auto& test : cases) {
    WriteFile(std::string(test.line) + "\nnameserver 192.0.2.1\n");
    Fill('\0');
    Read();
    EXPECT_EQ(Dns(1), "192.0.2.1") << test.rule;
    EXPECT_EQ(Dns(2), "") << test.rule;
  }
}

TEST_F(LocalResolversTest, SkippedLinesBetweenServersDoNotEndTheReading) {
  WriteFile("nameserver\nnameserver 192.0.2.1\nnameserver \n;\nnameserver 192.0.2.2\n");
  Read();
  EXPECT_EQ(Dns(1), "192.0.2.1");
  EXPECT_EQ(Dns(2), "192.0.2.2");
  EXPECT_EQ(Dns(3), "");
  EXPECT_EQ(trace_.size(), 5U);
}

}  // namespace
