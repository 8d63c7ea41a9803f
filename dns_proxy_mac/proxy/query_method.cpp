#include "dns_proxy_mac/proxy/query_method.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstring>

DNSMethodInfo HostMapMethod() {
  DNSMethodInfo method;
  std::memset(&method, 0, sizeof(method));
  method.iDNSMethodType = DNS_METHOD_HOSTMAP;
  return method;
}

DNSMethodInfo DnsServerMethod(const char* address) {
  DNSMethodInfo method;
  std::memset(&method, 0, sizeof(method));
  method.iDNSMethodType = DNS_METHOD_DNSSERVER;
  method.serverAddr.sin_family = AF_INET;
  method.serverAddr.sin_port = htons(53);
  method.serverAddr.sin_addr.s_addr = inet_addr(address);
  method.iTimeoutMs = 1000;
  return method;
}
