// The query path: any datagram from any address.
//
// Input: a byte of choices, a byte for the identifier, then the datagram.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "dns_proxy_mac/proxy/query_path.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "fuzz/input.h"
#include "fuzz/ladder_model.h"
#include "fuzz/require.h"
#include "fuzz/scripted_run.h"
#include "tests/support/messages.h"
#include "tests/support/question_oracle.h"
#include "tests/support/socket_addresses.h"

namespace {

using fuzz::Bytes;
using fuzz::Pending;
using fuzz::Require;

constexpr unsigned char kHostMapFirst = 0x01;
constexpr unsigned char kServers = 0x06;  // two bits
constexpr unsigned char kSendingFails = 0x08;
constexpr unsigned char kIdentifierTaken = 0x10;
constexpr unsigned char kReceivingFails = 0x20;
constexpr unsigned char kFromIpv6 = 0x40;

DNSMethodList MethodsOf(unsigned char choices) {
  DNSMethodList methods;
  if (choices & kHostMapFirst) {
    methods.push_back(HostMapMethod());
  }
  for (int server = 0; server < (choices & kServers) / 2; ++server) {
    methods.push_back(DnsServerMethod(server == 0 ? "192.0.2.1" : "192.0.2.2"));
  }
  return methods;
}

// An older request that waits under `id`.
Pending Older(unsigned short id) {
  Pending older;
  older.id = id;
  older.applicationId = 0x0DDE;
  older.query = support::UnderProxyId(Bytes(40, 0x11), id);
  older.client = support::BytesOf(support::Ipv4Address("127.0.0.1", 4000));
  older.name = "older.example";
  older.type = 1;
  older.methods = {DnsServerMethod("192.0.2.9")};
  return older;
}

// The request that `datagram` has to become, or nothing when it has to be refused.
std::optional<Pending> RequestOf(const Bytes& datagram, unsigned short id, const Bytes& client,
                                 const DNSMethodList& methods) {
  if (datagram.size() < 12 || datagram[4] != 0 || datagram[5] != 1) {
    return std::nullopt;
  }
  const support::ReadQuestion question =
      support::OracleReads(Bytes(datagram.begin() + 12, datagram.end()), 1024);
  if (question.Name().empty()) {
    return std::nullopt;
  }
  Pending pending;
  pending.id = id;
  std::memcpy(&pending.applicationId, datagram.data(), 2);
  pending.query = datagram;
  std::memcpy(pending.query.data(), &id, sizeof(id));
  pending.client = client;
  pending.name = question.Name();
  pending.type = question.type.value_or(0);
  pending.methods = methods;
  pending.index = pending.name.find(".in-addr.arpa") == std::string::npos ? 0 : 159;
  return pending;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned char choices = input.Byte();
  const auto id = static_cast<unsigned short>(0xFFFF - input.Byte());
  const Bytes sent = input.Rest();
  const bool sendingFails = choices & kSendingFails;

  fuzz::ResetService();
  g_QueryID = id;
  g_DnsMethodList = MethodsOf(choices);
  Bytes from = support::BytesOf(support::Ipv4Address("127.0.0.1", 5353));
  if (choices & kFromIpv6) {
    from = support::BytesOf(support::Ipv6Address("::1", 5353));
  }
  const Bytes client(from.begin(), from.begin() + 16);
  std::optional<Pending> expectedRequest;
  if (!(choices & kReceivingFails)) {
    const Bytes received(sent.begin(),
                         sent.begin() + static_cast<std::ptrdiff_t>(
                                            std::min<std::size_t>(sent.size(), kMaxMessageSize)));
    expectedRequest = RequestOf(received, id, client, g_DnsMethodList);
  }
  std::optional<Pending> older;
  if (choices & kIdentifierTaken) {
    older = Older(id);
    g_DnsRequestTable.Add(fuzz::RecordOf(*older));
  }

  fuzz::ScriptedRun run(sendingFails);
  if (choices & kReceivingFails) {
    run.Arriving().Fail(EIO);
  } else {
    run.Arriving().Arrive(sent, from);
  }
  const bool goesOn = RecvAndProcessPacketsFromLocalApps(fuzz::kToApplications);

  Require(goesOn == expectedRequest.has_value(), "true for what can be served, else false");
  Require(g_QueryID == static_cast<unsigned short>(id + (goesOn ? 1 : 0)),
          "an identifier for each request and for nothing else");
  // When the identifier is taken it is the older request that the dispatch acts on.
  fuzz::Outcome expected{std::nullopt, older};
  if (expectedRequest) {
    expected = fuzz::ClimbLadder(older ? *older : *expectedRequest, sendingFails);
  }
  run.RequireSent(expected.sending);
  fuzz::RequireTable(expected.left ? std::vector<Pending>{*expected.left} : std::vector<Pending>{});
  return 0;
}
