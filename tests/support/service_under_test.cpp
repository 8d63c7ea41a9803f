#include "tests/support/service_under_test.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <system_error>

#include "dns_proxy_mac/proxy/dns_proxy.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "tests/support/patience.h"
#include "tests/support/platform_calls.h"
#include "tests/support/trace_texts.h"

namespace support {

namespace {

// To the main thread: interrupt that worker. The worker gets kInterrupt, which it handles.
constexpr int kInterruptAnswerThread = SIGUSR1;
constexpr int kInterruptQueryThread = SIGUSR2;
constexpr int kInterrupt = SIGURG;

void PassOn(int signal) {
  pthread_kill(signal == kInterruptAnswerThread ? g_thread_answer : g_thread_query, kInterrupt);
}

void Ignore(int /*signal*/) {}

void Handle(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigaction(signal, &action, nullptr);
}

// A folder for each thread of the process.
std::string ThreadFolder(pid_t process) { return "/proc/" + std::to_string(process) + "/task"; }

bool IsOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

// True if a socket of this network is bound to 127.0.0.1 port 53.
bool PortIsTaken() {
  std::ifstream sockets("/proc/self/net/udp");
  const std::string text(std::istreambuf_iterator<char>(sockets), {});
  return text.find(" 0100007F:0035 ") != std::string::npos;
}

[[noreturn]] void GiveUp(const char* what) {
  std::perror(what);
  std::abort();
}

bool CallStartDnsSrv(const Plan& plan) {
#if defined(__clang__) && defined(DNS_PROXY_THREAD_SANITIZED)
  // This runtime ends the process at the second wait for one thread, before the system can refuse
  // it. So the refusal is made here.
  bool joined = false;
  const Replaced join(platform::pthread_join, [&joined](pthread_t thread, void** result) {
    if (joined) {
      return ESRCH;
    }
    joined = true;
    return platform::pthread_join.System(thread, result);
  });
#endif
  return StartDnsSrv(plan.servers, plan.hostMaps);
}

}  // namespace

struct ServiceUnderTest::Report {
  std::atomic<bool> returned;
  Outcome outcome;
};

ServiceUnderTest::ServiceUnderTest(const Plan& plan)
    : traced_(plan.traced), trace_(static_cast<int>(memfd_create("trace", MFD_CLOEXEC))) {
  void* const shared =
      mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  int leave[2];
  if (trace_ < 0 || shared == MAP_FAILED || pipe2(leave, O_CLOEXEC) != 0) {
    GiveUp("service process: trace, report or pipe");
  }
  report_ = new (shared) Report{};
  control_ = leave[1];

  std::fflush(nullptr);
  pid_ = fork();
  if (pid_ < 0) {
    GiveUp("service process: fork");
  }
  if (pid_ == 0) {
    close(control_);
    Run(plan, leave[0]);
  }
  close(leave[0]);
}

ServiceUnderTest::~ServiceUnderTest() {
  int status = 0;
  if (HasReturned()) {
    close(control_);
    waitpid(pid_, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "the service's process ended badly, wait status " << status;
  } else {
    // Still in the call: there is no way to stop the service but to end its process.
    EXPECT_FALSE(HasEnded()) << "the service's process ended by itself";
    close(control_);
    kill(pid_, SIGKILL);
    waitpid(pid_, &status, 0);
  }
  close(trace_);
  munmap(report_, sizeof(Report));
}

void ServiceUnderTest::Run(const Plan& plan, int leave) const {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int output = plan.traced ? trace_ : open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(output, STDOUT_FILENO);
  // A buffer of its own: the parent's may be in use, and glibc keeps its old manner then.
  static char buffer[BUFSIZ];
  setvbuf(stdout, buffer, plan.traced ? _IOLBF : _IOFBF, sizeof(buffer));
  Handle(kInterruptAnswerThread, PassOn);
  Handle(kInterruptQueryThread, PassOn);
  Handle(kInterrupt, Ignore);
  if (plan.beforeTheCall) {
    plan.beforeTheCall();
  }

  bool result;
  do {
    result = CallStartDnsSrv(plan);
  } while (plan.betweenCalls && plan.betweenCalls(result));

  report_->outcome = {result, IsOpen(g_SockToClientApps), IsOpen(g_SockToDNSServers),
                      g_DnsMethodList.size()};
  report_->returned.store(true);
  char byte;
  while (read(leave, &byte, 1) == -1 && errno == EINTR) {
  }
  _exit(0);
}

void ServiceUnderTest::WaitUntilStarted() const {
  // What is sent from the bind on waits for the query thread.
  ASSERT_TRUE(traced_ ? Traces(trace::kQueryThreadMade)
                      : Eventually([this] { return PortIsTaken() || HasEnded(); }) && !HasEnded());
}

bool ServiceUnderTest::HasReturned() const { return report_->returned.load(); }

Outcome ServiceUnderTest::WaitForReturn() const {
  EXPECT_TRUE(Eventually([this] { return HasReturned() || HasEnded(); }));
  EXPECT_TRUE(HasReturned()) << "StartDnsSrv has not returned";
  return report_->outcome;
}

bool ServiceUnderTest::HasEnded() const {
  siginfo_t ended = {};
  return waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 ||
         ended.si_pid != 0;
}

int ServiceUnderTest::Threads() const {
  std::error_code ended;  // then there are none
  return static_cast<int>(
      std::distance(std::filesystem::directory_iterator(ThreadFolder(pid_), ended), {}));
}

bool ServiceUnderTest::ComesToRest() const {
  return Eventually([this] {
    for (const auto& thread : std::filesystem::directory_iterator(ThreadFolder(pid_))) {
      std::string state;
      std::getline(std::ifstream(thread.path() / "stat").ignore(4096, ')'), state);
      if (!state.starts_with(" S")) {
        return false;
      }
    }
    return true;
  });
}

TraceLines ServiceUnderTest::Trace() const {
  struct stat status = {};
  fstat(trace_, &status);
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  const ssize_t count = pread(trace_, text.data(), text.size(), 0);
  text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return SplitLines(text);
}

bool ServiceUnderTest::HasTraced(const std::string& line) const {
  const TraceLines lines = Trace();
  return std::any_of(lines.begin(), lines.end(),
                     [&line](const std::string& actual) { return TraceLineMatches(line, actual); });
}

bool ServiceUnderTest::Traces(const std::string& line) const {
  return Eventually([&] { return HasTraced(line) || HasEnded(); }) && !HasEnded();
}

bool ServiceUnderTest::Interrupt(int signal, const std::string& line) const {
  return Eventually([&] {
           syscall(SYS_tgkill, pid_, pid_, signal);
           usleep(20 * 1000);
           return HasTraced(line) || HasEnded();
         }) &&
         !HasEnded();
}

bool ServiceUnderTest::InterruptAnswerThread(const std::string& line) const {
  return Interrupt(kInterruptAnswerThread, line);
}

bool ServiceUnderTest::InterruptQueryThread(const std::string& line) const {
  return Interrupt(kInterruptQueryThread, line);
}

}  // namespace support
