#include "host/child/run_service.h"

#if defined(__linux__)
#include <malloc.h>
#endif
#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <random>
#include <system_error>
#include <thread>

#include "dns_proxy_mac/proxy/dns_proxy.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "host/child/gate.h"
#include "host/common/descriptors.h"

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

// The terminal, if there is one, takes input from its own processes. To leave its session would do as
// well, but Linux shares the processors out by session first: with one of its own the service has
// waited half a second and more for its turn, beside a busy one.
void GiveUpTerminal() {
  const int terminal = open("/dev/tty", O_RDONLY);
  ioctl(terminal, TIOCNOTTY);
  close(terminal);
}

}  // namespace

void RunService(const std::vector<std::string>& servers,
                const std::vector<std::pair<std::string, std::string>>& names, const User& user,
                const Trace& trace, SharedMemory& shared, int port, int channel) noexcept {
  GiveUpTerminal();
  KeepDescriptors(FD_SETSIZE, {port, channel, trace.fd()});
  SetMemoryLimits();
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
  OpenGate(shared, port, channel);
  if (shared.guarded) {
    g_QueryID = static_cast<unsigned short>(std::random_device()());
  }
  const bool served = StartDnsSrv(servers, names);
  Leave(shared, kExitFailure,
        served ? "the service has ended" : "the service could not be started");
}
