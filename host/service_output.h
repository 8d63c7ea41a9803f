// The service's standard output as a stream of the host's own.
//
// The service reports by trace lines alone, one printf each, from the thread that has something to
// say. A stream that is flushed at every line therefore lets the host see each step of the service
// on that very thread and before the next one, which is used for more than the trace:
//
//   bound         the line after the bind: this process still has one thread, and the right to the
//                 port is no longer needed
//   serving       the last line of the start
//   worker ended  a worker cannot end without having printed a line on its way, so its thread has
//                 passed through here: an object of that thread is destroyed when the thread ends
//
// Nothing here looks into the service, and nothing is asked again and again.
#ifndef HOST_SERVICE_OUTPUT_H_
#define HOST_SERVICE_OUTPUT_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

// Where lines go. Any thread.
class TraceSink {
 public:
  explicit TraceSink(int fd) { Attach(fd); }

  // Writes to `fd` (-1: nowhere), which stays the caller's, from now on.
  void Attach(int fd);

  // Replaces the open file behind the descriptor by that of `fd`, which the caller closes.
  void Exchange(int fd);

  // Whole lines. Never waits for a reader: what a pipe or a terminal cannot take is counted, and
  // the count is written as soon as there is room.
  void Write(std::string_view lines);

  bool IsOff() const { return off_; }
  int fd() const { return fd_; }

 private:
  std::mutex mutex_;
  int fd_ = -1;
  bool file_ = false;  // a regular file, which never blocks for a reader
  std::uint64_t lost_ = 0;
  bool off_ = true;
};

// What the child wants to know, and when. Called on the thread that printed.
struct ServiceWatch {
  std::string probeName;               // whose queries are kept out of the trace
  std::atomic<std::uint64_t>* passes;  // counts the query thread's datagrams, probes included
  std::function<void()> bound;
  std::function<void()> serving;
  std::function<void(const std::string&)> workerEnded;  // why; must not return
};

// Makes this process's `stdout` a stream that passes lines to `sink`. For the parent, whose only
// lines are those of get_localdns_dnsproxy; a child takes the stream along. Once; `sink` stays the
// caller's for the process's life. False if the system refused.
bool SendOutputTo(TraceSink& sink);

// In the child, before the service is started, on the thread that will: watches its lines.
// `watch` stays the caller's for the process's life.
void WatchOutput(const ServiceWatch& watch);

#endif  // HOST_SERVICE_OUTPUT_H_
