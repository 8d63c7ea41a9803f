// Where the service's trace goes: nowhere, a file that is rotated, or standard output.
//
// The service reports by trace lines alone, one printf each, from the thread that has something to
// say. A stream that is flushed at every line passes each of them on before the service's next
// step. One that refuses to be written costs next to nothing: printf returns at once.
#ifndef HOST_COMMON_TRACE_H_
#define HOST_COMMON_TRACE_H_

#include <unistd.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "host/common/log.h"

// The parent opens and rotates the file. The child has the object with the descriptor that was open
// when it was forked, and writes.
class Trace {
 public:
  // `path`: a file, "-" for standard output, or empty. `keep` rotated files: path.1 is the newest.
  Trace(std::string path, std::uint64_t size, int keep)
      : path_(std::move(path)), size_(size), keep_(keep) {}

  // Opens the file, anew if it is open: mode 0600, appended to. Throws Failure if that cannot be
  // done or it is anything but a regular file of this user's own with one name: a pipe's reader
  // could hold up the service, and another owner could read the names.
  void Open();

  // Whether Open would succeed: throws as it does, and changes nothing.
  void TryOpen() const;

  // Whether the file has outgrown its size.
  bool Full() const;

  // Moves path to path.1, path.1 to path.2 and so on; the last one goes. Then opens a new file.
  // Throws Failure; the old file is written on then.
  void Rotate();

  // -1 when there is no trace.
  int fd() const { return fd_; }
  bool IsFile() const { return !path_.empty() && path_ != "-"; }

  // Whole lines, from any thread, to what is open. Never waits for a reader.
  void Write(std::string_view lines);

 private:
  const std::string path_;
  const std::uint64_t size_;  // bytes
  const int keep_;
  int fd_ = path_ == "-" ? STDOUT_FILENO : -1;
  std::mutex mutex_;
  LineWriter writer_{STDOUT_FILENO, "trace lines"};  // to standard output
};

// Makes this process's `stdout` a stream that passes lines to `trace`, or refuses them when there
// is no trace. Once; `trace` stays the caller's for the process's life. Before any other
// thread; a child that is forked takes the stream along.
void SendOutputTo(Trace& trace);

#endif  // HOST_COMMON_TRACE_H_
