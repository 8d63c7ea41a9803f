#include "host/port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/exit_status.h"

#if defined(__linux__)
#include <dirent.h>

#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <vector>
#endif

namespace {

#if defined(__linux__)
// The entries of `folder` whose names are numbers.
std::vector<std::string> Numbers(const std::string& folder) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(folder.c_str()), closedir);
  while (const dirent* const entry = open == nullptr ? nullptr : readdir(open.get())) {
    if (std::strspn(entry->d_name, "0123456789") == std::strlen(entry->d_name)) {
      names.emplace_back(entry->d_name);
    }
  }
  return names;
}

// What the descriptors of such sockets link to: "socket:[12345]".
std::set<std::string> SocketsAtThePort() {
  std::set<std::string> sockets;
  for (const char* const table : {"/proc/net/udp", "/proc/net/udp6"}) {
    std::ifstream lines(table);
    std::string line;
    while (std::getline(lines, line)) {
      // sl, local address:port, remote address:port, state, queues, timer, retransmits, uid,
      // timeout, inode; the address as the machine's words in hexadecimal.
      std::istringstream fields(line);
      std::string number;
      std::string local;
      std::string skipped;
      std::string inode;
      fields >> number >> local;
      for (int i = 0; i < 7; ++i) {
        fields >> skipped;
      }
      fields >> inode;
      for (const char* const address :
           {"0100007F:0035", "00000000:0035", "00000000000000000000000000000000:0035"}) {
        if (local == address) {
          sockets.insert("socket:[" + inode + "]");
        }
      }
    }
  }
  return sockets;
}

// "dnsmasq (process 812)", or empty when the system does not tell.
std::string PortHolder() {
  const std::set<std::string> sockets = SocketsAtThePort();
  for (const std::string& process : Numbers("/proc")) {
    const std::string folder = "/proc/" + process;
    for (const std::string& descriptor : Numbers(folder + "/fd")) {
      char target[64] = {};
      if (readlink((folder + "/fd/" + descriptor).c_str(), target, sizeof(target) - 1) > 0 &&
          sockets.contains(target)) {
        std::string name;
        std::ifstream(folder + "/comm") >> name;
        return name + " (process " + process + ")";
      }
    }
  }
  return {};
}

constexpr char kHowToAsk[] = "ask with: sudo ss -lunp sport = 53";
#else
std::string PortHolder() { return {}; }

constexpr char kHowToAsk[] = "ask with: sudo lsof -nP -iUDP:53";
#endif

}  // namespace

int TryPort() {
  const int sock = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (sock < 0) {
    return errno;
  }
  sockaddr_in address;
  std::memset(&address, 0, sizeof(address));
  address.sin_family = AF_INET;
  address.sin_port = htons(kDnsPort);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool bound = bind(sock, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  const int error = bound ? 0 : errno;
  close(sock);
  return error;
}

std::string ExplainPort(int error) {
  std::string text = "UDP 127.0.0.1 port 53: ";
  if (error == EADDRINUSE) {
    const std::string holder = PortHolder();
    return text + "taken" + (holder.empty() ? std::string("; ") + kHowToAsk : " by " + holder);
  }
  if (error == EACCES || error == EPERM) {
#if defined(__linux__)
    return text + "no right to it: start as root, or with the capability CAP_NET_BIND_SERVICE";
#else
    return text + "no right to it: start as root (sudo, or a launchd daemon)";
#endif
  }
  return text + std::strerror(error);
}

int PortExitStatus(int error) {
  switch (error) {
    case 0:
      return kExitDone;
    case EADDRINUSE:
      return kExitPortTaken;
    case EACCES:
    case EPERM:
      return kExitNoRight;
    default:
      return kExitFailure;
  }
}
