// The host's own messages: one line each on standard error, with time (UTC) and level.
#ifndef HOST_COMMON_LOG_H_
#define HOST_COMMON_LOG_H_

#include <string>
#include <string_view>
#include <vector>

// Writes one line; `level` is "info", "warning" or "error".
void Log(const char* level, const std::string& text);

// `text` with every byte that is not printable ASCII as '?': it cannot draw on a terminal, nor
// begin a line of its own.
std::string Printable(std::string text);

// "a, b, c".
std::string Joined(const std::vector<std::string>& texts, const std::string& separator = ", ");

// Writes to `fd` (below 1024) as far as that does not block: false when a reader that is stuck, or a full disk,
// has cost some bytes.
bool WriteIfRoom(int fd, std::string_view bytes);

#endif  // HOST_COMMON_LOG_H_
