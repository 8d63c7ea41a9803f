#include "host/child/run_service.h"

#if defined(__linux__)
#include <malloc.h>
#endif
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <mutex>
#include <random>
#include <system_error>
#include <thread>

#include "dns_proxy_mac/proxy/dns_proxy.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "host/child/gate.h"
#include "host/child/output.h"
#include "host/common/channel.h"
#include "host/common/descriptors.h"
#include "host/common/failure.h"
#include "host/common/port.h"

namespace {

// The workers may be running: no destructor, no handler.
[[noreturn]] void Leave(SharedMemory& shared, int status, const std::string& why) {
  static std::mutex leaving;
  leaving.lock();  // for good: of two threads that want to leave, the first gives the reason
  why.copy(shared.why, sizeof(shared.why) - 1);
  _exit(status);
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

bool IsBoundToThePort(int sock) {
  sockaddr_in bound = {};
  socklen_t length = sizeof(bound);
  return getsockname(sock, reinterpret_cast<sockaddr*>(&bound), &length) == 0 &&
         bound.sin_family == AF_INET && bound.sin_port == htons(kDnsPort);
}

// As much room as the system gives without further rights for what comes while a worker is busy or
// waits for a processor: a flood fills the queue and would push out what comes behind it.
void EnlargeQueues() {
  constexpr int kWanted = 1024 * 1024;  // bytes
  for (const int sock : {g_SockToClientApps, g_SockToDNSServers}) {
    setsockopt(sock, SOL_SOCKET, SO_RCVBUF, &kWanted, sizeof(kWanted));
  }
}

// The parent keeps the port from now on, and the right to take one is not needed any more.
void HandOver(const ServiceTask& task) {
  SendDescriptor(task.channel, g_SockToClientApps);
  try {
    DropRights(task.user);
    // Only now: a thread that was there before would keep rights of its own.
    std::thread([&task] {
      TakeDescriptors(task.channel, task.trace.fd());
      Leave(task.shared, kExitFailure, "the parent has gone");
    }).detach();
  } catch (const Failure& failure) {
    Leave(task.shared, failure.status, failure.why);
  } catch (const std::system_error& error) {
    Leave(task.shared, kExitFailure, std::string("no thread: ") + error.what());
  }
}

}  // namespace

void RunService(const ServiceTask& task) noexcept {
  setsid();  // without the terminal, if there is one: it takes input from its own processes
  KeepDescriptors(FD_SETSIZE, {task.channel, task.lastChannel, task.trace.fd()});
  LimitThreadStacks();
  KeepFreedMemory();
  Gate gate(task.shared, task.guarded, task.probe,
            [&task](const std::string& why) { Leave(task.shared, kExitFailure, why); });
  // cppcheck-suppress danglingLifetime  // this function does not return
  Gate::current_ = &gate;
  if (task.guarded) {
    g_QueryID = static_cast<unsigned short>(std::random_device()());
  }
  LookAfterLines([&task] {
    if (!IsBoundToThePort(g_SockToClientApps)) {
      return false;
    }
    EnlargeQueues();
    HandOver(task);
    return true;
  });
  char parentHasClosed = 0;
  recv(task.channel, &parentHasClosed, 1, 0);
  close(task.lastChannel);  // this lets the port go
  const bool served = StartDnsSrv(task.servers, task.names);
  Leave(task.shared, kExitFailure,
        served ? "the service has ended" : "the service could not be started");
}
