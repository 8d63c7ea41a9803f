#include "host/options.h"

#include <CLI/CLI.hpp>

#include "host/exit_status.h"
#include "host/log.h"

std::optional<int> ParseOptions(int argc, char** argv, Options& options) {
  CLI::App app(
      "Runs the local DNS proxy on UDP 127.0.0.1 port 53 and keeps it answering until it is "
      "stopped by SIGTERM or SIGINT. SIGHUP reads the files again.",
      "dns_proxy_host");
  app.set_version_flag("--version", std::string("dns_proxy_host ") + DNS_PROXY_MAC_VERSION);

  app.add_option("--server", options.servers,
                 "Upstream server, IPv4; repeatable, in the order of trial (default: the servers "
                 "of /etc/resolv.conf that are not on this machine)")
      ->type_name("ADDRESS")
      ->expected(1)
      ->take_all();
  app.add_option("--map", options.maps, "Static name; repeatable")
      ->type_name("NAME=ADDRESS")
      ->expected(1)
      ->take_all();
  app.add_option("--hosts", options.hostsFiles, "Static names from a hosts(5) file; repeatable")
      ->type_name("FILE")
      ->expected(1)
      ->take_all();
  app.add_option("--user", options.user,
                 "Who the service runs as once it holds the port (default: nobody if started as "
                 "root, else no change)")
      ->type_name("NAME");

  app.add_option("--trace", options.trace, "The service's trace: a file, or - for standard output")
      ->type_name("FILE");
  options.traceSize = 10 * 1024 * 1024;
  app.add_option("--trace-size", options.traceSize, "Rotate the trace file above this size")
      ->transform(CLI::AsSizeValue(false))
      ->type_name("BYTES")
      ->default_str("10MB");
  app.add_option("--trace-keep", options.traceKeep, "Rotated trace files to keep")
      ->default_val(3)
      ->check(CLI::Range(0, 99));

  int interval = 250;
  app.add_option("--probe-interval", interval,
                 "Milliseconds between probes while queries come; every 2000 when none do")
      ->default_val(250)
      ->check(CLI::Range(20, 60000));

  CLI::Option* const socket =
      app.add_option("--socket", options.socket, "Unix socket to tell the status at")
          ->type_name("PATH");
  app.add_flag("--check", options.check, "Validate everything, say what would run, and exit");
  CLI::Option* const status =
      app.add_flag("--status", options.status, "Print the status of the host that runs at --socket")
          ->needs(socket);
  app.add_flag("--json", options.json, "The status as JSON")->needs(status);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
      return app.exit(error);  // help or the version
    }
    Log(Level::kError, "%s (--help lists the options)", error.what());
    return kExitBadInput;
  }
  options.probeInterval = Milliseconds(interval);
  return std::nullopt;
}
