// What parent and child both see. It outlives each child: counts are those of all of them together.
#ifndef HOST_COMMON_SHARED_MEMORY_H_
#define HOST_COMMON_SHARED_MEMORY_H_

#include <array>
#include <atomic>
#include <cstdint>

#include "host/common/verdict.h"

struct SharedMemory {
  using Count = std::atomic<std::uint64_t>;

  // Written by the workers of the child.
  Count received;                                    // datagrams of applications, probes included
  std::array<Count, kVerdictNames.size()> verdicts;  // of kPasses: the queries that have passed
  Count optRecords;                                  // taken off queries

  // The parent wants to hear of the next query. Set by the parent, taken back by the query thread.
  std::atomic<bool> wakeParent;

  // Why the child leaves; read after its end.
  char why[256];

  Count& verdict(Verdict verdict) { return verdicts[static_cast<std::size_t>(verdict)]; }
};

#endif  // HOST_COMMON_SHARED_MEMORY_H_
