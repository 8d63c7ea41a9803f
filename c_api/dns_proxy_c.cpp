#include "dns_proxy_mac/dns_proxy_c.h"

#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "dns_proxy_mac/proxy/dns_proxy.h"

namespace {

bool HoldsNull(const char* const* strings, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    if (strings[i] == nullptr) {
      return true;
    }
  }
  return false;
}

}  // namespace

bool dns_proxy_start(const char* const* servers, size_t server_count, const char* const* names,
                     const char* const* addresses, size_t map_count) {
  if (HoldsNull(servers, server_count) || HoldsNull(names, map_count) ||
      HoldsNull(addresses, map_count)) {
    return false;
  }
  // No exception may leave: the caller's language has none, or others.
  try {
    const std::vector<std::string> serverList(servers, servers + server_count);
    std::vector<std::pair<std::string, std::string>> hostMap;
    hostMap.reserve(map_count);
    for (size_t i = 0; i < map_count; ++i) {
      hostMap.emplace_back(names[i], addresses[i]);
    }
    return StartDnsSrv(serverList, hostMap);
  } catch (const std::exception&) {
    return false;
  }
}

void dns_proxy_local_servers(char* server1, char* server2, char* server3) {
  get_localdns_dnsproxy(server1, server2, server3);
}
