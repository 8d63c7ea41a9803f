// The service in a process of its own, and what that process weighs.
#ifndef TESTS_STRESS_SOAK_SERVICE_UNDER_SOAK_H_
#define TESTS_STRESS_SOAK_SERVICE_UNDER_SOAK_H_

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace soak {

class ServiceUnderSoak {
 public:
  // Starts StartDnsSrv with the soak's servers and these mappings, the trace going nowhere, and
  // waits until its port is taken.
  explicit ServiceUnderSoak(const std::vector<std::pair<std::string, std::string>>& hostMaps);

  // Ends the process.
  ~ServiceUnderSoak();

  ServiceUnderSoak(const ServiceUnderSoak&) = delete;
  ServiceUnderSoak& operator=(const ServiceUnderSoak&) = delete;

  // False when it has ended by itself: a crash, a sanitizer's report, or a service that gave up.
  bool IsRunning() const;

  // Memory of its own in use (resident, anonymous), in KiB.
  long MemoryInUse() const { return StatusField("RssAnon:"); }

  // The most that was resident at any time, code included, in KiB.
  long PeakResident() const { return StatusField("VmHWM:"); }

 private:
  long StatusField(const std::string& name) const;

  pid_t pid_;
};

// Datagrams that the system has dropped on any socket of this network, for want of room. None of
// them may be blamed on the service.
long DroppedBySystem();

}  // namespace soak

#endif  // TESTS_STRESS_SOAK_SERVICE_UNDER_SOAK_H_
