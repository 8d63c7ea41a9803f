#include "tests/support/trace_capture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace support {

namespace {

[[noreturn]] void GiveUp(const char* what) {
  std::perror(what);
  std::abort();
}

}  // namespace

TraceCapture::TraceCapture() {
  std::fflush(stdout);
  std::FILE* const file = std::tmpfile();
  if (file == nullptr) {
    GiveUp("trace capture: tmpfile");
  }
  captured_ = dup(fileno(file));
  std::fclose(file);
  standardOutput_ = dup(STDOUT_FILENO);
  if (captured_ < 0 || standardOutput_ < 0 || dup2(captured_, STDOUT_FILENO) < 0) {
    GiveUp("trace capture: dup");
  }
}

TraceCapture::~TraceCapture() {
  Stop();
  close(captured_);
}

std::string TraceCapture::Text() const {
  std::fflush(stdout);
  struct stat status;
  if (fstat(captured_, &status) != 0) {
    GiveUp("trace capture: fstat");
  }
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  const ssize_t count = pread(captured_, text.data(), text.size(), 0);
  if (count < 0) {
    GiveUp("trace capture: pread");
  }
  text.resize(static_cast<std::size_t>(count));
  return text;
}

TraceLines TraceCapture::Lines() const { return SplitLines(Text()); }

TraceLines TraceCapture::Stop() {
  const TraceLines lines = Lines();
  if (standardOutput_ >= 0) {
    dup2(standardOutput_, STDOUT_FILENO);
    close(standardOutput_);
    standardOutput_ = -1;
  }
  return lines;
}

TraceLines TraceOf(const std::function<void()>& action) {
  TraceCapture capture;
  action();
  return capture.Stop();
}

TraceLines SplitLines(const std::string& text) {
  TraceLines lines;
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t end = text.find('\n', begin);
    if (end == std::string::npos) {
      lines.push_back(text.substr(begin) + "<no line feed>");
      break;
    }
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

bool TraceLineMatches(const std::string& expected, const std::string& actual) {
  static const std::string kPattern = "(line:%d)";
  static const std::string kOpening = "(line:";
  const std::size_t pattern = expected.find(kPattern);
  if (pattern == std::string::npos) {
    return actual == expected;
  }
  const std::size_t digits = pattern + kOpening.size();
  if (actual.compare(0, digits, expected, 0, digits) != 0) {
    return false;
  }
  const std::size_t closing = actual.find_first_not_of("0123456789", digits);
  if (closing == std::string::npos || closing == digits || actual[digits] == '0') {
    return false;
  }
  return actual.substr(closing) == expected.substr(pattern + kPattern.size() - 1);
}

namespace {

MATCHER_P(IsTraceLine, expected, "is the trace line \"" + expected + "\"") {
  return TraceLineMatches(expected, arg);
}

}  // namespace

testing::Matcher<const std::string&> TraceLineIs(const std::string& expected) {
  return IsTraceLine(expected);
}

testing::Matcher<const TraceLines&> TraceIs(const TraceLines& expected) {
  std::vector<testing::Matcher<const std::string&>> matchers;
  for (const std::string& line : expected) {
    matchers.push_back(TraceLineIs(line));
  }
  return testing::ElementsAreArray(matchers);
}

}  // namespace support
