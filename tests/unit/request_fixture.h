// What the tests of the service's parts have in common: the process-wide state, made anew for each.
#ifndef TESTS_UNIT_REQUEST_FIXTURE_H_
#define TESTS_UNIT_REQUEST_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "dns_proxy_mac/proxy/service_state.h"
#include "tests/support/dns_message_builder.h"
#include "tests/support/scripted_datagrams.h"
#include "tests/support/socket_addresses.h"
#include "tests/support/trace_capture.h"

// Two bytes as they come from the wire, in the place of an identifier.
inline unsigned short AsSent(unsigned char first, unsigned char second) {
  const unsigned char bytes[] = {first, second};
  unsigned short id;
  std::memcpy(&id, bytes, sizeof(id));
  return id;
}

// The two bytes of an identifier in machine order, as it travels to the servers and back.
inline support::Bytes OnTheWire(unsigned short id) { return support::BytesOf(id); }

// `message` under the identifier `id` of the proxy.
inline support::Bytes Under(unsigned short id, support::Bytes message) {
  const support::Bytes wire = OnTheWire(id);
  std::copy(wire.begin(), wire.end(), message.begin());
  return message;
}

class RequestFixture : public testing::Test {
 protected:
  // Descriptors that no call sees: sendto and recvfrom are scripted.
  static constexpr int kSockToApps = 801;
  static constexpr int kSockToServers = 802;

  RequestFixture() {
    ResetState();
    g_SockToClientApps = kSockToApps;
    g_SockToDNSServers = kSockToServers;
  }

  ~RequestFixture() override { ResetState(); }

  static void ResetState() {
    g_DnsRequestTable.Clear();
    g_DnsMethodList.clear();
    g_Hostmaps.Clear();
    g_SockToClientApps = 0;
    g_SockToDNSServers = 0;
    g_thread_answer = {};
    g_thread_query = {};
    g_QueryID = 0;
  }

  static void MapHost(std::string name, const char* address) {
    g_Hostmaps.Add(name.data(), address);
  }

  // The query of the request below, as the application sent it.
  static support::Bytes AppQuery(const std::string& name = "alpha.internal",
                                 unsigned short type = 1) {
    return support::DnsMessageBuilder().Id(0xABCD).Flags(0x0100).Question(name, type, 1).Build();
  }

  // A pending request under `id` as the query path makes it, at the first of `methods`.
  static DnsRequest* AddRequest(unsigned short id, const DNSMethodList& methods,
                                const std::string& name = "alpha.internal",
                                unsigned short type = 1) {
    return AddRequestFor(AppQuery(name, type), id, methods, name, type);
  }

  static DnsRequest* AddRequestFor(const support::Bytes& query, unsigned short id,
                                   const DNSMethodList& methods, const std::string& name,
                                   unsigned short type) {
    const support::Bytes stored = Under(id, query);
    auto request = std::make_unique<DnsRequest>();
    request->QueryID = id;
    request->AppQueryID = AsSent(0xAB, 0xCD);
    request->CurrentDNSMethodIndex = 0;
    request->iRecvLen = static_cast<int>(stored.size());
    request->ClientAddr = support::AsSockaddr(kApplication);
    std::memset(request->QueryBuf, 0, sizeof(request->QueryBuf));
    std::copy(stored.begin(), stored.end(), request->QueryBuf);
    request->iQueryLen = static_cast<int>(stored.size());
    request->strDomain = name;
    request->QueryType = type;
    request->QueryClass = 1;
    request->vecDnsMethods = methods;
    request->bFlag = false;
    DnsRequest* const made = request.release();
    g_DnsRequestTable.Add(made);
    return made;
  }

  // The record under `id`; null if there is none.
  static DnsRequest* Pending(unsigned short id) {
    RequestTable::Position position;
    return g_DnsRequestTable.Find(id, position) ? position->second : nullptr;
  }

  static inline const sockaddr_in kApplication = support::Ipv4Address("127.0.0.1", 40000);

  support::SentDatagrams sent_;
};

#endif  // TESTS_UNIT_REQUEST_FIXTURE_H_
