#include "host/status_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/exit_status.h"
#include "host/log.h"

namespace {

// How long --status waits for the host's answer.
constexpr int kPatienceMs = 2000;

bool MakeAddress(const std::string& path, sockaddr_un& address) {
  std::memset(&address, 0, sizeof(address));
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return true;
}

// A connection to who listens at `path`; -1 and errno if nobody does.
int Connect(const std::string& path) {
  sockaddr_un address;
  if (!MakeAddress(path, address)) {
    return -1;
  }
  const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
  if (connect(sock, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    const int error = errno;
    close(sock);
    errno = error;
    return -1;
  }
  return sock;
}

}  // namespace

StatusSocket::~StatusSocket() {
  if (sock_ != -1) {
    close(sock_);
    unlink(path_.c_str());
  }
}

bool StatusSocket::Listen(const std::string& path, std::string& error) {
  error = "--socket " + path + ": ";
  const int other = Connect(path);
  if (other != -1) {
    close(other);
    error += "another process listens there";
    return false;
  }
  struct stat state;
  if (errno == ECONNREFUSED && lstat(path.c_str(), &state) == 0 && S_ISSOCK(state.st_mode)) {
    unlink(path.c_str());
  }
  sockaddr_un address;
  const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
  const mode_t mask = umask(0177);
  const bool bound = MakeAddress(path, address) &&
                     bind(sock, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  umask(mask);
  if (!bound || listen(sock, 4) != 0) {
    error += std::strerror(errno);
    close(sock);
    return false;
  }
  fcntl(sock, F_SETFL, O_NONBLOCK);
  path_ = path;
  sock_ = sock;
  return true;
}

void StatusSocket::Answer(const StatusReport& report) const {
  const int client = accept(sock_, nullptr, nullptr);
  if (client == -1) {
    return;
  }
  fcntl(client, F_SETFL, O_NONBLOCK);  // a few KiB: the socket's buffer takes them at once
  const std::string text = AsTable(report) + '\0' + AsJson(report);
  WriteIfRoom(client, text.data(), text.size());
  close(client);
}

int PrintStatus(const std::string& path, bool json) {
  const int sock = Connect(path);
  std::string text;
  if (sock != -1) {
    char bytes[1024];
    pollfd answer = {sock, POLLIN, 0};
    ssize_t size = 0;
    while (poll(&answer, 1, kPatienceMs) == 1 && (size = read(sock, bytes, sizeof(bytes))) > 0) {
      text.append(bytes, static_cast<std::size_t>(size));
    }
    close(sock);
  }
  const std::size_t split = text.find('\0');
  if (split == std::string::npos) {
    Log(Level::kError, "--socket %s: no host answers there", path.c_str());
    return kExitNoHost;
  }
  const std::string half = json ? text.substr(split + 1) : text.substr(0, split);
  std::fputs(half.c_str(), stdout);
  return kExitDone;
}
