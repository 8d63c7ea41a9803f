#include "dns_proxy_mac/proxy/query_path.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <utility>

#include "dns_proxy_mac/proxy/dispatch.h"
#include "dns_proxy_mac/proxy/dns_message.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "dns_proxy_mac/proxy/socket_address.h"
#include "dns_proxy_mac/proxy/trace.h"

namespace {

// Where a reverse look-up starts: behind the end of any list of up to 159 methods, so that it is
// answered "no such name" at once and names of local networks never leave the machine.
constexpr unsigned char kReverseLookupMethodIndex = 159;

// Anywhere in the name and in lower case only: X.IN-ADDR.ARPA is forwarded like any other name.
bool IsReverseLookup(const char* domain) { return std::strstr(domain, ".in-addr.arpa") != nullptr; }

}  // namespace

bool RecvAndProcessPacketsFromLocalApps(int sock) {
  char domain[kDomainTextSize];
  domain[0] = '\0';                      // ExtractDomain ends every text but the empty one
  unsigned char query[kMaxMessageSize];  // nothing reads behind what was received
  ReceivedAddress sender = {};
  socklen_t senderLength = sizeof(sender);

  if (sock == -1) {
    TraceFrom("RecvAndProcessPacketsFromLocalApps")(
        "RecvAndProcessPacketsFromLocalApps: socket fd is invalid\n");
    return false;
  }
  const int length = static_cast<int>(
      recvfrom(sock, query, sizeof(query), 0, reinterpret_cast<sockaddr*>(&sender), &senderLength));
  if (length == -1) {
    TraceFrom("RecvAndProcessPacketsFromLocalApps")(
        "RecvAndProcessPacketsFromLocalApps: recv nothing...\n");
    return false;
  }
  const AddressText from = ApplicationText(sender);
  TraceFrom("RecvAndProcessPacketsFromLocalApps")("FromAPP: received %d data from %s\n", length,
                                                  from.text);

  // Is it a query that can be served? A datagram that cannot be served ends the query thread
  // (docs/deliberate-rules.md).
  if (length < kDnsHeaderSize) {
    TraceFrom("RecvAndProcessPacketsFromLocalApps")("FromAPP: query too short from %s\n",
                                                    from.text);
    return false;
  }
  const DNSHeader header = ReadHeader(query);
  const DNSHeader* const pDNSHeader = &header;
  const unsigned short questionCount = _OSSwapInt16(pDNSHeader->QuestionCount);
  TraceFrom("RecvAndProcessPacketsFromLocalApps")(" pDNSHeader QuestionCount :%d\n", questionCount);
  if (questionCount != 1) {
    TraceFrom("RecvAndProcessPacketsFromLocalApps")(
        "FromAPP: QuestionCount invalid: %d, from: %s\n", questionCount, from.text);
    return false;
  }
  unsigned short questionType = 0;
  unsigned short questionClass = 0;
  ExtractDomain(query + kDnsHeaderSize, length - kDnsHeaderSize, domain, kDomainTextSize,
                questionType, questionClass);
  if (domain[0] == '\0') {
    TraceFrom("RecvAndProcessPacketsFromLocalApps")("FromAPP: domain is empty, from: %s\n",
                                                    from.text);
    return false;
  }
  TraceFrom("RecvAndProcessPacketsFromLocalApps")(" received dns request............%s\n", domain);

  const PendingRequests::Pass pass(g_DnsRequestTable.mapRequests, Worker::kQuery);

  // A request of its own, with its own copy of the methods, under the proxy's next identifier. The
  // identifier travels in machine order and is read back the same way; the application's stays as
  // it came.
  const unsigned short id = TakeQueryID();
  std::unique_ptr<DnsRequest> request(new DnsRequest);
  request->QueryID = id;
  request->AppQueryID = pDNSHeader->ID;
  request->CurrentDNSMethodIndex = IsReverseLookup(domain) ? kReverseLookupMethodIndex : 0;
  request->iRecvLen = length;
  request->ClientAddr = StoredAddress(sender);
  request->strDomain = domain;
  request->QueryType = questionType;
  request->QueryClass = questionClass;
  request->vecDnsMethods = g_DnsMethodList;
  request->bFlag = false;

  std::memcpy(query, &id, sizeof(id));
  const auto received = static_cast<std::size_t>(length);
  std::memcpy(request->QueryBuf, query, received);
  std::memset(request->QueryBuf + received, 0, sizeof(request->QueryBuf) - received);
  request->iQueryLen = length;

  // When the identifier still belongs to a pending request this one is dropped, and the dispatch
  // below acts on the older one: by design.
  g_DnsRequestTable.Add(std::move(request));
  TraceFrom("RecvAndProcessPacketsFromLocalApps")("FromAPP: the request domain is %s, id:%d\n",
                                                  domain, id);
  TryNextDNSQueryMethod(id, false);
  return true;
}
