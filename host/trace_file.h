// Where the service's trace goes: nowhere, a file that is rotated, or standard output.
#ifndef HOST_TRACE_FILE_H_
#define HOST_TRACE_FILE_H_

#include <cstdint>
#include <string>

// Owned by the parent. The child writes to a descriptor of its own for the same file.
class TraceFile {
 public:
  // `path`: a file, "-" for standard output, or empty. `keep` rotated files: path.1 is the newest.
  TraceFile(std::string path, std::uint64_t size, int keep)
      : path_(std::move(path)), size_(size), keep_(keep) {}
  ~TraceFile();

  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;

  // Opens the file: mode 0600, appended to. False, with the reason in `error`, if that cannot be
  // done or it is anything but a regular file: a pipe's reader could hold up the service.
  bool Open(std::string& error);

  // Whether Open would succeed, found without making a file.
  bool CanOpen(std::string& error) const;

  // -1 when there is no trace. Changes with every Open.
  int fd() const { return fd_; }
  bool IsFile() const { return !path_.empty() && path_ != "-"; }

  // True if the file has outgrown its size.
  bool Full() const;

  // Moves path to path.1, path.1 to path.2 and so on; the last one goes. The next Open makes a new
  // file. False if the system refused: the old one is written on.
  bool Rotate();

 private:
  const std::string path_;
  const std::uint64_t size_;  // bytes
  const int keep_;
  int fd_ = -1;
};

#endif  // HOST_TRACE_FILE_H_
