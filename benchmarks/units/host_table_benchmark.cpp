// A look-up in the host map, by the number of mappings.
//
//   HostTableFind/hit/MAPPINGS    a name that is there
//   HostTableFind/miss/MAPPINGS   a name that is not
//   HostTableFind/folded/MAPPINGS a name that is there, asked for in upper case
#include <benchmark/benchmark.h>

#include <string>

#include "benchmarks/support/messages.h"
#include "dns_proxy_mac/proxy/host_table.h"

namespace {

void Find(benchmark::State& state, const std::string& name, bool there) {
  HostTable table;
  for (int i = 1; i < state.range(0); ++i) {
    table.Add(("host" + std::to_string(i) + ".example.com").data(), "192.0.2.1");
  }
  table.Add(std::string(benchmarks::kMappedName).data(), benchmarks::kMappedAddress);
  for (auto _ : state) {
    HostRespData* record = nullptr;
    if (table.Find(name, record) != there) {
      state.SkipWithError("a wrong result");
      break;
    }
    benchmark::DoNotOptimize(record);
  }
  table.Clear();
}

}  // namespace

BENCHMARK_CAPTURE(Find, hit, benchmarks::kMappedName, true)
    ->Name("HostTableFind/hit")
    ->Arg(1)
    ->Arg(100)
    ->Arg(10000);
BENCHMARK_CAPTURE(Find, miss, benchmarks::kOtherName, false)
    ->Name("HostTableFind/miss")
    ->Arg(1)
    ->Arg(100)
    ->Arg(10000);
BENCHMARK_CAPTURE(Find, folded, "INTRANET.Example.COM", true)
    ->Name("HostTableFind/folded")
    ->Arg(100);
