#include "host/common/port.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cerrno>
#include <string>

#if defined(__linux__)
#include <glob.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <span>
#endif

namespace {

#if defined(__linux__)
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
      const std::string address = local;
      if (address == "0100007F:0035" || address.find_first_not_of('0') == address.find(":0035")) {
        sockets.insert("socket:[" + std::string(inode) + "]");
      }
    }
  }
  return sockets;
}

// Who has the port: " by dnsmasq (process 812)", or how to ask when the system does not tell.
std::string PortHolder() {
  const std::set<std::string> sockets = SocketsAtThePort();
  glob_t found = {};
  glob("/proc/[0-9]*/fd/*", GLOB_NOSORT, nullptr, &found);
  std::string holder = "; ask with: sudo ss -lunp sport = 53";
  for (const std::filesystem::path fd : std::span(found.gl_pathv, found.gl_pathc)) {
    std::error_code error;  // processes end while one looks at them
    if (sockets.contains(read_symlink(fd, error).string())) {
      const std::filesystem::path process = fd.parent_path().parent_path();
      std::string name;
      std::ifstream(process / "comm") >> name;
      holder = " by " + name + " (process " + process.filename().string() + ")";
      break;
    }
  }
  globfree(&found);
  return holder;
}
#else
constexpr char kHowToStart[] = "start as root (sudo, or a launchd daemon)";

std::string PortHolder() { return "; ask with: sudo lsof -nP -iUDP:53"; }
#endif

}  // namespace

sockaddr_in DnsAddress(in_addr_t host) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(kDnsPort);
  address.sin_addr.s_addr = host;
  return address;
}

int TakePort(std::optional<Failure>& fault) {
  const int sock = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  const sockaddr_in address = DnsAddress(htonl(INADDR_LOOPBACK));
  const std::string port = "UDP 127.0.0.1 port 53";
  if (bind(sock, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    const int error = errno;
    fault = SystemFailure(port);
    if (error == EADDRINUSE) {
      fault = {kExitPortTaken, port + ": taken" + PortHolder()};
    } else if (error == EACCES || error == EPERM) {
      fault = {kExitNoRight, port + ": no right to it: " + kHowToStart};
    }
  }
  return sock;
}
