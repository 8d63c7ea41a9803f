#include "host/common/line_writer.h"

#include <limits.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>

namespace {

// How much of `bytes` has gone to `fd` without waiting. A pipe that is reported writable takes
// PIPE_BUF bytes (macOS: 512) at once. The descriptor itself is not made non-blocking: others (the
// user's shell) share it.
std::size_t WriteIfRoom(int fd, std::string_view bytes) {
  const std::size_t size = bytes.size();
  while (!bytes.empty()) {
    fd_set room;
    FD_ZERO(&room);
    FD_SET(fd, &room);
    timeval atOnce = {0, 0};
    const std::size_t part = std::min<std::size_t>(bytes.size(), PIPE_BUF);
    const ssize_t written =
        select(fd + 1, nullptr, &room, nullptr, &atOnce) == 1 ? write(fd, bytes.data(), part) : 0;
    if (written <= 0) {
      break;
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return size - bytes.size();
}

}  // namespace

bool LineWriter::Write(int fd, std::string_view lines) {
  rest_.erase(0, WriteIfRoom(fd, rest_));
  const std::size_t written = rest_.empty() ? WriteIfRoom(fd, lines) : 0;
  if (written > 0) {
    rest_ = lines.substr(written);
  }
  return written > 0;
}
