#include "host/common/trace.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

namespace {

class TraceTest : public ::testing::Test {
 protected:
  TraceTest() {
    std::string pattern = ::testing::TempDir() + "trace_XXXXXX";
    folder_ = mkdtemp(pattern.data());
    path_ = folder_ + "/trace";
  }
  ~TraceTest() override {
    for (const char* const suffix : {"", ".1", ".2", ".3"}) {
      unlink((path_ + suffix).c_str());
    }
    rmdir(folder_.c_str());
  }

  static std::string Content(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::string folder_;
  std::string path_;
};

TEST_F(TraceTest, IsReadableByItsOwnerOnlyAlsoWhenItWasThereBefore) {
  std::ofstream(path_) << "old\n";
  chmod(path_.c_str(), 0644);
  Trace trace(path_, 100, 2);
  trace.Open();
  trace.Write("new\n");
  struct stat state;
  ASSERT_EQ(stat(path_.c_str(), &state), 0);
  EXPECT_EQ(state.st_mode & 0777, 0600u);
  EXPECT_EQ(Content(path_), "old\nnew\n");
}

TEST_F(TraceTest, RotationKeepsSoManyAndTheNewestIsNumberOne) {
  Trace trace(path_, 3, 2);
  trace.Open();
  for (const char* const text : {"one\n", "two\n", "three\n", "four\n"}) {
    EXPECT_FALSE(trace.Full());
    trace.Write(text);
    EXPECT_TRUE(trace.Full());
    trace.Rotate();
  }
  EXPECT_EQ(Content(path_), "");
  EXPECT_EQ(Content(path_ + ".1"), "four\n");
  EXPECT_EQ(Content(path_ + ".2"), "three\n");
  EXPECT_NE(access((path_ + ".3").c_str(), F_OK), 0);
}

TEST_F(TraceTest, KeepingNoneStartsAfresh) {
  Trace trace(path_, 3, 0);
  trace.Open();
  trace.Write("one\n");
  trace.Rotate();
  EXPECT_EQ(Content(path_), "");
  EXPECT_NE(access((path_ + ".1").c_str(), F_OK), 0);
}

TEST_F(TraceTest, FileThatCannotBeRotatedIsWrittenOn) {
  Trace trace(path_, 3, 1);
  trace.Open();
  trace.Write("one\n");
  ASSERT_EQ(mkdir((path_ + ".1").c_str(), 0700), 0);
  EXPECT_THROW(trace.Rotate(), Failure);
  rmdir((path_ + ".1").c_str());
  trace.Write("two\n");
  EXPECT_EQ(Content(path_), "one\ntwo\n");
}

TEST_F(TraceTest, FileThatSomebodyHasMovedIsOpenedAnewAndTheKeptOnesStay) {
  Trace trace(path_, 3, 2);
  trace.Open();
  for (const char* const text : {"one\n", "two\n"}) {
    trace.Write(text);
    trace.Rotate();
  }
  trace.Write("three\n");
  unlink(path_.c_str());
  trace.Rotate();
  EXPECT_FALSE(trace.Full());
  EXPECT_EQ(Content(path_), "");
  EXPECT_EQ(Content(path_ + ".1"), "two\n");
  EXPECT_EQ(Content(path_ + ".2"), "one\n");
}

TEST_F(TraceTest, TryingChangesNothing) {
  Trace trace(path_, 100, 1);
  trace.TryOpen();
  EXPECT_NE(access(path_.c_str(), F_OK), 0);
  std::ofstream(path_) << "old\n";
  chmod(path_.c_str(), 0644);
  trace.TryOpen();
  struct stat state;
  ASSERT_EQ(stat(path_.c_str(), &state), 0);
  EXPECT_EQ(state.st_mode & 0777, 0644u);
  EXPECT_EQ(Content(path_), "old\n");
}

TEST_F(TraceTest, FileWithAnotherNameIsRefused) {
  std::ofstream(path_ + ".1") << "somebody's\n";
  ASSERT_EQ(link((path_ + ".1").c_str(), path_.c_str()), 0);
  Trace trace(path_, 100, 1);
  EXPECT_THROW(trace.Open(), Failure);
}

TEST_F(TraceTest, FileOfSomebodyElseIsRefused) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give a file away";
  }
  std::ofstream(path_) << "theirs\n";
  if (chown(path_.c_str(), 1, 1) != 0) {
    GTEST_SKIP() << "there is nobody else here";
  }
  Trace trace(path_, 100, 1);
  EXPECT_THROW(trace.Open(), Failure);
}

TEST_F(TraceTest, LinkIsRefusedThoughItLeadsToAnOwnFile) {
  // Whoever may write to the folder could lead the trace, and its rights, anywhere.
  const std::string other = folder_ + "/trace.1";
  std::ofstream(other) << "old\n";
  chmod(other.c_str(), 0644);
  ASSERT_EQ(symlink(other.c_str(), path_.c_str()), 0);
  Trace trace(path_, 100, 1);
  EXPECT_THROW(trace.Open(), Failure);
  struct stat state;
  ASSERT_EQ(stat(other.c_str(), &state), 0);
  EXPECT_EQ(state.st_mode & 0777, 0644u);
}

TEST_F(TraceTest, AnythingButARegularFileIsRefused) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  const struct {
    std::string path;
    std::string error;
  } cases[] = {{path_, path_ + ": No such device"},  // a pipe that nobody reads
               {folder_, folder_ + ": Is a directory"},
               {"/dev/null", "/dev/null: not a regular file"},
               {folder_ + "/none/trace", folder_ + "/none/trace: No such file"}};
  for (const auto& c : cases) {
    Trace trace(c.path, 100, 1);
    try {
      trace.Open();
      ADD_FAILURE() << c.path;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status, kExitBadInput);
      EXPECT_NE(failure.why.find(c.error), std::string::npos) << failure.why;
    }
  }
}

}  // namespace
