// Small files, read whole.
#ifndef HOST_COMMON_FILES_H_
#define HOST_COMMON_FILES_H_

#include <optional>
#include <string>

// What the regular file at `path` holds; nothing if there is none, or it cannot be read to its end.
std::optional<std::string> ReadFile(const std::string& path);

#endif  // HOST_COMMON_FILES_H_
