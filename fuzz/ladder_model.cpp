#include "fuzz/ladder_model.h"

#include <algorithm>
#include <cstring>

#include "dns_proxy_mac/proxy/service_state.h"
#include "fuzz/require.h"

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

void PutApplicationId(Bytes& message, unsigned short id) {
  std::memcpy(message.data(), &id, sizeof(id));
}

Bytes NoSuchName(const Pending& pending) {
  Bytes response = {0, 0, 0x80, 0x03, 0, 1, 0, 0, 0, 0, 0, 0};
  PutApplicationId(response, pending.applicationId);
  response.insert(response.end(), pending.query.begin() + 12, pending.query.end());
  return response;
}

Bytes HostAnswer(const Pending& pending) {
  Bytes answer = pending.query;
  PutApplicationId(answer, pending.applicationId);
  answer[2] |= 0x80;
  answer[3] &= 0xF0;
  answer[6] = 0;
  answer[7] = pending.type == 28 ? 2 : 1;
  const Bytes record = {0xC0, 0x0C, 0, 1, 0, 1, 0, 1, 0x51, 0x80, 0, 4, 10, 1, 2, 3};
  answer.insert(answer.end(), record.begin(), record.end());
  return answer;
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
  std::unique_ptr<DnsRequest> record(new DnsRequest);
  record->QueryID = pending.id;
  record->AppQueryID = pending.applicationId;
  record->CurrentDNSMethodIndex = pending.index;
  record->iRecvLen = static_cast<int>(pending.query.size());
  std::memcpy(&record->ClientAddr, pending.client.data(), sizeof(record->ClientAddr));
  std::fill(std::begin(record->QueryBuf), std::end(record->QueryBuf), 0);
  std::copy(pending.query.begin(), pending.query.end(), record->QueryBuf);
  record->iQueryLen = static_cast<int>(pending.query.size());
  record->strDomain = pending.name;
  record->QueryType = pending.type;
  record->QueryClass = 1;
  record->vecDnsMethods = pending.methods;
  record->bFlag = false;
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
                            WithLengthOfFamily(AddressBytes(method.serverAddr))};
      return {forward, sendingFails ? std::nullopt : std::optional(pending)};
    }
    if (method.iDNSMethodType != 1) {
      return {std::nullopt, pending};
    }
    if (IsMapped(pending.name) && pending.query.size() <= kLongestMapped) {
      return {Sending{kToApplications, HostAnswer(pending), WithLengthOfFamily(pending.client)},
              std::nullopt};
    }
    ++pending.index;
  }
  return {Sending{kToApplications, NoSuchName(pending), WithLengthOfFamily(pending.client)},
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
