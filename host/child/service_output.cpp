#include "host/child/service_output.h"

#include <unistd.h>

#include <cstdio>
#include <string_view>
#include <thread>

#include "host/common/exit_status.h"

namespace {

// The trace lines that are looked for, by the parts of them that never change.
constexpr std::string_view kBound = ") bind 127.0.0.1:53 success";
constexpr std::string_view kQueryThread = "func: thread_query(line:";  // first line of each pass
constexpr std::string_view kName = ") received dns request............";

// Set before the workers exist and constant from then on.
Trace* g_trace = nullptr;
const ServiceWatch* g_watch = nullptr;
std::thread::id g_starter;

bool g_bound = false;  // the starting thread's

// One worker's lines. Made by the first of them, destroyed as the worker's thread ends.
class WorkerLines {
 public:
  ~WorkerLines() {
    g_trace->Write(held_);
    // Its last words, without the place in the program and the blank that may follow.
    last_.erase(0, last_.find(')') + 1);
    last_.erase(0, last_.find_first_not_of(' '));
    last_.erase(last_.find_last_not_of('\n') + 1);
    g_watch->workerEnded((query_ ? "query thread ended: " : "answer thread ended: ") + last_);
  }

  void Add(std::string_view line) {
    // The thread's very first line tells which it is: a name may hold a line feed, and what stands
    // behind that comes as a line, whatever it imitates.
    query_ = query_ || (last_.empty() && line.starts_with(kQueryThread));
    last_ = line;
    if (query_ && line.starts_with(kQueryThread)) {
      g_watch->passes->fetch_add(1, std::memory_order_relaxed);
      g_trace->Write(held_);
      held_.clear();
      holding_ = true;
      probe_ = false;
    }
    if (g_trace->fd() != -1) {
      Pass(line);
    }
  }

 private:
  // The query thread's lines are held until the name is known. Whatever has no name ends the
  // thread.
  void Pass(std::string_view line) {
    if (!holding_) {
      if (!probe_) {
        g_trace->Write(line);
      }
      return;
    }
    held_ += line;
    const std::size_t name = line.find(kName);
    if (name != std::string_view::npos) {
      holding_ = false;
      probe_ = line.substr(name + kName.size()) == g_watch->probeName + "\n";
      g_trace->Write(probe_ ? "" : held_);
      held_.clear();
    }
  }

  bool query_ = false;  // the answer thread's otherwise, which holds nothing
  bool holding_ = false;
  bool probe_ = false;
  std::string held_;
  std::string last_;
};

// A line of the service, on the thread that printed it.
void Line(std::string_view line) {
  if (g_watch != nullptr && std::this_thread::get_id() != g_starter) {
    thread_local WorkerLines lines;
    lines.Add(line);
    return;
  }
  g_trace->Write(line);
  // Once: a process that leaves from in there may be made to flush the stream by its runtime.
  if (g_watch != nullptr && !g_bound && line.find(kBound) != std::string_view::npos) {
    g_bound = true;
    g_watch->bound();
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

void SendOutputTo(Trace& trace) {
  static char buffer[kStreamBuffer];
  FILE* const stream = OpenStream();
  if (stream == nullptr || setvbuf(stream, buffer, _IOLBF, sizeof(buffer)) != 0) {
    throw Failure{kExitFailure, "no memory for an output stream"};
  }
  g_trace = &trace;
  stdout = stream;
}

void WatchOutput(const ServiceWatch& watch) {
  g_starter = std::this_thread::get_id();
  g_watch = &watch;
}
