#include "host/common/unix_socket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "host/common/failure.h"

namespace {

constexpr int kBacklog = 16;

using Call = int (*)(int, const sockaddr*, socklen_t);

// Calls connect or bind with `path` as the address.
bool AtPath(Call call, int sock, const std::string& path) {
  sockaddr_un address;
  std::memset(&address, 0, sizeof(address));
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return false;
  }
  path.copy(address.sun_path, path.size());
  return call(sock, reinterpret_cast<const sockaddr*>(&address),
              static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size())) == 0;
}

}  // namespace

int ConnectUnix(const std::string& path, int type) {
  const int sock = socket(AF_UNIX, type, 0);
  fcntl(sock, F_SETFL, O_NONBLOCK);  // whoever listens there may have stopped accepting
  if (!AtPath(connect, sock, path)) {
    const int error = errno;
    close(sock);
    errno = error;
    return -1;
  }
  return sock;
}

int ListenUnix(const std::string& path) {
  const int other = ConnectUnix(path, SOCK_STREAM);
  const bool left = other == -1 && errno == ECONNREFUSED;
  close(other);
  if (other != -1) {
    throw Failure{kExitFailure, "--socket " + path + ": another process listens there"};
  }
  struct stat state;
  if (left && lstat(path.c_str(), &state) == 0 && S_ISSOCK(state.st_mode)) {
    unlink(path.c_str());
  }
  const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
  const mode_t mask = umask(0177);
  const bool bound = AtPath(bind, sock, path);
  umask(mask);
  if (!bound || listen(sock, kBacklog) != 0) {
    throw SystemFailure("--socket " + path);
  }
  fcntl(sock, F_SETFL, O_NONBLOCK);
  return sock;
}

void NotifyManager(const std::string& state) {
  if (const char* const given = std::getenv("NOTIFY_SOCKET")) {
    std::string path = given;
    path[0] = path[0] == '@' ? '\0' : path[0];  // one of Linux's names that are no files
    const int sock = ConnectUnix(path, SOCK_DGRAM);
    send(sock, state.data(), state.size(), MSG_DONTWAIT);
    close(sock);
  }
}
