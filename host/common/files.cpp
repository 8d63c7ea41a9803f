#include "host/common/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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
