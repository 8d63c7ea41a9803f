// The program itself: real shell, real cp and mv, a sw_vers of ours, and a root of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "tests/startup/program_root.h"
#include "tests/support/isolation.h"
#include "tests/support/trace_capture.h"

namespace {

using support::SplitLines;
using support::TraceIs;
using support::TraceLines;

constexpr char kApplication[] = "/Applications/Velantrix.app";
constexpr char kFrameworks[] = "/Applications/Velantrix.app/Contents/Frameworks";
constexpr char kSystemLibraries[] = "/usr/local/ssl/lib";

const Files kStored = {{"libcrypto.1.0.0.dylib.zuvex", "the crypto library"},
                       {"libssl.1.0.0.dylib.zuvex", "the ssl library"}};
const Files kPlain = {{"libcrypto.1.0.0.dylib", "the crypto library"},
                      {"libssl.1.0.0.dylib", "the ssl library"}};

enum class Outcome { kOld, kNew, kUnknown };

// The trace of a run whose probe found `line`.
TraceLines Trace(Outcome outcome, const std::string& line) {
  const std::string func = "this is cp_openssl_libs func, ";
  const std::string last = outcome == Outcome::kOld   ? "mac need remove needless ssl lib"
                           : outcome == Outcome::kNew ? "mac need copy ssl lib to local"
                                                      : "mac need remove needless ssl lib.";
  return {"this is copy openssl lib func",
          "vpnd: mac get os version from file failed, start get os version from command line",
          "vpnd: mac cmd get os version buf=" + line + ".",
          func + "os version:" + line,
          func + last,
          "cp_openssl_libs finished"};
}

const std::vector<std::string> kPlacementCommands = {
    "cp <-f> </Applications/Velantrix.app/Contents/Frameworks/libcrypto.1.0.0.dylib.zuvex> "
    "</usr/local/ssl/lib/libcrypto.1.0.0.dylib>",
    "cp <-f> </Applications/Velantrix.app/Contents/Frameworks/libssl.1.0.0.dylib.zuvex> "
    "</usr/local/ssl/lib/libssl.1.0.0.dylib>",
    "mv <-f> </Applications/Velantrix.app/Contents/Frameworks/libcrypto.1.0.0.dylib.zuvex> "
    "</Applications/Velantrix.app/Contents/Frameworks/libcrypto.1.0.0.dylib>",
    "mv <-f> </Applications/Velantrix.app/Contents/Frameworks/libssl.1.0.0.dylib.zuvex> "
    "</Applications/Velantrix.app/Contents/Frameworks/libssl.1.0.0.dylib>",
};

class StartupTest : public testing::Test {
 protected:
  void SetUp() override {
    SKIP_UNLESS_ISOLATED();
    root_ = std::make_unique<ProgramRoot>();
    ASSERT_EQ(root_->Problem(), "");
    Install();
  }

  // The application as it is installed: both libraries under their stored names.
  void Install() {
    root_->RemoveFolder(kApplication);
    root_->RemoveFolder("/usr/local/ssl");
    for (const auto& [name, content] : kStored) {
      root_->WriteFile(std::string(kFrameworks) + "/" + name, content);
    }
    root_->MakeFolder(kSystemLibraries);
  }

  void SetVersion(const std::string& number) {
    root_->SetSwVers("printf 'ProductName:\\tmacOS\\nProductVersion:\\t" + number +
                     "\\nBuildVersion:\\t1A1\\n'");
  }

  Files Bundle() const { return root_->FilesIn(kFrameworks); }
  Files System() const { return root_->FilesIn(kSystemLibraries); }

  std::unique_ptr<ProgramRoot> root_;
};

TEST_F(StartupTest, EveryVersionLeadsToItsOutcome) {
  const struct {
    const char* number;
    Outcome outcome;
  } cases[] = {
      {"10.8.5", Outcome::kOld},   {"10.9.5", Outcome::kOld},     {"10.10.5", Outcome::kOld},
      {"10.11.6", Outcome::kOld},  {"10.12.6", Outcome::kOld},    {"10.13.6", Outcome::kOld},
      {"10.14.6", Outcome::kOld},  {"10.15.7", Outcome::kOld},    {"11.7.10", Outcome::kNew},
      {"12.7.6", Outcome::kNew},   {"13.0", Outcome::kNew},       {"14.0", Outcome::kNew},
      {"15.1", Outcome::kNew},     {"16.0", Outcome::kNew},       {"17.0", Outcome::kNew},
      {"18.0", Outcome::kNew},     {"19.0", Outcome::kNew},       {"20.1", Outcome::kNew},
      {"10.16.1", Outcome::kNew},  {"10.7.5", Outcome::kUnknown}, {"21.0", Outcome::kUnknown},
      {"26.1", Outcome::kUnknown}, {"10.16", Outcome::kUnknown},  {"10.8", Outcome::kUnknown},
      {"11", Outcome::kUnknown},
  };
  for (const auto& test : cases) {
    Install();
    SetVersion(test.number);
    const ProgramRun run = root_->Run();
    const bool placed = test.outcome == Outcome::kNew;
    EXPECT_EQ(run.exitStatus, 0) << test.number;
    EXPECT_THAT(SplitLines(run.output),
                TraceIs(Trace(test.outcome, std::string("ProductVersion:\t") + test.number)));
    EXPECT_EQ(run.commands, placed ? kPlacementCommands : std::vector<std::string>())
        << test.number;
    EXPECT_EQ(Bundle(), placed ? kPlain : Files()) << test.number;
    EXPECT_EQ(System(), placed ? kPlain : Files()) << test.number;
  }
}

TEST_F(StartupTest, SecondRunAfterAPlacementChangesNothing) {
  // The stored files are gone: the commands fail, say so on standard error, and are not looked at.
  SetVersion("14.0");
  root_->Run();
  const ProgramRun second = root_->Run();
  EXPECT_EQ(second.exitStatus, 0);
  EXPECT_EQ(second.commands, kPlacementCommands);
  EXPECT_EQ(Bundle(), kPlain);
  EXPECT_EQ(System(), kPlain);
}

TEST_F(StartupTest, SecondRunAfterARemovalChangesNothing) {
  for (const char* number : {"10.15.7", "26.1"}) {
    SetVersion(number);
    const ProgramRun first = root_->Run();
    const ProgramRun second = root_->Run();
    EXPECT_EQ(second.exitStatus, 0) << number;
    EXPECT_EQ(second.output, first.output) << number;
    EXPECT_EQ(Bundle(), Files()) << number;
  }
}

TEST_F(StartupTest, PlacementOverwritesOlderLibraries) {
  SetVersion("14.0");
  for (const auto& [name, content] : kPlain) {
    root_->WriteFile(std::string(kFrameworks) + "/" + name, "older");
    root_->WriteFile(std::string(kSystemLibraries) + "/" + name, "older");
  }
  EXPECT_EQ(root_->Run().exitStatus, 0);
  EXPECT_EQ(Bundle(), kPlain);
  EXPECT_EQ(System(), kPlain);
}

TEST_F(StartupTest, MissingSystemFolderIsNotMadeAndTheMovesStillRun) {
  root_->RemoveFolder("/usr/local/ssl");
  SetVersion("14.0");
  const ProgramRun run = root_->Run();
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.commands, kPlacementCommands);
  EXPECT_EQ(Bundle(), kPlain);
  EXPECT_EQ(root_->FilesIn("/usr/local"), Files());
}

TEST_F(StartupTest, RemovalLeavesEverythingButTheStoredLibraries) {
  for (const auto& [name, content] : kPlain) {
    root_->WriteFile(std::string(kFrameworks) + "/" + name, content);
    root_->WriteFile(std::string(kSystemLibraries) + "/" + name, content);
  }
  root_->WriteFile(std::string(kApplication) + "/Contents/Info.plist", "the application");
  SetVersion("10.15.7");
  EXPECT_EQ(root_->Run().exitStatus, 0);
  EXPECT_EQ(Bundle(), kPlain);
  EXPECT_EQ(System(), kPlain);
  EXPECT_EQ(root_->FilesIn(std::string(kApplication) + "/Contents").count("Info.plist"), 1U);
}

TEST_F(StartupTest, MissingApplicationIsNoError) {
  root_->RemoveFolder("/Applications");
  for (const char* number : {"10.15.7", "14.0", "26.1"}) {
    SetVersion(number);
    EXPECT_EQ(root_->Run().exitStatus, 0) << number;
    EXPECT_EQ(root_->FilesIn("/Applications"), Files()) << number;
    EXPECT_EQ(System(), Files()) << number;
  }
}

TEST_F(StartupTest, OneMissingLibraryDoesNotKeepTheOtherFromItsPlace) {
  root_->RemoveFolder(std::string(kFrameworks) + "/libcrypto.1.0.0.dylib.zuvex");
  SetVersion("14.0");
  EXPECT_EQ(root_->Run().exitStatus, 0);
  const Files ssl = {{"libssl.1.0.0.dylib", "the ssl library"}};
  EXPECT_EQ(Bundle(), ssl);
  EXPECT_EQ(System(), ssl);
}

TEST_F(StartupTest, MissingToolIsAnUnknownVersion) {
  // The shell starts and finds no sw_vers: no output, and its complaint on standard error.
  root_->RemoveSwVers();
  const ProgramRun run = root_->Run();
  EXPECT_EQ(run.exitStatus, 0);
  TraceLines lines = SplitLines(run.output);
  lines.erase(std::remove_if(lines.begin(), lines.end(),
                             [](const std::string& line) {
                               return line.find("sw_vers") != std::string::npos;
                             }),
              lines.end());
  TraceLines expected = Trace(Outcome::kUnknown, "");
  expected.erase(expected.begin() + 2);  // no line had the label
  EXPECT_THAT(lines, TraceIs(expected));
  EXPECT_EQ(Bundle(), Files());
}

TEST_F(StartupTest, CommandsThatCannotRunAreNoError) {
  root_->WriteFile("/usr/bin/cp", "#!/bin/sh\nexit 1\n");
  SetVersion("14.0");
  const ProgramRun run = root_->Run();
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_THAT(SplitLines(run.output), TraceIs(Trace(Outcome::kNew, "ProductVersion:\t14.0")));
  EXPECT_EQ(Bundle(), kPlain) << "the moves run whatever became of the copies";
  EXPECT_EQ(System(), Files());
}

}  // namespace
