// What becomes of the two libraries on which version, and by which acts in which order.
#include "dns_proxy_mac/startup/library_placement.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/support/platform_calls.h"
#include "tests/support/trace_capture.h"
#include "tests/unit/fake_sw_vers.h"

namespace {

using support::Failing;
using support::Replaced;
using support::TraceIs;
using support::TraceLines;
using support::TraceOf;

namespace platform = support::platform;

using Acts = std::vector<std::string>;

// The acts, as whole as they are given to the platform.
const Acts kRemovals = {
    "remove /Applications/Velantrix.app/Contents/Frameworks/libssl.1.0.0.dylib.zuvex",
    "remove /Applications/Velantrix.app/Contents/Frameworks/libcrypto.1.0.0.dylib.zuvex",
};
const Acts kPlacement = {
    "system cp -f "
    "\"/Applications/Velantrix.app/Contents/Frameworks/libcrypto.1.0.0.dylib.zuvex\" "
    "\"/usr/local/ssl/lib/libcrypto.1.0.0.dylib\"",
    "system cp -f "
    "\"/Applications/Velantrix.app/Contents/Frameworks/libssl.1.0.0.dylib.zuvex\" "
    "\"/usr/local/ssl/lib/libssl.1.0.0.dylib\"",
    "system mv -f "
    "\"/Applications/Velantrix.app/Contents/Frameworks/libcrypto.1.0.0.dylib.zuvex\" "
    "\"/Applications/Velantrix.app/Contents/Frameworks/libcrypto.1.0.0.dylib\"",
    "system mv -f "
    "\"/Applications/Velantrix.app/Contents/Frameworks/libssl.1.0.0.dylib.zuvex\" "
    "\"/Applications/Velantrix.app/Contents/Frameworks/libssl.1.0.0.dylib\"",
};

constexpr char kProbeLine[] =
    "vpnd: mac get os version from file failed, start get os version from command line";
constexpr char kOldLine[] = "this is cp_openssl_libs func, mac need remove needless ssl lib";
constexpr char kNewLine[] = "this is cp_openssl_libs func, mac need copy ssl lib to local";
constexpr char kUnknownLine[] = "this is cp_openssl_libs func, mac need remove needless ssl lib.";

std::string VersionLine(const std::string& text) {
  return "this is cp_openssl_libs func, os version:" + text;
}

class LibraryPlacementTest : public testing::Test {
 protected:
  TraceLines Run() {
    return TraceOf([] { cp_openssl_libs(); });
  }

  // With the tool's usual line of the version `number`.
  TraceLines RunOn(const std::string& number) {
    const FakeSwVers tool("ProductName:\tmacOS\nProductVersion:\t" + number +
                          "\nBuildVersion:\t1\n");
    return Run();
  }

  // What every act says.
  int result_ = 0;
  Acts acts_;

 private:
  Replaced<int(const char*)> system_{platform::system, [this](const char* command) {
                                       acts_.push_back(std::string("system ") + command);
                                       return result_;
                                     }};
  Replaced<int(const char*)> remove_{platform::remove, [this](const char* path) {
                                       acts_.push_back(std::string("remove ") + path);
                                       errno = ENOENT;
                                       return result_;
                                     }};
};

// -------------------------------------------------------------------------------- the decision

TEST(ClassifyOsVersion, DecidesByTheFirstPatternThatIsFound) {
  const auto kOld = LibraryPlacement::kRemove;
  const auto kNew = LibraryPlacement::kPlace;
  const auto kUnknown = LibraryPlacement::kRemoveUnknown;
  const struct {
    const char* version;
    LibraryPlacement placement;
  } cases[] = {
      // 10.8 to 10.15: each pattern.
      {"10.8.5", kOld},
      {"10.9.5", kOld},
      {"10.10.5", kOld},
      {"10.11.6", kOld},  // contains "11." too: the old versions are looked for first
      {"10.12.6", kOld},
      {"10.13.6", kOld},
      {"10.14.6", kOld},
      {"10.15.7", kOld},
      // 11 to 20: each pattern.
      {"11.7.10", kNew},
      {"12.7.6", kNew},
      {"13.0", kNew},
      {"14.0", kNew},
      {"15.1", kNew},
      {"16.0", kNew},
      {"17.0", kNew},
      {"18.0", kNew},
      {"19.0", kNew},
      {"20.3.1", kNew},
      // Neither.
      {"10.7.5", kUnknown},
      {"10.0", kUnknown},
      {"9.2.2", kUnknown},
      {"21.0", kUnknown},
      {"26.1", kUnknown},
      {"", kUnknown},
      // Every pattern ends in a full stop.
      {"10.8", kUnknown},
      {"10.15", kUnknown},
      {"11", kUnknown},
      {"20", kUnknown},
      {"10.16", kUnknown},
      {"10.16.1", kNew},  // by "16."
      // Anywhere in the text, whatever stands around it.
      {"ProductVersion:\t\t13.6.1", kNew},
      {"110.8.1", kOld},
      {"111.0", kNew},
      {"21.11.0", kNew},
      {"BuildVersion:\t17G65", kUnknown},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(ClassifyOsVersion(test.version), test.placement) << test.version;
  }
}

// ------------------------------------------------------------------------------------ the acts

TEST_F(LibraryPlacementTest, OldVersionRemovesTheStoredLibrariesSslFirst) {
  EXPECT_THAT(RunOn("10.15.7"),
              TraceIs({kProbeLine, "vpnd: mac cmd get os version buf=ProductVersion:\t10.15.7.",
                       VersionLine("ProductVersion:\t10.15.7"), kOldLine}));
  EXPECT_EQ(acts_, kRemovals) << "and runs no shell command";
}

TEST_F(LibraryPlacementTest, NewVersionCopiesBothAndThenMovesBothCryptoFirst) {
  for (const char* number : {"11.7.10", "14.0", "20.1"}) {
    acts_.clear();
    const std::string line = std::string("ProductVersion:\t") + number;
    EXPECT_THAT(RunOn(number),
                TraceIs({kProbeLine, "vpnd: mac cmd get os version buf=" + line + ".",
                         VersionLine(line), kNewLine}));
    EXPECT_EQ(acts_, kPlacement);
  }
}

TEST_F(LibraryPlacementTest, UnknownVersionRemovesWithTheMessageThatEndsInAFullStop) {
  // The full stop is the only difference between the two removals in the trace: kept.
  for (const char* number : {"10.7.5", "21.0", "26.1", "10.16"}) {
    acts_.clear();
    const std::string line = std::string("ProductVersion:\t") + number;
    EXPECT_THAT(RunOn(number),
                TraceIs({kProbeLine, "vpnd: mac cmd get os version buf=" + line + ".",
                         VersionLine(line), kUnknownLine}));
    EXPECT_EQ(acts_, kRemovals);
  }
}

TEST_F(LibraryPlacementTest, ProbeThatFailedIsAnUnknownVersion) {
  const Failing failing(platform::popen, 1, nullptr, EMFILE);
  EXPECT_THAT(Run(), TraceIs({kProbeLine, "error: get system version from macos cmd failed.",
                              VersionLine(""), kUnknownLine}));
  EXPECT_EQ(acts_, kRemovals);
}

TEST_F(LibraryPlacementTest, ToolWithoutOutputIsAnUnknownVersion) {
  const FakeSwVers tool("");
  EXPECT_THAT(Run(), TraceIs({kProbeLine, VersionLine(""), kUnknownLine}));
  EXPECT_EQ(acts_, kRemovals);
}

TEST_F(LibraryPlacementTest, LastLineDecidesWhenNoLineHasTheLabel) {
  const FakeSwVers tool("ProductName:\tmacOS\nRelease:\t12.1\n");
  EXPECT_THAT(Run(), TraceIs({kProbeLine, VersionLine("Release:\t12.1"), kNewLine}));
  EXPECT_EQ(acts_, kPlacement);
}

TEST_F(LibraryPlacementTest, FailedCommandsAreNotLookedAtAndTheOthersRun) {
  for (const int result : {-1, 256, 127 << 8}) {
    acts_.clear();
    result_ = result;
    EXPECT_EQ(RunOn("11.7.10").size(), 4U) << "nothing is reported";
    EXPECT_EQ(acts_, kPlacement) << "nothing is retried";
  }
}

TEST_F(LibraryPlacementTest, FailedRemovalsAreNotLookedAt) {
  result_ = -1;
  EXPECT_EQ(RunOn("10.15.7").size(), 4U);
  EXPECT_EQ(RunOn("26.1").size(), 4U);
  Acts twice = kRemovals;
  twice.insert(twice.end(), kRemovals.begin(), kRemovals.end());
  EXPECT_EQ(acts_, twice);
}

}  // namespace
