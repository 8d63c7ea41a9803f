#include "host/parent/service_process.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

#include "host/child/run_service.h"
#include "host/common/channel.h"
#include "host/common/failure.h"

ServiceProcess::ServiceProcess(Trace& trace, const User& user, bool guarded)
    : trace_(trace),
      user_(user),
      guarded_(guarded),
      shared_(static_cast<SharedMemory*>(mmap(nullptr, sizeof(SharedMemory), PROT_READ | PROT_WRITE,
                                              MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
  if (shared_ == MAP_FAILED) {
    throw SystemFailure("no shared memory");
  }
  new (shared_) SharedMemory();
}

ServiceProcess::~ServiceProcess() {
  if (process_ != 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  munmap(shared_, sizeof(SharedMemory));
}

void ServiceProcess::Start(const Configuration& configuration,
                           const std::vector<unsigned char>& probe) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
    throw SystemFailure("no channel to a child process");
  }
  std::memset(shared_->why, 0, sizeof(shared_->why));
  why_.clear();
  process_ = fork();
  if (process_ == 0) {
    RunService({configuration.servers, configuration.names, user_, trace_, *shared_, guarded_,
                probe, ends[1], channel_});
  }
  close(ends[1]);
  if (process_ == -1) {
    process_ = 0;
    close(ends[0]);
    throw SystemFailure("no child process");
  }
  // Now the child alone keeps the port, and may let it go.
  close(channel_);
  channel_ = ends[0];
  send(channel_, "", 1, 0);
}

bool ServiceProcess::KeepsPort() const {
  // Asked of the system: a child may be killed before it could say what it has sent.
  char byte = 0;
  return recv(channel_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 1;
}

void ServiceProcess::RenewTrace() const { SendDescriptor(channel_, trace_.fd()); }

void ServiceProcess::Kill(const std::string& why) {
  if (process_ != 0 && why_.empty()) {
    why_ = why;
    kill(process_, SIGKILL);
  }
}

std::optional<int> ServiceProcess::Reap() {
  int status = 0;
  while (process_ != 0 && waitpid(process_, &status, WNOHANG | WUNTRACED) == process_) {
    if (!WIFSTOPPED(status)) {
      process_ = 0;
      return status;
    }
    Kill("service was stopped by a signal");
  }
  return std::nullopt;
}

std::string ServiceProcess::Reason(int status) const {
  // Bounded: a child that was taken over may have written anything.
  const std::string said(shared_->why, std::find(shared_->why, std::end(shared_->why), '\0'));
  if (!why_.empty() || !said.empty()) {
    return why_.empty() ? said : why_;
  }
  return WIFSIGNALED(status) ? "service was ended by signal " + std::to_string(WTERMSIG(status))
                             : "service left with status " + std::to_string(WEXITSTATUS(status));
}
