#include "host/common/line_writer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <string>

namespace {

// A pipe, and what can be read from it now.
class LineWriterTest : public ::testing::Test {
 protected:
  LineWriterTest() {
    EXPECT_EQ(pipe(ends_), 0);
    fcntl(ends_[0], F_SETFL, O_NONBLOCK);
  }
  ~LineWriterTest() override {
    close(ends_[0]);
    close(ends_[1]);
  }

  std::string Read() {
    std::string text;
    char bytes[4096];
    for (ssize_t size = 0; (size = read(ends_[0], bytes, sizeof(bytes))) > 0;) {
      text.append(bytes, static_cast<std::size_t>(size));
    }
    return text;
  }

  int ends_[2];
  LineWriter writer_;
};

TEST_F(LineWriterTest, LineLongerThanAPipeTakesAtOnceIsNotTorn) {
  const std::string line = std::string(5 * PIPE_BUF / 2, 'x') + '\n';
  std::string expected;
  while (writer_.Write(ends_[1], line)) {
    expected += line;
  }
  const std::string first = Read();
  ASSERT_LT(first.size(), expected.size()) << "the last line should have been taken in part";
  EXPECT_TRUE(writer_.Write(ends_[1], "next\n"));
  EXPECT_EQ(first + Read(), expected + "next\n");
}

TEST_F(LineWriterTest, WhatDoesNotFitIsSaidToBeLost) {
  const std::string line = std::string(PIPE_BUF - 1, 'x') + '\n';
  std::string expected;
  while (writer_.Write(ends_[1], line)) {
    expected += line;
  }
  EXPECT_FALSE(writer_.Write(ends_[1], "lost\n"));
  EXPECT_EQ(Read(), expected);
}

}  // namespace
