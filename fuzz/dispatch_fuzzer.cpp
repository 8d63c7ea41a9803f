// The dispatch: any request at any position of any list of methods.
//
// Input: position, a byte of choices, number of methods, a byte a method, the name (length and
// bytes), the type (2 bytes), the query's length (2), then the query's first bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "dns_proxy_mac/proxy/dispatch.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "fuzz/input.h"
#include "fuzz/ladder_model.h"
#include "fuzz/require.h"
#include "fuzz/scripted_run.h"
#include "tests/support/socket_addresses.h"

namespace {

using fuzz::Bytes;
using fuzz::Pending;

constexpr unsigned char kSendingFails = 0x01;
constexpr unsigned char kClientIsNotIpv4 = 0x02;
constexpr unsigned char kMappedName = 0x04;
constexpr unsigned char kNotPending = 0x08;

// Numbers of methods from this byte on stand for lists whose length, taken to 16 bits, begins anew.
constexpr std::size_t kVeryLong = 250;

DNSMethodInfo MethodOf(unsigned char byte) {
  DNSMethodInfo method = DnsServerMethod("192.0.2.1");
  method.iDNSMethodType = byte % 4;
  reinterpret_cast<unsigned char*>(&method.serverAddr)[7] = byte;
  if (byte >= 0xF0) {
    method.serverAddr.sin_family = AF_INET6;
  }
  return method;
}

Pending PendingFrom(fuzz::Input& input, unsigned char choices) {
  Pending pending;
  pending.id = 7;
  pending.applicationId = 0xABCD;
  const std::size_t count = input.Byte();
  for (std::size_t i = 0; i < std::min<std::size_t>(count, 40); ++i) {
    pending.methods.push_back(MethodOf(input.Byte()));
  }
  if (count >= kVeryLong) {
    pending.methods.resize(65'536 + (count - kVeryLong), MethodOf(0));
  }
  sockaddr_in client = support::Ipv4Address("127.0.0.1", 5353);
  if (choices & kClientIsNotIpv4) {
    client.sin_family = AF_INET6;
  }
  pending.client = support::BytesOf(client);
  const Bytes name = input.Take(input.Byte());
  pending.name = std::string(name.begin(), name.end());
  if (choices & kMappedName) {
    pending.name = "MAPPED.example";
  }
  pending.type = input.Number16();
  const std::size_t length = 12 + input.Number16() % (8192 - 12 + 1);
  pending.query = input.Rest();
  pending.query.resize(length);
  std::memcpy(pending.query.data(), &pending.id, sizeof(pending.id));
  return pending;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned char position = input.Byte();
  const unsigned char choices = input.Byte();
  const bool sendingFails = choices & kSendingFails;
  Pending pending = PendingFrom(input, choices);
  pending.index = position;

  fuzz::ResetService();
  fuzz::Outcome expected;
  if (!(choices & kNotPending)) {
    g_DnsRequestTable.Add(fuzz::RecordOf(pending));
    expected = fuzz::ClimbLadder(pending, sendingFails);
  }
  const fuzz::ScriptedRun run(sendingFails);
  TryNextDNSQueryMethod(pending.id, false);

  run.RequireSent(expected.sending);
  fuzz::RequireTable(expected.left ? std::vector<Pending>{*expected.left} : std::vector<Pending>{});
  return 0;
}
