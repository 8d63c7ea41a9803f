// What the process tells who started it. The manual page lists the same numbers.
#ifndef HOST_COMMON_FAILURE_H_
#define HOST_COMMON_FAILURE_H_

#include <cerrno>
#include <cstring>
#include <string>

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
inline Failure SystemFailure(const std::string& what, int status = kExitFailure) {
  return {status, what + ": " + std::strerror(errno)};
}

#endif  // HOST_COMMON_FAILURE_H_
