// The bytes of trace files, one behind the other.
#ifndef TRACE_READER_INPUT_H_
#define TRACE_READER_INPUT_H_

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

class Input {
 public:
  // `files` are read in the order of their names, rotated ones from the oldest on: trace.2, trace.1
  // and trace. "-" is standard input, as are no files. With `bar`, one is drawn on standard error
  // meanwhile. Throws std::system_error, as Next does.
  Input(const std::vector<std::string>& files, bool bar) : files_(files), bar_(bar) {
    for (const std::string& file : files) {
      struct stat state = {};
      if (file != "-" && stat(file.c_str(), &state) != 0) Fail(file);
      expected_ += S_ISREG(state.st_mode) ? static_cast<std::uint64_t>(state.st_size) : 0;
    }
    std::ranges::sort(files_, [](const auto& one, const auto& other) {
      return RotatedName(one) > RotatedName(other);
    });
    files_.resize(std::max<std::size_t>(files_.size(), 1), "-");
  }

  // Takes so many bytes of what was given the last time, and gives what follows them: `lookAhead`
  // bytes and a line or more, or the rest; nothing at the end. Valid until the next call. A line of
  // more than a megabyte comes in pieces.
  std::string_view Next(std::size_t taken, std::size_t lookAhead) {
    constexpr std::size_t kBlock = std::size_t{1} << 20;
    ahead_.remove_prefix(taken);
    while (!files_.empty() &&
           (ahead_.size() < lookAhead || (ahead_.size() < kBlock && ahead_.find('\n') >= kBlock))) {
      const std::string& file = files_.back();
      if (fd_ == -1) fd_ = file == "-" ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC);
      buffer_.erase(0, buffer_.size() - ahead_.size());
      const std::size_t size = buffer_.size();
      buffer_.resize(size + kBlock);
      const ssize_t added = read(fd_, buffer_.data() + size, kBlock);
      if (added < 0) Fail(file);
      buffer_.resize(size + static_cast<std::size_t>(added));
      ahead_ = buffer_;
      read_ += static_cast<std::uint64_t>(added);
      if (added == 0) {
        close(std::exchange(fd_, -1));
        files_.pop_back();
      }
      if (bar_ && (added == 0 || read_ % kBarStep < kBlock)) DrawBar();
    }
    return ahead_;
  }

 private:
  // "trace.12" is number -12 of "trace"; "trace" itself is its number 0, the newest.
  static std::pair<std::string, long> RotatedName(const std::string& file) {
    const std::size_t digits = file.find_last_not_of("0123456789") + 1;
    if (digits == 0 || digits == file.size() || file[digits - 1] != '.') return {file, 0};
    return {file.substr(0, digits - 1), -std::strtol(file.c_str() + digits, nullptr, 10)};
  }

  [[noreturn]] static void Fail(const std::string& file) {
    throw std::system_error(errno, std::generic_category(), file);
  }

  void DrawBar() {
    constexpr std::uint64_t kWidth = 50;
    if (files_.empty()) return static_cast<void>(std::fputs("\r\033[K", stderr));
    std::string bar(expected_ == 0 ? 0 : std::min(kWidth, kWidth * read_ / expected_), '#');
    bar.resize(expected_ == 0 ? 0 : kWidth, '.');
    std::fprintf(stderr, "\r[%s] %.0f MB", bar.c_str(), static_cast<double>(read_) / 1e6);
  }

  static constexpr std::uint64_t kBarStep = 8'000'000;  // bytes

  std::vector<std::string> files_;  // the last one first
  int fd_ = -1;                     // of the file that is read, the last of files_
  std::string buffer_;
  std::string_view ahead_;  // what of it is not taken
  bool bar_;
  std::uint64_t expected_ = 0;  // bytes; 0: not known
  std::uint64_t read_ = 0;
};

#endif  // TRACE_READER_INPUT_H_
