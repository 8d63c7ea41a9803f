// get_os_ver, with /usr/bin/sw_vers as the test wants it.
#include "dns_proxy_mac/startup/os_version.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/support/platform_calls.h"
#include "tests/support/trace_capture.h"
#include "tests/unit/fake_sw_vers.h"

namespace {

using support::Failing;
using support::TraceIs;
using support::TraceLines;
using support::TraceOf;

namespace platform = support::platform;

constexpr char kFirstLine[] =
    "vpnd: mac get os version from file failed, start get os version from command line";

struct Version {
  std::string buffer = std::string(256, '#');  // of the caller
  TraceLines trace;

  std::string Text() const { return buffer.substr(0, buffer.find('\0')); }

  // The text is all there is: the rest is zero.
  bool ZeroBehindText() const { return buffer == Text() + std::string(256 - Text().size(), '\0'); }
};

Version GetVersion(int len = 256) {
  Version version;
  version.trace = TraceOf([&] { get_os_ver(version.buffer.data(), len); });
  return version;
}

TEST(GetOsVer, KeepsTheWholeProductVersionLineWithoutItsLineFeed) {
  FakeSwVers tool("ProductName:\tMac OS X\nProductVersion:\t10.13.6\nBuildVersion:\t17G65\n");
  const Version version = GetVersion();
  EXPECT_EQ(version.Text(), "ProductVersion:\t10.13.6");
  EXPECT_TRUE(version.ZeroBehindText());
  EXPECT_THAT(version.trace,
              TraceIs({kFirstLine, "vpnd: mac cmd get os version buf=ProductVersion:\t10.13.6."}));
  EXPECT_EQ(tool.reads, 2) << "no line behind it is read";
}

TEST(GetOsVer, RunsTheSystemsToolForReadingAndClosesTheStream) {
  FakeSwVers tool("ProductVersion:\t11.7.10\n");
  GetVersion();
  EXPECT_EQ(tool.opened, (std::vector<std::string>{"/usr/bin/sw_vers|r"}));
  EXPECT_EQ(tool.closed, 1);
}

TEST(GetOsVer, ExitStatusOfTheToolIsIgnored) {
  for (const int status : {-1, 256}) {
    FakeSwVers tool("ProductVersion:\t11.7.10\n", status);
    EXPECT_EQ(GetVersion().Text(), "ProductVersion:\t11.7.10");
  }
}

TEST(GetOsVer, FirstTraceLineIsWrittenOnEveryCall) {
  // It speaks of a file that no step reads: support tools look for the line.
  FakeSwVers tool("ProductVersion:\t11.7.10\n");
  EXPECT_EQ(GetVersion().trace.front(), kFirstLine);
  EXPECT_EQ(GetVersion().trace.front(), kFirstLine);
}

TEST(GetOsVer, ToolThatCannotBeStartedLeavesAnAllZeroBuffer) {
  const Failing failing(platform::popen, 1, nullptr, ENOMEM);
  const Version version = GetVersion();
  EXPECT_EQ(version.buffer, std::string(256, '\0'));
  EXPECT_THAT(version.trace,
              TraceIs({kFirstLine, "error: get system version from macos cmd failed."}));
}

TEST(GetOsVer, OutputWithoutTheLabelGivesTheLastLine) {
  FakeSwVers tool("ProductName:\tMac OS X\nBuildVersion:\t17G65\n");
  const Version version = GetVersion();
  EXPECT_EQ(version.Text(), "BuildVersion:\t17G65");
  EXPECT_TRUE(version.ZeroBehindText());
  EXPECT_THAT(version.trace, TraceIs({kFirstLine}));
  EXPECT_EQ(tool.reads, 3);
}

TEST(GetOsVer, NoOutputGivesAnEmptyText) {
  FakeSwVers tool("");
  const Version version = GetVersion();
  EXPECT_EQ(version.buffer, std::string(256, '\0'));
  EXPECT_THAT(version.trace, TraceIs({kFirstLine}));
  EXPECT_EQ(tool.closed, 1);
}

TEST(GetOsVer, ReadThatFailsAtOnceGivesAnEmptyText) {
  FakeSwVers tool("ProductVersion:\t11.7.10\n");
  const Failing failing(platform::fgets, 1, nullptr, EIO);
  const Version version = GetVersion();
  EXPECT_EQ(version.buffer, std::string(256, '\0'));
  EXPECT_THAT(version.trace, TraceIs({kFirstLine}));
  EXPECT_EQ(tool.closed, 1);
}

TEST(GetOsVer, ReadThatFailsLaterGivesTheLineBefore) {
  FakeSwVers tool("ProductName:\tMac OS X\nProductVersion:\t11.7.10\n");
  const Failing failing(platform::fgets, 2, nullptr, EIO);
  EXPECT_EQ(GetVersion().Text(), "ProductName:\tMac OS X");
}

TEST(GetOsVer, NothingButTheLineFeedIsTrimmed) {
  const struct {
    const char* rule;
    const char* output;
    const char* text;
  } cases[] = {
      {"blanks and tabs stay", "  ProductVersion:\t\t 10.15.7 \t\n",
       "  ProductVersion:\t\t 10.15.7 \t"},
      {"a carriage return stays", "ProductVersion: 10.15.7\r\n", "ProductVersion: 10.15.7\r"},
      {"a last line without line feed", "ProductVersion: 10.15.7", "ProductVersion: 10.15.7"},
      {"the label anywhere in the line", "the ProductVersion is 12.1\n",
       "the ProductVersion is 12.1"},
      {"the first line with the label", "ProductVersion: 11.1\nProductVersion: 12.1\n",
       "ProductVersion: 11.1"},
      {"its case counts", "productversion: 11.1\nPRODUCTVERSION: 12.1\n", "PRODUCTVERSION: 12.1"},
      {"an empty last line", "BuildVersion: 17G65\n\n", ""},
  };
  for (const auto& test : cases) {
    FakeSwVers tool(test.output);
    const Version version = GetVersion();
    EXPECT_EQ(version.Text(), test.text) << test.rule;
  }
}

TEST(GetOsVer, LineThatBeginsWithAZeroByteIsEmpty) {
  // It has no last character to look at.
  FakeSwVers tool(std::string("\0ProductVersion: 11.1\n", 22));
  EXPECT_EQ(GetVersion().Text(), "");
}

TEST(GetOsVer, ShorterLastLineLeavesNothingOfALongerOneInTheText) {
  FakeSwVers tool("a line that is rather long\nshort\n");
  const Version version = GetVersion();
  EXPECT_EQ(version.Text(), "short");
  EXPECT_TRUE(version.ZeroBehindText());
}

TEST(GetOsVer, LongerLineArrivesInPiecesOf127Characters) {
  // Each piece is a line of its own: the label in the second one is found, and cut off in between
  // it is not.
  const std::string pad(127, 'x');
  {
    FakeSwVers tool(pad + "ProductVersion:\t11.1\n");
    const Version version = GetVersion();
    EXPECT_EQ(version.Text(), "ProductVersion:\t11.1");
    EXPECT_EQ(tool.reads, 2);
  }
  {
    FakeSwVers tool(pad.substr(5) + "ProductVersion:\t11.1\n");
    EXPECT_EQ(GetVersion().Text(), "ctVersion:\t11.1");
  }
}

TEST(GetOsVer, PieceOf127CharactersFitsWholeAndKeepsItsLastOne) {
  const std::string line = "ProductVersion:" + std::string(112, '1');
  FakeSwVers tool(line + "\n");
  const Version version = GetVersion(128);
  EXPECT_EQ(version.Text(), line) << "its last character is no line feed";
}

TEST(GetOsVer, CopyIsBoundedByTheLineAndNotByTheLength) {
  // The caller brings room for any line; `len` says only how much is filled with zero beforehand.
  FakeSwVers tool("ProductVersion:\t11.7.10\n");
  const Version version = GetVersion(4);
  EXPECT_EQ(version.buffer.substr(0, 24), "ProductVersion:\t11.7.10#");
}

}  // namespace
