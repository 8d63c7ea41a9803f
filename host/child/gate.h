// Where a datagram goes before the service sees it: on the worker's own thread, inside the receive
// call of its handler (system_calls.cpp). The guard judges, the gate acts.
//
// A worker that has been here once has an object of its thread. That is destroyed when the thread
// ends, and tells.
#ifndef HOST_CHILD_GATE_H_
#define HOST_CHILD_GATE_H_

#include <netinet/in.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/child/guard.h"
#include "host/common/shared_memory.h"

class Gate {
 public:
  // The child's one gate, from the moment that it is set here; null in every other process. Set
  // before there are workers.
  static inline Gate* current_ = nullptr;

  // `guarded`: false to keep away nothing but probes and to change nothing. `probe`: a query that
  // nobody but the parent can send. `workerEnded` is called on a worker's thread as that ends, and
  // must not return.
  Gate(SharedMemory& shared, bool guarded, std::vector<unsigned char> probe,
       std::function<void(const std::string& why)> workerEnded);

  // `sender` has sent `datagram` to `sock`: how many of its bytes the service is to see; none, if
  // it is to see nothing of it. Takes the OPT record off a query that the service will answer by
  // itself; whatever comes to other sockets passes.
  std::optional<std::size_t> Admit(int sock, std::span<unsigned char> datagram,
                                   const sockaddr_in& sender);

 private:
  // One worker's thread.
  struct Worker {
    ~Worker();

    Gate& gate;
    const char* name;
    Verdict verdict;  // of its last datagram
  };

  std::optional<std::size_t> AdmitQuery(std::span<unsigned char> query, const sockaddr_in& sender);
  std::optional<std::size_t> AdmitAnswer(Datagram answer);

  // Whether the service may see what has been judged so.
  bool Passes(Verdict verdict) const { return verdict == Verdict::kPasses || !guarded_; }

  SharedMemory& shared_;
  const bool guarded_;
  const std::vector<unsigned char> probe_;
  const std::function<void(const std::string& why)> workerEnded_;
  sockaddr_in prober_ = {};  // the query thread's: who has sent the last probe
};

#endif  // HOST_CHILD_GATE_H_
