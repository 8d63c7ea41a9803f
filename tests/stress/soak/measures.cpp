#include "tests/stress/soak/measures.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace soak {

namespace {

long StatusField(pid_t process, const std::string& name) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(name, 0) == 0) {
      return std::strtol(line.c_str() + name.size(), nullptr, 10);
    }
  }
  return -1;
}

}  // namespace

long MemoryInUse(pid_t process) { return StatusField(process, "RssAnon:"); }

long PeakResident(pid_t process) { return StatusField(process, "VmHWM:"); }

long DroppedBySystem() {
  std::ifstream sockets("/proc/self/net/udp");
  std::string line;
  std::getline(sockets, line);  // the head of the table; the last column is the drops
  long dropped = 0;
  while (std::getline(sockets, line)) {
    std::istringstream columns(line);
    const std::vector<std::string> fields(std::istream_iterator<std::string>(columns), {});
    dropped += fields.empty() ? 0 : std::strtol(fields.back().c_str(), nullptr, 10);
  }
  return dropped;
}

}  // namespace soak
