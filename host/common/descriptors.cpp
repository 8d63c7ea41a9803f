#include "host/common/descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

void KeepDescriptors(int end, std::initializer_list<int> kept) {
  int opened = STDIN_FILENO;
  while (opened >= 0 && opened <= STDERR_FILENO) {
    opened = open("/dev/null", O_RDWR);  // the last one is closed with the rest
  }
  for (int fd = STDERR_FILENO + 1; fd < end; ++fd) {
    if (std::find(kept.begin(), kept.end(), fd) == kept.end()) {
      close(fd);
    }
  }
}

void UnblockTerminals() {
  for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
    const char* const terminal = ttyname(fd);
    const int opened = terminal == nullptr ? -1 : open(terminal, O_WRONLY | O_NONBLOCK | O_NOCTTY);
    if (opened != -1) {
      dup2(opened, fd);
      close(opened);
    }
  }
}
