#include "dns_proxy_mac/proxy/response_path.h"

#include <cerrno>
#include <cstring>

#include "dns_proxy_mac/proxy/dispatch.h"
#include "dns_proxy_mac/proxy/dns_message.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "dns_proxy_mac/proxy/socket_address.h"
#include "dns_proxy_mac/proxy/trace.h"

namespace {

constexpr int kAnswerCountOffset = 6;

// The answer count, bytes 6 and 7, read low byte first and signed. By design: an answer whose
// big-endian count has a low byte of 128 or more counts as one without records.
short AnswerCountAsRead(const unsigned char* answer) {
  return static_cast<short>(answer[kAnswerCountOffset] | (answer[kAnswerCountOffset + 1] << 8));
}

// The server that `request` was last sent to, as text, or what no sender is: for a position outside
// its list (a forged answer has hit a reverse look-up) nothing, for the host map's "::", which its
// entry's address of zero reads as and no IPv4 sender matches.
AddressText ExpectedServer(const DnsRequest& request, unsigned char methodIndex) {
  if (methodIndex >= request.vecDnsMethods.size()) {
    return {};
  }
  return ServerText(request.vecDnsMethods[methodIndex].serverAddr);
}

// One of the datagram's last four bytes, `back` from the end, as a signed number.
int ByteFromEnd(const unsigned char* answer, int length, int back) {
  return static_cast<signed char>(answer[length - back]);
}

}  // namespace

bool RecvAndProcessPacketsFromDNSServer(int sock) {
  unsigned char answer[kMaxMessageSize];  // nothing reads behind what was received
  ReceivedAddress sender = {};
  socklen_t senderLength = sizeof(sender);

  if (sock == -1) {
    TraceFrom("RecvAndProcessPacketsFromDNSServer")(
        " RecvAndProcessPacketsFromDNSServer: socket fd is invalid\n");
    return false;
  }
  const int length = static_cast<int>(recvfrom(
      sock, answer, sizeof(answer), 0, reinterpret_cast<sockaddr*>(&sender), &senderLength));
  if (length == -1) {
    TraceFrom("RecvAndProcessPacketsFromDNSServer")(
        " RecvAndProcessPacketsFromDNSServer: recv nothing...\n");
    return false;
  }
  const AddressText from = ServerText(sender);
  TraceFrom("RecvAndProcessPacketsFromDNSServer")(" FromDNSServer: recv %d data from %s\n", length,
                                                  from.text);
  if (length < kDnsHeaderSize) {
    // A runt ends the answer thread and so the service, by design: the hosting process starts it
    // anew.
    TraceFrom("RecvAndProcessPacketsFromDNSServer")(
        " FromDNSServer: do_answer: answer too short: %d, from: %s\n", length, from.text);
    return false;
  }

  // Whose answer is it? The proxy's identifier travels in machine order.
  unsigned short id;
  std::memcpy(&id, answer, sizeof(id));
  const PendingRequests::Pass pass(g_DnsRequestTable.mapRequests, Worker::kAnswer);
  RequestTable::Position position;
  if (!g_DnsRequestTable.Find(id, position)) {
    TraceFrom("RecvAndProcessPacketsFromDNSServer")(" rsp from: %s, id: %u, request not found\n",
                                                    from.text, id);
    return true;
  }
  DnsRequest& request = *position->second;

  // Is it from the server that was asked? The address decides, the port plays no part.
  const unsigned char methodIndex = MethodIndex(request);
  const AddressText expected = ExpectedServer(request, methodIndex);
  if (std::strcmp(expected.text, from.text) != 0) {
    TraceFrom("RecvAndProcessPacketsFromDNSServer")(
        " id: %u, dns_index:%d current dns rsp from: %s, should from: %s, it seems error\n", id,
        methodIndex, from.text, expected.text);
    return true;
  }

  // No records: the next method, whatever the response code says.
  if (AnswerCountAsRead(answer) <= 0) {
    TraceFrom("RecvAndProcessPacketsFromDNSServer")(
        " rsp from: %s, id: %u, for : %s, no such name\n", from.text, id,
        request.strDomain.c_str());
    AdvanceMethodIndex(request, methodIndex);
    TryNextDNSQueryMethod(id, false);
    return true;
  }

  // Records: the answer goes to the application under the application's identifier.
  std::memcpy(answer, &request.AppQueryID, sizeof(request.AppQueryID));
  if (SendDatagram(LoadSocket(g_SockToClientApps), answer, length, request.ClientAddr) == -1) {
    TraceFrom("RecvAndProcessPacketsFromDNSServer")(" id: %u: sendto failed: %u\n", id,
                                                    static_cast<unsigned>(errno));
  }
  // The last four bytes are the address when the last record is an A record, and are traced as if
  // they were whatever it is.
  TraceFrom("RecvAndProcessPacketsFromDNSServer")(
      " domain %s received answer %d.%d.%d.%d from %s, we have to delete id:%d\n",
      request.strDomain.c_str(), ByteFromEnd(answer, length, 4), ByteFromEnd(answer, length, 3),
      ByteFromEnd(answer, length, 2), ByteFromEnd(answer, length, 1), from.text, id);
  g_DnsRequestTable.Delete(position);
  return true;
}
