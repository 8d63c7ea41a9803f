#include "host/service_output.h"

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "host/log.h"

namespace {

// The trace lines that are looked for, by the parts of them that never change.
constexpr std::string_view kBound = ") bind 127.0.0.1:53 success";
constexpr std::string_view kServing = ") pthread_create thread_query success";
constexpr std::string_view kQueryThread = "func: thread_query(line:";  // first line of each pass
constexpr std::string_view kName = ") received dns request............";

// Set before the workers exist and constant from then on.
TraceSink* g_sink = nullptr;
const ServiceWatch* g_watch = nullptr;
pthread_t g_starter;

bool StartsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

// One worker's lines. Made by the first of them, destroyed as the worker's thread ends.
class WorkerLines {
 public:
  ~WorkerLines() {
    g_sink->Write(held_);
    // Its last words, without the place in the program and the blank that may follow.
    std::string last(last_, lastSize_);
    last.erase(0, last.find(')') + 1);
    last.erase(0, last.find_first_not_of(' '));
    last.erase(last.find_last_not_of('\n') + 1);
    g_watch->workerEnded((query_ ? "query thread ended: " : "answer thread ended: ") + last);
  }

  void Add(std::string_view line) {
    lastSize_ = line.copy(last_, sizeof(last_));
    if (StartsWith(line, kQueryThread)) {
      query_ = true;
      g_watch->passes->fetch_add(1, std::memory_order_relaxed);
      part_ = Part::kUnknown;
    }
    if (!g_sink->IsOff()) {
      Pass(line);
    }
  }

 private:
  // The query thread's lines are held until the name is known. Whatever has no name ends the
  // thread.
  void Pass(std::string_view line) {
    if (part_ == Part::kUnknown) {
      held_ += line;
      const std::size_t name = line.find(kName);
      if (name != std::string_view::npos) {
        const bool probe = StartsWith(line.substr(name + kName.size()), g_watch->probeName + "\n");
        part_ = probe ? Part::kProbe : Part::kTraffic;
        if (!probe) {
          g_sink->Write(held_);
        }
        held_.clear();
      }
    } else if (part_ == Part::kTraffic) {
      g_sink->Write(line);
    }
  }

  enum class Part { kUnknown, kProbe, kTraffic };

  Part part_ = Part::kTraffic;  // the answer thread has nothing else
  bool query_ = false;
  std::string held_;
  char last_[256];
  std::size_t lastSize_ = 0;
};

// A line of the service, on the thread that printed it.
void Line(std::string_view line) {
  if (g_watch == nullptr) {
    g_sink->Write(line);
    return;
  }
  if (pthread_equal(pthread_self(), g_starter) == 0) {
    thread_local WorkerLines lines;
    lines.Add(line);
    return;
  }
  g_sink->Write(line);
  // Once: a process that leaves from in there may be made to flush the stream by its runtime.
  static bool bound = false;
  if (Contains(line, kBound) && !bound) {
    bound = true;
    g_watch->bound();
  } else if (Contains(line, kServing)) {
    g_watch->serving();
  }
}

// The stream's buffer holds the longest line (a name of 1,023 characters and some words), so that a
// line arrives whole; a thread holds the stream's lock until its line has been passed on.
constexpr std::size_t kStreamBuffer = 8192;

#if defined(__APPLE__)
int WriteStream(void* /*cookie*/, const char* bytes, int size) {
  Line({bytes, static_cast<std::size_t>(size)});
  return size;
}

FILE* OpenStream() { return funopen(nullptr, nullptr, WriteStream, nullptr, nullptr); }
#else
ssize_t WriteStream(void* /*cookie*/, const char* bytes, std::size_t size) {
  Line({bytes, size});
  return static_cast<ssize_t>(size);
}

FILE* OpenStream() { return fopencookie(nullptr, "w", {nullptr, WriteStream, nullptr, nullptr}); }
#endif

}  // namespace

void TraceSink::Attach(int fd) {
  const std::lock_guard<std::mutex> guard(mutex_);
  struct stat state;
  fd_ = fd;
  off_ = fd == -1;
  file_ = !off_ && fstat(fd, &state) == 0 && S_ISREG(state.st_mode);
}

void TraceSink::Exchange(int fd) {
  const std::lock_guard<std::mutex> guard(mutex_);
  dup2(fd, fd_);
}

void TraceSink::Write(std::string_view lines) {
  if (off_ || lines.empty()) {
    return;
  }
  const std::lock_guard<std::mutex> guard(mutex_);
  if (file_) {
    if (write(fd_, lines.data(), lines.size()) == -1) {
      ++lost_;  // a full disk; the service does not suffer from it
    }
    return;
  }
  if (lost_ > 0) {
    const std::string note =
        "dns_proxy_host: " + std::to_string(lost_) + " trace lines lost here\n";
    if (WriteIfRoom(fd_, note.data(), note.size())) {
      lost_ = 0;
    }
  }
  if (lost_ > 0 || !WriteIfRoom(fd_, lines.data(), lines.size())) {
    ++lost_;
  }
}

bool SendOutputTo(TraceSink& sink) {
  static char buffer[kStreamBuffer];
  FILE* const stream = OpenStream();
  if (stream == nullptr || setvbuf(stream, buffer, _IOLBF, sizeof(buffer)) != 0) {
    return false;
  }
  g_sink = &sink;
  stdout = stream;
  return true;
}

void WatchOutput(const ServiceWatch& watch) {
  g_starter = pthread_self();
  g_watch = &watch;
}
