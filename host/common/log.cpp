#include "host/common/log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "host/common/line_writer.h"
#include "host/common/text.h"

namespace {

// systemd names the file that it has connected to the journal: "device:inode".
bool IsJournal(int fd) {
  const char* const named = std::getenv("JOURNAL_STREAM");
  struct stat file = {};
  return named != nullptr && fstat(fd, &file) == 0 &&
         named == std::to_string(file.st_dev) + ":" + std::to_string(file.st_ino);
}

std::string TimeAndName() {
  const std::time_t now = std::time(nullptr);
  std::tm date;
  gmtime_r(&now, &date);
  char time[32];
  std::strftime(time, sizeof(time), "%Y-%m-%dT%H:%M:%SZ", &date);
  return std::string(time) + " dns_proxy_host ";
}

}  // namespace

void Log(const char* level, const std::string& text) {
  static LineWriter writer;
  static const bool toJournal = IsJournal(STDERR_FILENO);
  // syslog's numbers, by the first letter: error, warning, info.
  const char* const number = *level == 'e' ? "<3>" : *level == 'w' ? "<4>" : "<6>";
  writer.Write(STDERR_FILENO,
               (toJournal ? number : TimeAndName() + level + ": ") + Printable(text) + "\n");
}
