// One pending query, from its acceptance to its answer.
#ifndef DNS_PROXY_MAC_PROXY_DNS_REQUEST_H_
#define DNS_PROXY_MAC_PROXY_DNS_REQUEST_H_

#include <sys/socket.h>

#include <string>

#include "dns_proxy_mac/proxy/dns_message.h"
#include "dns_proxy_mac/proxy/query_method.h"

// Made and filled on the query thread. Once RequestTable::Add has stored it both workers may look
// at it at the same time: from then on every field is constant but CurrentDNSMethodIndex, which is
// read and advanced only through the two functions below.
//
// Default construction sets strDomain and vecDnsMethods and nothing else.
struct DnsRequest {
  unsigned short QueryID;               // the proxy's identifier, machine order; the table's key
  unsigned short AppQueryID;            // the application's identifier: two bytes as they came
  unsigned char CurrentDNSMethodIndex;  // position in vecDnsMethods of the method being tried
  int iRecvLen;                         // bytes received; read by nothing
  sockaddr ClientAddr;                  // the application, 16 bytes as the receive call gave them
  unsigned char QueryBuf[kMaxMessageSize];  // the query under QueryID; zero behind it
  int iQueryLen;                            // bytes of QueryBuf in use
  std::string strDomain;                    // the question's name as ExtractDomain gave it
  unsigned short QueryType;                 // machine order
  unsigned short QueryClass;                // machine order; read by nothing
  DNSMethodList vecDnsMethods;              // this request's own copy of g_DnsMethodList
  bool bFlag;                               // false; read by nothing
};
static_assert(sizeof(sockaddr) == 16, "ClientAddr holds an IPv4 socket address and no more");

// The position of `request`, which is in the table. Either worker.
inline unsigned char MethodIndex(const DnsRequest& request) {
  return __atomic_load_n(&request.CurrentDNSMethodIndex, __ATOMIC_ACQUIRE);
}

// Moves `request`, which is in the table, from the position `methodIndex` to the next one; 255 is
// followed by 0. It stays where it is when the other worker has moved it already: no method is
// skipped. Either worker.
inline void AdvanceMethodIndex(DnsRequest& request, unsigned char methodIndex) {
  const auto next = static_cast<unsigned char>(methodIndex + 1);
  __atomic_compare_exchange_n(&request.CurrentDNSMethodIndex, &methodIndex, next, false,
                              __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
}

#endif  // DNS_PROXY_MAC_PROXY_DNS_REQUEST_H_
