#include "host/common/port.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "host/common/failure.h"

#if defined(__linux__)
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <string_view>
#include <vector>
#endif

namespace {

#if defined(__linux__)
namespace fs = std::filesystem;

constexpr char kHowToAsk[] = "; ask with: sudo ss -lunp sport = 53";
constexpr char kHowToStart[] = "start as root, or with the capability CAP_NET_BIND_SERVICE";

// What the descriptors of sockets at the port link to: "socket:[12345]".
std::set<std::string> SocketsAtThePort() {
  std::set<std::string> sockets;
  for (const char* const table : {"/proc/net/udp", "/proc/net/udp6"}) {
    std::ifstream lines(table);
    for (std::string line; std::getline(lines, line);) {
      // sl, local address:port, remote address:port, state, queues, timer, retransmits, uid,
      // timeout, inode; the address as the machine's words in hexadecimal.
      char local[64] = {};
      char inode[32] = {};
      std::sscanf(line.c_str(), "%*s%63s%*s%*s%*s%*s%*s%*s%*s%31s", local, inode);
      const std::string_view address = local;
      if (address == "0100007F:0035" || address.find_first_not_of('0') == address.find(":0035")) {
        sockets.insert("socket:[" + std::string(inode) + "]");
      }
    }
  }
  return sockets;
}

// What is in `folder`, as far as it can be read: processes end while one looks at them.
std::vector<fs::path> Entries(const fs::path& folder) {
  std::vector<fs::path> entries;
  std::error_code error;
  fs::directory_iterator entry(folder, error);
  while (!error && entry != fs::directory_iterator()) {
    entries.push_back(entry->path());
    entry.increment(error);
  }
  return entries;
}

// "dnsmasq (process 812)", or empty when the system does not tell.
std::string PortHolder() {
  const std::set<std::string> sockets = SocketsAtThePort();
  for (const fs::path& process : Entries("/proc")) {
    for (const fs::path& descriptor : Entries(process / "fd")) {
      std::error_code error;
      if (sockets.contains(fs::read_symlink(descriptor, error).string())) {
        std::string name;
        std::ifstream(process / "comm") >> name;
        return name + " (process " + process.filename().string() + ")";
      }
    }
  }
  return {};
}
#else
constexpr char kHowToAsk[] = "; ask with: sudo lsof -nP -iUDP:53";
constexpr char kHowToStart[] = "start as root (sudo, or a launchd daemon)";

std::string PortHolder() { return {}; }
#endif

}  // namespace

sockaddr_in DnsAddress(in_addr_t host) {
  sockaddr_in address;
  std::memset(&address, 0, sizeof(address));
  address.sin_family = AF_INET;
  address.sin_port = htons(kDnsPort);
  address.sin_addr.s_addr = host;
  return address;
}

std::optional<Failure> PortFault() {
  const int sock = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  const sockaddr_in address = DnsAddress(htonl(INADDR_LOOPBACK));
  const bool free =
      sock != -1 && bind(sock, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  const int error = free ? 0 : errno;
  close(sock);
  const std::string port = "UDP 127.0.0.1 port 53: ";
  if (error == EADDRINUSE) {
    const std::string holder = PortHolder();
    return Failure{kExitPortTaken, port + "taken" + (holder.empty() ? kHowToAsk : " by " + holder)};
  }
  if (error == EACCES || error == EPERM) {
    return Failure{kExitNoRight, port + "no right to it: " + kHowToStart};
  }
  if (error != 0) {
    return Failure{kExitFailure, port + std::strerror(error)};
  }
  return std::nullopt;
}
