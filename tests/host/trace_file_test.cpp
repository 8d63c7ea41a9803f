#include "host/trace_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

namespace {

class TraceFileTest : public ::testing::Test {
 protected:
  TraceFileTest() {
    std::string pattern = ::testing::TempDir() + "trace_file_XXXXXX";
    folder_ = mkdtemp(pattern.data());
    path_ = folder_ + "/trace";
  }
  ~TraceFileTest() override {
    for (const char* const suffix : {"", ".1", ".2", ".3"}) {
      unlink((path_ + suffix).c_str());
    }
    rmdir(folder_.c_str());
  }

  static std::string Content(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  void Write(const TraceFile& trace, const std::string& text) {
    ASSERT_EQ(write(trace.fd(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  std::string folder_;
  std::string path_;
};

TEST_F(TraceFileTest, IsReadableByItsOwnerOnlyAlsoWhenItWasThereBefore) {
  std::ofstream(path_) << "old\n";
  chmod(path_.c_str(), 0644);
  TraceFile trace(path_, 100, 2);
  std::string error;
  ASSERT_TRUE(trace.Open(error)) << error;
  Write(trace, "new\n");
  struct stat state;
  ASSERT_EQ(stat(path_.c_str(), &state), 0);
  EXPECT_EQ(state.st_mode & 0777, 0600u);
  EXPECT_EQ(Content(path_), "old\nnew\n");
}

TEST_F(TraceFileTest, RotationKeepsSoManyAndTheNewestIsNumberOne) {
  TraceFile trace(path_, 3, 2);
  std::string error;
  for (const char* const text : {"one\n", "two\n", "three\n", "four\n"}) {
    ASSERT_TRUE(trace.Open(error)) << error;
    EXPECT_FALSE(trace.Full());
    Write(trace, text);
    EXPECT_TRUE(trace.Full());
    EXPECT_TRUE(trace.Rotate());
  }
  EXPECT_EQ(Content(path_ + ".1"), "four\n");
  EXPECT_EQ(Content(path_ + ".2"), "three\n");
  EXPECT_NE(access((path_ + ".3").c_str(), F_OK), 0);
  EXPECT_NE(access(path_.c_str(), F_OK), 0);
}

TEST_F(TraceFileTest, KeepingNoneStartsAfresh) {
  TraceFile trace(path_, 3, 0);
  std::string error;
  ASSERT_TRUE(trace.Open(error));
  Write(trace, "one\n");
  EXPECT_TRUE(trace.Rotate());
  ASSERT_TRUE(trace.Open(error));
  EXPECT_EQ(Content(path_), "");
  EXPECT_NE(access((path_ + ".1").c_str(), F_OK), 0);
}

TEST_F(TraceFileTest, AnythingButARegularFileIsRefused) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  const struct {
    std::string path;
    std::string error;
  } cases[] = {{path_, path_ + ": No such device"},  // a pipe that nobody reads
               {folder_, folder_ + ": Is a directory"},
               {"/dev/null", "/dev/null: not a regular file"},
               {folder_ + "/none/trace", folder_ + "/none/trace: No such file"}};
  for (const auto& c : cases) {
    TraceFile trace(c.path, 100, 1);
    std::string error;
    EXPECT_FALSE(trace.Open(error)) << c.path;
    EXPECT_NE(error.find(c.error), std::string::npos) << error;
    EXPECT_FALSE(trace.CanOpen(error)) << c.path;
  }
}

}  // namespace
