#include "host/common/trace.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <type_traits>
#include <utility>

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

// The stream's buffer holds the longest line (a name of 1,023 characters and some words), so that a
// line arrives whole; a thread holds the stream's lock until its line has been passed on.
constexpr std::size_t kStreamBuffer = 8192;

}  // namespace

void Trace::Open() {
  if (IsFile()) {
    const int opened = OpenFile(path_);
    fchmod(opened, 0600);  // also one that was there before
    close(fd_);
    fd_ = opened;
  }
}

void Trace::TryOpen() const {
  if (IsFile()) {
    const bool there = access(path_.c_str(), F_OK) == 0;
    close(OpenFile(path_));
    if (!there) {
      unlink(path_.c_str());
    }
  }
}

bool Trace::Full() const {
  struct stat state;
  return IsFile() && fstat(fd_, &state) == 0 && std::cmp_greater(state.st_size, size_);
}

void Trace::Rotate() {
  const auto name = [this](int i) { return path_ + "." + std::to_string(i); };
  if (access(path_.c_str(), F_OK) == 0) {  // else somebody has moved it: the others stay
    for (int i = keep_ - 1; i > 0; --i) {
      std::rename(name(i).c_str(), name(i + 1).c_str());  // fails for those that are not there yet
    }
    if ((keep_ == 0 ? unlink(path_.c_str()) : std::rename(path_.c_str(), name(1).c_str())) != 0) {
      throw SystemFailure("--trace " + path_ + " cannot be rotated");
    }
  }
  Open();
}

void Trace::Write(std::string_view lines) {
  if (IsFile()) {  // which no reader can block; of a full disk the service does not suffer
    [[maybe_unused]] const ssize_t written = write(fd_, lines.data(), lines.size());
  } else {
    // The stream's lock would do, which no sanitizer sees.
    const std::scoped_lock guard(mutex_);
    writer_.Write(lines);
  }
}

void SendOutputTo(Trace& trace) {
  if (trace.fd() == -1) {
    stdout = stdin;  // which nothing can be written to
    return;
  }
  const auto pass = [](void* cookie, const char* bytes, auto size) {
    static_cast<Trace*>(cookie)->Write({bytes, static_cast<std::size_t>(size)});
    return static_cast<std::make_signed_t<decltype(size)>>(size);
  };
#if defined(__APPLE__)
  stdout = funopen(&trace, nullptr, pass, nullptr, nullptr);
#else
  stdout = fopencookie(&trace, "w", {nullptr, pass, nullptr, nullptr});
#endif
  static char buffer[kStreamBuffer];
  setvbuf(stdout, buffer, _IOLBF, sizeof(buffer));
}
