// What the system says of the service's process and of the network.
#ifndef TESTS_STRESS_SOAK_MEASURES_H_
#define TESTS_STRESS_SOAK_MEASURES_H_

#include <sys/types.h>

namespace soak {

// Memory of its own in use (resident, anonymous), in KiB.
long MemoryInUse(pid_t process);

// The most that was resident at any time, code included, in KiB.
long PeakResident(pid_t process);

// Datagrams that the system has dropped on any socket of this network, for want of room. None of
// them may be blamed on the service.
long DroppedBySystem();

}  // namespace soak

#endif  // TESTS_STRESS_SOAK_MEASURES_H_
