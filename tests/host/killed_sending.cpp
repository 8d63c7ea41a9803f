// Takes the place of sendmsg in a process that loads it first (LD_PRELOAD): the first process that
// has sent a message is killed before it can do anything else. KILLED_ONCE names the file that says
// that this has happened.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>

#include <cstdlib>

extern "C" ssize_t sendmsg(int sock, const msghdr* message, int flags) {
  using SendMessage = ssize_t (*)(int, const msghdr*, int);
  const auto next = reinterpret_cast<SendMessage>(dlsym(RTLD_NEXT, "sendmsg"));
  const ssize_t sent = next(sock, message, flags);
  if (open(std::getenv("KILLED_ONCE"), O_WRONLY | O_CREAT | O_EXCL, 0600) != -1) {
    raise(SIGKILL);
  }
  return sent;
}
