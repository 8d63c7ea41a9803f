#include "host/trace_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

TraceFile::~TraceFile() {
  if (IsFile() && fd_ != -1) {
    close(fd_);
  }
}

bool TraceFile::Open(std::string& error) {
  if (!IsFile()) {
    fd_ = path_.empty() ? -1 : STDOUT_FILENO;
    return true;
  }
  // Not blocking: opening a pipe without a reader would, and it is refused below anyway.
  const int opened = open(
      path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC, 0600);
  struct stat state;
  if (opened == -1 || fstat(opened, &state) != 0) {
    error = "--trace " + path_ + ": " + std::strerror(errno);
    return false;
  }
  if (!S_ISREG(state.st_mode)) {
    close(opened);
    error = "--trace " + path_ + ": not a regular file";
    return false;
  }
  fchmod(opened, 0600);  // also one that was there before
  if (fd_ != -1) {
    close(fd_);
  }
  fd_ = opened;
  return true;
}

bool TraceFile::CanOpen(std::string& error) const {
  struct stat state;
  const bool there = stat(path_.c_str(), &state) == 0;
  const std::size_t slash = path_.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path_.substr(0, slash + 1);
  if (!IsFile() || (there && S_ISREG(state.st_mode) && access(path_.c_str(), W_OK) == 0) ||
      (!there && access(folder.c_str(), W_OK | X_OK) == 0)) {
    return true;
  }
  error = "--trace " + path_ + ": " +
          (there && !S_ISREG(state.st_mode) ? "not a regular file" : std::strerror(errno));
  return false;
}

bool TraceFile::Full() const {
  struct stat state;
  return IsFile() && fd_ != -1 && fstat(fd_, &state) == 0 &&
         static_cast<std::uint64_t>(state.st_size) > size_;
}

bool TraceFile::Rotate() {
  if (keep_ == 0) {
    return unlink(path_.c_str()) == 0;
  }
  for (int i = keep_ - 1; i >= 1; --i) {
    // Fails for those that are not there yet.
    std::rename((path_ + "." + std::to_string(i)).c_str(),
                (path_ + "." + std::to_string(i + 1)).c_str());
  }
  return std::rename(path_.c_str(), (path_ + ".1").c_str()) == 0;
}
