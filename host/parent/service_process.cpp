#include "host/parent/service_process.h"

#if defined(__linux__)
#include <malloc.h>
#endif
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <system_error>
#include <thread>

#include "dns_proxy_mac/proxy/dns_proxy.h"
#include "host/child/service_output.h"
#include "host/common/descriptors.h"
#include "host/common/exit_status.h"
#include "host/common/port.h"

namespace {

// What goes along the line of parent and child: a byte, which has no meaning, and room beside it for
// one descriptor (unix(7), SCM_RIGHTS).
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

// Does nothing when nobody is at the other end. Does not wait.
void SendFile(int line, int file) {
  Message message;
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  std::memcpy(CMSG_DATA(header), &file, sizeof(file));
  sendmsg(line, &message, MSG_DONTWAIT);
}

// Sends the socket that the service has bound.
void SendPort(int line) {
  for (int fd = STDERR_FILENO + 1; fd < FD_SETSIZE; ++fd) {
    sockaddr_in bound;
    socklen_t length = sizeof(bound);
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length) == 0 &&
        bound.sin_family == AF_INET && bound.sin_port == htons(kDnsPort)) {
      SendFile(line, fd);
      return;
    }
  }
}

// The child's thread of its own: puts each file that comes in the place of the one behind `trace`,
// at once for all threads that write to it. Returns when the parent has gone.
void TakeFiles(int line, int trace) {
  for (;;) {
    Message message;
    if (recvmsg(line, &message, 0) <= 0) {
      return;
    }
    if (const cmsghdr* const header = CMSG_FIRSTHDR(&message)) {
      int file = -1;
      std::memcpy(&file, CMSG_DATA(header), sizeof(file));
      dup2(file, trace);
      close(file);
    }
  }
}

// What new threads get was read from the stack limit when this process was started; elsewhere than
// on Linux it does not depend on the limit.
void LimitThreadStacks() {
#if defined(__linux__)
  // Well below the 40 MB above which the service's second wait for an ended thread would fault.
  constexpr std::size_t kMaxThreadStack = 8 * 1024 * 1024;
  pthread_attr_t attributes;
  std::size_t size = 0;
  if (pthread_getattr_default_np(&attributes) == 0 &&
      pthread_attr_getstacksize(&attributes, &size) == 0 && size > kMaxThreadStack) {
    pthread_attr_setstacksize(&attributes, kMaxThreadStack);
    pthread_setattr_default_np(&attributes);
  }
#endif
}

// A few hundred requests come and go under load. What they leave is kept: with glibc's own limit of
// 128 KiB it would be given back to the system and faulted in again and again.
void KeepFreedMemory() {
#if defined(__GLIBC__)
  constexpr int kKept = 4 * 1024 * 1024;  // bytes a heap
  mallopt(M_TRIM_THRESHOLD, kKept);
#endif
}

}  // namespace

ServiceProcess::ServiceProcess(Trace& trace, const User& user, std::string probeName)
    : trace_(trace),
      user_(user),
      probeName_(std::move(probeName)),
      shared_(static_cast<Shared*>(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                        MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
  if (shared_ == MAP_FAILED) {
    throw SystemFailure("no shared memory");
  }
  new (shared_) Shared();
}

ServiceProcess::~ServiceProcess() {
  if (process_ != 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  munmap(shared_, sizeof(Shared));
}

void ServiceProcess::Start(const Configuration& configuration) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
    throw SystemFailure("no line to a child process");
  }
  std::memset(shared_->why, 0, sizeof(shared_->why));
  why_.clear();
  process_ = fork();
  if (process_ == 0) {
    Run(configuration, ends[1]);
  }
  close(ends[1]);
  if (process_ == -1) {
    process_ = 0;
    close(ends[0]);
    throw SystemFailure("no child process");
  }
  // Now the child alone keeps the port, and may let it go.
  close(line_);
  line_ = ends[0];
  send(line_, "", 1, 0);
}

void ServiceProcess::Run(const Configuration& configuration, int line) noexcept {
  setsid();  // without the terminal, if there is one: it takes input from its own processes
  KeepDescriptors(FD_SETSIZE, {line, line_, trace_.fd()});
  LimitThreadStacks();
  KeepFreedMemory();
  const ServiceWatch watch = {probeName_, &shared_->passes, [this, line] { HoldsPort(line); },
                              [this](const std::string& why) { Leave(kExitFailure, why); }};
  WatchOutput(watch);
  char parentHasClosed = 0;
  recv(line, &parentHasClosed, 1, 0);
  close(line_);  // the last child's: this lets the port go
  const bool served = StartDnsSrv(configuration.servers, configuration.names);
  Leave(kExitFailure, served ? "the service has ended" : "the service could not be started");
}

void ServiceProcess::HoldsPort(int line) {
  SendPort(line);
  try {
    DropRights(user_);
    // Only now: a thread that was there before would keep rights of its own.
    std::thread([this, line] {
      TakeFiles(line, trace_.fd());
      Leave(kExitFailure, "the parent has gone");
    }).detach();
  } catch (const Failure& failure) {
    Leave(failure.status, failure.why);
  } catch (const std::system_error& error) {
    Leave(kExitFailure, std::string("no thread: ") + error.what());
  }
}

void ServiceProcess::Leave(int status, const std::string& why) {
  leaving_.lock();  // for good: of two threads that want to leave, the first gives the reason
  why.copy(shared_->why, sizeof(shared_->why) - 1);
  // The workers may be running: no destructor, no handler.
  _exit(status);
}

bool ServiceProcess::KeepsPort() const {
  // Asked of the system: a child may be killed before it could say what it has sent.
  char byte = 0;
  return recv(line_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 1;
}

void ServiceProcess::RenewTrace() const { SendFile(line_, trace_.fd()); }

void ServiceProcess::Kill(const std::string& why) {
  if (process_ != 0 && why_.empty()) {
    why_ = why;
    kill(process_, SIGKILL);
  }
}

std::optional<std::string> ServiceProcess::Ended(bool served) {
  int status = 0;
  while (process_ != 0 && waitpid(process_, &status, WNOHANG | WUNTRACED) == process_) {
    if (WIFSTOPPED(status)) {
      Kill("service was stopped by a signal");
      continue;
    }
    process_ = 0;
    // Bounded: a child that was taken over may have written anything.
    const std::string said(shared_->why, std::find(shared_->why, std::end(shared_->why), '\0'));
    if (!served && WIFEXITED(status) && WEXITSTATUS(status) == kExitNoRight) {
      throw Failure{kExitNoRight, said};
    }
    if (!why_.empty() || !said.empty()) {
      return why_.empty() ? said : why_;
    }
    return WIFSIGNALED(status) ? "service was ended by signal " + std::to_string(WTERMSIG(status))
                               : "service left with status " + std::to_string(WEXITSTATUS(status));
  }
  return std::nullopt;
}
