#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "dns_proxy_mac/proxy/dns_proxy.h"

int main(int argc, char** argv) {
  std::vector<std::string> servers(argv + 1, argv + argc);
  setvbuf(stdout, nullptr, _IOLBF, 0);
  StartDnsSrv(servers, {{"dns-proxy.internal", "127.0.0.53"}});
  return 1;
}
