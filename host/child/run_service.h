// The child's half of one StartDnsSrv call.
#ifndef HOST_CHILD_RUN_SERVICE_H_
#define HOST_CHILD_RUN_SERVICE_H_

#include <string>
#include <utility>
#include <vector>

#include "host/common/rights.h"
#include "host/common/shared_memory.h"
#include "host/common/trace.h"

struct ServiceTask {
  const std::vector<std::string>& servers;  // StartDnsSrv's arguments
  const std::vector<std::pair<std::string, std::string>>& names;
  const User& user;
  Trace& trace;
  SharedMemory& shared;
  bool guarded;
  std::vector<unsigned char> probe;  // the parent's query
  int channel;                       // to the parent
  int lastChannel;                   // the last child's, which may keep the port; or -1
};

// In a process of its own, just forked: runs the service until a worker or the parent has ended.
[[noreturn]] void RunService(const ServiceTask& task) noexcept;

#endif  // HOST_CHILD_RUN_SERVICE_H_
