#include "tests/stress/soak/service_under_soak.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

#include "dns_proxy_mac/proxy/dns_proxy.h"
#include "tests/stress/soak/questions.h"

namespace soak {

namespace {

bool PortIsTaken() {
  std::ifstream sockets("/proc/self/net/udp");
  const std::string text(std::istreambuf_iterator<char>(sockets), {});
  return text.find(" 0100007F:0035 ") != std::string::npos;
}

[[noreturn]] void Serve(const std::vector<std::pair<std::string, std::string>>& hostMaps) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
  StartDnsSrv({kServerAddresses.begin(), kServerAddresses.end()}, hostMaps);
  _exit(1);  // nothing of the soak ends the service
}

}  // namespace

ServiceUnderSoak::ServiceUnderSoak(
    const std::vector<std::pair<std::string, std::string>>& hostMaps) {
  std::fflush(nullptr);
  pid_ = fork();
  if (pid_ < 0) {
    std::perror("soak: fork");
    std::exit(1);
  }
  if (pid_ == 0) {
    Serve(hostMaps);
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!PortIsTaken()) {
    if (!IsRunning() || std::chrono::steady_clock::now() > deadline) {
      std::fputs("soak: the service did not start\n", stderr);
      std::exit(1);
    }
    usleep(1000);
  }
}

ServiceUnderSoak::~ServiceUnderSoak() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

bool ServiceUnderSoak::IsRunning() const {
  siginfo_t ended = {};
  return waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         ended.si_pid == 0;
}

long ServiceUnderSoak::StatusField(const std::string& name) const {
  std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(name, 0) == 0) {
      return std::strtol(line.c_str() + name.size(), nullptr, 10);
    }
  }
  return -1;
}

long DroppedBySystem() {
  std::ifstream sockets("/proc/self/net/udp");
  std::string line;
  std::getline(sockets, line);  // the head of the table; the last column is the drops
  long dropped = 0;
  while (std::getline(sockets, line)) {
    std::istringstream columns(line);
    const std::vector<std::string> fields(std::istream_iterator<std::string>(columns), {});
    dropped += fields.empty() ? 0 : std::strtol(fields.back().c_str(), nullptr, 10);
  }
  return dropped;
}

}  // namespace soak
