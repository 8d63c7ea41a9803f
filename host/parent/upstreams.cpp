#include "host/parent/upstreams.h"

#include <arpa/inet.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "dns_proxy_mac/proxy/dns_proxy.h"
#include "host/common/failure.h"
#include "host/common/files.h"
#include "host/common/log.h"
#include "host/common/text.h"

namespace {

// 224.0.0.0, in machine order. What is above is no server's address either.
constexpr in_addr_t kFirstMulticast = 0xE0000000;

// resolv.conf is a few lines; one beyond this size is not read for servers at all.
constexpr std::size_t kMaxResolvConf = 64 * 1024;

// Room for each value. The whole file fits many times over, should it grow while it is read.
constexpr std::size_t kValueSpace = 1024 * 1024;

// The servers that stand in lines of their own, and not in a comment.
std::set<std::string> NamedServers(const std::string& resolvConf) {
  std::set<std::string> named;
  std::istringstream lines(resolvConf);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string keyword;
    std::string address;
    words >> keyword >> address;
    if (keyword == "nameserver") {
      named.insert(address);
    }
  }
  return named;
}

}  // namespace

const char* ServerFault(const std::string& text) {
  in_addr parsed;
  if (inet_pton(AF_INET, text.c_str(), &parsed) != 1) {
    return "not an IPv4 address";
  }
  const in_addr_t address = ntohl(parsed.s_addr);
  if (address == INADDR_LOOPBACK || address == INADDR_ANY) {
    return "the proxy's own address";
  }
  return address >= kFirstMulticast ? "a multicast or broadcast address" : nullptr;
}

LocalUpstreams ChooseUpstreams(const std::vector<std::string>& values,
                               const std::string& resolvConf) {
  const std::set<std::string> named = NamedServers(resolvConf);
  LocalUpstreams chosen;
  for (const std::string& value : values) {
    std::string address;
    if (!(std::istringstream(value) >> address)) {  // up to the first blank
      continue;
    }
    const bool here = address.starts_with("127.") || address == "0.0.0.0";
    if (const char* const fault = !named.contains(address) ? "in no line of its own"
                                  : here                   ? "this machine"
                                                           : ServerFault(address)) {
      chosen.dropped.push_back(address + " (" + fault + ")");
    } else if (std::count(chosen.taken.begin(), chosen.taken.end(), address) == 0) {
      chosen.taken.push_back(address);
    }
  }
  return chosen;
}

std::string ReadResolvConf() { return ReadFile(kResolvConf).value_or(""); }

std::vector<std::string> ReadLocalUpstreams() {
  // Filled with zero: that is what ends each value.
  std::vector<char> dns1(kValueSpace);
  std::vector<char> dns2(kValueSpace);
  std::vector<char> dns3(kValueSpace);
  const std::string text = ReadResolvConf();
  if (!text.empty() && text.size() <= kMaxResolvConf) {
    get_localdns_dnsproxy(dns1.data(), dns2.data(), dns3.data());
  }
  const LocalUpstreams local = ChooseUpstreams({dns1.data(), dns2.data(), dns3.data()}, text);
  if (!local.dropped.empty()) {
    Log("info", std::string(kResolvConf) + ": left out: " + Joined(local.dropped));
  }
  if (local.taken.empty()) {
    throw Failure{kExitNoUpstream, std::string(kResolvConf) +
                                       ": none of its first three servers can be asked: give "
                                       "one with --server ADDRESS"};
  }
  return local.taken;
}
