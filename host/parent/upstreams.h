// The upstream servers: given on the command line, or the machine's own.
#ifndef HOST_PARENT_UPSTREAMS_H_
#define HOST_PARENT_UPSTREAMS_H_

#include <string>
#include <vector>

inline constexpr char kResolvConf[] = "/etc/resolv.conf";

// Why `text` cannot be a --server; null if it can. Loopback addresses can, except the proxy's own.
const char* ServerFault(const std::string& text);

struct LocalUpstreams {
  std::vector<std::string> taken;    // dotted decimal, in the file's order
  std::vector<std::string> dropped;  // "127.0.0.53 (this machine)"
};

// Which of `values`, as get_localdns_dnsproxy has read them from `resolvConf`, can serve: cut at
// the first blank, IPv4, each once, not from a comment, and not on this machine (a resolver here
// may ask the proxy, which would go round in circles).
LocalUpstreams ChooseUpstreams(const std::vector<std::string>& values,
                               const std::string& resolvConf);

// Those of /etc/resolv.conf as it is now, read by get_localdns_dnsproxy, which traces on standard
// output; the log says what was dropped. Throws Failure if there is none.
std::vector<std::string> ReadLocalUpstreams();

// What /etc/resolv.conf holds now, to see whether it has changed; empty if it cannot be read.
std::string ReadResolvConf();

#endif  // HOST_PARENT_UPSTREAMS_H_
