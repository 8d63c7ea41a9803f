#include "status_view/status_view.h"

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>

#include "host/common/descriptors.h"
#include "host/common/log.h"
#include "host/common/unix_socket.h"
#include "host/common/waiting.h"
#include "status_view/page.h"
#include "status_view/snapshot.h"
#include "status_view/terminal.h"

namespace {

// How long a host's answer is waited for.
constexpr int kPatience = 2000;  // milliseconds

// Bytes: more than a host ever says.
constexpr std::size_t kMaxStatus = 1024 * 1024;

// More moments than a terminal has columns.
constexpr std::size_t kMaxMoments = 1000;

// What the host at `path` says; empty or cut off if there is none.
std::string Ask(const std::string& path) {
  const int sock = ConnectUnix(path, SOCK_STREAM);
  pollfd answer = {sock, POLLIN, 0};
  std::string text;
  char bytes[4096];
  ssize_t size = 0;
  while (sock != -1 && text.size() < kMaxStatus && poll(&answer, 1, kPatience) == 1 &&
         (size = read(sock, bytes, sizeof(bytes))) > 0) {
    text.append(bytes, static_cast<std::size_t>(size));
  }
  close(sock);
  return text;
}

void Listen(History& seen, const std::string& path) {
  seen.push_back({Clock::now(), ReadSnapshot(Ask(path))});
  if (seen.size() > kMaxMoments) {
    seen.pop_front();
  }
}

// In the background a process that changes the terminal is stopped until it is in front.
void TakeSignals() {
  CatchSignals({SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGTSTP, SIGCONT, SIGWINCH});
  sigset_t background;
  sigemptyset(&background);
  sigaddset(&background, SIGTTOU);
  sigaddset(&background, SIGTTIN);
  sigprocmask(SIG_UNBLOCK, &background, nullptr);
}

// As Ctrl-Z does it to a process that does not catch the signal.
void Suspend(Terminal& terminal) {
  terminal.GiveBack();
  signal(SIGTSTP, SIG_DFL);
  raise(SIGTSTP);
  WaitFor({-1}, Clock::now() + Milliseconds(1));  // stops here, where signals come through
  TakeSignals();
  terminal.Take();
}

void WatchAsPage(const std::string& path, Clock::duration interval, History& seen) {
  const char* const noColor = std::getenv("NO_COLOR");
  const bool coloured = noColor == nullptr || *noColor == '\0';
  UnblockTerminals();
  TakeSignals();
  Terminal terminal;
  std::optional<History> paused;
  TimePoint due = seen.back().at + interval;
  while (!TakeSignal(SIGTERM) && !TakeSignal(SIGINT) && !TakeSignal(SIGHUP) &&
         !TakeSignal(SIGQUIT)) {
    if (TakeSignal(SIGTSTP)) {
      Suspend(terminal);
    }
    if (TakeSignal(SIGCONT)) {
      terminal.Take();
    }
    if (Clock::now() >= due) {
      Listen(seen, path);
      due = seen.back().at + interval;
    }
    terminal.Draw(PageLines(paused ? *paused : seen, terminal.columns(), coloured),
                  paused ? "paused: p goes on, q leaves" : "p pauses, q leaves");
    WaitFor({STDIN_FILENO}, due);
    const std::optional<char> key = terminal.Key();
    if (!key || *key == 'q') {
      return;
    }
    if (*key == 'p') {
      paused = paused ? std::nullopt : std::optional(seen);
    }
  }
}

void WatchAsLines(const std::string& path, Clock::duration interval, History& seen) {
  for (;; Listen(seen, path)) {
    const std::time_t now = std::time(nullptr);
    char time[32];
    std::strftime(time, sizeof(time), "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&now));
    if (std::printf("%s %s\n", time, OneLine(seen).c_str()) < 0 || std::fflush(stdout) != 0) {
      return;
    }
    std::this_thread::sleep_until(seen.back().at + interval);
  }
}

}  // namespace

void ShowStatus(const std::string& path, bool json, std::optional<double> watch) {
  const std::string text = Ask(path);
  History seen = {{Clock::now(), ReadSnapshot(text)}};
  if (!seen.back().told) {
    throw Failure{kExitNoHost, "no host answers at " + path +
                                   ": start one, ask as the user who has, or name its --socket"};
  }
  if (json) {
    std::fputs(text.c_str(), stdout);
  } else if (!watch) {
    for (const std::string& line : StatusLines(*seen.back().told)) {
      std::puts(line.c_str());
    }
  } else {
    const auto interval =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*watch));
    Terminal::IsThere() ? WatchAsPage(path, interval, seen) : WatchAsLines(path, interval, seen);
  }
}
