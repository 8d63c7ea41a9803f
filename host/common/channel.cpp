#include "host/common/channel.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace {

// A byte, which has no meaning, and room beside it for one descriptor (unix(7), SCM_RIGHTS).
struct Message : msghdr {
  Message() : msghdr() {
    msg_iov = &part;
    msg_iovlen = 1;
    msg_control = control;
    msg_controllen = CMSG_LEN(sizeof(int));
  }

  char byte = 0;
  iovec part = {&byte, 1};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
};

}  // namespace

void SendDescriptor(int channel, int fd) {
  Message message;
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  std::memcpy(CMSG_DATA(header), &fd, sizeof(fd));
  sendmsg(channel, &message, MSG_DONTWAIT);
}

void TakeDescriptors(int channel, int fd) {
  for (;;) {
    Message message;
    if (recvmsg(channel, &message, 0) <= 0) {
      return;
    }
    if (const cmsghdr* const header = CMSG_FIRSTHDR(&message)) {
      int taken = -1;
      std::memcpy(&taken, CMSG_DATA(header), sizeof(taken));
      dup2(taken, fd);
      close(taken);
    }
  }
}
