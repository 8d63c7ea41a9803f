#include "host/trace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "host/exit_status.h"
#include "host/log.h"

void Trace::Open() {
  if (!IsFile()) {
    fd_ = path_.empty() ? -1 : STDOUT_FILENO;
    return;
  }
  // Not blocking: opening a pipe without a reader would, and it is refused below anyway.
  const int opened =
      open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOFOLLOW, 0600);
  struct stat state;
  if (opened == -1 || fstat(opened, &state) != 0) {
    throw SystemFailure("--trace " + path_, kExitBadInput);
  }
  if (!S_ISREG(state.st_mode)) {
    close(opened);
    throw Failure{kExitBadInput, "--trace " + path_ + ": not a regular file"};
  }
  fchmod(opened, 0600);  // also one that was there before
  if (fd_ != -1) {
    close(fd_);
  }
  fd_ = opened;
}

void Trace::TryOpen() {
  const bool there = access(path_.c_str(), F_OK) == 0;
  Open();
  if (IsFile()) {
    close(fd_);
  }
  fd_ = -1;
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
      WriteIfRoom(fd_, "dns_proxy_host: " + std::to_string(lost_) + " trace lines lost here\n")) {
    lost_ = 0;
  }
  if (lost_ > 0 || !WriteIfRoom(fd_, lines)) {
    ++lost_;
  }
}
