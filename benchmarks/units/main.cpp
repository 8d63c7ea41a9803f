// Runs the unit benchmarks. Standard output, which takes the service's trace, goes to /dev/null;
// the table goes to what was standard output before.
//
//   ExtractDomain/*        reading a question: question_benchmark.cpp
//   HostTableFind/*        a look-up in the host map: host_table_benchmark.cpp
//   RequestTable*/PENDING  operations at several fillings: request_table_benchmark.cpp
//   Make*                  the two made-up answers: answers_benchmark.cpp
//   *Handler*              a datagram's whole way through a handler: handlers_benchmark.cpp
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "benchmarks/support/loopback_socket.h"

int main(int argc, char** argv) {
  const int terminal = dup(STDOUT_FILENO);
  const int nowhere = open("/dev/null", O_WRONLY);
  if (terminal == -1 || nowhere == -1 || dup2(nowhere, STDOUT_FILENO) == -1) {
    benchmarks::Fail("standard output");
  }
#if !defined(NDEBUG)
  std::fprintf(stderr, "not a Release build: the figures mean nothing\n");
#endif
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  std::ofstream table("/dev/fd/" + std::to_string(terminal), std::ios::app);
  benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
  reporter.SetOutputStream(&table);
  return benchmark::RunSpecifiedBenchmarks(&reporter) == 0 ? 1 : 0;
}
