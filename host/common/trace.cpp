#include "host/common/trace.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
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

Trace* g_trace = nullptr;      // constant while there is more than one thread, as is all of this
FILE* g_passing = nullptr;     // the stream that passes lines on
std::function<bool()> g_look;  // empty when nobody looks

// Nothing can be written to standard input's.
void ChooseStream() { stdout = g_trace->fd() == -1 && !g_look ? stdin : g_passing; }

// A line of the service, on the thread that printed it.
void Line(std::string_view line) {
  g_trace->Write(line);
  if (g_look) {
    // Taken away for the call: if that leaves the process, its runtime may flush the stream.
    const std::function<bool()> look = std::exchange(g_look, nullptr);
    g_look = look() ? nullptr : look;
    ChooseStream();
  }
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
  return IsFile() && fstat(fd_, &state) == 0 && static_cast<std::uint64_t>(state.st_size) > size_;
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
  if (fd_ == -1 || lines.empty()) {
    return;
  }
  if (IsFile()) {  // which no reader can block; of a full disk the service does not suffer
    [[maybe_unused]] const ssize_t written = write(fd_, lines.data(), lines.size());
  } else {
    // The stream's lock would do, which no sanitizer sees.
    const std::lock_guard<std::mutex> guard(mutex_);
    writer_.Write(lines);
  }
}

void SendOutputTo(Trace& trace) {
  const auto pass = [](void* /*cookie*/, const char* bytes, auto size) {
    Line({bytes, static_cast<std::size_t>(size)});
    return static_cast<std::make_signed_t<decltype(size)>>(size);
  };
#if defined(__APPLE__)
  g_passing = funopen(nullptr, nullptr, pass, nullptr, nullptr);
#else
  g_passing = fopencookie(nullptr, "w", {nullptr, pass, nullptr, nullptr});
#endif
  static char buffer[kStreamBuffer];
  g_trace = &trace;
  setvbuf(g_passing, buffer, _IOLBF, sizeof(buffer));
  ChooseStream();
}

void LookAfterLines(std::function<bool()> look) {
  g_look = std::move(look);
  ChooseStream();
}
