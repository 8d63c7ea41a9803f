// The child's half of one StartDnsSrv call.
#ifndef HOST_CHILD_RUN_SERVICE_H_
#define HOST_CHILD_RUN_SERVICE_H_

#include <string>
#include <utility>
#include <vector>

#include "host/common/rights.h"
#include "host/common/shared_memory.h"
#include "host/common/trace.h"

// In a process of its own, just forked: runs the service until a worker or the parent has ended.
// `port` is the socket that the service is to answer at; `channel` leads to the parent. `servers`
// and `names` are StartDnsSrv's arguments.
[[noreturn]] void RunService(const std::vector<std::string>& servers,
                             const std::vector<std::pair<std::string, std::string>>& names,
                             const User& user, const Trace& trace, SharedMemory& shared, int port,
                             int channel) noexcept;

#endif  // HOST_CHILD_RUN_SERVICE_H_
