#include "host/upstreams.h"

#include <arpa/inet.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>

#include "dns_proxy_mac/proxy/dns_proxy.h"

namespace {

constexpr char kBlanks[] = " \t\r\n\v\f";

// resolv.conf is a few lines; one beyond this size is not read at all.
constexpr off_t kMaxResolvConf = 64 * 1024;

// Room for each value. The whole file fits many times over, should it grow while it is read.
constexpr std::size_t kValueSpace = 1024 * 1024;

// False if `text` is no IPv4 address. In machine order.
bool ParseIpv4(const std::string& text, std::uint32_t& address) {
  in_addr parsed;
  if (inet_pton(AF_INET, text.c_str(), &parsed) != 1) {
    return false;
  }
  address = ntohl(parsed.s_addr);
  return true;
}

std::string CutAtBlank(const std::string& value) {
  const std::size_t start = value.find_first_not_of(kBlanks);
  if (start == std::string::npos) {
    return {};
  }
  return value.substr(start, value.find_first_of(kBlanks, start) - start);
}

}  // namespace

const char* ServerFault(const std::string& text) {
  std::uint32_t address = 0;
  if (!ParseIpv4(text, address)) {
    return "not an IPv4 address";
  }
  if (address == INADDR_LOOPBACK || address == INADDR_ANY) {
    return "the proxy's own address";
  }
  if (address >= 0xE0000000) {
    return "a multicast or broadcast address";
  }
  return nullptr;
}

LocalUpstreams ChooseUpstreams(const std::vector<std::string>& values) {
  LocalUpstreams result;
  for (const std::string& value : values) {
    const std::string text = CutAtBlank(value);
    std::uint32_t address = 0;
    if (text.empty() || std::count(result.taken.begin(), result.taken.end(), text) != 0) {
      continue;
    }
    if (!ParseIpv4(text, address)) {
      result.dropped.push_back(text + " (not an IPv4 address)");
    } else if (address >> 24 == IN_LOOPBACKNET || address == INADDR_ANY) {
      result.dropped.push_back(text + " (this machine)");
    } else if (const char* const fault = ServerFault(text)) {
      result.dropped.push_back(text + " (" + fault + ")");
    } else {
      result.taken.push_back(text);
    }
  }
  return result;
}

LocalUpstreams ReadLocalUpstreams() {
  struct stat state;
  if (stat(kResolvConf, &state) != 0) {
    return {};
  }
  if (state.st_size > kMaxResolvConf) {
    return {{}, {std::string(kResolvConf) + " (larger than 64 KiB)"}};
  }
  // Filled with zero: that is what ends each value.
  std::vector<char> dns1(kValueSpace);
  std::vector<char> dns2(kValueSpace);
  std::vector<char> dns3(kValueSpace);
  get_localdns_dnsproxy(dns1.data(), dns2.data(), dns3.data());
  return ChooseUpstreams({dns1.data(), dns2.data(), dns3.data()});
}

bool FileWatch::Changed() {
  struct stat state;
  std::string now = "none";
  if (stat(path_.c_str(), &state) == 0) {
#if defined(__APPLE__)
    const timespec& written = state.st_mtimespec;
#else
    const timespec& written = state.st_mtim;
#endif
    now.clear();
    for (const long long part :
         {static_cast<long long>(state.st_dev), static_cast<long long>(state.st_ino),
          static_cast<long long>(state.st_size), static_cast<long long>(written.tv_sec),
          static_cast<long long>(written.tv_nsec)}) {
      now += std::to_string(part) + " ";
    }
  }
  std::swap(now, seen_);
  return now != seen_;
}
