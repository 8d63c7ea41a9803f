// The service alone, its trace thrown away: what a host adds is measured against this.
//   bare_service SERVER...      and two static names
#include <string>
#include <vector>

#include "dns_proxy_mac/proxy/dns_proxy.h"

int main(int argc, char** argv) {
  return StartDnsSrv({argv + 1, argv + argc}, {{"dns-proxy.internal", "127.0.0.53"}}) ? 0 : 1;
}
