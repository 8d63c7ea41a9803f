#include "host/common/waiting.h"

#include <signal.h>
#include <sys/select.h>

#include <algorithm>
#include <utility>

namespace {

// Written by the handler alone, which runs inside pselect alone.
volatile sig_atomic_t g_come[NSIG];

void Note(int signal) { g_come[signal] = 1; }

}  // namespace

void CatchSignals(std::initializer_list<int> noted) {
  struct sigaction action = {};
  sigfillset(&action.sa_mask);
  sigprocmask(SIG_BLOCK, &action.sa_mask, nullptr);
  action.sa_handler = Note;
  for (const int signal : noted) {
    sigaction(signal, &action, nullptr);
  }
  // A reader that has gone costs a line, not the process.
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
}

void WaitFor(std::initializer_list<int> descriptors, TimePoint until) {
  fd_set readable;
  FD_ZERO(&readable);
  for (const int fd : descriptors) {
    if (fd != -1) {
      FD_SET(fd, &readable);
    }
  }
  // Rounded up: who waits for it does not wake a moment too early and go round again.
  const auto left = std::chrono::ceil<Milliseconds>(until - Clock::now()).count();
  const auto wait = std::clamp<Milliseconds::rep>(left, 0, 3600000);
  const timespec timeout = {wait / 1000, wait % 1000 * 1000000};
  sigset_t none;
  sigemptyset(&none);
  pselect(std::max(descriptors) + 1, &readable, nullptr, nullptr, &timeout, &none);
}

bool TakeSignal(int signal) { return std::exchange(g_come[signal], 0) != 0; }
