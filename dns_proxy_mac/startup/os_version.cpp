#include "dns_proxy_mac/startup/os_version.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

// With its terminator: a longer line of the tool arrives in pieces, each taken for a line.
constexpr int kLineSize = 128;

}  // namespace

void get_os_ver(char* buf, int len) {
  // Written on every call and before anything is tried. There is no step that reads a version file;
  // the line is part of the trace that support tools look for.
  std::printf(
      "vpnd: mac get os version from file failed, start get os version from command line\n");
  std::memset(buf, 0, static_cast<std::size_t>(len));

  std::FILE* const stream = popen("/usr/bin/sw_vers", "r");
  if (stream == nullptr) {
    std::printf("error: get system version from macos cmd failed.\n");
    return;
  }

  // Not cleared between lines, and fgets leaves it alone at the end of input: when no line carries
  // the label, the last line read is what the caller gets. By design.
  char line[kLineSize] = {};
  while (std::fgets(line, kLineSize, stream) != nullptr) {
    const std::size_t length = std::strlen(line);
    if (length > 0 && line[length - 1] == '\n') {
      line[length - 1] = '\0';
    }
    if (std::strstr(line, "ProductVersion") != nullptr) {
      std::printf("vpnd: mac cmd get os version buf=%s.\n", line);
      break;
    }
  }
  pclose(stream);

  // Bounded by the line and not by `len`, on purpose: the fill above terminates the text, and the
  // caller brings room for any line.
  std::memcpy(buf, line, std::strlen(line));
}
