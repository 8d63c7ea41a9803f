// Reading a question into text, type and class.
//
//   ExtractDomain/short      example.com
//   ExtractDomain/usual      www.example.org
//   ExtractDomain/long       a name of 253 characters in four labels
//   ExtractDomain/labels     a name of 253 characters in 127 labels
//   ExtractDomain/truncated  a label that announces more than the datagram holds
#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>

#include "benchmarks/support/messages.h"
#include "dns_proxy_mac/proxy/dns_message.h"

namespace {

void ReadQuestion(benchmark::State& state, const benchmarks::Message& query) {
  char domain[kDomainTextSize];
  for (auto _ : state) {
    // The caller's duty: the space is zero as far as the last name reached.
    std::fill(domain, domain + 256, '\0');
    unsigned short type = 0;
    unsigned short questionClass = 0;
    ExtractDomain(query.data() + kDnsHeaderSize, static_cast<int>(query.size()) - kDnsHeaderSize,
                  domain, kDomainTextSize, type, questionClass);
    benchmark::DoNotOptimize(domain);
    benchmark::DoNotOptimize(type);
  }
}

std::string LongName() {
  const std::string label(62, 'a');
  return label + "." + label + "." + label + "." + std::string(61, 'b') + ".c";
}

std::string NameOfManyLabels() {
  std::string name = "a";
  for (int i = 1; i < 127; ++i) {
    name += ".a";
  }
  return name;
}

benchmarks::Message Truncated() {
  benchmarks::Message query = benchmarks::MakeQuery(benchmarks::kOtherName, 1);
  query[kDnsHeaderSize] = 60;
  return query;
}

}  // namespace

BENCHMARK_CAPTURE(ReadQuestion, short, benchmarks::MakeQuery("example.com", 1))
    ->Name("ExtractDomain/short");
BENCHMARK_CAPTURE(ReadQuestion, usual, benchmarks::MakeQuery(benchmarks::kOtherName, 1))
    ->Name("ExtractDomain/usual");
BENCHMARK_CAPTURE(ReadQuestion, long, benchmarks::MakeQuery(LongName(), 1))
    ->Name("ExtractDomain/long");
BENCHMARK_CAPTURE(ReadQuestion, labels, benchmarks::MakeQuery(NameOfManyLabels(), 1))
    ->Name("ExtractDomain/labels");
BENCHMARK_CAPTURE(ReadQuestion, truncated, Truncated())->Name("ExtractDomain/truncated");
