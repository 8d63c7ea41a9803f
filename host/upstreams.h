// The upstream servers: given on the command line, or the machine's own.
#ifndef HOST_UPSTREAMS_H_
#define HOST_UPSTREAMS_H_

#include <string>
#include <vector>

inline constexpr char kResolvConf[] = "/etc/resolv.conf";

// Why `text` cannot be a --server; null if it can. Loopback addresses can, except the proxy's own.
const char* ServerFault(const std::string& text);

struct LocalUpstreams {
  std::vector<std::string> taken;    // dotted decimal, in the file's order
  std::vector<std::string> dropped;  // "127.0.0.53 (this machine)"
};

// The values of /etc/resolv.conf that can serve: cut at the first blank, IPv4, each once, and not
// on this machine (a resolver here may ask the proxy, which would go round in circles).
LocalUpstreams ChooseUpstreams(const std::vector<std::string>& values);

// The same for /etc/resolv.conf as it is now, read by get_localdns_dnsproxy. Traces on standard
// output.
LocalUpstreams ReadLocalUpstreams();

// Tells when a file has changed, by a look at its state: no descriptor, no thread.
class FileWatch {
 public:
  explicit FileWatch(std::string path) : path_(std::move(path)) { Changed(); }

  // True if the file is another, was written, came or went since the last call.
  bool Changed();

 private:
  std::string path_;
  std::string seen_;
};

#endif  // HOST_UPSTREAMS_H_
