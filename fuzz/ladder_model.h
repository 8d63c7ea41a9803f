// What has to become of a pending request, worked out a second time: the model that the dispatch,
// the query path and the response path are compared with.
#ifndef FUZZ_LADDER_MODEL_H_
#define FUZZ_LADDER_MODEL_H_

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dns_proxy_mac/proxy/dns_request.h"
#include "dns_proxy_mac/proxy/query_method.h"
#include "tests/support/dns_message_builder.h"

namespace fuzz {

using support::Bytes;

// The service's sockets, as numbers that no system call ever sees.
inline constexpr int kToApplications = 1001;
inline constexpr int kToServers = 1002;

// The one name of the host map, and its address.
inline constexpr char kMappedName[] = "mapped.example";
inline constexpr char kMappedAddress[] = "10.1.2.3";

// Puts the service's globals into the state that every run begins with.
void ResetService();

// A pending request, as much of it as decides.
struct Pending {
  unsigned short id = 0;  // machine order
  unsigned short applicationId = 0;
  unsigned char index = 0;
  Bytes query;   // under `id`
  Bytes client;  // 16 bytes
  std::string name;
  unsigned short type = 0;
  DNSMethodList methods;
};

// The record that `pending` describes.
std::unique_ptr<DnsRequest> RecordOf(const Pending& pending);

// Requires that the table holds exactly the records that `expected` describes.
void RequireTable(const std::vector<Pending>& expected);

// A datagram that has to be sent.
struct Sending {
  int sock;
  Bytes bytes;
  Bytes address;  // with the length that goes with its family
};

// What carrying out the next method of `pending` comes to: what is sent, if anything; and the
// request as it is afterwards, or nothing when it is gone.
struct Outcome {
  std::optional<Sending> sending;
  std::optional<Pending> left;
};
Outcome ClimbLadder(Pending pending, bool sendingFails);

// An address as the service gives it to the system: 16 bytes for IPv4, otherwise 28.
Bytes WithLengthOfFamily(const Bytes& address);

}  // namespace fuzz

#endif  // FUZZ_LADDER_MODEL_H_
