// The table of pending requests, by the number of requests that are pending.
//
//   RequestTableFind/PENDING       a request that is there
//   RequestTableMiss/PENDING       an identifier that no request has
//   RequestTableAddDelete/PENDING  a request is stored and removed again, its allocation included
//   RequestTableRefused/PENDING    a request whose identifier is taken
#include <benchmark/benchmark.h>

#include <memory>
#include <utility>

#include "dns_proxy_mac/proxy/dns_request.h"
#include "dns_proxy_mac/proxy/request_table.h"

namespace {

constexpr unsigned short kFreeId = 65535;

std::unique_ptr<DnsRequest> RequestUnder(unsigned short id) {
  std::unique_ptr<DnsRequest> request(new DnsRequest);
  request->QueryID = id;
  return request;
}

// `table` with requests under 0, 1, ... as many as the benchmark's argument says.
void Fill(RequestTable& table, const benchmark::State& state) {
  for (int id = 0; id < state.range(0); ++id) {
    table.Add(RequestUnder(static_cast<unsigned short>(id)));
  }
}

void RequestTableFind(benchmark::State& state) {
  RequestTable table;
  Fill(table, state);
  int id = 0;
  for (auto _ : state) {
    RequestTable::Position position;
    if (!table.Find(static_cast<unsigned short>(id), position)) {
      state.SkipWithError("not found");
      break;
    }
    benchmark::DoNotOptimize(position);
    id = static_cast<int>((id + 1) % state.range(0));
  }
}

void RequestTableMiss(benchmark::State& state) {
  RequestTable table;
  Fill(table, state);
  for (auto _ : state) {
    RequestTable::Position position;
    if (table.Find(kFreeId, position)) {
      state.SkipWithError("found");
      break;
    }
    benchmark::DoNotOptimize(position);
  }
}

void RequestTableAddDelete(benchmark::State& state) {
  RequestTable table;
  Fill(table, state);
  for (auto _ : state) {
    table.Add(RequestUnder(kFreeId));
    table.Delete(kFreeId);
  }
}

void RequestTableRefused(benchmark::State& state) {
  RequestTable table;
  Fill(table, state);
  for (auto _ : state) {
    table.Add(RequestUnder(0));
  }
}

}  // namespace

BENCHMARK(RequestTableFind)->Arg(1)->Arg(1000)->Arg(10000)->Arg(60000);
BENCHMARK(RequestTableMiss)->Arg(0)->Arg(1000)->Arg(10000)->Arg(60000);
BENCHMARK(RequestTableAddDelete)->Arg(0)->Arg(1000)->Arg(10000)->Arg(60000);
BENCHMARK(RequestTableRefused)->Arg(1)->Arg(60000);
