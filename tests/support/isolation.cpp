#include "tests/support/isolation.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#if defined(__linux__)
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>
#endif

namespace support {

#if defined(__linux__)

namespace {

// Set for the program that was started inside.
constexpr char kInsideVariable[] = "DNS_PROXY_TEST_ISOLATED";

bool Inside() { return std::getenv(kInsideVariable) != nullptr; }

// The ways in: as anybody through a user namespace, and as root without one.
const std::vector<std::vector<const char*>> kWaysIn = {
    {"unshare", "--map-root-user", "--mount", "--net"}, {"unshare", "--mount", "--net"}};

// `way` with `program` and its arguments behind it, in the form that execvp takes.
std::vector<char*> CommandLine(const std::vector<const char*>& way, const char* program,
                               char** arguments) {
  std::vector<char*> line;
  for (const char* word : way) {
    line.push_back(const_cast<char*>(word));
  }
  line.push_back(const_cast<char*>(program));
  for (; *arguments != nullptr; ++arguments) {
    line.push_back(*arguments);
  }
  line.push_back(nullptr);
  return line;
}

// True if `way` leads into namespaces here: tried with a program that does nothing.
bool Works(const std::vector<const char*>& way) {
  char* none[] = {nullptr};
  const std::vector<char*> line = CommandLine(way, "true", none);
  const pid_t child = fork();
  if (child == 0) {
    close(STDERR_FILENO);
    execvp(line[0], line.data());
    _exit(127);
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

bool BringLoopbackUp() {
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  ifreq request = {};
  std::strcpy(request.ifr_name, "lo");
  const bool known = ioctl(sock, SIOCGIFFLAGS, &request) == 0;
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP | IFF_RUNNING);
  const bool up = known && ioctl(sock, SIOCSIFFLAGS, &request) == 0;
  close(sock);
  return up;
}

}  // namespace

void Isolate(char** arguments) {
  if (Inside()) {
    if (!BringLoopbackUp()) {
      std::perror("the loopback interface of the test's own network");
      std::abort();
    }
    return;
  }
  for (const std::vector<const char*>& way : kWaysIn) {
    if (Works(way)) {
      setenv(kInsideVariable, "1", 1);
      // The link is resolved here: /proc/self is another process to unshare.
      char program[4096] = {};
      if (readlink("/proc/self/exe", program, sizeof(program) - 1) > 0) {
        const std::vector<char*> line = CommandLine(way, program, arguments + 1);
        execvp(line[0], line.data());
      }
      unsetenv(kInsideVariable);
    }
  }
}

std::string WhyNotIsolated() {
  return Inside() ? "" : "this machine does not let us make user, mount and network namespaces";
}

std::string CoverFolder(const std::string& folder) {
  if (mount("tmpfs", folder.c_str(), "tmpfs", 0, "mode=0755") == 0) {
    return "";
  }
  return "cannot cover " + folder + ": " + std::strerror(errno);
}

#else

// Only Linux has namespaces. Who runs the program there, tests/macos, has covered the folders.
void Isolate(char** /*arguments*/) {}

std::string WhyNotIsolated() {
  return std::getenv("DNS_PROXY_TEST_COVERED") != nullptr ? "" : "only Linux has namespaces";
}

std::string CoverFolder(const std::string& folder) {
  const std::string problem = WhyNotIsolated();
  return problem.empty() ? "" : "cannot cover " + folder + ": " + problem;
}

#endif

}  // namespace support
