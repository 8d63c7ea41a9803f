#include "host/options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>

#include "host/common/log.h"

namespace {

// Where the one who tells and the one who asks meet without --socket. A user without a runtime
// folder reads in the log which variable is missing.
std::string DefaultSocket() {
#if defined(__APPLE__)
  const char* const folder = geteuid() == 0 ? "/var/run" : std::getenv("TMPDIR");
  const char* const variable = "$TMPDIR";
#else
  const char* const folder = geteuid() == 0 ? "/run" : std::getenv("XDG_RUNTIME_DIR");
  const char* const variable = "$XDG_RUNTIME_DIR";
#endif
  return std::string(folder == nullptr || *folder == '\0' ? variable : folder) +
         "/dns_proxy_host/status";
}

}  // namespace

Options ParseOptions(int argc, char** argv) {
  Options options;
  options.socket = DefaultSocket();
  CLI::App app(
      "Runs the local DNS proxy on UDP 127.0.0.1 port 53 and keeps it answering until\n"
      "it is stopped by SIGTERM or SIGINT. SIGHUP reads the files again.",
      "dns_proxy_host");
  app.get_formatter()->column_width(28);

  // What an option is shown with is its option_text: the library's own text has all its limits.
  const char* group = "Servers and names";
  const auto option = [&](const char* name, auto& value, const char* shown, const char* meaning) {
    return app.add_option(name, value, meaning)->type_name(shown)->option_text(shown)->group(group);
  };
  const auto repeatable = [&](const char* name, std::vector<std::string>& values, const char* shown,
                              const char* meaning) {
    option(name, values, shown, meaning)->expected(1)->take_all();
  };
  const auto flag = [&](const char* name, bool& value, const char* meaning) {
    return app.add_flag(name, value, meaning)->option_text(" ")->group(group);
  };
  repeatable("--server", options.servers, "ADDRESS",
             "An upstream server; repeatable, in the order of\n"
             "trial (default: the servers of /etc/resolv.conf)");
  repeatable("--map", options.maps, "NAME=ADDRESS", "A static name; repeatable");
  repeatable("--hosts", options.hostsFiles, "FILE", "Static names, as in hosts(5); repeatable");
  group = "Service";
  option("--user", options.user, "NAME",
         "Who it runs as once it holds the port (default:\n"
         "nobody if started as root, else no change)");
  option("--probe-interval", options.probeInterval, "TIME",
         "Milliseconds between probes while queries come\n(default: 250)")
      ->check(CLI::Range(20, 60000));
  flag("--unguarded", options.unguarded, "Keep no datagram away from it: a bad one ends it");
  group = "Trace";
  option("--trace", options.trace, "FILE", "A file, or - for standard output (default: none)");
  option("--trace-size", options.traceSize, "BYTES", "Rotate the file above this (default: 10MB)")
      ->transform(CLI::AsSizeValue(false))
      ->check(CLI::Range(1.0, 1e15));  // below zero is something huge by now
  option("--trace-keep", options.traceKeep, "NUMBER", "Rotated files to keep (default: 3)")
      ->check(CLI::Range(0, 99));
  group = "Status";
  CLI::Option* const status =
      flag("--status", options.status, "Tell what the running host does, and leave");
  CLI::Option* const watch =
      option("--watch", options.watch, "[SECONDS]", "As a page that renews itself, every second")
          ->expected(0, 1)
          ->default_str("1")
          ->check(CLI::Range(0.1, 3600.0))
          ->needs(status);
  flag("--json", options.json, "As JSON")->needs(status)->excludes(watch);
  const CLI::Option* const socket = option("--socket", options.socket, "PATH",
                                           "The Unix socket to tell it at and to ask; '' for\n"
                                           "none (default: see the manual page)");
  group = "Other";
  flag("--check", options.check, "Validate everything, say what would run, and leave");
  app.set_version_flag("--version", std::string("dns_proxy_host ") + DNS_PROXY_MAC_VERSION)
      ->group(group);
  app.set_help_flag("--help,-h", "Print this and leave")->group(group);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
      std::exit(app.exit(error));  // help or the version
    }
    throw Failure{kExitBadInput, std::string(error.what()) + " (--help lists the options)"};
  }
  options.socketAsked = socket->count() != 0;
  return options;
}
