// The host's own messages: one line each on standard error, with time (UTC) and level. In systemd's
// journal, which has the time, with the level as sd-daemon(3) says.
#ifndef HOST_COMMON_LOG_H_
#define HOST_COMMON_LOG_H_

#include <string>

// Writes one line; `level` is "info", "warning" or "error". Drops it when nobody reads.
void Log(const char* level, const std::string& text);

#endif  // HOST_COMMON_LOG_H_
