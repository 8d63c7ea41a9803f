#include "host/common/log.h"

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

  // Writes `line` 1,000 times, which is more than a pipe holds, and then another one when there is
  // room again: what has come by then.
  std::string Flood(const std::string& line) {
    LineWriter writer(ends_[1], "letters");
    for (int i = 0; i < 1000; ++i) {
      writer.Write(line);
    }
    const std::string first = Read();
    writer.Write("next\n");
    return first + Read();
  }

  // `whole` lines, the count of those that were lost, and the next one.
  static std::string Expected(const std::string& line, int whole) {
    std::string text;
    for (int i = 0; i < whole; ++i) {
      text += line;
    }
    return text + "dns_proxy_host: " + std::to_string(1000 - whole) + " letters lost here\nnext\n";
  }

  int ends_[2] = {-1, -1};
};

TEST_F(LineWriterTest, LineLongerThanAPipeTakesAtOnceIsNotTorn) {
  const std::string line = std::string(5 * PIPE_BUF / 2, 'x') + '\n';
  const std::string text = Flood(line);
  const auto whole = static_cast<int>(text.size() / line.size());
  EXPECT_GT(whole, 0);
  EXPECT_EQ(text, Expected(line, whole));
}

TEST_F(LineWriterTest, WhatDoesNotFitIsSaidToBeLost) {
  const std::string line = std::string(PIPE_BUF - 1, 'x') + '\n';
  const std::string text = Flood(line);
  EXPECT_EQ(text, Expected(line, static_cast<int>(text.size() / line.size())));
}

}  // namespace
