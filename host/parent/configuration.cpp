#include "host/parent/configuration.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <sstream>

#include "dns_proxy_mac/proxy/dns_proxy.h"
#include "host/common/log.h"

namespace {

constexpr char kResolvConf[] = "/etc/resolv.conf";

// Reverse look-ups are told apart by a position of 159 in the list of methods: it must not be
// reached by real ones.
constexpr std::size_t kMaxServers = 100;

// 224.0.0.0, in machine order. What is above is no server's address either.
constexpr in_addr_t kFirstMulticast = 0xE0000000;

// resolv.conf is a few lines; one beyond this size is not read for servers at all.
constexpr std::size_t kMaxResolvConf = 64 * 1024;

// Room for each value. The whole file fits many times over, should it grow while it is read.
constexpr std::size_t kValueSpace = 1024 * 1024;

constexpr std::size_t kMaxLabel = 63;
constexpr std::size_t kMaxName = 253;
constexpr char kNameCharacters[] = "abcdefghijklmnopqrstuvwxyz0123456789-_.";

bool IsAddress(int family, const std::string& text) {
  in6_addr address;  // which has room for one of either family
  return inet_pton(family, text.c_str(), &address) == 1;
}

// Why `name`, folded and without its trailing dot, cannot be a static name; null if it can.
const char* NameFault(const std::string& name) {
  if (name.find_first_not_of(kNameCharacters) != std::string::npos) {
    return "the name has a character other than letters, digits, '-', '_' and '.'";
  }
  std::istringstream labels(name + '.');
  for (std::string label; std::getline(labels, label, '.');) {
    if (label.empty() || label.size() > kMaxLabel || name.size() > kMaxName) {
      return "a label of the name is empty or longer than 63 characters, or the name than 253";
    }
  }
  const bool reverse = name.find(".in-addr.arpa") != std::string::npos;
  return reverse ? "reverse look-ups are answered 'no such name' before static names are looked at"
                 : nullptr;
}

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

// Those of /etc/resolv.conf as it is now.
std::vector<std::string> ReadLocalUpstreams() {
  // Filled with zero: that is what ends each value.
  std::vector<std::string> values(3, std::string(kValueSpace, '\0'));
  const std::string text = ReadResolvConf();
  if (text.size() <= kMaxResolvConf) {
    get_localdns_dnsproxy(values[0].data(), values[1].data(), values[2].data());
  }
  const LocalUpstreams local = ChooseUpstreams(values, text);
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

}  // namespace

std::vector<std::string> LoadServers(const Options& options) {
  for (const std::string& server : options.servers) {
    if (const char* const fault = ServerFault(server)) {
      throw Failure{kExitBadInput, "--server " + server + ": " + fault};
    }
  }
  if (options.servers.size() > kMaxServers) {
    throw Failure{kExitBadInput, "--server: too many servers"};
  }
  const bool local = options.servers.empty();
  std::vector<std::string> loaded = local ? ReadLocalUpstreams() : options.servers;
  Log("info", std::string("upstream servers") + (local ? " from /etc/resolv.conf" : "") + ": " +
                  Joined(loaded));
  return loaded;
}

std::vector<std::pair<std::string, std::string>> LoadNames(const Options& options) {
  StaticNames names;
  for (const std::string& map : options.maps) {
    names.AddMapping(map);
  }
  for (const std::string& file : options.hostsFiles) {
    const std::optional<std::string> text = ReadFile(file);
    if (!text) {
      throw Failure{kExitBadInput, file + ": cannot be read, or is not a regular file"};
    }
    names.AddHosts(*text, file);
  }
  for (const std::string& duplicate : names.duplicates) {
    Log("warning", "given twice: " + duplicate);
  }
  if (names.ipv6Lines > 0) {
    Log("info", "hosts files: " + std::to_string(names.ipv6Lines) + " IPv6 lines skipped");
  }
  Log("info", "static names: " + std::to_string(names.names.size()));
  std::vector<std::pair<std::string, std::string>> loaded;
  loaded.reserve(names.names.size());
  for (const auto& [name, entry] : names.names) {
    loaded.emplace_back(name, entry.address);
  }
  return loaded;
}

std::string ReadResolvConf() { return ReadFile(kResolvConf).value_or(""); }

// By the system's own calls: a file stream of libc++ takes a failed read for the end of the file.
std::optional<std::string> ReadFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK);  // opening a pipe could wait
  struct stat state;
  ssize_t size = fd != -1 && fstat(fd, &state) == 0 && S_ISREG(state.st_mode) ? 1 : -1;
  std::string text;
  char bytes[4096];
  while (size > 0 && (size = read(fd, bytes, sizeof(bytes))) > 0) {
    text.append(bytes, static_cast<std::size_t>(size));
  }
  close(fd);
  return size == 0 ? std::optional(text) : std::nullopt;
}

void StaticNames::AddMapping(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) {
    throw Failure{kExitBadInput, "--map " + text + ": not NAME=ADDRESS"};
  }
  Add(text.substr(0, equals), {text.substr(equals + 1), "--map " + text});
}

void StaticNames::AddHosts(const std::string& text, const std::string& file) {
  std::istringstream lines(text);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    std::istringstream words(line.substr(0, line.find('#')));
    const std::string where = file + ":" + std::to_string(number);
    std::string address;
    std::string name;
    words >> address;
    // With or without an interface behind it: "fe80::1%lo0".
    const bool ipv6 = IsAddress(AF_INET6, address.substr(0, address.find('%')));
    ipv6Lines += ipv6 ? 1 : 0;
    if (address.empty() || ipv6) {
      continue;
    }
    if (!(words >> name)) {
      throw Failure{kExitBadInput, where + ": no name behind " + address};
    }
    do {
      Add(name, {address, where});
    } while (words >> name);
  }
}

void StaticNames::Add(std::string name, const Entry& entry) {
  if (!IsAddress(AF_INET, entry.address)) {
    throw Failure{kExitBadInput, entry.source + ": '" + entry.address + "' is not an IPv4 address"};
  }
  const std::string given = name;
  std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
  if (name.size() > 1 && name.back() == '.') {
    name.pop_back();
  }
  if (const char* const fault = NameFault(name)) {
    throw Failure{kExitBadInput, entry.source + ": '" + given + "': " + fault};
  }
  const auto [first, added] = names.emplace(name, entry);
  if (!added) {
    duplicates.push_back(name + ": " + first->second.address + " (" + first->second.source +
                         ") wins over " + entry.address + " (" + entry.source + ")");
  }
}

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
    if (!(std::istringstream(value.c_str()) >> address)) {  // up to the first blank
      continue;
    }
    const bool here = address.starts_with("127.") || address == "0.0.0.0";
    if (const char* const fault = !named.contains(address) ? "in no line of its own"
                                  : here                   ? "this machine"
                                                           : ServerFault(address)) {
      chosen.dropped.push_back(address + " (" + fault + ")");
    } else if (std::ranges::count(chosen.taken, address) == 0) {
      chosen.taken.push_back(address);
    }
  }
  return chosen;
}
