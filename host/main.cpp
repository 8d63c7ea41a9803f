// dns_proxy_host: the hosting process of the local DNS proxy.
//
// Reads and validates everything, then hands over to the supervisor, which runs the service in a
// child process and keeps it answering.
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "host/configuration.h"
#include "host/descriptors.h"
#include "host/exit_status.h"
#include "host/log.h"
#include "host/options.h"
#include "host/port.h"
#include "host/rights.h"
#include "host/service_output.h"
#include "host/signals.h"
#include "host/status.h"
#include "host/supervisor.h"
#include "host/trace.h"
#include "host/unix_socket.h"

namespace {

// Descriptors above this number are left: no service hands out so many.
constexpr int kMaxInherited = 65536;

void Host(const Options& options) {
  // What the starting process left open is none of ours.
  KeepDescriptors(std::min(getdtablesize(), kMaxInherited));

  // Everything that can be wrong, before anything runs.
  const User user = FindUser(options.user);
  static Trace trace(options.trace, options.traceSize, options.traceKeep);  // as `stdout` is
  options.check ? trace.TryOpen() : trace.Open();
  SendOutputTo(trace);
  const Configuration configuration = LoadConfiguration(options);
  CheckPort();
  if (options.check) {
    Log("info", "everything is in order");
    return;
  }

  const int statusListener = options.socket.empty() ? -1 : ListenUnix(options.socket);
  const std::unique_ptr<const char, int (*)(const char*)> goesWithUs(
      statusListener == -1 ? nullptr : options.socket.c_str(), unlink);
  CatchSignals();
  KeepParentRights();
  Supervisor(options, configuration, user, trace, statusListener).Run();
  Log("info", "stopped");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const Options options = ParseOptions(argc, argv);
    if (options.status) {
      PrintStatus(options.socket, options.json);
    } else {
      Host(options);
    }
    return kExitDone;
  } catch (const Failure& failure) {
    Log("error", failure.why);
    return failure.status;
  }
}
