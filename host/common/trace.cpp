#include "host/common/trace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "host/common/failure.h"

namespace {

int OpenFile(const std::string& path) {
  // Not blocking: opening a pipe without a reader would, and it is refused below anyway.
  const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOFOLLOW, 0600);
  struct stat state;
  if (fd == -1 || fstat(fd, &state) != 0) {
    throw SystemFailure("--trace " + path, kExitBadInput);
  }
  const bool regular = S_ISREG(state.st_mode);
  if (!regular || state.st_uid != geteuid() || state.st_nlink != 1) {
    close(fd);
    throw Failure{kExitBadInput, "--trace " + path +
                                     (regular ? ": belongs to somebody else, or has other names"
                                              : ": not a regular file")};
  }
  return fd;
}

}  // namespace

void Trace::Open() {
  if (!IsFile()) {
    fd_ = path_.empty() ? -1 : STDOUT_FILENO;
    return;
  }
  const int opened = OpenFile(path_);
  fchmod(opened, 0600);  // also one that was there before
  if (fd_ != -1) {
    close(fd_);
  }
  fd_ = opened;
}

void Trace::TryOpen() const {
  if (!IsFile()) {
    return;
  }
  const bool there = access(path_.c_str(), F_OK) == 0;
  close(OpenFile(path_));
  if (!there) {
    unlink(path_.c_str());
  }
}

bool Trace::Full() const {
  struct stat state;
  return IsFile() && fstat(fd_, &state) == 0 && static_cast<std::uint64_t>(state.st_size) > size_;
}

void Trace::Rotate() {
  const auto name = [this](int i) { return path_ + "." + std::to_string(i); };
  if (access(path_.c_str(), F_OK) != 0) {
    return Open();  // somebody has moved it: the others stay as they are
  }
  for (int i = keep_ - 1; i > 0; --i) {
    std::rename(name(i).c_str(), name(i + 1).c_str());  // fails for those that are not there yet
  }
  if ((keep_ == 0 ? unlink(path_.c_str()) : std::rename(path_.c_str(), name(1).c_str())) != 0) {
    throw SystemFailure("--trace " + path_ + " cannot be rotated");
  }
  Open();
}

void Trace::Write(std::string_view lines) {
  if (fd_ == -1 || lines.empty()) {
    return;
  }
  const std::lock_guard<std::mutex> guard(mutex_);
  if (IsFile()) {  // which no reader can block; of a full disk the service does not suffer
    [[maybe_unused]] const ssize_t written = write(fd_, lines.data(), lines.size());
    return;
  }
  if (lost_ > 0 &&
      writer_.Write(fd_, "dns_proxy_host: " + std::to_string(lost_) + " trace lines lost here\n")) {
    lost_ = 0;
  }
  if (lost_ > 0 || !writer_.Write(fd_, lines)) {
    lost_ += static_cast<std::uint64_t>(std::count(lines.begin(), lines.end(), '\n'));
  }
}
