#include "host/parent/service_process.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "host/child/run_service.h"
#include "host/common/descriptors.h"
#include "host/common/port.h"

ServiceProcess::ServiceProcess(const Trace& trace, const User& user, bool guarded, int port)
    : trace_(trace),
      user_(user),
      port_(port),
      shared_(static_cast<SharedMemory*>(mmap(nullptr, sizeof(SharedMemory), PROT_READ | PROT_WRITE,
                                              MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
  if (shared_ == MAP_FAILED) {
    throw SystemFailure("no shared memory");
  }
  new (shared_) SharedMemory();
  shared_->guarded = guarded;
}

ServiceProcess::~ServiceProcess() {
  if (process_ != 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
}

void ServiceProcess::Start(const Configuration& configuration) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
    throw SystemFailure("no channel to a child process");
  }
  close(channel_);
  channel_ = ends[0];
  shared_->received = 0;
  std::memset(shared_->why, 0, sizeof(shared_->why));
  why_.clear();
  const pid_t process = fork();
  if (process == 0) {
    RunService(configuration.servers, configuration.names, user_, trace_, *shared_, port_, ends[1]);
  }
  close(ends[1]);
  if (process == -1) {
    throw SystemFailure("no child process");
  }
  process_ = process;
}

void ServiceProcess::Ask() const {
  const sockaddr_in itself = DnsAddress(htonl(INADDR_LOOPBACK));
  sendto(port_, "", 1, MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&itself), sizeof(itself));
}

void ServiceProcess::RenewTrace() const { SendDescriptor(channel_, trace_.fd()); }

void ServiceProcess::Kill(const std::string& why) {
  if (process_ != 0 && why_.empty()) {
    why_ = why;
    kill(process_, SIGKILL);
  }
}

std::optional<Failure> ServiceProcess::Reap() {
  char byte = 0;
  if (recv(channel_, &byte, 1, MSG_DONTWAIT) == 0) {  // nobody is at its other end any more
    close(channel_);
    channel_ = -1;
  }
  int status = 0;
  while (process_ != 0 && waitpid(process_, &status, WNOHANG | WUNTRACED) == process_) {
    if (WIFSTOPPED(status)) {
      Kill("service was stopped by a signal");
      continue;
    }
    process_ = 0;
    // Bounded: a child that was taken over may have written anything.
    std::string said(shared_->why, sizeof(shared_->why));
    said.erase(std::min(said.find('\0'), said.size()));
    const bool exited = WIFEXITED(status);
    const int number = exited ? WEXITSTATUS(status) : WTERMSIG(status);
    const std::string how = exited ? "service left with status " : "service was ended by signal ";
    return Failure{exited ? number : kExitDone, !why_.empty()   ? why_
                                                : !said.empty() ? said
                                                                : how + std::to_string(number)};
  }
  return std::nullopt;
}
