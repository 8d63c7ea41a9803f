#include "host/log.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <ctime>

std::string Printable(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return text;
}

bool WriteIfRoom(int fd, const char* bytes, std::size_t size) {
  while (size > 0) {
    // A pipe that is reported writable takes PIPE_BUF bytes at once. The descriptor itself is not
    // made non-blocking: others (the user's shell) share it.
    pollfd room = {fd, POLLOUT, 0};
    if (poll(&room, 1, 0) != 1 || (room.revents & POLLOUT) == 0) {
      return false;
    }
    const ssize_t written = write(fd, bytes, std::min<std::size_t>(size, PIPE_BUF));
    if (written <= 0) {
      return false;
    }
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

void Log(Level level, const char* format, ...) {
  constexpr const char* kNames[] = {"info", "warning", "error"};
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);

  const std::time_t now = std::time(nullptr);
  std::tm date;
  gmtime_r(&now, &date);
  char time[32];
  std::strftime(time, sizeof(time), "%Y-%m-%dT%H:%M:%SZ", &date);
  const std::string line = std::string(time) + " dns_proxy_host " +
                           kNames[static_cast<int>(level)] + ": " + Printable(text) + "\n";
  WriteIfRoom(STDERR_FILENO, line.data(), line.size());
}
