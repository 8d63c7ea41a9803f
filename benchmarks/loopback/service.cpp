// The service in a process of its own, as a host runs it: 100 host mappings and one server.
//
//   service [--trace-off | --large-buffer]
//
// --trace-off: standard output is opened for reading, so that every printf is refused before it
// formats anything. --large-buffer: standard output is written 64 KiB at a time.
#if defined(__linux__)
#include <malloc.h>
#endif

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "benchmarks/support/loopback_socket.h"
#include "benchmarks/support/messages.h"
#include "dns_proxy_mac/proxy/dns_proxy.h"

int main(int argc, char** argv) {
  const std::string option = argc > 1 ? argv[1] : "";
  if (option == "--trace-off" && std::freopen("/dev/null", "r", stdout) == nullptr) {
    benchmarks::Fail("/dev/null");
  }
  static char buffer[65536];
  if (option == "--large-buffer" && std::setvbuf(stdout, buffer, _IOFBF, sizeof(buffer)) != 0) {
    benchmarks::Fail("setvbuf");
  }
#if defined(__GLIBC__)
  mallopt(M_TRIM_THRESHOLD, 4 * 1024 * 1024);  // as dns_proxy_host does
#endif
  std::vector<std::pair<std::string, std::string>> mappings;
  for (int i = 1; i < 100; ++i) {
    mappings.emplace_back("host" + std::to_string(i) + ".example.com", "192.0.2.1");
  }
  mappings.emplace_back(benchmarks::kMappedName, benchmarks::kMappedAddress);
  StartDnsSrv({"127.0.0.2"}, mappings);
  return 1;  // it ends only when it fails
}
