#include "host/parent/configuration.h"

#include <optional>

#include "host/common/failure.h"
#include "host/common/files.h"
#include "host/common/log.h"
#include "host/common/text.h"
#include "host/parent/static_names.h"
#include "host/parent/upstreams.h"

namespace {

// Reverse look-ups are told apart by a position of 159 in the list of methods: it must not be
// reached by real ones.
constexpr std::size_t kMaxServers = 100;

}  // namespace

std::vector<std::pair<std::string, std::string>> LoadNames(const Options& options) {
  StaticNames names;
  for (const std::string& map : options.maps) {
    names.AddMapping(map);
  }
  for (const std::string& file : options.hostsFiles) {
    const std::optional<std::string> text = ReadFile(file);
    if (!text) {
      throw Failure{kExitBadInput, file + ": cannot be read, or is not a regular file"};
    }
    names.AddHosts(*text, file);
  }
  for (const std::string& duplicate : names.duplicates) {
    Log("warning", "given twice: " + duplicate);
  }
  if (names.ipv6Lines > 0) {
    Log("info", "hosts files: " + std::to_string(names.ipv6Lines) + " IPv6 lines skipped");
  }
  std::vector<std::pair<std::string, std::string>> loaded;
  for (const auto& [name, entry] : names.names) {
    loaded.emplace_back(name, entry.address);
  }
  Log("info", "static names: " + std::to_string(loaded.size()));
  return loaded;
}

std::vector<std::string> LoadServers(const Options& options) {
  for (const std::string& server : options.servers) {
    if (const char* const fault = ServerFault(server)) {
      throw Failure{kExitBadInput, "--server " + server + ": " + fault};
    }
  }
  if (options.servers.size() > kMaxServers) {
    throw Failure{kExitBadInput, "--server: too many servers"};
  }
  const bool local = options.servers.empty();
  std::vector<std::string> loaded = local ? ReadLocalUpstreams() : options.servers;
  Log("info", std::string("upstream servers") + (local ? " from /etc/resolv.conf" : "") + ": " +
                  Joined(loaded));
  return loaded;
}
