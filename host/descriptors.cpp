#include "host/descriptors.h"

#include <fcntl.h>
#include <unistd.h>

void KeepDescriptors(int end, int first, int second) {
  int opened = STDIN_FILENO;
  while (opened >= 0 && opened <= STDERR_FILENO) {
    opened = open("/dev/null", O_RDWR);  // the last one is closed with the rest
  }
  for (int fd = STDERR_FILENO + 1; fd < end; ++fd) {
    if (fd != first && fd != second) {
      close(fd);
    }
  }
}
