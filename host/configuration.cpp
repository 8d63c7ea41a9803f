#include "host/configuration.h"

#include "host/exit_status.h"
#include "host/log.h"
#include "host/static_names.h"
#include "host/upstreams.h"

namespace {

// Reverse look-ups are told apart by a position of 159 in the list of methods: it must not be
// reached by real ones.
constexpr std::size_t kMaxServers = 100;

constexpr std::size_t kDuplicatesNamed = 10;

std::string Joined(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) {
    joined += (joined.empty() ? "" : ", ") + text;
  }
  return joined;
}

bool LoadNames(const Options& options, Configuration& configuration) {
  StaticNames names;
  std::string error;
  for (const std::string& map : options.maps) {
    if (!names.AddMapping(map, error)) {
      Log(Level::kError, "%s", error.c_str());
      return false;
    }
  }
  for (const std::string& file : options.hostsFiles) {
    if (!names.AddHostsFile(file, error)) {
      Log(Level::kError, "%s", error.c_str());
      return false;
    }
  }
  const std::vector<std::string>& duplicates = names.duplicates();
  for (std::size_t i = 0; i < duplicates.size() && i < kDuplicatesNamed; ++i) {
    Log(Level::kWarning, "given twice: %s", duplicates[i].c_str());
  }
  if (duplicates.size() > kDuplicatesNamed) {
    Log(Level::kWarning, "given twice: %zu more names", duplicates.size() - kDuplicatesNamed);
  }
  if (names.ipv6Lines() > 0) {
    Log(Level::kInfo, "hosts files: %zu lines with IPv6 addresses skipped", names.ipv6Lines());
  }
  configuration.names = names.names();
  return true;
}

int LoadServers(const Options& options, Configuration& configuration) {
  for (const std::string& server : options.servers) {
    if (const char* const fault = ServerFault(server)) {
      Log(Level::kError, "--server %s: %s", server.c_str(), fault);
      return kExitBadInput;
    }
  }
  if (options.servers.size() > kMaxServers) {
    Log(Level::kError, "--server: more than %zu servers", kMaxServers);
    return kExitBadInput;
  }
  configuration.servers = options.servers;
  if (options.servers.empty()) {
    const LocalUpstreams local = ReadLocalUpstreams();
    if (!local.dropped.empty()) {
      Log(Level::kInfo, "%s: left out: %s", kResolvConf, Joined(local.dropped).c_str());
    }
    if (local.taken.empty()) {
      Log(Level::kError, "%s names no server that can be asked: give one with --server ADDRESS",
          kResolvConf);
      return kExitNoUpstream;
    }
    configuration.servers = local.taken;
  }
  Log(Level::kInfo, "upstream servers%s: %s; static names: %zu",
      options.servers.empty() ? " from /etc/resolv.conf" : "",
      Joined(configuration.servers).c_str(), configuration.names.size());
  return kExitDone;
}

}  // namespace

int LoadConfiguration(const Options& options, Configuration& configuration) {
  Configuration loaded;
  if (!LoadNames(options, loaded)) {
    return kExitBadInput;
  }
  const int status = LoadServers(options, loaded);
  if (status == kExitDone) {
    configuration = loaded;
  }
  return status;
}
