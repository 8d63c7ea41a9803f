#include "fuzz/ladder_model.h"

#include <algorithm>
#include <cstring>

#include "dns_proxy_mac/proxy/service_state.h"
#include "fuzz/require.h"
#include "tests/support/requests.h"

namespace fuzz {

namespace {

// The longest query that leaves room for a record of 16 bytes and a zero byte in 8192.
constexpr std::size_t kLongestMapped = 8192 - 17;

bool IsMapped(std::string name) {
  for (char& character : name) {
    if (character >= 'A' && character <= 'Z') {
      character = static_cast<char>(character - 'A' + 'a');
    }
  }
  return name == kMappedName;
}

// The query as its application sent it.
Bytes Asked(const Pending& pending) {
  return support::UnderProxyId(pending.query, pending.applicationId);
}

}  // namespace

void ResetService() {
  static const bool mapped = [] {
    std::string name = kMappedName;
    g_Hostmaps.Add(name.data(), kMappedAddress);
    return true;
  }();
  Require(mapped, "the host map is filled once");
  g_DnsRequestTable.Clear();
  g_DnsMethodList.clear();
  g_SockToClientApps = kToApplications;
  g_SockToDNSServers = kToServers;
  g_QueryID = 0;
}

std::unique_ptr<DnsRequest> RecordOf(const Pending& pending) {
  auto record =
      support::MakeRequest(pending.id, Asked(pending), pending.name, pending.type, pending.methods);
  record->CurrentDNSMethodIndex = pending.index;
  std::memcpy(&record->ClientAddr, pending.client.data(), sizeof(record->ClientAddr));
  return record;
}

void RequireTable(const std::vector<Pending>& expected) {
  Require(g_DnsRequestTable.mapRequests.size() == expected.size(),
          "the number of pending requests");
  for (const Pending& pending : expected) {
    RequestTable::Position position;
    Require(g_DnsRequestTable.Find(pending.id, position), "a request that has to be pending");
    const DnsRequest& record = *position->second;
    Require(record.QueryID == pending.id && record.AppQueryID == pending.applicationId,
            "its identifiers");
    Require(record.CurrentDNSMethodIndex == pending.index, "its position");
    Require(record.iQueryLen == static_cast<int>(pending.query.size()), "its query's length");
    Require(std::equal(pending.query.begin(), pending.query.end(), record.QueryBuf), "its query");
    Require(std::all_of(record.QueryBuf + pending.query.size(), std::end(record.QueryBuf),
                        [](unsigned char byte) { return byte == 0; }),
            "zero behind its query");
    Require(std::memcmp(&record.ClientAddr, pending.client.data(), 16) == 0, "its client");
    Require(record.strDomain == pending.name && record.QueryType == pending.type, "its question");
    Require(record.vecDnsMethods.size() == pending.methods.size(), "its methods");
  }
}

Outcome ClimbLadder(Pending pending, bool sendingFails) {
  const std::size_t methods = pending.methods.size() % 65'536;
  while (pending.index < methods) {
    const DNSMethodInfo& method = pending.methods[pending.index];
    if (method.iDNSMethodType == 0) {
      const Sending forward{kToServers, pending.query,
                            WithLengthOfFamily(support::BytesOf(method.serverAddr))};
      return {forward, sendingFails ? std::nullopt : std::optional(pending)};
    }
    if (method.iDNSMethodType != 1) {
      return {std::nullopt, pending};
    }
    if (IsMapped(pending.name) && pending.query.size() <= kLongestMapped) {
      return {
          Sending{kToApplications, support::HostAnswer(Asked(pending), pending.type, {10, 1, 2, 3}),
                  WithLengthOfFamily(pending.client)},
          std::nullopt};
    }
    ++pending.index;
  }
  return {Sending{kToApplications, support::NoSuchName(Asked(pending)),
                  WithLengthOfFamily(pending.client)},
          std::nullopt};
}

Bytes WithLengthOfFamily(const Bytes& address) {
  sockaddr generic;
  std::memcpy(&generic, address.data(), sizeof(generic));
  Bytes whole = address;
  whole.resize(generic.sa_family == AF_INET ? 16 : 28);
  return whole;
}

}  // namespace fuzz
