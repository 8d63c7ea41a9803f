// One child process for each StartDnsSrv call, seen from the parent.
//
// The port outlives the child that holds it. A child sends the socket that the service has bound to
// its parent, which leaves it in the queue of their channel: what lies there stays open. The next
// child closes that queue the moment before it calls StartDnsSrv. A port that nobody has would
// answer at once that nobody is there, and clients with a connected socket (dig, the C library)
// would have used up all their tries by then; so they wait and ask again.
#ifndef HOST_PARENT_SERVICE_PROCESS_H_
#define HOST_PARENT_SERVICE_PROCESS_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "host/common/rights.h"
#include "host/common/shared_memory.h"
#include "host/common/trace.h"
#include "host/parent/configuration.h"

class ServiceProcess {
 public:
  // The references stay the caller's and outlive this.
  ServiceProcess(Trace& trace, const User& user, bool guarded);

  // Ends the child, if there is one, and waits for its end.
  ~ServiceProcess();

  // Forks a process that runs the service until it ends, and answers `probe` at the port. There
  // must be none, and the parent must have one thread only. Throws Failure if the system refused.
  void Start(const Configuration& configuration, const std::vector<unsigned char>& probe);

  // 0 when there is none.
  pid_t id() const { return process_; }

  // Gives the child the trace file that is open now.
  void RenewTrace() const;

  // Ends the child, stopped or not. Reap() will say so.
  void Kill(const std::string& why);

  // How the child has ended (waitpid's status), if it has since the last call. One that was stopped
  // is killed and comes up later. Does not wait.
  std::optional<int> Reap();

  // Why the child that ended with `status` has.
  std::string Reason(int status) const;

  // Whether the last child's channel keeps the port for the next one: no other process can have it.
  bool KeepsPort() const;

  SharedMemory& shared() const { return *shared_; }

 private:
  Trace& trace_;
  const User& user_;
  const bool guarded_;
  SharedMemory* const shared_;
  pid_t process_ = 0;
  int channel_ = -1;  // to the child, which ends when it is closed; or from the last one
  std::string why_;   // it was killed; empty if it was not
};

#endif  // HOST_PARENT_SERVICE_PROCESS_H_
