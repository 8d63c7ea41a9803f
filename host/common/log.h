// What the host tells: lines for people, and a status for who started it. No line waits for a
// reader that may be slow, stuck or gone.
#ifndef HOST_COMMON_LOG_H_
#define HOST_COMMON_LOG_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// The manual page lists the same numbers.
inline constexpr int kExitDone = 0;        // stopped by a signal; --check or --status succeeded
inline constexpr int kExitFailure = 1;     // the system refused something that is needed
inline constexpr int kExitBadInput = 2;    // an option, a static name or a hosts file
inline constexpr int kExitPortTaken = 3;   // another process holds UDP 127.0.0.1 port 53
inline constexpr int kExitNoRight = 4;     // no right to the port, or to become another user
inline constexpr int kExitNoUpstream = 5;  // no server given, and none found
inline constexpr int kExitNoHost = 6;      // --status: no host answers at the socket

// Why this process cannot go on, as a sentence for the log, and the status it leaves with.
struct Failure {
  int status;
  std::string why;
};

// The same for a call that the system has refused, with the reason that is in errno.
Failure SystemFailure(const std::string& what, int status = kExitFailure);

// Writes one line on standard error, with time (UTC) and level: "info", "warning" or "error". In
// systemd's journal, which has the time, with the level as sd-daemon(3) says.
void Log(const char* level, const std::string& text);

// `text` with every byte that is not printable ASCII as '?': it cannot draw on a terminal, nor
// begin a line of its own.
std::string Printable(std::string text);

// "a, b, c".
std::string Joined(const std::vector<std::string>& texts);

// Writes to a descriptor below 1024 without waiting. One thread at a time.
class LineWriter {
 public:
  // `what` the lines are called when some are lost.
  LineWriter(int fd, const char* what) : fd_(fd), what_(what) {}

  // Writes whole lines: now, or what there is no room for with the next calls. While some of it is
  // left further lines are counted, and the count is written in their place.
  void Write(std::string_view lines);

 private:
  void WriteRest();

  const int fd_;
  const char* const what_;
  std::string rest_;  // has not been written yet
  std::size_t lost_ = 0;
};

#endif  // HOST_COMMON_LOG_H_
