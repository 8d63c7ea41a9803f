#include "host/common/log.h"

#include <unistd.h>

#include <ctime>

#include "host/common/line_writer.h"
#include "host/common/text.h"

void Log(const char* level, const std::string& text) {
  static LineWriter writer;
  const std::time_t now = std::time(nullptr);
  std::tm date;
  gmtime_r(&now, &date);
  char time[32];
  std::strftime(time, sizeof(time), "%Y-%m-%dT%H:%M:%SZ", &date);
  writer.Write(STDERR_FILENO,
               std::string(time) + " dns_proxy_host " + level + ": " + Printable(text) + "\n");
}
