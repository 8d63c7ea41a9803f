// A pending request for tests, every field of it filled.
#ifndef TESTS_SUPPORT_REQUESTS_H_
#define TESTS_SUPPORT_REQUESTS_H_

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>

#include "dns_proxy_mac/proxy/dns_request.h"
#include "tests/support/messages.h"
#include "tests/support/socket_addresses.h"

namespace support {

// Who has asked, unless a test says otherwise.
inline const sockaddr_in kApplication = Ipv4Address("127.0.0.1", 40000);

// As the query path makes it of `query`, which is stored under the service's identifier `id`: at
// the first of `methods`.
inline std::unique_ptr<DnsRequest> MakeRequest(unsigned short id, const Bytes& query,
                                               const std::string& name, unsigned short type,
                                               const DNSMethodList& methods) {
  std::unique_ptr<DnsRequest> request(new DnsRequest);
  request->QueryID = id;
  request->AppQueryID = IdOf(query);
  request->CurrentDNSMethodIndex = 0;
  request->iRecvLen = static_cast<int>(query.size());
  request->ClientAddr = AsSockaddr(kApplication);
  const Bytes stored = UnderProxyId(query, id);
  std::fill(std::copy(stored.begin(), stored.end(), request->QueryBuf), std::end(request->QueryBuf),
            0);
  request->iQueryLen = static_cast<int>(query.size());
  request->strDomain = name;
  request->QueryType = type;
  request->QueryClass = kClassInternet;
  request->vecDnsMethods = methods;
  request->bFlag = false;
  return request;
}

}  // namespace support

#endif  // TESTS_SUPPORT_REQUESTS_H_
