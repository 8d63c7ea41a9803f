#include "host/common/descriptors.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {

// A byte, which has no meaning, and room beside it for one descriptor (unix(7), SCM_RIGHTS).
struct Message {
  char byte = 0;
  iovec part = {&byte, 1};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr whole = {nullptr, 0, &part, 1, control, CMSG_LEN(sizeof(int)), 0};
};

// Makes `fd` what `by` has been; nothing if that is -1.
void Replace(int fd, int by) {
  dup2(by, fd);
  close(by);
}

}  // namespace

void KeepDescriptors(int end, std::initializer_list<int> kept) {
  int opened = STDIN_FILENO;
  while (opened >= 0 && opened <= STDERR_FILENO) {
    opened = open("/dev/null", O_RDWR);  // the last one is closed with the rest
  }
  for (int fd = STDERR_FILENO + 1; fd < end; ++fd) {
    if (std::ranges::find(kept, fd) == kept.end()) {
      close(fd);
    }
  }
}

void UnblockTerminals() {
  for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
    if (const char* const terminal = ttyname(fd)) {
      Replace(fd, open(terminal, O_WRONLY | O_NONBLOCK | O_NOCTTY));
    }
  }
}

void SendDescriptor(int channel, int fd) {
  Message message;
  cmsghdr* const header = CMSG_FIRSTHDR(&message.whole);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  std::memcpy(CMSG_DATA(header), &fd, sizeof(fd));
  sendmsg(channel, &message.whole, MSG_DONTWAIT);
}

void TakeDescriptors(int channel, int fd) {
  for (;;) {
    Message message;
    if (recvmsg(channel, &message.whole, 0) <= 0) {
      return;
    }
    if (const cmsghdr* const header = CMSG_FIRSTHDR(&message.whole)) {
      int taken = -1;
      std::memcpy(&taken, CMSG_DATA(header), sizeof(taken));
      Replace(fd, taken);
    }
  }
}
