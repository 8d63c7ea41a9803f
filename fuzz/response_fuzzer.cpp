// The response path: any datagram from any address, while requests wait in every kind of place.
//
// Input: a byte of choices, then the datagram. Identifiers 0 to 6 are pending.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "dns_proxy_mac/proxy/response_path.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "fuzz/input.h"
#include "fuzz/ladder_model.h"
#include "fuzz/require.h"
#include "fuzz/scripted_run.h"
#include "tests/support/messages.h"
#include "tests/support/socket_addresses.h"

namespace {

using fuzz::Bytes;
using fuzz::Pending;
using fuzz::Require;

constexpr unsigned char kSender = 0x07;
constexpr unsigned char kSendingFails = 0x08;
constexpr unsigned char kReceivingFails = 0x10;

const DNSMethodInfo kServerA = DnsServerMethod("192.0.2.1");
const DNSMethodInfo kServerB = DnsServerMethod("192.0.2.2");

std::vector<Pending> PendingRequestsOf() {
  struct Place {
    unsigned char index;
    DNSMethodList methods;
    const char* name;
  };
  const Place places[] = {
      {0, {kServerA, kServerB}, "first.example"},
      {1, {kServerA, kServerB}, "last.example"},
      {159, {kServerA}, "1.0.0.10.in-addr.arpa"},
      {0, {HostMapMethod(), kServerA}, "at-the-host-map.example"},
      {0, {kServerA, HostMapMethod()}, fuzz::kMappedName},
      {0, {kServerA, HostMapMethod(), kServerB}, "passed.example"},
      {255, DNSMethodList(256, kServerA), "wraps.example"},
  };
  std::vector<Pending> all;
  for (const Place& place : places) {
    Pending pending;
    pending.id = static_cast<unsigned short>(all.size());
    pending.applicationId = static_cast<unsigned short>(0xA000 + all.size());
    pending.index = place.index;
    pending.query = Bytes(30 + all.size(), static_cast<unsigned char>(0x40 + all.size()));
    std::memcpy(pending.query.data(), &pending.id, sizeof(pending.id));
    pending.client = support::BytesOf(
        support::Ipv4Address("127.0.0.1", static_cast<unsigned short>(4000 + all.size())));
    pending.name = place.name;
    pending.type = 28;
    pending.methods = place.methods;
    all.push_back(pending);
  }
  return all;
}

Bytes SenderOf(unsigned char choice) {
  switch (choice & kSender) {
    case 0:
    case 1:
      return support::BytesOf(support::Ipv4Address("192.0.2.1", 53));
    case 2:
      return support::BytesOf(support::Ipv4Address("192.0.2.1", 40'000));
    case 3:
    case 4:
      return support::BytesOf(support::Ipv4Address("192.0.2.2", 53));
    case 5:
      return support::BytesOf(support::Ipv4Address("192.0.2.66", 53));
    case 6:
      return support::BytesOf(support::Ipv6Address("::", 53));
    default:
      return support::BytesOf(support::Ipv6Address("2001:db8::1", 53));
  }
}

// What identifies a server: the family's kind, and the bytes at its address's place.
Bytes ServerKey(const Bytes& address) {
  Bytes whole = address;
  whole.resize(28);
  sockaddr_in ipv4;
  std::memcpy(&ipv4, whole.data(), sizeof(ipv4));
  if (ipv4.sin_family == AF_INET) {
    return Bytes(whole.begin() + 4, whole.begin() + 8);
  }
  return Bytes(whole.begin() + 8, whole.begin() + 24);
}

bool IsFromTheServerAsked(const Pending& pending, const Bytes& from) {
  return pending.index < pending.methods.size() &&
         ServerKey(from) == ServerKey(support::BytesOf(pending.methods[pending.index].serverAddr));
}

// What `answer` has to come to; `pending` is the request under its identifier.
fuzz::Outcome OutcomeOf(Pending pending, Bytes answer, const Bytes& from, bool sendingFails) {
  if (!IsFromTheServerAsked(pending, from)) {
    return {std::nullopt, pending};
  }
  if (!support::HasRecords(answer)) {
    ++pending.index;
    return fuzz::ClimbLadder(pending, sendingFails);
  }
  std::memcpy(answer.data(), &pending.applicationId, sizeof(pending.applicationId));
  return {fuzz::Sending{fuzz::kToApplications, answer, pending.client}, std::nullopt};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned char choices = input.Byte();
  const Bytes sent = input.Rest();
  const Bytes from = SenderOf(choices);
  const bool sendingFails = choices & kSendingFails;
  const bool receivingFails = choices & kReceivingFails;

  fuzz::ResetService();
  std::vector<Pending> expectedTable = PendingRequestsOf();
  for (const Pending& pending : expectedTable) {
    g_DnsRequestTable.Add(fuzz::RecordOf(pending));
  }
  Bytes received = sent;
  received.resize(std::min<std::size_t>(sent.size(), kMaxMessageSize));
  const bool served = !receivingFails && received.size() >= 12;
  fuzz::Outcome expected;
  if (served) {
    unsigned short id;
    std::memcpy(&id, received.data(), sizeof(id));
    if (id < expectedTable.size()) {
      expected = OutcomeOf(expectedTable[id], received, from, sendingFails);
      expectedTable.erase(expectedTable.begin() + id);
      if (expected.left) {
        expectedTable.push_back(*expected.left);
      }
    }
  }

  fuzz::ScriptedRun run(sendingFails);
  if (receivingFails) {
    run.Arriving().Fail(EIO);
  } else {
    run.Arriving().Arrive(sent, from);
  }
  const bool goesOn = RecvAndProcessPacketsFromDNSServer(fuzz::kToServers);

  Require(goesOn == served, "false for a runt and a failed receipt alone");
  run.RequireSent(expected.sending);
  fuzz::RequireTable(expectedTable);
  return 0;
}
