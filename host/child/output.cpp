#include "host/child/output.h"

#include <cstdio>
#include <string_view>
#include <utility>

#include "host/common/failure.h"

namespace {

Trace* g_trace = nullptr;      // constant while there is more than one thread, as is all of this
FILE* g_passing = nullptr;     // the stream that passes lines on
FILE* g_refusing = nullptr;    // and the one that can only be read
std::function<bool()> g_look;  // empty when nobody looks

// The one that the lines are for when nobody looks.
void ChooseStream() { stdout = g_trace->fd() == -1 && !g_look ? g_refusing : g_passing; }

// A line of the service, on the thread that printed it.
void Line(std::string_view line) {
  g_trace->Write(line);
  if (g_look) {
    // Taken away for the call: if that leaves the process, its runtime may flush the stream.
    std::function<bool()> look = std::exchange(g_look, nullptr);
    if (!look()) {
      g_look = std::move(look);
    }
    ChooseStream();
  }
}

#if defined(__APPLE__)
int WriteStream(void* /*cookie*/, const char* bytes, int size) {
  Line({bytes, static_cast<std::size_t>(size)});
  return size;
}

int ReadNothing(void* /*cookie*/, char* /*bytes*/, int /*size*/) { return 0; }

FILE* OpenPassing() { return funopen(nullptr, nullptr, WriteStream, nullptr, nullptr); }
FILE* OpenRefusing() { return funopen(nullptr, ReadNothing, nullptr, nullptr, nullptr); }
#else
ssize_t WriteStream(void* /*cookie*/, const char* bytes, std::size_t size) {
  Line({bytes, size});
  return static_cast<ssize_t>(size);
}

FILE* OpenPassing() { return fopencookie(nullptr, "w", {nullptr, WriteStream, nullptr, nullptr}); }
FILE* OpenRefusing() { return fopencookie(nullptr, "r", {nullptr, nullptr, nullptr, nullptr}); }
#endif

// The stream's buffer holds the longest line (a name of 1,023 characters and some words), so that a
// line arrives whole; a thread holds the stream's lock until its line has been passed on.
constexpr std::size_t kStreamBuffer = 8192;

}  // namespace

void SendOutputTo(Trace& trace) {
  static char buffer[kStreamBuffer];
  g_trace = &trace;
  g_passing = OpenPassing();
  g_refusing = OpenRefusing();
  if (g_passing == nullptr || g_refusing == nullptr ||
      setvbuf(g_passing, buffer, _IOLBF, sizeof(buffer)) != 0) {
    throw Failure{kExitFailure, "no memory for an output stream"};
  }
  ChooseStream();
}

void LookAfterLines(std::function<bool()> look) {
  g_look = std::move(look);
  ChooseStream();
}
