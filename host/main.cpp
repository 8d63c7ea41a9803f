// dns_proxy_host: the hosting process of the local DNS proxy.
//
// Reads and validates everything, then hands over to the supervisor, which runs the service in a
// child process and keeps it answering.
#include "host/configuration.h"
#include "host/descriptors.h"
#include "host/exit_status.h"
#include "host/log.h"
#include "host/options.h"
#include "host/port.h"
#include "host/rights.h"
#include "host/service_output.h"
#include "host/status_socket.h"
#include "host/supervisor.h"
#include "host/trace_file.h"

namespace {

int Fail(int status, const std::string& why) {
  Log(Level::kError, "%s", why.c_str());
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (const std::optional<int> status = ParseOptions(argc, argv, options)) {
    return *status;
  }
  if (options.status) {
    return PrintStatus(options.socket, options.json);
  }

  // What the starting process left open is none of ours.
  OpenStandardDescriptors();
  KeepDescriptors({}, 3);
  static TraceSink sink(-1);
  if (!SendOutputTo(sink)) {
    return Fail(kExitFailure, "no memory for an output stream");
  }

  // Everything that can be wrong, before anything is touched.
  std::string error;
  User user;
  Configuration configuration;
  TraceFile trace(options.trace, options.traceSize, options.traceKeep);
  if (!FindUser(options.user, user, error) || !trace.CanOpen(error)) {
    return Fail(kExitBadInput, error);
  }
  if (const int status = LoadConfiguration(options, configuration); status != kExitDone) {
    return status;
  }
  if (const int taken = TryPort(); taken != 0) {
    return Fail(PortExitStatus(taken), ExplainPort(taken));
  }
  if (options.check) {
    Log(Level::kInfo, "everything is in order");
    return kExitDone;
  }

  StatusSocket status;
  if ((!options.socket.empty() && !status.Listen(options.socket, error)) || !trace.Open(error)) {
    return Fail(kExitFailure, error);
  }
  sink.Attach(trace.fd());
  if (!KeepParentRights()) {
    return Fail(kExitFailure, "rights could not be given up");
  }
  return Supervisor(options, configuration, user, trace, sink, status).Run();
}
