#include "host/signals.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

volatile sig_atomic_t g_writeEnd = -1;

void Handle(int signal) {
  const int error = errno;
  const char number = static_cast<char>(signal);
  // A full pipe has woken the loop anyway.
  [[maybe_unused]] const ssize_t written = write(g_writeEnd, &number, 1);
  errno = error;
}

}  // namespace

Signals::Signals() {
  if (pipe(ends_) != 0) {
    ends_[0] = -1;
    return;
  }
  fcntl(ends_[0], F_SETFL, O_NONBLOCK);
  fcntl(ends_[1], F_SETFL, O_NONBLOCK);
  g_writeEnd = ends_[1];

  struct sigaction action = {};
  action.sa_handler = Handle;
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) {
    sigaction(signal, &action, nullptr);
  }
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool Signals::Take(int signal) {
  char numbers[64];
  for (ssize_t size; (size = read(ends_[0], numbers, sizeof(numbers))) > 0;) {
    come_.append(numbers, static_cast<std::size_t>(size));
  }
  const std::string::size_type before = come_.size();
  come_.erase(std::remove(come_.begin(), come_.end(), static_cast<char>(signal)), come_.end());
  return come_.size() < before;
}
