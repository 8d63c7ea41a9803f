// The host's own messages: one line each on standard error, with time (UTC) and level.
#ifndef HOST_LOG_H_
#define HOST_LOG_H_

#include <cstddef>
#include <string>

enum class Level { kInfo, kWarning, kError };

// Writes one line; `format` is a printf format without a line feed. Characters that could draw on a
// terminal or begin a line of their own are shown as '?'.
void Log(Level level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// `text` with every byte that is not printable ASCII as '?'.
std::string Printable(std::string text);

// Writes `size` bytes to `fd` as far as that does not block: false when a reader that is stuck, or a
// full disk, has cost some of them.
bool WriteIfRoom(int fd, const char* bytes, std::size_t size);

#endif  // HOST_LOG_H_
