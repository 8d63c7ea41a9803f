// The program's trace: taken from standard output and compared whole, line by line.
#ifndef TESTS_SUPPORT_TRACE_CAPTURE_H_
#define TESTS_SUPPORT_TRACE_CAPTURE_H_

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <vector>

namespace support {

using TraceLines = std::vector<std::string>;

// Takes descriptor 1, so that lines of every thread and of child processes are caught. What
// GoogleTest prints meanwhile is caught too: keep assertions out of its life.
class TraceCapture {
 public:
  TraceCapture();
  ~TraceCapture();

  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  // What was written so far, from the beginning and byte for byte.
  std::string Text() const;

  // The same as lines, see SplitLines.
  TraceLines Lines() const;

  // Ends the capture, standard output is the old one again, and returns the lines.
  TraceLines Stop();

 private:
  int captured_;        // an unlinked file
  int standardOutput_;  // the old one; -1 after the end
};

// The trace of `action`.
TraceLines TraceOf(const std::function<void()>& action);

// The lines of `text` without their line feeds. A last line that has none ends in
// "<no line feed>".
TraceLines SplitLines(const std::string& text);

// True if `actual` is `expected` byte for byte, but for the first "(line:%d)" in `expected`, which
// stands for any line number.
bool TraceLineMatches(const std::string& expected, const std::string& actual);

// EXPECT_THAT(TraceOf(...), TraceIs({"func: StartDnsSrv(line:%d) socket invalid"}));
testing::Matcher<const TraceLines&> TraceIs(const TraceLines& expected);

// EXPECT_THAT(line, TraceLineIs("func: StartDnsSrv(line:%d) socket invalid"));
testing::Matcher<const std::string&> TraceLineIs(const std::string& expected);

}  // namespace support

#endif  // TESTS_SUPPORT_TRACE_CAPTURE_H_
