#include "host/descriptors.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <vector>

namespace {

void CloseFrom(int first) {
#if defined(__linux__)
  if (close_range(static_cast<unsigned>(first), ~0U, 0) == 0) {
    return;
  }
#endif
  const int end = getdtablesize();
  for (int fd = first; fd < end; ++fd) {
    close(fd);
  }
}

}  // namespace

void OpenStandardDescriptors() {
  for (int fd = open("/dev/null", O_RDWR); fd != -1; fd = open("/dev/null", O_RDWR)) {
    if (fd > STDERR_FILENO) {
      close(fd);
      return;
    }
  }
}

void KeepDescriptors(std::initializer_list<std::pair<int, int>> moves, int firstFree) {
  // First out of each other's way, then to their places.
  std::vector<std::pair<int, int>> away;
  for (const auto& [from, to] : moves) {
    if (from != -1) {
      away.emplace_back(fcntl(from, F_DUPFD, firstFree), to);
    }
  }
  for (int fd = STDERR_FILENO + 1; fd < firstFree; ++fd) {
    close(fd);
  }
  for (const auto& [from, to] : away) {
    dup2(from, to);
  }
  CloseFrom(firstFree);
}
