#include "dns_proxy_mac/proxy/dispatch.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "dns_proxy_mac/proxy/answers.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "dns_proxy_mac/proxy/socket_address.h"
#include "dns_proxy_mac/proxy/trace.h"

namespace {

// Past the end of the list: no method is left.
void AnswerNoSuchName(unsigned short id, const RequestTable::Position& position) {
  const DnsRequest& request = *position->second;
  TraceFrom("TryNextDNSQueryMethod")(" no more DNS methods, send no such name response\n");

  unsigned char response[kMaxMessageSize];
  MakeNoSuchNameResponse(request.QueryBuf, request.iQueryLen, request.AppQueryID, response);
  if (SendDatagram(LoadSocket(g_SockToClientApps), response, request.iQueryLen,
                   request.ClientAddr) == -1) {
    TraceFrom("TryNextDNSQueryMethod")("TryNextDNSQueryMethod: id: %u, sendto failed\n", id);
  }
  g_DnsRequestTable.Delete(position);
}

// The host map knows the name: `record` is its answer.
void AnswerFromHostMap(unsigned short id, const RequestTable::Position& position,
                       const HostRespData& record) {
  const DnsRequest& request = *position->second;

  // Beside the stored query and not in it: the other worker may be sending those very bytes.
  unsigned char answer[kMaxMessageSize];
  std::memcpy(answer, request.QueryBuf, static_cast<std::size_t>(request.iQueryLen));
  const int length =
      MakeHostAnswer(answer, request.iQueryLen, record, request.AppQueryID, request.QueryType);

  TraceFrom("TryNextDNSQueryMethod")(" find %s from hostmap, ip:%s, req id:%d\n",
                                     request.strDomain.c_str(), Ipv4Text(record.Address).text, id);

  if (SendDatagram(LoadSocket(g_SockToClientApps), answer, length, request.ClientAddr) == -1) {
    TraceFrom("TryNextDNSQueryMethod")("DNS service: sendto for host map failed\n");
  }
  g_DnsRequestTable.Delete(position);
}

// The server's turn: the request stays, its position too, so that the answer can be matched to it.
void ForwardToServer(unsigned short id, const RequestTable::Position& position,
                     const sockaddr_in& serverAddr) {
  const DnsRequest& request = *position->second;
  if (SendDatagram(LoadSocket(g_SockToDNSServers), request.QueryBuf, request.iQueryLen,
                   serverAddr) == -1) {
    // The application gets no answer and no other server is asked: by design, its resolver asks
    // again.
    std::printf("TryNextDNSQueryMethod: id: %u,sendto failed: %u\n", id,
                static_cast<unsigned>(errno));
    g_DnsRequestTable.Delete(position);
  }
}

}  // namespace

void TryNextDNSQueryMethod(unsigned short id, bool bReasonIsTimeout) {
  TraceFrom("TryNextDNSQueryMethod")("TryNextDNSQueryMethod: id: %d, bReasonIsTimeout:%d\n", id,
                                     bReasonIsTimeout ? 1 : 0);

  RequestTable::Position position;
  if (!g_DnsRequestTable.Find(id, position)) {
    // The identifier stands in the place of a name too: the line has one for it and none is known.
    TraceFrom("TryNextDNSQueryMethod")("TryNextDNSQueryMethod: %u: id: %u, request not found\n", id,
                                       id);
    return;
  }
  DnsRequest& request = *position->second;
  const unsigned char methodIndex = MethodIndex(request);
  const std::size_t methodCount = request.vecDnsMethods.size();
  TraceFrom("TryNextDNSQueryMethod")(" CurrentDNSMethodIndex: %d, DnsListSize:%d\n", methodIndex,
                                     static_cast<int>(methodCount));

  // First, is there a method left? The count is taken to 16 bits, by design.
  if (methodIndex >= static_cast<unsigned short>(methodCount)) {
    AnswerNoSuchName(id, position);
    return;
  }
  const DNSMethodInfo& method = request.vecDnsMethods[methodIndex];
  std::printf(
      "**********hostmap****TryNextDNSQueryMethod: iCurrentDNSMethodType:%d(0: dns, 1:hostmap)\n",
      method.iDNSMethodType);

  // Second, a server.
  if (method.iDNSMethodType == DNS_METHOD_DNSSERVER) {
    ForwardToServer(id, position, method.serverAddr);
    return;
  }

  // Third, the host map. A query that leaves no room for the record is a miss.
  if (method.iDNSMethodType == DNS_METHOD_HOSTMAP) {
    HostRespData* record = nullptr;
    if (request.iQueryLen <= kMaxHostAnswerQuery && g_Hostmaps.Find(request.strDomain, record)) {
      AnswerFromHostMap(id, position, *record);
      return;
    }
    AdvanceMethodIndex(request, methodIndex);
    TryNextDNSQueryMethod(id, false);
    return;
  }

  // A type that nobody knows: the request is left as it is.
}
