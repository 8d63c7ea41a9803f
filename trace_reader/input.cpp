#include "trace_reader/input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>
#include <system_error>
#include <utility>

#include "trace_reader/pattern.h"

namespace {

// "trace.12" is number 12 of "trace"; "trace" itself is its number 0, the newest.
std::pair<std::string, std::int64_t> RotatedName(const std::string& file) {
  const std::size_t dot = file.find_last_not_of("0123456789");
  std::int64_t number = 0;
  std::string_view digits = std::string_view(file).substr(dot == std::string::npos ? 0 : dot + 1);
  const bool rotated = dot != std::string::npos && file[dot] == '.' && TakeNumber(digits, number);
  return {rotated ? file.substr(0, dot) : file, number};
}

}  // namespace

Input::Input(const std::vector<std::string>& files, bool bar) : files_(files), bar_(bar) {
  std::map<std::string, std::size_t> places;  // of the first of each name
  for (std::size_t i = 0; i < files.size(); ++i) {
    places.emplace(RotatedName(files[i]).first, i);
    struct stat state = {};
    if (files[i] != "-" && stat(files[i].c_str(), &state) != 0) {
      throw std::system_error(errno, std::generic_category(), files[i]);
    }
    expected_ += S_ISREG(state.st_mode) ? static_cast<std::uint64_t>(state.st_size) : 0;
  }
  std::stable_sort(
      files_.begin(), files_.end(), [&](const std::string& one, const std::string& other) {
        const auto [oneName, oneNumber] = RotatedName(one);
        const auto [otherName, otherNumber] = RotatedName(other);
        return std::pair(places[otherName], oneNumber) < std::pair(places[oneName], otherNumber);
      });
}

std::string_view Input::Next(std::size_t taken, std::size_t lookAhead) {
  constexpr std::size_t kBlock = std::size_t{1} << 20;
  ahead_.remove_prefix(taken);
  const auto enough = [&] {
    return ahead_.size() >= lookAhead && (ahead_.size() >= kBlock || ahead_.find('\n') < kBlock);
  };
  while (!enough() && !files_.empty()) {
    if (fd_ == -1) {
      fd_ = files_.back() == "-" ? STDIN_FILENO : open(files_.back().c_str(), O_RDONLY | O_CLOEXEC);
    }
    buffer_.erase(0, buffer_.size() - ahead_.size());
    const std::size_t size = buffer_.size();
    buffer_.resize(size + kBlock);
    const ssize_t added = read(fd_, buffer_.data() + size, kBlock);
    if (added < 0) {
      throw std::system_error(errno, std::generic_category(), files_.back());
    }
    buffer_.resize(size + static_cast<std::size_t>(added));
    ahead_ = buffer_;
    read_ += static_cast<std::uint64_t>(added);
    if (added == 0) {
      close(std::exchange(fd_, -1));
      files_.pop_back();
    }
    if (bar_ && Clock::now() - drawn_ > std::chrono::milliseconds(100)) {
      DrawBar();
    }
  }
  if (files_.empty() && drawn_ != begun_) {
    std::fputs("\r\033[K", stderr);
    drawn_ = begun_;
  }
  return ahead_;
}

void Input::DrawBar() {
  constexpr std::uint64_t kWidth = 40;
  drawn_ = Clock::now();
  const std::chrono::duration<double> seconds = drawn_ - begun_;
  const double megabytes = static_cast<double>(read_) / 1e6;
  std::fprintf(stderr, "\r%.0f MB, %.0f MB/s ", megabytes, megabytes / seconds.count());
  if (expected_ > 0) {
    const auto done = static_cast<std::size_t>(std::min(kWidth, kWidth * read_ / expected_));
    const std::string bar = std::string(done, '#') + std::string(kWidth - done, '.');
    std::fprintf(stderr, "[%s] %d %%", bar.c_str(), static_cast<int>(100 * done / kWidth));
  }
  std::fputs("\033[K", stderr);
}
