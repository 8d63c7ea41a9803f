// One child process for each StartDnsSrv call, seen from the parent.
//
// The parent has the port and every child inherits it, so that what comes between two children
// waits in the socket's queue. A port that nobody has would answer at once that nobody is there, and
// clients with a connected socket (dig, the C library) would have used up all their tries by then.
#ifndef HOST_PARENT_SERVICE_PROCESS_H_
#define HOST_PARENT_SERVICE_PROCESS_H_

#include <sys/types.h>

#include <optional>
#include <string>

#include "host/common/rights.h"
#include "host/common/shared_memory.h"
#include "host/common/trace.h"
#include "host/parent/configuration.h"

class ServiceProcess {
 public:
  // The references and the socket at `port` stay the caller's and outlive this. Throws Failure if
  // the system refused.
  ServiceProcess(const Trace& trace, const User& user, bool guarded, int port);

  // Ends the child, if there is one, and waits for its end.
  ~ServiceProcess();

  // Forks a process that runs the service until it ends. There must be none, and the parent must
  // have one thread only. Throws Failure if the system refused.
  void Start(const Configuration& configuration);

  // 0 when there is none.
  pid_t id() const { return process_; }

  // Asks the child to take up a datagram: from the port to the port, where nobody else can send
  // from. Its gate keeps it away from the service.
  void Ask() const;

  // Readable when a query has come that the parent wanted to hear of, until the next Reap(); -1 when
  // there is no channel to a child.
  int fd() const { return channel_; }

  // Gives the child the trace file that is open now.
  void RenewTrace() const;

  // Ends the child, stopped or not. Reap() will say so.
  void Kill(const std::string& why);

  // Why the child has ended, if it has since the last call, and the status that it left with. One
  // that was stopped is killed and comes up later. Does not wait.
  std::optional<Failure> Reap();

  SharedMemory& shared() const { return *shared_; }

 private:
  const Trace& trace_;
  const User& user_;
  const int port_;
  SharedMemory* const shared_;  // to the end of the process
  pid_t process_ = 0;
  int channel_ = -1;  // to the child, which ends when it is closed; or to the last one
  std::string why_;   // it was killed; empty if it was not
};

#endif  // HOST_PARENT_SERVICE_PROCESS_H_
