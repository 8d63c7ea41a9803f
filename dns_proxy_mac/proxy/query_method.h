// One way to answer a query, and the order in which the ways are tried.
#ifndef DNS_PROXY_MAC_PROXY_QUERY_METHOD_H_
#define DNS_PROXY_MAC_PROXY_QUERY_METHOD_H_

#include <netinet/in.h>

#include <vector>

// DNSMethodInfo::iDNSMethodType.
inline constexpr int DNS_METHOD_DNSSERVER = 0;  // forward to the server in serverAddr
inline constexpr int DNS_METHOD_HOSTMAP = 1;    // answer from g_Hostmaps

struct DNSMethodInfo {
  int iDNSMethodType;
  sockaddr_in serverAddr;  // port and address in network order; all zero for the host map
  int iTimeoutMs;          // milliseconds; carried and read by nothing: no wait has a time-out
};
static_assert(sizeof(sockaddr_in) == 16, "requests and answers rely on 16 bytes an address");

// Order of the entries = order of trial. As the service fills it: the host map first (when there
// are mappings), then the servers in the hosting process's order.
using DNSMethodList = std::vector<DNSMethodInfo>;

// The host-map entry: every byte zero but the type.
DNSMethodInfo HostMapMethod();

// The entry for the server at `address` (dotted decimal), port 53, 1000 milliseconds. A text that
// is no such address is not refused: inet_addr's all-ones value, 255.255.255.255, is stored for it.
// serverAddr's length byte, where the platform has one, stays zero.
DNSMethodInfo DnsServerMethod(const char* address);

#endif  // DNS_PROXY_MAC_PROXY_QUERY_METHOD_H_
