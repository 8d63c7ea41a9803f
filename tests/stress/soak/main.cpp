// dns_proxy_soak: very many queries through the running service, and a table of what became of
// them.
//   dns_proxy_soak queries N
//   dns_proxy_soak minutes M
//
// Exits with 1 on any loss, wrong answer, or memory that does not come back; with 77 when the
// machine does not allow a network of its own.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/stress/soak/measures.h"
#include "tests/stress/soak/questions.h"
#include "tests/stress/soak/world.h"
#include "tests/support/isolation.h"
#include "tests/support/run_length.h"
#include "tests/support/service_under_test.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kUsage = 2;
constexpr int kSkipped = 77;

// How long nothing at all may happen before what is in flight counts as lost. A busy machine is no
// reason to call a query lost.
constexpr std::chrono::seconds kPatience{20};

// After so many queries every identifier has been in use, so that the table has its final size, and
// the allocator has seen the load that is to come.
constexpr long kWarmUp = 100'000;
constexpr long kSampleEvery = 20'000;

// What the memory may differ by before and after: the allocator's own doing. Less than a byte for
// each query of a long run.
constexpr long kMemoryTolerance = 1024;  // KiB

void Row(const char* what, long number) { std::printf("  %-44s %12ld\n", what, number); }

}  // namespace

int main(int argc, char** argv) {
  support::Isolate(argv);
  const std::string unit = argc == 3 ? argv[1] : "";
  const double amount = unit.empty() ? 0 : std::strtod(argv[2], nullptr);
  if (!(amount > 0) || (unit != "queries" && unit != "minutes")) {
    std::fprintf(stderr, "usage: dns_proxy_soak queries N | minutes M\n");
    return kUsage;
  }
  const long queries = unit == "queries" ? static_cast<long>(amount) : 0;
  const double minutes = unit == "minutes" ? amount : 0;
  if (const std::string why = support::WhyNotIsolated(); !why.empty()) {
    std::printf("skipped: %s\n", why.c_str());
    return kSkipped;
  }

  const auto began = Clock::now();
  const auto deadline = queries > 0
                            ? Clock::time_point::max()
                            : began + std::chrono::duration_cast<Clock::duration>(
                                          std::chrono::duration<double, std::ratio<60>>(minutes));
  const soak::Questions questions;
  const support::ServiceUnderTest service(
      {.servers = {soak::kServerAddresses.begin(), soak::kServerAddresses.end()},
       .hostMaps = questions.HostMaps(),
       .traced = false});
  service.WaitUntilStarted();
  const long memoryAtStart = soak::MemoryInUse(service.ProcessId());
  soak::World world(questions);
  const soak::Count& count = world.Counted();

  const auto ask = [&](long number) { world.Ask(number, deadline, kPatience); };
  ask(queries > 0 ? std::min(kWarmUp, queries / 2) : kWarmUp);
  const long memoryAtBase = soak::MemoryInUse(service.ProcessId());
  long memoryAtMost = memoryAtBase;
  while ((queries == 0 || count.asked < queries) && Clock::now() < deadline && count.lost == 0 &&
         !service.HasEnded()) {
    ask(queries > 0 ? std::min(kSampleEvery, queries - count.asked) : kSampleEvery);
    memoryAtMost = std::max(memoryAtMost, soak::MemoryInUse(service.ProcessId()));
  }
  const long memoryAtEnd = soak::MemoryInUse(service.ProcessId());
  const bool survived = !service.HasEnded();
  const long dropped = soak::DroppedBySystem();
  const double seconds = std::chrono::duration<double>(Clock::now() - began).count();

  std::printf("queries and answers\n");
  Row("queries asked", count.asked);
  Row("answered, byte for byte as expected", count.answered);
  Row("lost", count.lost);
  Row("wrong or unasked answers", count.wrong);
  Row("wrong queries at a server", count.garbled);
  Row("dropped by the system (must be 0 to judge)", dropped);
  std::printf("what the servers and forgers did besides\n");
  Row("answers sent twice", count.doubled);
  Row("answers held back", count.delayed);
  Row("answers forged", count.forged);
  std::printf("the service's own memory, KiB\n");
  Row("at the start", memoryAtStart);
  Row("base: after the first queries, at rest", memoryAtBase);
  Row("most, between rounds", memoryAtMost);
  Row("at the end, at rest", memoryAtEnd);
  Row("peak resident, code included", soak::PeakResident(service.ProcessId()));
  std::printf("%.0f s, %.0f queries a second\n", seconds,
              static_cast<double>(count.asked) / seconds);

  bool failed = false;
  const auto fail = [&failed](const char* why) {
    std::printf("FAILED: %s\n", why);
    failed = true;
  };
  if (!survived) {
    fail("the service's process ended");
  }
  if (dropped != 0) {
    fail("the system dropped datagrams: nothing can be said about losses");
  } else if (count.lost != 0 || count.answered != count.asked) {
    fail("queries were lost, and the system dropped none");
  }
  if (count.wrong != 0 || count.garbled != 0) {
    fail("an answer or a query was not what it had to be");
  }
  if (support::kSanitized) {
    std::printf("memory is not judged: a sanitizer keeps what has been freed\n");
  } else if (count.asked < 2 * kWarmUp) {
    std::printf("memory is not judged: its base is not reached before %ld queries\n", kWarmUp);
  } else if (memoryAtEnd > memoryAtBase + kMemoryTolerance) {
    fail("the memory is not back at its base");
  }
  return failed ? 1 : 0;
}
