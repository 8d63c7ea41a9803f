// The port before the service takes it: is it free, and who has it if not?
#ifndef HOST_PORT_H_
#define HOST_PORT_H_

#include <cstdint>
#include <string>

inline constexpr std::uint16_t kDnsPort = 53;

// Binds UDP 127.0.0.1 port 53 as the service will, and lets go. Zero, or errno.
int TryPort();

// What `error`, from TryPort, means and what to do about it: one sentence. Names the process that
// holds the port where the system tells.
std::string ExplainPort(int error);

// The exit status for `error`.
int PortExitStatus(int error);

#endif  // HOST_PORT_H_
