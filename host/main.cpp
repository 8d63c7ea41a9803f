// dns_proxy_host: the hosting process of the local DNS proxy.
//
// Reads and validates everything, then hands over to the supervisor, which runs the service in a
// child process and keeps it answering.
#include <signal.h>

#include <exception>
#include <optional>

#include "host/common/descriptors.h"
#include "host/common/port.h"
#include "host/parent/supervisor.h"
#include "status_view/status_view.h"

namespace {

// Descriptors from this number on are left: nobody hands out so many.
constexpr int kMaxInherited = 65536;

void Host(const Options& options) {
  // What the starting process left open is none of ours.
  KeepDescriptors(kMaxInherited);
  UnblockTerminals();

  // Everything that can be wrong, before anything runs and with the rights that are kept. The port,
  // and the name of another holder, need rights that are given up next; bad input is still reported
  // first.
  const User user = FindUser(options.user);
  std::optional<Failure> portFault;
  const int port = TakePort(portFault);
  KeepParentRights();
  static Trace trace(options.trace, options.traceSize, options.traceKeep);  // as `stdout` is
  options.check ? trace.TryOpen() : trace.Open();
  SendOutputTo(trace);
  const auto names = LoadNames(options);
  const Configuration configuration = {LoadServers(options), names};
  if (portFault) {
    throw Failure(*portFault);
  }
  CatchSignals({SIGTERM, SIGINT, SIGHUP, SIGCHLD});
  if (options.check) {
    if (options.socketAsked) {  // tried, and gone before the right to its folder is
      const StatusListener tried(options.socket, true);
    }
    DropRights(user);
    Log("info", "everything is in order");
    return;
  }
  Supervisor(options, configuration, user, trace, port).Run();
  Log("info", "stopped");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const Options options = ParseOptions(argc, argv);
    if (options.status) {
      ShowStatus(options.socket, options.json, options.watch);
    } else {
      Host(options);
    }
    return kExitDone;
  } catch (const Failure& failure) {
    Log("error", failure.why);
    return failure.status;
  } catch (const std::exception& error) {  // no memory, for one
    Log("error", error.what());
    return kExitFailure;
  }
}
