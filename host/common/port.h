// The port before the service takes it: is it free, and who has it if not?
#ifndef HOST_COMMON_PORT_H_
#define HOST_COMMON_PORT_H_

#include <netinet/in.h>

#include <cstdint>
#include <optional>

#include "host/common/log.h"

inline constexpr std::uint16_t kDnsPort = 53;

// Port 53 of `host`, which is in network order.
sockaddr_in DnsAddress(in_addr_t host);

// Binds UDP 127.0.0.1 port 53 as the service will, and lets go. Why that cannot be done, if it
// cannot: with what to do about it and, where the system tells, the process that holds the port.
std::optional<Failure> PortFault();

#endif  // HOST_COMMON_PORT_H_
