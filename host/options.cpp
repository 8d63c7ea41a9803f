#include "host/options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>

#include "host/common/log.h"

namespace {

#if defined(__APPLE__)
#define ROOTS_FOLDER "/var/run"
#define USERS_FOLDER "TMPDIR"
#else
#define ROOTS_FOLDER "/run"
#define USERS_FOLDER "XDG_RUNTIME_DIR"
#endif

// Where the one who tells and the one who asks meet without --socket. Empty for a user without a
// runtime folder.
std::string DefaultSocket() {
  const char* const users = std::getenv(USERS_FOLDER);
  const std::string folder = geteuid() == 0 ? ROOTS_FOLDER : users == nullptr ? "" : users;
  return folder.empty() ? "" : folder + "/dns_proxy_host/status";
}

}  // namespace

Options ParseOptions(int argc, char** argv) {
  Options options;
  CLI::App app(
      "Runs the local DNS proxy on UDP 127.0.0.1 port 53 and keeps it answering until\n"
      "it is stopped by SIGTERM or SIGINT. SIGHUP reads the files again.",
      "dns_proxy_host");
  app.get_formatter()->column_width(28);
  // What an option is shown with is its option_text: the library's own text has all its limits.
  const auto option = [&](const char* name, auto& value, const char* shown, const char* meaning) {
    return app.add_option(name, value, meaning)->type_name(shown)->option_text(shown);
  };

  const auto repeatable = [&](const char* name, std::vector<std::string>& values, const char* shown,
                              const char* meaning) {
    option(name, values, shown, meaning)->expected(1)->take_all()->group("Servers and names");
  };
  repeatable("--server", options.servers, "ADDRESS",
             "An upstream server, IPv4; repeatable, in the order\n"
             "of trial (default: those of /etc/resolv.conf)");
  repeatable("--map", options.maps, "NAME=ADDRESS", "A static name; repeatable");
  repeatable("--hosts", options.hostsFiles, "FILE",
             "Static names from a hosts(5) file; repeatable");

  const char* const service = "Service";
  option("--user", options.user, "NAME",
         "Who it runs as once it holds the port (default:\n"
         "nobody if started as root, else no change)")
      ->group(service);
  option("--probe-interval", options.probeInterval, "TIME",
         "Milliseconds between probes while queries come\n(default: 250)")
      ->check(CLI::Range(20, 60000))
      ->group(service);
  app.add_flag("--unguarded", options.unguarded,
               "Keep no datagram away from it: a bad one ends it,\n"
               "and it is started again")
      ->group(service);

  const char* const trace = "Trace";
  option("--trace", options.trace, "FILE", "A file, or - for standard output (default: none)")
      ->group(trace);
  option("--trace-size", options.traceSize, "BYTES",
         "Rotate the file above this size (default: 10MB)")
      ->transform(CLI::AsSizeValue(false))
      ->check(CLI::Range(1.0, 1e15))  // below zero is something huge by now
      ->group(trace);
  option("--trace-keep", options.traceKeep, "NUMBER", "Rotated files to keep (default: 3)")
      ->check(CLI::Range(0, 99))
      ->group(trace);

  const char* const telling = "Status";
  CLI::Option* const status =
      app.add_flag("--status", options.status, "Tell what the running host does, and leave")
          ->group(telling);
  CLI::Option* const watch =
      option("--watch", options.watch, "[SECONDS]", "As a page that renews itself, every second")
          ->expected(0, 1)
          ->default_str("1")
          ->check(CLI::Range(0.1, 3600.0))
          ->needs(status)
          ->group(telling);
  app.add_flag("--json", options.json, "As JSON")
      ->needs(status)
      ->excludes(watch)
      ->option_text(" ")
      ->group(telling);
  options.socket = DefaultSocket();
  const CLI::Option* const socket = option("--socket", options.socket, "PATH",
                                           "The Unix socket to tell it at and to ask; '' for\n"
                                           "none (default: dns_proxy_host/status, in " ROOTS_FOLDER
                                           " for\n"
                                           "root and in $" USERS_FOLDER " for others)")
                                        ->group(telling);

  const char* const other = "Other";
  app.add_flag("--check", options.check,
               "Validate everything, say which servers and how\n"
               "many names, and leave")
      ->group(other);
  app.set_version_flag("--version", std::string("dns_proxy_host ") + DNS_PROXY_MAC_VERSION,
                       "Print the version, and leave")
      ->group(other);
  app.set_help_flag("--help,-h", "Print this, and leave")->group(other);

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
