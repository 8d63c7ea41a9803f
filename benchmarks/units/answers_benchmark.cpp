// The two made-up answers, by the length of the query in bytes.
//
//   MakeHostAnswer/LENGTH          the host map's A record behind the query
//   MakeNoSuchNameResponse/LENGTH  the "no such name" response
#include <benchmark/benchmark.h>

#include "dns_proxy_mac/proxy/answers.h"

namespace {

constexpr unsigned short kTypeA = 1;

void MakeHostAnswerOf(benchmark::State& state) {
  unsigned char message[kMaxMessageSize] = {};
  const HostRespData record = {};
  for (auto _ : state) {
    const int length =
        MakeHostAnswer(message, static_cast<int>(state.range(0)), record, 0x1234, kTypeA);
    benchmark::DoNotOptimize(length);
    benchmark::ClobberMemory();
  }
}

void MakeNoSuchNameResponseOf(benchmark::State& state) {
  const unsigned char query[kMaxMessageSize] = {};
  unsigned char response[kMaxMessageSize];
  for (auto _ : state) {
    MakeNoSuchNameResponse(query, static_cast<int>(state.range(0)), 0x1234, response);
    benchmark::DoNotOptimize(response);
    benchmark::ClobberMemory();
  }
}

}  // namespace

BENCHMARK(MakeHostAnswerOf)->Name("MakeHostAnswer")->Arg(33)->Arg(512)->Arg(8175);
BENCHMARK(MakeNoSuchNameResponseOf)->Name("MakeNoSuchNameResponse")->Arg(33)->Arg(512)->Arg(8192);
