#include "host/common/log.h"

#include <limits.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

namespace {

// systemd names the file that it has connected to the journal: "device:inode".
bool IsJournal(int fd) {
  const char* const named = std::getenv("JOURNAL_STREAM");
  struct stat file = {};
  return named != nullptr && fstat(fd, &file) == 0 &&
         named == std::to_string(file.st_dev) + ":" + std::to_string(file.st_ino);
}

}  // namespace

Failure SystemFailure(const std::string& what, int status) {
  return {status, what + ": " + std::strerror(errno)};
}

void Log(const char* level, const std::string& text) {
  static LineWriter writer(STDERR_FILENO, "lines");
  static const bool toJournal = IsJournal(STDERR_FILENO);
  const std::time_t now = std::time(nullptr);
  std::tm date;
  gmtime_r(&now, &date);
  char time[64];
  std::strftime(time, sizeof(time), "%Y-%m-%dT%H:%M:%SZ dns_proxy_host ", &date);
  // syslog's numbers, by the first letter: error, warning, info.
  const char* const number = *level == 'e' ? "<3>" : *level == 'w' ? "<4>" : "<6>";
  writer.Write((toJournal ? number : std::string(time) + level + ": ") + Printable(text) + "\n");
}

std::string Printable(std::string text) {
  std::ranges::replace_if(
      text, [](char c) { return c < ' ' || c > '~'; }, '?');
  return text;
}

std::string Joined(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) {
    joined += (joined.empty() ? "" : ", ") + text;
  }
  return joined;
}

void LineWriter::Write(std::string_view lines) {
  WriteRest();
  if (!rest_.empty()) {
    lost_ += static_cast<std::size_t>(std::ranges::count(lines, '\n'));
    return;
  }
  if (const std::size_t lost = std::exchange(lost_, 0)) {
    rest_ = "dns_proxy_host: " + std::to_string(lost) + " " + what_ + " lost here\n";
  }
  rest_ += lines;
  WriteRest();
}

// A pipe that is reported writable takes PIPE_BUF bytes (macOS: 512) at once. The descriptor itself
// is not made non-blocking: others (the user's shell) share it.
void LineWriter::WriteRest() {
  for (ssize_t written = 1; written > 0 && !rest_.empty();) {
    fd_set room;
    FD_ZERO(&room);
    FD_SET(fd_, &room);
    timeval atOnce = {0, 0};
    const std::size_t part = std::min<std::size_t>(rest_.size(), PIPE_BUF);
    written =
        select(fd_ + 1, nullptr, &room, nullptr, &atOnce) == 1 ? write(fd_, rest_.data(), part) : 0;
    rest_.erase(0, static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
  }
}
