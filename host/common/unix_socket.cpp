#include "host/common/unix_socket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "host/common/log.h"

namespace {

constexpr int kBacklog = 16;

using Call = int (*)(int, const sockaddr*, socklen_t);

// Calls connect or bind with `path` as the address.
bool AtPath(Call call, int sock, const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::size_t size = path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  errno = ENAMETOOLONG;
  return size == path.size() &&
         call(sock, reinterpret_cast<const sockaddr*>(&address),
              static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size)) == 0;
}

}  // namespace

int ConnectUnix(const std::string& path, int type) {
  const int sock = socket(AF_UNIX, type, 0);
  fcntl(sock, F_SETFL, O_NONBLOCK);  // whoever listens there may have stopped accepting
  if (AtPath(connect, sock, path)) {
    return sock;
  }
  close(sock);  // which succeeds, and leaves errno alone
  return -1;
}

int ListenUnix(const std::string& path) {
  const int other = ConnectUnix(path, SOCK_STREAM);
  if (other != -1) {
    close(other);
    throw Failure{kExitFailure, "--socket " + path + ": another process listens there"};
  }
  struct stat state;
  if (errno == ECONNREFUSED && lstat(path.c_str(), &state) == 0 && S_ISSOCK(state.st_mode)) {
    unlink(path.c_str());
  }
  const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
  umask(0177);  // for good: this process makes nothing for others
  if (!AtPath(bind, sock, path) || listen(sock, kBacklog) != 0) {
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
