// One child process for each StartDnsSrv call, seen from the parent.
//
// The port outlives the child that holds it. A child sends the socket that the service has bound to
// its parent, which leaves it in the queue of their line: what lies there stays open. The next child
// closes that queue the moment before it calls StartDnsSrv. A port that nobody has would answer at
// once that nobody is there, and clients with a connected socket (dig, the C library) would have
// used up all their tries by then; so they wait and ask again.
#ifndef HOST_PARENT_SERVICE_PROCESS_H_
#define HOST_PARENT_SERVICE_PROCESS_H_

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "host/common/rights.h"
#include "host/common/trace.h"
#include "host/parent/configuration.h"

class ServiceProcess {
 public:
  // The references stay the caller's and outlive this.
  ServiceProcess(Trace& trace, const User& user, std::string probeName);

  // Ends the child, if there is one, and waits for its end.
  ~ServiceProcess();

  // Forks a process that runs the service until it ends. There must be none, and the parent must
  // have one thread only. Throws Failure if the system refused.
  void Start(const Configuration& configuration);

  // 0 when there is none.
  pid_t id() const { return process_; }

  // Gives the child the trace file that is open now.
  void RenewTrace() const;

  // Ends the child, stopped or not. Ended() will say so.
  void Kill(const std::string& why);

  // Why the child has ended, if it has since the last call. One that was stopped is killed and
  // comes up later. Does not wait. Throws Failure if it could not become the user it was to be;
  // once one has `served` that is no more than a reason to start again.
  std::optional<std::string> Ended(bool served);

  // Whether the last child's line keeps the port for the next one: no other process can have it.
  bool KeepsPort() const;

  // Datagrams that the query threads of all children have taken up, probes included.
  std::uint64_t passes() const { return shared_->passes.load(std::memory_order_relaxed); }

 private:
  // Memory of parent and child.
  struct Shared {
    std::atomic<std::uint64_t> passes;
    char why[256];  // the child leaves; read after its end
  };

  // In the child.
  [[noreturn]] void Run(const Configuration& configuration, int line) noexcept;
  void HoldsPort(int line);
  [[noreturn]] void Leave(int status, const std::string& why);

  Trace& trace_;
  const User& user_;
  const std::string probeName_;
  Shared* const shared_;
  pid_t process_ = 0;
  std::mutex leaving_;  // the child's: locked for good by the thread that leaves
  int line_ = -1;       // to the child, which ends when it is closed; or from the last one
  std::string why_;     // it was killed; empty if it was not
};

#endif  // HOST_PARENT_SERVICE_PROCESS_H_
