// The bytes of trace files, one behind the other.
#ifndef TRACE_READER_INPUT_H_
#define TRACE_READER_INPUT_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class Input {
 public:
  // `files` ("-" is standard input) are read in this order, but for rotated ones: trace.2, trace.1
  // and trace, where the first of them stands. With `bar`, one is drawn on standard error meanwhile.
  // Throws std::system_error, as Next does.
  Input(const std::vector<std::string>& files, bool bar);

  // Takes so many bytes of what was given the last time, and gives what follows them: `lookAhead`
  // bytes or more, or the rest; nothing at the end. Valid until the next call.
  std::string_view Next(std::size_t taken, std::size_t lookAhead);

 private:
  using Clock = std::chrono::steady_clock;

  void DrawBar();

  std::vector<std::string> files_;  // the last one first
  int fd_ = -1;                     // of the file that is read, the last of files_
  std::string buffer_;
  std::string_view ahead_;  // what of it is not taken
  const bool bar_;
  std::uint64_t expected_ = 0;  // bytes; 0: not known
  std::uint64_t read_ = 0;
  const Clock::time_point begun_ = Clock::now();
  Clock::time_point drawn_ = begun_;
};

#endif  // TRACE_READER_INPUT_H_
