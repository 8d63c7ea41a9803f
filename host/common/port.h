// The port that the service answers at.
#ifndef HOST_COMMON_PORT_H_
#define HOST_COMMON_PORT_H_

#include <netinet/in.h>

#include <cstdint>
#include <optional>

#include "host/common/log.h"

inline constexpr std::uint16_t kDnsPort = 53;

// Port 53 of `host`, which is in network order.
sockaddr_in DnsAddress(in_addr_t host);

// A socket that is bound to UDP 127.0.0.1 port 53, to the end of the process. If it cannot be,
// `fault` says why: with what to do about it and, where the system tells, the process that holds
// the port.
int TakePort(std::optional<Failure>& fault);

#endif  // HOST_COMMON_PORT_H_
