// What the tests of the service's parts have in common: the process-wide state, made anew for each.
#ifndef TESTS_UNIT_REQUEST_FIXTURE_H_
#define TESTS_UNIT_REQUEST_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "dns_proxy_mac/proxy/service_state.h"
#include "tests/support/requests.h"
#include "tests/support/scripted_datagrams.h"
#include "tests/support/trace_capture.h"

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
    return support::Query(0xABCD, name, type);
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
    DnsRequest* const made = support::MakeRequest(id, query, name, type, methods).release();
    g_DnsRequestTable.Add(made);
    return made;
  }

  // The record under `id`; null if there is none.
  static DnsRequest* Pending(unsigned short id) {
    RequestTable::Position position;
    return g_DnsRequestTable.Find(id, position) ? position->second : nullptr;
  }

  support::SentDatagrams sent_;
};

#endif  // TESTS_UNIT_REQUEST_FIXTURE_H_
