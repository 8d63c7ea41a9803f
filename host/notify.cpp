#include "host/notify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

void NotifyManager(const std::string& state) {
  const char* const path = std::getenv("NOTIFY_SOCKET");
  sockaddr_un address;
  std::memset(&address, 0, sizeof(address));
  const std::size_t length = path == nullptr ? 0 : std::strlen(path);
  if (length < 2 || length >= sizeof(address.sun_path)) {
    return;
  }
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path, length);
  if (path[0] == '@') {
    address.sun_path[0] = '\0';  // the abstract name space
  }
  const int sock = socket(AF_UNIX, SOCK_DGRAM, 0);
  sendto(sock, state.data(), state.size(), MSG_DONTWAIT,
         reinterpret_cast<const sockaddr*>(&address),
         static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
  close(sock);
}
