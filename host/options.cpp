#include "host/options.h"

#include <CLI/CLI.hpp>
#include <cstdlib>

#include "host/common/log.h"

Options ParseOptions(int argc, char** argv) {
  Options options;
  CLI::App app(
      "Runs the local DNS proxy on UDP 127.0.0.1 port 53 and keeps it answering until it is "
      "stopped by SIGTERM or SIGINT. SIGHUP reads the files again.",
      "dns_proxy_host");
  app.set_version_flag("--version", std::string("dns_proxy_host ") + DNS_PROXY_MAC_VERSION);

  const auto repeatable = [&](const char* name, std::vector<std::string>& values, const char* value,
                              const char* meaning) {
    app.add_option(name, values, meaning)->type_name(value)->expected(1)->take_all();
  };
  repeatable("--server", options.servers, "ADDRESS",
             "Upstream server, IPv4; repeatable, in the order of trial (default: the servers of "
             "/etc/resolv.conf without loopback addresses)");
  repeatable("--map", options.maps, "NAME=ADDRESS", "Static name; repeatable");
  repeatable("--hosts", options.hostsFiles, "FILE",
             "Static names from a hosts(5) file; repeatable");
  app.add_option("--user", options.user,
                 "Who the service runs as once it holds the port (default: nobody if started as "
                 "root, else no change)")
      ->type_name("NAME");
  app.add_option("--trace", options.trace, "The service's trace: a file, or - for standard output")
      ->type_name("FILE");
  app.add_option("--trace-size", options.traceSize, "Rotate the trace file above this size")
      ->transform(CLI::AsSizeValue(false))
      ->check(CLI::Range(1.0, 1e15))  // below zero is something huge by now
      ->type_name("BYTES")
      ->default_str("10MB");
  app.add_option("--trace-keep", options.traceKeep, "Rotated trace files to keep")
      ->capture_default_str()
      ->check(CLI::Range(0, 99));
  app.add_option("--probe-interval", options.probeInterval,
                 "Milliseconds between probes while queries come; every 9000 when none do")
      ->capture_default_str()
      ->check(CLI::Range(20, 60000));
  app.add_flag(
      "--unguarded", options.unguarded,
      "Keep nothing away from the service: a bad datagram ends it, and it is started again");
  CLI::Option* const socket =
      app.add_option("--socket", options.socket, "Unix socket to tell the status at")
          ->type_name("PATH");
  app.add_flag("--check", options.check,
               "Validate everything, say which servers and how many names, and exit");
  CLI::Option* const status =
      app.add_flag("--status", options.status, "Print the status of the host that runs at --socket")
          ->needs(socket);
  app.add_flag("--json", options.json, "The status as JSON")->needs(status);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
      std::exit(app.exit(error));  // help or the version
    }
    throw Failure{kExitBadInput, std::string(error.what()) + " (--help lists the options)"};
  }
  return options;
}
