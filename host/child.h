// One child process for each StartDnsSrv call, seen from the parent.
#ifndef HOST_CHILD_H_
#define HOST_CHILD_H_

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/configuration.h"
#include "host/rights.h"
#include "host/service_output.h"

// How a child leaves by itself.
inline constexpr int kChildServiceEnded = 1;  // StartDnsSrv returned, or a worker ended
inline constexpr int kChildNoRights = 2;      // it could not become the user it was to be

class Child {
 public:
  struct Ending {
    int status;                      // as waitpid gives it
    bool stopped;                    // by a signal, and killed for that
    std::vector<std::string> heard;  // its last messages
  };

  // The references stay the caller's and outlive the child.
  Child(TraceSink& sink, const User& user, std::string probeName);
  ~Child();

  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // Forks a process that runs the service until it ends. The parent must have one thread only.
  // False if the system refused.
  bool Start(const Configuration& configuration);

  bool IsThere() const { return process_ > 0; }
  pid_t process() const { return process_; }

  // The parent's end of the line between the two. Readable when the child has said something; the
  // child ends when it is closed, so that no service outlives the parent.
  int line() const { return line_; }

  // What the child has said since the last call: "serving", or why it ends. Does not wait.
  std::vector<std::string> Heard();

  // Gives the child the trace file that replaces its present one.
  void HandTraceFile(int fd) const;

  // Ends it, stopped or not. Gone() will say so.
  void Kill() const;

  // What became of the child if it has ended since the last call. One that was stopped is killed
  // and comes up later. Does not wait.
  std::optional<Ending> Gone();

  // Waits for the end after a Kill.
  void AwaitEnd();

  // Datagrams that the query threads of all children have taken up, probes included.
  std::uint64_t passes() const { return passes_->load(std::memory_order_relaxed); }

 private:
  [[noreturn]] void Run(const Configuration& configuration, int line);
  void Forget();

  TraceSink& sink_;
  const User& user_;
  const std::string probeName_;
  std::atomic<std::uint64_t>* passes_;  // in memory that parent and children share
  pid_t process_ = 0;
  int line_ = -1;
  bool stopped_ = false;
  std::string unread_;  // the beginning of a message
};

#endif  // HOST_CHILD_H_
