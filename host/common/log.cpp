#include "host/common/log.h"

#include <limits.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

void Log(const char* level, const std::string& text) {
  const std::time_t now = std::time(nullptr);
  std::tm date;
  gmtime_r(&now, &date);
  char time[32];
  std::strftime(time, sizeof(time), "%Y-%m-%dT%H:%M:%SZ", &date);
  WriteIfRoom(STDERR_FILENO,
              std::string(time) + " dns_proxy_host " + level + ": " + Printable(text) + "\n");
}

std::string Printable(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return text;
}

std::string Joined(const std::vector<std::string>& texts, const std::string& separator) {
  std::string joined;
  for (const std::string& text : texts) {
    joined += (joined.empty() ? "" : separator) + text;
  }
  return joined;
}

bool WriteIfRoom(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    // A pipe that is reported writable takes PIPE_BUF bytes at once. The descriptor itself is not
    // made non-blocking: others (the user's shell) share it.
    fd_set room;
    FD_ZERO(&room);
    FD_SET(fd, &room);
    timeval atOnce = {0, 0};
    if (select(fd + 1, nullptr, &room, nullptr, &atOnce) != 1) {
      return false;
    }
    const ssize_t written = write(fd, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
    if (written <= 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}
