#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "dns_proxy_mac/proxy/dns_proxy.h"

namespace {

constexpr char kKeyword[] = "nameserver";

// The value of a server line: what stands behind the keyword, wherever that is in the line, and the
// blanks (not tabs) after it. Null when the line has no keyword or nothing behind it. Comments and
// trailing text are not told apart: by design, the host decides what it takes.
const char* ServerValue(const char* line) {
  const char* value = std::strstr(line, kKeyword);
  if (value == nullptr) {
    return nullptr;
  }
  value += sizeof(kKeyword) - 1;
  while (*value == ' ') {
    ++value;
  }
  return *value == '\0' ? nullptr : value;
}

}  // namespace

void get_localdns_dnsproxy(char* dns1, char* dns2, char* dns3) {
  char* const buffers[] = {dns1, dns2, dns3};
  std::ifstream file("/etc/resolv.conf");
  std::string line;
  int count = 0;
  // A fourth server is counted and copied nowhere; the line behind it is read and not traced.
  while (std::getline(file, line) && count < 4) {
    std::printf("read dns: %s\n", line.c_str());
    const char* const value = ServerValue(line.c_str());
    if (value == nullptr) {
      continue;
    }
    if (count < 3) {
      // The value's own bytes and no terminator: the caller's zero fill ends the text.
      std::memcpy(buffers[count], value, std::strlen(value));
    }
    ++count;
  }
}
