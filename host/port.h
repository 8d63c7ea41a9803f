// The port before the service takes it: is it free, and who has it if not?
#ifndef HOST_PORT_H_
#define HOST_PORT_H_

#include <netinet/in.h>

#include <cstdint>

inline constexpr std::uint16_t kDnsPort = 53;

// Port 53 of `host`, which is in network order.
sockaddr_in DnsAddress(in_addr_t host);

// Binds UDP 127.0.0.1 port 53 as the service will, and lets go. Throws Failure if that cannot be
// done, with what to do about it and, where the system tells, the process that holds the port.
void CheckPort();

#endif  // HOST_PORT_H_
