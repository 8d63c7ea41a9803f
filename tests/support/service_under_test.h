// StartDnsSrv in a process of its own.
#ifndef TESTS_SUPPORT_SERVICE_UNDER_TEST_H_
#define TESTS_SUPPORT_SERVICE_UNDER_TEST_H_

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/trace_capture.h"

namespace support {

// What the service is started with.
struct Plan {
  std::vector<std::string> servers = {};
  std::vector<std::pair<std::string, std::string>> hostMaps = {};

  // Run in the service's process just before the call.
  std::function<void()> beforeTheCall = {};

  // Run in the service's process after each return of the call, with its result. True: call again.
  std::function<bool(bool)> betweenCalls = {};

  // Off: the trace goes nowhere, for tests with very many queries.
  bool traced = true;
};

// How the process stood when the call, the last one, had returned.
struct Outcome {
  bool result;
  bool applicationSocketOpen;
  bool serverSocketOpen;
  std::size_t methods;  // in g_DnsMethodList
};

// The service's process: one call of StartDnsSrv. After the call's return it lingers, so that
// threads which outlive the call can be watched, and leaves with _exit when this object goes.
class ServiceUnderTest {
 public:
  explicit ServiceUnderTest(const Plan& plan);

  // Ends the process. The test fails if it has ended by itself before, which is what a crash or a
  // sanitizer's report comes to.
  ~ServiceUnderTest();

  ServiceUnderTest(const ServiceUnderTest&) = delete;
  ServiceUnderTest& operator=(const ServiceUnderTest&) = delete;

  // Waits until the service can be asked; when it is traced, until the last line of the start.
  void WaitUntilStarted() const;

  // Waits until the call has returned.
  Outcome WaitForReturn() const;
  bool HasReturned() const;

  pid_t ProcessId() const { return pid_; }

  // True when the process is no more: a crash, or a sanitizer's report.
  bool HasEnded() const;

  // The threads of the process, those of a sanitizer's runtime included.
  int Threads() const;

  // Waits until every thread of the process waits: none runs, or would with a processor.
  bool ComesToRest() const;

  // Everything traced so far.
  TraceLines Trace() const;

  // Waits until the trace holds `line` (see TraceLineMatches).
  bool Traces(const std::string& line) const;

  // Sends one worker a signal that it handles, until its wait has been interrupted, which it says
  // by `line`: a signal that comes while the worker is busy interrupts nothing.
  bool InterruptAnswerThread(const std::string& line) const;
  bool InterruptQueryThread(const std::string& line) const;

 private:
  struct Report;

  [[noreturn]] void Run(const Plan& plan, int leave) const;
  bool HasTraced(const std::string& line) const;
  bool Interrupt(int signal, const std::string& line) const;

  const bool traced_;
  pid_t pid_;
  int trace_;       // a file in memory
  int control_;     // its closing ends the lingering
  Report* report_;  // shared with the process
};

}  // namespace support

#endif  // TESTS_SUPPORT_SERVICE_UNDER_TEST_H_
