// The hosting process's page: everything that a host calls, and the service's records.
#ifndef DNS_PROXY_MAC_PROXY_DNS_PROXY_H_
#define DNS_PROXY_MAC_PROXY_DNS_PROXY_H_

#include <string>
#include <utility>
#include <vector>

#include "dns_proxy_mac/proxy/dns_message.h"    // DNSHeader
#include "dns_proxy_mac/proxy/dns_request.h"    // DnsRequest
#include "dns_proxy_mac/proxy/host_table.h"     // HostRespData, HostTable
#include "dns_proxy_mac/proxy/query_method.h"   // DNSMethodInfo
#include "dns_proxy_mac/proxy/request_table.h"  // RequestTable

// Runs the local DNS proxy on UDP 127.0.0.1 port 53 and does not return while it runs.
//
// `vecDnsServers`: the upstream servers, IPv4 in dotted decimal, in the order of trial, asked on
//   port 53. A text that is no such address is listed as 255.255.255.255 and never answers.
// `vecHostMaps`: (domain name, IPv4 address) pairs that are answered at once and not forwarded, but
//   for a query of 8,176 to 8,192 bytes, in which the record has no room. Names in lower case: a
//   name with an upper-case letter is never found.
//
// False when the service could not be started (no socket, port taken or no right to it, no thread);
// what had been made so far stays. True after it was started and its answer thread has ended, which
// it does when its wait or its receive fails, or when fewer than 12 bytes come: from a server, or
// from anybody who reaches its port.
//
// Once per process: the service's state is process-wide, and the query thread may outlive the call.
// A second call, after the first has returned, is safe but no fresh start: the lists are appended
// to and never cleared, identifiers go on, what is pending stays, and the query thread of the first
// may serve beside that of the second (docs/hosting.md).
//
// There is no way to stop the service: leave the process, by _exit while its threads may be
// running. The hosting process blocks signals in the calling thread beforehand (one that is handled
// in a worker ends it) and keeps the thread stack limit below 40 MB. The answer thread is waited
// for twice: a thread that is created just then may get its handle, and is waited for in its place
// (docs/hosting.md). Blocks; any thread. Reports only by trace lines on standard output.
bool StartDnsSrv(const std::vector<std::string>& vecDnsServers,
                 const std::vector<std::pair<std::string, std::string>>& vecHostMaps);

// Copies the first three servers of /etc/resolv.conf to `dns1`, `dns2` and `dns3`: the rest of each
// line behind "nameserver" and the blanks after it, as it stands, comments and tabs included.
//
// Exactly the value's own bytes are written and no terminator: the caller passes zero-filled
// buffers with room for a whole line of the file. A buffer for which there is no server is left
// untouched, and all three are when the file cannot be read.
//
// A function of the file, for any thread. Traces every line read on standard output.
void get_localdns_dnsproxy(char* dns1, char* dns2, char* dns3);

#endif  // DNS_PROXY_MAC_PROXY_DNS_PROXY_H_
