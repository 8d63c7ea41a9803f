// The smallest hosting process that the client tests can talk to.
//   client_test_host [--server ADDRESS]... [--map NAME=ADDRESS]...
//
// Blocks for as long as the service runs; 1 when it could not be started, 2 for a bad command line.
#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dns_proxy_mac/proxy/dns_proxy.h"

int main(int argc, char** argv) {
  std::vector<std::string> servers;
  std::vector<std::pair<std::string, std::string>> hostMaps;
  for (int i = 1; i < argc; i += 2) {
    const std::string_view option = argv[i];
    const std::string value = i + 1 < argc ? argv[i + 1] : "";
    const std::size_t equals = value.find('=');
    if (option == "--server" && !value.empty()) {
      servers.push_back(value);
    } else if (option == "--map" && equals != std::string::npos) {
      hostMaps.emplace_back(value.substr(0, equals), value.substr(equals + 1));
    } else {
      std::fprintf(stderr, "client_test_host: bad argument: %s\n", argv[i]);
      return 2;
    }
  }
  setvbuf(stdout, nullptr, _IOLBF, 0);
  const bool served = StartDnsSrv(servers, hostMaps);
  // Threads may be running: no destructor, no exit handler.
  _exit(served ? 0 : 1);
}
