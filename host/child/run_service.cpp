#include "host/child/run_service.h"

#if defined(__linux__)
#include <malloc.h>
#endif
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>
#include <system_error>
#include <thread>

#include "dns_proxy_mac/proxy/dns_proxy.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "host/child/gate.h"
#include "host/common/descriptors.h"
#include "host/common/port.h"

namespace {

// Both are glibc's own; elsewhere neither is needed.
void SetMemoryLimits() {
#if defined(__GLIBC__)
  // A few hundred requests come and go under load. What they leave is kept: with the limit of 128
  // KiB it would be given back to the system and faulted in again and again.
  mallopt(M_TRIM_THRESHOLD, 4 * 1024 * 1024);

  // What new threads get was read from the stack limit when this process was started. Well below
  // the 40 MB above which the service's second wait for an ended thread would fault.
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 8 * 1024 * 1024);
  pthread_setattr_default_np(&attributes);
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
void HandOver(const User& user, const Trace& trace, SharedMemory& shared, int channel) {
  SendDescriptor(channel, g_SockToClientApps);
  try {
    DropRights(user);
    // Only now: a thread that was there before would keep rights of its own.
    std::thread([&shared, channel, fd = trace.fd()] {
      TakeDescriptors(channel, fd);
      Leave(shared, kExitFailure, "the parent has gone");
    }).detach();
  } catch (const Failure& failure) {
    Leave(shared, failure.status, failure.why);
  } catch (const std::system_error& error) {
    Leave(shared, kExitFailure, std::string("no thread: ") + error.what());
  }
}

}  // namespace

void RunService(const std::vector<std::string>& servers,
                const std::vector<std::pair<std::string, std::string>>& names, const User& user,
                const Trace& trace, SharedMemory& shared, int channel, int lastChannel) noexcept {
  setsid();  // without the terminal, if there is one: it takes input from its own processes
  KeepDescriptors(FD_SETSIZE, {channel, lastChannel, trace.fd()});
  SetMemoryLimits();
  OpenGate(shared);
  if (shared.guarded) {
    g_QueryID = static_cast<unsigned short>(std::random_device()());
  }
  LookAfterLines([&] {
    const bool bound = IsBoundToThePort(g_SockToClientApps);
    if (bound) {
      EnlargeQueues();
      HandOver(user, trace, shared, channel);
    }
    return bound;
  });
  char parentHasClosed = 0;
  recv(channel, &parentHasClosed, 1, 0);
  close(lastChannel);  // this lets the port go
  const bool served = StartDnsSrv(servers, names);
  Leave(shared, kExitFailure,
        served ? "the service has ended" : "the service could not be started");
}
